// Notifications: noteworthy facts about drives, sent to the host as messages of one
// long-running hidden job.
#pragma once

#include <condition_variable>
#include <memory>
#include <mutex>
#include <span>
#include <string>
#include <vector>

#include "devices/model/Device.h"
#include "devices/model/DeviceList.h"
#include "messaging/jobs/BackgroundService.h"

namespace Morvu {

// At most one service of the process is active: from its start until it is told to
// stop. What is posted without one is dropped.
class NotificationService : public BackgroundService {
 public:
  // Runs a service in the job of `context` until it is stopped. Returns at once when
  // there is an active one.
  static void RunService(JobContext& context);
  static bool IsServiceActive();
  // Stops the active service, if there is one.
  static void StopService();
  // The same, when it runs in a job of this manager.
  static void StopServiceOf(const JobManager* manager);
  // Queues a copy for the active service.
  static void Post(const Notification& notification);

  using BackgroundService::BackgroundService;

  // Posts what is queued, and what comes in, until the service is stopped. What was
  // queued before the stop still goes out.
  void Run() override;
  void Stop() override;

 private:
  bool IsActive() const;
  void Enqueue(const Notification& notification);

  mutable std::mutex queueMutex_;  // guards the two below
  std::vector<Notification> queue_;
  bool stopRequested_ = false;
  std::condition_variable condition_;
};

// The pass over the drives that produces most notifications: first the steps of each
// drive, then those of all. A step posts what it finds by `context.services`; where a drive's is
// false, the drive's later ones are left out.
// During the pass `context.subject` is "MorvuSSD".
struct DrivePass {
  using DriveStep = bool (*)(JobContext& context, DeviceManagement::Device& drive);
  using ListStep = void (*)(JobContext& context, DeviceManagement::SelectedDevices& drives);
  std::span<const DriveStep> eachDrive;
  std::span<const ListStep> allDrives;
};
void RunDrivePass(JobContext& context, const DrivePass& pass);

// The object that a notification is about: the subject, ".", the serial number.
std::string GetObjectPath(const JobContext& context, const DeviceManagement::Device& drive);

// A step: a frozen or locked drive, and an Opal state other than none.
bool NotifySecurity(JobContext& context, DeviceManagement::Device& drive);

// The subject "Notification": starts or stops the service and runs the drive pass. A
// request that starts the service stays in here until the service is stopped.
std::unique_ptr<XmlMessaging::Message> HandleNotification(JobContext& context,
                                                          const DrivePass& pass);
void DeclareNotification(XmlMessaging::Message& reply, std::vector<std::string>& subjectNames);

}  // namespace Morvu
