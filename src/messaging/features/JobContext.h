// What a subject handler and a method see of the job that runs them.
#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <string>

#include "frame/StatusCode.h"
#include "messaging/DeviceProperty.h"
#include "messaging/ProgressReporter.h"

namespace Morvu {

namespace DeviceManagement {
struct SelectedDevices;
}
namespace XmlMessaging {
class Message;
}

class Job;
class JobManager;
struct JobContext;

// A noteworthy fact about a drive, handed to the notification service.
struct Notification {
  std::uint32_t type = 0;
  DeviceProperty value;
  std::string objectPath;  // class name, ".", serial number
  std::uint32_t status = 0;
};

// Handles a request; the reply, which may be null, goes to the job.
using SubjectHandler = std::unique_ptr<XmlMessaging::Message> (*)(JobContext& context);

// Lives in the job and is valid while its handler runs. The operations take the
// `job` or the `manager` field as their first argument.
struct JobContext {
  XmlMessaging::Message* request = nullptr;  // owned by the job
  XmlMessaging::Message* reply = nullptr;    // the handler's, for deeper code to add to
  const ProgressReporter* reporter = nullptr;
  JobManager* manager = nullptr;
  Job* job = nullptr;
  std::string subject;

  void (*postMessage)(Job* job, std::unique_ptr<XmlMessaging::Message> message) = nullptr;
  void (*postNotification)(JobManager* manager, const Notification& notification) = nullptr;
  void (*rescan)(JobManager* manager, const XmlMessaging::Message& request) = nullptr;
  void (*selectDevices)(JobManager* manager, DeviceManagement::SelectedDevices& devices,
                        const XmlMessaging::Message* request) = nullptr;
  void (*setHidden)(Job* job, bool hidden) = nullptr;
  void (*setKeepAll)(Job* job, bool keepAll) = nullptr;
  void (*setTimeBeforeRemoval)(Job* job, std::chrono::microseconds duration) = nullptr;
  void (*setNotifyProgress)(Job* job, bool notify) = nullptr;

  // Percent, state and error code in one call.
  void Report(std::int32_t percent, std::int32_t state, StatusCode code) const {
    if (reporter == nullptr) return;
    if (reporter->setErrorCode) reporter->setErrorCode(reporter->owner, code);
    if (reporter->setState) reporter->setState(reporter->owner, state);
    if (reporter->setPercent) reporter->setPercent(reporter->owner, percent);
  }
};

}  // namespace Morvu
