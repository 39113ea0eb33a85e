#include "messaging/jobs/NotificationService.h"

#include "devices/model/DriveHold.h"
#include "devices/properties/BasicProperties.h"
#include "devices/properties/ScanProperties.h"
#include "devices/properties/SecurityProperties.h"
#include "devices/system/SystemFacts.h"
#include "frame/Platform.h"
#include "frame/Text.h"
#include "messaging/XmlMessaging.h"
#include "messaging/jobs/JobManager.h"
#include "operations/firmware/FirmwareModules.h"

namespace Morvu {

using DeviceManagement::Device;
using XmlMessaging::Message;
namespace Properties = DeviceManagement::Properties;

namespace {

// The values of "NotificationType" and "NotificationStatus" of the drive pass's facts.
constexpr std::uint32_t kTypeDriveState = 0;
constexpr std::uint32_t kStatusNoteworthy = 1;

constexpr std::string_view kNoOpal = "No Opal";

// Taken before a service's `queueMutex_`.
std::mutex serviceMutex;  // guards the service below
// Never destroyed: jobs use it while the process ends.
std::shared_ptr<NotificationService>& theService = *new std::shared_ptr<NotificationService>;

std::unique_ptr<Message> ToMessage(const Notification& notification) {
  auto message = std::make_unique<Message>();
  message->SetAttribute("ObjectPath", notification.objectPath);
  message->SetAttribute("NotificationType", std::to_string(notification.type));
  message->SetAttribute("NotificationStatus", std::to_string(notification.status));
  message->properties.push_back(notification.value.ToXml());
  return message;
}

struct ServiceRequest {
  bool enable = true;
  bool scan = false;
};

ServiceRequest ReadRequest(const Message& message) {
  ServiceRequest request;
  for (const auto& property : message.properties) {
    const auto& name = property->GetAttribute("name");
    const bool isTrue = property->value == "True";
    if (name == "Enabled") request.enable = isTrue;
    if (name == "scan" && isTrue) request.scan = true;
  }
  return request;
}

bool IsStart(const Message& message) { return ReadRequest(message).enable; }

bool IsCanceled(const JobContext& context) { return context.reporter->IsCancelRequested(); }

// Of two starts the one that was sent first becomes the service, whichever thread comes first:
// a scan that is sent behind a start is told under that start's job.
void AwaitEarlierStart(const JobContext& context) {
  constexpr std::chrono::milliseconds kPause{1};
  while (!NotificationService::IsServiceActive() && !IsCanceled(context) &&
         context.manager != nullptr && context.manager->HasJobBefore(*context.request, &IsStart)) {
    SleepFor(kPause);
  }
}

// Lets a job's request to stop through, and nothing else: a pass is no progress of the job
// that it runs in.
class CancelOnly : public SilentReporter {
 public:
  explicit CancelOnly(ProgressReporter& job) : job_(job) {}
  bool IsCancelRequested() override { return job_.IsCancelRequested(); }

 private:
  ProgressReporter& job_;
};

std::unique_ptr<XmlMessaging::Property> DescribeParameter(std::string_view name) {
  auto property = std::make_unique<XmlMessaging::Property>(name, "");
  property->SetAttribute("type", "boolean");
  property->SetAttribute("required", BoolText(false));
  property->SetAttribute("direction", "i");
  return property;
}

}  // namespace

bool NotificationService::IsServiceActive() {
  std::lock_guard lock(serviceMutex);
  return theService && theService->IsActive();
}

void NotificationService::RunService(JobContext& context) {
  const auto service = std::make_shared<NotificationService>(context);
  {
    std::lock_guard lock(serviceMutex);
    if (theService && theService->IsActive()) return;
    if (IsCanceled(context)) return;  // a stop came first, and no other would follow
    theService = service;             // a stopped one may still be on its way out
  }
  const std::shared_ptr<void> atEnd(nullptr, [&](void*) {
    std::lock_guard lock(serviceMutex);
    if (theService == service) theService.reset();
  });
  service->Run();
}

void NotificationService::StopService() {
  std::lock_guard lock(serviceMutex);
  if (theService) theService->Stop();
}

void NotificationService::StopServiceOf(const JobManager* manager) {
  std::lock_guard lock(serviceMutex);
  if (theService && theService->context_->manager == manager) theService->Stop();
}

void NotificationService::Post(const Notification& notification) {
  std::lock_guard lock(serviceMutex);
  if (theService) theService->Enqueue(notification);
}

bool NotificationService::IsActive() const {
  std::lock_guard lock(queueMutex_);
  return !stopRequested_;
}

void NotificationService::Enqueue(const Notification& notification) {
  std::lock_guard lock(queueMutex_);
  if (stopRequested_) return;
  queue_.push_back(notification);
  condition_.notify_one();
}

void NotificationService::Run() {
  bool isStopped = false;
  while (!isStopped) {
    std::vector<Notification> taken;
    {
      std::unique_lock lock(queueMutex_);
      condition_.wait(lock, [this] { return !queue_.empty() || stopRequested_; });
      taken.swap(queue_);
      isStopped = stopRequested_;
    }
    // Without the lock: the host's callback may send a request that posts again.
    for (const auto& notification : taken) {
      context_->services->PostMessage(ToMessage(notification));
    }
  }
}

void NotificationService::Stop() {
  std::lock_guard lock(queueMutex_);
  stopRequested_ = true;
  condition_.notify_one();
}

std::string GetObjectPath(const JobContext& context, const Device& drive) {
  return context.subject + "." + drive.GetString(Properties::SerialNumber);
}

bool NotifySecurity(JobContext& context, Device& drive) {
  const auto post = [&](const DeviceProperty& value) {
    context.services->PostNotification(
        {kTypeDriveState, value, GetObjectPath(context, drive), kStatusNoteworthy});
  };
  const auto& properties = drive.GetProperties();
  for (const auto* entry : {&Properties::SecurityFrozen, &Properties::SecurityLocked}) {
    const auto* property = properties.Find(*entry);
    if (property != nullptr && property->AsBoolean()) post(*property);
  }
  const auto* opal = properties.Find(Properties::OpalState);
  if (opal != nullptr && opal->ToText() != kNoOpal) post(*opal);
  return true;
}

void RunDrivePass(JobContext& context, const DrivePass& pass) {
  const FirmwareModulesScope modules;  // each is verified once, however many drives ask it
  CancelOnly reporter(*context.reporter);
  JobContext passContext = context;
  passContext.subject = "MorvuSSD";
  passContext.reply = nullptr;
  passContext.reporter = &reporter;

  DeviceManagement::SelectedDevices selected;
  context.services->SelectDevices(selected, context.request);
  const auto facts = DeviceManagement::SystemFacts::Read();
  for (const auto& device : selected.devices) {
    const DeviceManagement::DriveHold hold(*device, facts,
                                           DeviceManagement::DriveHold::Kind::Moment);
    if (!hold.IsTaken()) continue;  // a later pass tells of it
    for (const auto step : pass.eachDrive) {
      if (IsCanceled(passContext)) return;
      if (!step(passContext, *device)) break;
    }
  }
  for (const auto step : pass.allDrives) {
    if (IsCanceled(passContext)) return;
    step(passContext, selected);
  }
}

std::unique_ptr<Message> HandleNotification(JobContext& context, const DrivePass& pass) {
  context.services->SetKeepAll(true);
  context.services->SetHidden(true);
  const auto request = ReadRequest(*context.request);
  if (request.enable) {
    AwaitEarlierStart(context);
    NotificationService::RunService(context);
  } else {
    // A start whose thread has yet to begin is no service to be stopped: it is canceled.
    if (context.manager != nullptr) context.manager->CancelJobsBefore(*context.request, &IsStart);
    NotificationService::StopService();
  }
  if (request.scan) RunDrivePass(context, pass);
  return nullptr;
}

void DeclareNotification(Message& reply, std::vector<std::string>& subjectNames) {
  subjectNames.emplace_back("Notification");
  auto subject = std::make_unique<XmlMessaging::Subject>();
  subject->SetAttribute("name", "Notification");
  subject->SetAttribute("description", "Posts a message for each noteworthy fact about a drive");
  subject->SetAttribute("cimClass", "Notification");
  subject->properties.push_back(DescribeParameter("Enabled"));
  subject->properties.push_back(DescribeParameter("scan"));
  reply.subjects.push_back(std::move(subject));
}

}  // namespace Morvu
