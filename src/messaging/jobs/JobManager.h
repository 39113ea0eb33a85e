// The owner of all jobs and of the device model that they work on.
#pragma once

#include <atomic>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <vector>

#include "devices/discovery/AdapterManager.h"
#include "messaging/jobs/Job.h"

namespace Morvu {

namespace XmlMessaging {
class List;
}

// Locks, outermost first: `scanMutex_`, `deviceMutex_`, `jobsMutex_`, then that of a job. Any
// thread may call any operation.
class JobManager : private NoJobServices {
 public:
  // Starts the monitor thread, which drops jobs whose time is over. Throws when there
  // is no thread to be had.
  explicit JobManager(JobEnvironment environment);
  ~JobManager() override;  // stops
  JobManager(const JobManager&) = delete;
  JobManager& operator=(const JobManager&) = delete;

  struct CreatedJob {
    StatusCode status;
    JobId id = 0;  // only of a job
  };
  // Starts a job for the request, on a thread of its own or on this one. 185 when no
  // thread could be started; 178 after Stop.
  CreatedJob CreateJob(std::unique_ptr<XmlMessaging::Message> request, SubjectHandler handler,
                       bool synchronous);
  // Asks a job to end. An unknown id changes nothing.
  void CancelJob(JobId id);
  // Asks the jobs of this subject to end that were created before the one of `request`,
  // and whose own request passes the test.
  void CancelJobsBefore(const XmlMessaging::Message& request,
                        bool (*test)(const XmlMessaging::Message&));
  // Whether such a job is still at work, and nobody has asked it to end.
  bool HasJobBefore(const XmlMessaging::Message& request,
                    bool (*test)(const XmlMessaging::Message&)) const;
  // The jobs that are not hidden, in the order of their creation.
  std::unique_ptr<XmlMessaging::List> BuildJobList() const;
  // The same list for a class description: one job without values.
  static std::unique_ptr<XmlMessaging::List> DescribeJobList();

  // One round of the monitor: drops the jobs that are not retained, and frees the
  // threads of those that have ended.
  void Sweep();
  // Takes no more jobs, asks those that run to end, and waits for them.
  void Stop();

  // Device access. Scans come one after the other. No drive is asked under the device lock:
  // a scan takes it to publish what it found, a selection to take clones, on which jobs work
  // without it.
  void SetScanLsi(bool scan) { scanLsi_ = scan; }
  void Rescan(const XmlMessaging::Message& request) override;
  void SelectDevices(DeviceManagement::SelectedDevices& devices,
                     const XmlMessaging::Message* request) override;
  void PostNotification(const Notification& notification) override;

 private:
  static DeviceManagement::ScanOptions MakeScanOptions();
  JobContext MakeContext();
  std::shared_ptr<Job> NewJob(SubjectHandler handler) const;
  // Puts the job on the list and starts it, with a thread or without.
  StatusCode AddJob(const std::shared_ptr<Job>& job, bool withThread);
  void Monitor();

  const JobEnvironment environment_;
  const JobContext contextTemplate_;

  DeviceManagement::ScanOptions TakeScanOptions(const XmlMessaging::Message& request);

  std::mutex scanMutex_;    // of the scan that asks the drives
  std::mutex deviceMutex_;  // guards the two below
  DeviceManagement::AdapterManager adapterManager_;
  DeviceManagement::ScanOptions scanOptions_;
  std::atomic<bool> scanLsi_ = false;  // apart, so that a running scan holds up no host

  mutable std::mutex jobsMutex_;            // guards the three below
  std::vector<std::shared_ptr<Job>> jobs_;  // whoever runs one on its own thread shares it
  bool running_ = true;
  std::condition_variable stopped_;

  std::unique_ptr<Thread> monitorThread_;
};

}  // namespace Morvu
