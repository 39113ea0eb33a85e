#include "messaging/jobs/JobManager.h"

#include <algorithm>

#include "devices/identification/Products.h"
#include "frame/status/Requests.h"
#include "messaging/XmlMessaging.h"
#include "messaging/drive_class/DeviceSelection.h"
#include "messaging/jobs/NotificationService.h"

namespace Morvu {

using DeviceManagement::AdapterManager;
using DeviceManagement::ScanOptions;
using DeviceManagement::SelectedDevices;
using XmlMessaging::List;
using XmlMessaging::Message;

namespace {

constexpr std::chrono::seconds kSweepInterval{1};

std::unique_ptr<List> MakeJobList() {
  auto list = std::make_unique<List>();
  list->SetAttribute("name", "Job list");
  list->SetAttribute("direction", "o");
  list->SetAttribute("cimClass", "MorvuJob");
  return list;
}

}  // namespace

JobManager::JobManager(JobEnvironment environment)
    : environment_(std::move(environment)),
      contextTemplate_(MakeContext()),
      adapterManager_(MakeScanOptions()),
      scanOptions_(MakeScanOptions()),
      monitorThread_(std::make_unique<Thread>([this] { Monitor(); })) {}

JobManager::~JobManager() { Stop(); }

ScanOptions JobManager::MakeScanOptions() {
  ScanOptions options;
  options.identify = true;
  options.findLogical = true;
  for (const auto& product : DeviceManagement::GetProducts()) {
    if (product.isShown) options.includeProducts.emplace_back(product.name);
  }
  return options;
}

JobContext JobManager::MakeContext() {
  JobContext context;
  context.manager = this;
  context.services = this;
  return context;
}

// An address may come back while messages of the job that had it before still wait:
// a new job there would take their place.
std::shared_ptr<Job> JobManager::NewJob(SubjectHandler handler) const {
  std::vector<std::shared_ptr<Job>> passedOver;
  for (;;) {
    auto job = std::make_shared<Job>(contextTemplate_, handler, environment_);
    if (!environment_.hasMessages || !environment_.hasMessages(job->GetId())) return job;
    passedOver.push_back(std::move(job));
  }
}

JobManager::CreatedJob JobManager::CreateJob(std::unique_ptr<Message> request,
                                             SubjectHandler handler, bool synchronous) {
  const auto job = NewJob(handler);
  job->Accept(std::move(request));
  auto status = AddJob(job, !synchronous);
  if (status == Status::ThreadNotStarted) {
    Sweep();  // frees the threads of jobs that have ended
    status = AddJob(job, true);
  }
  if (status != Status::Completed) return {status};
  if (synchronous) job->Run();
  return {status, job->GetId()};
}

StatusCode JobManager::AddJob(const std::shared_ptr<Job>& job, bool withThread) {
  std::lock_guard lock(jobsMutex_);
  if (!running_) return Status::NotInitialized;
  jobs_.push_back(job);
  // Under the lock, so that nobody finds the job between its entry and its thread.
  if (!withThread || job->StartThread()) return Status::Completed;
  jobs_.pop_back();
  return Status::ThreadNotStarted;
}

void JobManager::CancelJob(JobId id) {
  std::lock_guard lock(jobsMutex_);
  const auto found = std::ranges::find(jobs_, id, &Job::GetId);
  if (found != jobs_.end()) (*found)->RequestCancel();
}

void JobManager::CancelJobsBefore(const Message& request, bool (*test)(const Message&)) {
  const auto& name = XmlMessaging::RoutingName(request);
  std::lock_guard lock(jobsMutex_);
  for (const auto& job : jobs_) {
    if (&job->GetRequest() == &request) return;
    if (job->GetName() == name && test(job->GetRequest())) job->RequestCancel();
  }
}

bool JobManager::HasJobBefore(const Message& request, bool (*test)(const Message&)) const {
  const auto& name = XmlMessaging::RoutingName(request);
  std::lock_guard lock(jobsMutex_);
  for (const auto& job : jobs_) {
    if (&job->GetRequest() == &request) return false;
    const bool isAtWork = job->IsRunning() && !job->IsCanceled();
    if (isAtWork && job->GetName() == name && test(job->GetRequest())) return true;
  }
  return false;
}

std::unique_ptr<List> JobManager::BuildJobList() const {
  auto list = MakeJobList();
  std::lock_guard lock(jobsMutex_);
  for (const auto& job : jobs_) {
    if (!job->IsHidden()) list->objects.push_back(job->ToXmlObject());
  }
  return list;
}

std::unique_ptr<List> JobManager::DescribeJobList() {
  auto list = MakeJobList();
  list->objects.push_back(Job::DescribeXml());
  return list;
}

void JobManager::Monitor() {
  std::unique_lock lock(jobsMutex_);
  while (running_) {
    lock.unlock();
    Sweep();
    lock.lock();
    stopped_.wait_for(lock, kSweepInterval, [this] { return !running_; });
  }
}

void JobManager::Sweep() {
  std::vector<std::shared_ptr<Job>> dropped;  // destroyed behind the lock
  std::lock_guard lock(jobsMutex_);
  for (const auto& job : jobs_) {
    if (!job->IsRunning()) job->Join();  // it has nothing left to do
  }
  // With iterators: the fuzz build's compiler does not take the subrange that a range gives.
  const auto gone = std::stable_partition(jobs_.begin(), jobs_.end(),
                                          [](const auto& job) { return job->IsRetained(); });
  std::move(gone, jobs_.end(), std::back_inserter(dropped));
  jobs_.erase(gone, jobs_.end());
}

void JobManager::Stop() {
  std::vector<std::shared_ptr<Job>> jobs;
  {
    std::lock_guard lock(jobsMutex_);
    running_ = false;
    jobs.swap(jobs_);
  }
  stopped_.notify_all();
  for (const auto& job : jobs) job->RequestCancel();
  NotificationService::StopServiceOf(this);
  monitorThread_.reset();
  for (const auto& job : jobs) job->Join();
}

void JobManager::Rescan(const Message& request) {
  const std::lock_guard scanning(scanMutex_);
  auto found = AdapterManager::FindDrives(TakeScanOptions(request));
  DeviceManagement::AdapterList gone;  // ends behind the lock
  const std::lock_guard lock(deviceMutex_);
  gone = adapterManager_.Publish(std::move(found));
}

ScanOptions JobManager::TakeScanOptions(const Message& request) {
  const std::lock_guard lock(deviceMutex_);
  for (const auto& object : request.objects) {
    if (object->GetAttribute("name") != "LSIAdapterPaths") continue;
    auto& paths = scanOptions_.lsiLibraryPaths;
    for (const auto& property : object->properties) {
      if (std::ranges::find(paths, property->value) == paths.end()) {
        paths.push_back(property->value);
      }
    }
    break;
  }
  auto options = scanOptions_;
  options.scanLsi = scanLsi_;
  return options;
}

void JobManager::SelectDevices(SelectedDevices& devices, const Message* request) {
  bool named = false;
  {
    const std::lock_guard lock(deviceMutex_);
    named = CloneSelected(adapterManager_.GetDrives(), request, devices);
  }
  if (named) DropUnreachable(devices);
}

void JobManager::PostNotification(const Notification& notification) {
  // Without the device lock: a job that posts need not wait for another one's scan.
  NotificationService::Post(notification);
}

}  // namespace Morvu
