// A job: one accepted request, the thread that works on it, its progress and result.
#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>

#include "frame/Thread.h"
#include "messaging/features/Feature.h"
#include "messaging/features/JobContext.h"
#include "messaging/jobs/JobTime.h"

namespace Morvu {

namespace XmlMessaging {
class Object;
}

// The address of the job, sign-extended; decimal on the wire. It is unique among
// living jobs.
using JobId = std::uint64_t;

// What jobs need of the world around them.
struct JobEnvironment {
  // Hands a message to the host. With `keepAll` it does not take the place of one
  // that still waits. Calls `whenThere` when the host can have it, and not before; what
  // `whenThere` does and the message are seen together.
  std::function<void(std::unique_ptr<XmlMessaging::Message> message, JobId id, bool keepAll,
                     const std::function<void()>& whenThere)>
      post;
  // Whether messages of this job still wait for the host.
  std::function<bool(JobId id)> hasMessages;
  JobTime (*now)() = &GetSystemTime;
};

class Job : private ProgressReporter, private JobServices {
 public:
  // Its context is `contextTemplate`, whose services serve what is not the job's own.
  // They and `environment` must outlive the job.
  Job(const JobContext& contextTemplate, SubjectHandler handler, const JobEnvironment& environment);
  ~Job() override;  // waits for the job's thread
  Job(const Job&) = delete;
  Job& operator=(const Job&) = delete;

  JobId GetId() const;

  // Gives the job its request. It counts as running from here on.
  void Accept(std::unique_ptr<XmlMessaging::Message> request);
  // Runs the request on a thread of the job's own; false when none could be started.
  [[nodiscard]] bool StartThread();
  // Runs the request on this thread.
  void Run();
  // Waits for the job's thread, if it has one.
  void Join();
  bool IsRunning() const { return running_; }
  // Of an accepted job. Its handler may change the request meanwhile.
  const XmlMessaging::Message& GetRequest() const { return *request_; }
  const std::string& GetName() const { return name_; }

  void SetPercent(std::int32_t percent) override;
  // Goes with the progress messages from the next one on.
  void SetDetail(std::string_view detail) override;
  void RequestCancel() { cancelRequested_ = true; }
  bool IsCanceled() const { return cancelRequested_; }
  bool IsHidden() const;
  // Whether the job has yet to stay: until its end and `timeBeforeRemoval` after it.
  bool IsRetained() const;

  std::unique_ptr<XmlMessaging::Object> ToXmlObject() const;
  // The same object without a job, as a class description shows it.
  static std::unique_ptr<XmlMessaging::Object> DescribeXml();

 private:
  // ProgressReporter
  void SetState(std::int32_t state) override;
  void SetErrorCode(StatusCode code) override;
  bool IsCancelRequested() override { return cancelRequested_; }

  // JobServices
  void Rescan(const XmlMessaging::Message& request) override;
  void SelectDevices(DeviceManagement::SelectedDevices& devices,
                     const XmlMessaging::Message* request) override;
  void PostNotification(const Notification& notification) override;
  void PostMessage(std::unique_ptr<XmlMessaging::Message> message) override;
  void SetHidden(bool hidden) override;
  void SetKeepAll(bool keepAll) override;
  void SetTimeBeforeRemoval(JobDuration duration) override;
  void SetNotifyProgress(bool notify) override;

  std::unique_ptr<XmlMessaging::Message> RunHandler();
  // The reply of a job whose handler threw.
  std::unique_ptr<XmlMessaging::Message> Fail(StatusCode code);
  // The end of a job whose thread a callback ended.
  void Abandon();
  // Adds the identifier and the job's object, and hands the message on.
  void Post(std::unique_ptr<XmlMessaging::Message> message);
  // The same for the job's last message: with it the job shows its result.
  void PostEnd(std::unique_ptr<XmlMessaging::Message> message);
  void ShowEnd();

  const JobEnvironment& environment_;
  const SubjectHandler handler_;
  JobServices& managerServices_;
  JobContext context_;
  std::unique_ptr<XmlMessaging::Message> request_;
  std::string name_;
  std::unique_ptr<Thread> thread_;  // null for a synchronous job
  std::atomic<bool> running_ = false;
  std::atomic<bool> cancelRequested_ = false;

  struct Outcome {
    StatusCode errorCode = Status::Running;
    std::int32_t state = FeatureState::Running;
  };
  // What changes while the job runs.
  struct Progress {
    std::int32_t percent = 0;
    std::string detail;
    Outcome shown{.errorCode = Status::NotRun};
    Outcome reported;  // by the handler; shown with the reply
    bool hidden = false;
    bool keepAll = false;
    bool notifyProgress = false;
    std::optional<JobTime> startTime;
    std::optional<JobTime> endTime;
    JobDuration timeBeforeRemoval = std::chrono::minutes(5);
  };
  static bool HasEnd(const Progress& progress) {
    return progress.reported.state != FeatureState::Running;
  }
  void AddTo(XmlMessaging::Message& message, const Progress& progress) const;
  std::unique_ptr<XmlMessaging::Object> ToXmlObject(const Progress& progress) const;
  // Calls `change` with the progress, under the lock.
  void Change(const auto& change) {
    std::lock_guard lock(mutex_);
    change(progress_);
  }
  Progress GetProgress() const {
    std::lock_guard lock(mutex_);
    return progress_;
  }

  // Guards `progress_`. The innermost lock: held for an access, never across a call.
  mutable std::mutex mutex_;
  Progress progress_;
};

}  // namespace Morvu
