#include "messaging/jobs/Job.h"

#include <cerrno>
#include <system_error>

#include "frame/Logger.h"
#include "frame/Text.h"
#include "frame/status/NvmeStatus.h"
#include "messaging/XmlMessaging.h"
#include "messaging/drive_class/RequestCheck.h"
#include "messaging/features/Feature.h"

namespace Morvu {

using XmlMessaging::Message;
using XmlMessaging::Object;
using XmlMessaging::Property;

namespace {

// The values of CIM_ConcreteJob.JobState.
constexpr int kJobStateRunning = 4;
constexpr int kJobStateCompleted = 7;

// Room for a handler with some to spare; the system's default would fill the address
// space of a 32-bit process with a few hundred jobs.
constexpr std::size_t kStackSize = 1024 * 1024;

// Below every time before removal: a job that has not ended stays.
constexpr JobDuration kNotEnded{-3'661'000'001};

// What an exception that left a handler comes to as a status.
StatusCode StatusOfException(const std::exception& error) {
  if (dynamic_cast<const std::bad_alloc*>(&error) != nullptr) return -ENOMEM;
  if (const auto* system = dynamic_cast<const std::system_error*>(&error)) {
    return StatusCode::FromSystemError(system->code().value());
  }
  return -EIO;
}

struct ObjectProperty {
  std::string_view name;
  std::string_view displayName;
  std::string_view type;
  bool isKey = false;
};

// The job object's properties, in their order on the wire.
constexpr ObjectProperty kObjectProperties[] = {
    // clang-format off
    // name              displayName          type        key
    {"InstanceID",        "",                  "string",   true},
    {"Name",              "",                  "string"},
    {"PercentComplete",   "Progress",          "uint8"},
    {"JobState",          "JobState",          "uint16"},
    {"ErrorCode",         "ErrorCode",         "uint8"},
    {"StartTime",         "StartTime",         "datetime"},
    {"ElapsedTime",       "ElapsedTime",       "datetime"},
    {"TimeBeforeRemoval", "TimeBeforeRemoval", "datetime"},
    // clang-format on
};

std::unique_ptr<Message> MakeProgressMessage(const std::string& detail) {
  auto message = std::make_unique<Message>();
  message->SetAttribute("cimClass", "MorvuJob");
  if (!detail.empty()) message->SetAttribute("detail", detail);
  return message;
}

}  // namespace

Job::Job(const JobContext& contextTemplate, SubjectHandler handler,
         const JobEnvironment& environment)
    : environment_(environment),
      handler_(handler),
      managerServices_(*contextTemplate.services),
      context_(contextTemplate) {
  context_.reporter = this;
  context_.services = this;
  context_.jobId = GetId();
}

Job::~Job() { Join(); }

JobId Job::GetId() const {
  return static_cast<JobId>(static_cast<std::int64_t>(reinterpret_cast<std::intptr_t>(this)));
}

void Job::Accept(std::unique_ptr<Message> request) {
  request_ = std::move(request);
  name_ = XmlMessaging::RoutingName(*request_);
  context_.request = request_.get();
  context_.subject = name_;
  Change([](Progress& progress) { progress.shown.errorCode = Status::Running; });
  running_ = true;
}

bool Job::StartThread() {
  try {
    thread_ = std::make_unique<Thread>([this] { Run(); }, kStackSize);
    return true;
  } catch (const std::exception& error) {
    MORVU_LOG(kLogError, "StartThread", std::string("No thread for a job: ") + error.what());
    return false;
  }
}

void Job::Join() { thread_.reset(); }

void Job::Run() {
  bool hasEnded = false;
  // Even when a callback ends the thread, which unwinds it and is no std::exception.
  const std::shared_ptr<void> atEnd(nullptr, [&](void*) {
    if (!hasEnded) Abandon();
    running_ = false;  // from here on the job may be destroyed
  });
  try {
    auto reply = RunHandler();
    Change([&](Progress& progress) { progress.endTime = environment_.now(); });
    const auto progress = GetProgress();
    const bool isUntold = progress.notifyProgress && HasEnd(progress);
    if (!reply && isUntold) reply = MakeProgressMessage({});
    if (reply) PostEnd(std::move(reply));
  } catch (const std::exception& error) {
    MORVU_LOG(kLogError, "Run", std::string("A reply was lost: ") + error.what());
  }
  ShowEnd();
  hasEnded = true;
}

void Job::Abandon() {
  Change([&](Progress& progress) {
    progress.endTime = environment_.now();
    if (!HasEnd(progress)) {
      progress.reported = {StatusCode::FromSystemError(ECANCELED), FeatureState::Failed};
    }
    progress.shown = progress.reported;
  });
}

std::unique_ptr<Message> Job::RunHandler() {
  try {
    const auto check = CheckRequest(*request_);
    for (const auto& part : check.unread) {
      MORVU_LOG(kLogWarning, "Run", "Not understood in a request for " + name_ + ": " + part);
    }
    // What is refused for its wording sends nothing to any drive.
    const bool scans = ParseBool(request_->GetAttribute("scan")) == true;
    if (scans && !check.IsRefused()) Rescan(*request_);
    Change([&](Progress& progress) { progress.startTime = environment_.now(); });
    return handler_(context_);
  } catch (const std::exception& error) {
    MORVU_LOG(kLogError, "Run", "Job " + name_ + " failed: " + error.what());
    return Fail(StatusOfException(error));
  }
}

std::unique_ptr<Message> Job::Fail(StatusCode code) {
  context_.reply = nullptr;
  auto reply = std::make_unique<Message>();
  reply->SetAttribute("subject", name_);
  Change([&](Progress& progress) { progress.reported = {code, FeatureState::Failed}; });
  return reply;
}

void Job::SetState(std::int32_t state) {
  Change([&](Progress& progress) { progress.reported.state = state; });
}

void Job::SetErrorCode(StatusCode code) {
  Change([&](Progress& progress) { progress.reported.errorCode = code; });
}

void Job::SetPercent(std::int32_t percent) {
  bool isPosted = false;
  std::string detail;
  Change([&](Progress& progress) {
    progress.percent = percent;
    detail = progress.detail;
    // The end of a job reaches the host with its reply: a host that reads "JobState"
    // 7 holds the result.
    isPosted = progress.notifyProgress && !HasEnd(progress);
  });
  if (isPosted) Post(MakeProgressMessage(detail));
}

void Job::SetDetail(std::string_view detail) {
  Change([&](Progress& progress) { progress.detail = detail; });
}

void Job::Rescan(const Message& request) { managerServices_.Rescan(request); }

void Job::SelectDevices(DeviceManagement::SelectedDevices& devices, const Message* request) {
  managerServices_.SelectDevices(devices, request);
}

void Job::PostNotification(const Notification& notification) {
  managerServices_.PostNotification(notification);
}

void Job::PostMessage(std::unique_ptr<Message> message) {
  if (message) Post(std::move(message));
}

void Job::SetHidden(bool hidden) {
  Change([&](Progress& progress) { progress.hidden = hidden; });
}

void Job::SetKeepAll(bool keepAll) {
  Change([&](Progress& progress) { progress.keepAll = keepAll; });
}

void Job::SetTimeBeforeRemoval(JobDuration duration) {
  Change([&](Progress& progress) { progress.timeBeforeRemoval = duration; });
}

void Job::SetNotifyProgress(bool notify) {
  Change([&](Progress& progress) { progress.notifyProgress = notify; });
}

void Job::Post(std::unique_ptr<Message> message) {
  const auto progress = GetProgress();
  AddTo(*message, progress);
  environment_.post(std::move(message), GetId(), progress.keepAll, [] {});
}

void Job::PostEnd(std::unique_ptr<Message> message) {
  auto progress = GetProgress();
  progress.shown = progress.reported;
  AddTo(*message, progress);
  environment_.post(std::move(message), GetId(), progress.keepAll, [this] { ShowEnd(); });
}

void Job::ShowEnd() {
  Change([](Progress& progress) { progress.shown = progress.reported; });
}

void Job::AddTo(Message& message, const Progress& progress) const {
  message.SetAttribute("identifier", std::to_string(GetId()));
  message.objects.push_back(ToXmlObject(progress));
}

bool Job::IsHidden() const { return GetProgress().hidden; }

bool Job::IsRetained() const {
  if (running_) return true;
  const auto progress = GetProgress();
  const auto sinceEnd = progress.endTime ? environment_.now() - *progress.endTime : kNotEnded;
  return progress.timeBeforeRemoval > sinceEnd;
}

std::unique_ptr<Object> Job::DescribeXml() {
  auto object = std::make_unique<Object>();
  object->SetAttribute("name", "Morvu Job");
  object->SetAttribute("cimClass", "MorvuJob");
  for (const auto& row : kObjectProperties) {
    auto& property = object->AddProperty(row.name, "");
    property.SetAttribute("type", row.type);
    if (!row.displayName.empty()) property.SetAttribute("displayName", row.displayName);
    if (row.isKey) property.SetAttribute("key", BoolText(true));
  }
  return object;
}

std::unique_ptr<Object> Job::ToXmlObject() const { return ToXmlObject(GetProgress()); }

std::unique_ptr<Object> Job::ToXmlObject(const Progress& progress) const {
  const auto& [errorCode, state] = progress.shown;
  const bool isRunning = state == FeatureState::Running;
  std::optional<JobDuration> elapsed;
  if (progress.startTime) {
    elapsed = progress.endTime.value_or(environment_.now()) - *progress.startTime;
  }
  const std::string texts[] = {
      std::to_string(GetId()),
      name_,
      std::to_string(progress.percent),
      std::to_string(isRunning ? kJobStateRunning : kJobStateCompleted),
      std::to_string(ToToldNumber(errorCode)),
      ToTimeText(progress.startTime),
      ToDurationText(elapsed),
      ToDurationText(progress.timeBeforeRemoval),
  };
  static_assert(std::size(texts) == std::size(kObjectProperties));
  auto object = DescribeXml();
  for (std::size_t i = 0; i < std::size(texts); ++i) object->properties[i]->value = texts[i];
  // The number alone would read as the status code of the same number.
  if (ToNvmeStatus(errorCode)) {
    auto& property = object->AddProperty("NVMeStatus", DescribeNvmeStatus(errorCode));
    property.SetAttribute("type", "string");
  }
  return object;
}

}  // namespace Morvu
