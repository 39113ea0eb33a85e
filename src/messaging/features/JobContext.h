// What a subject handler and a method's run see of the job that runs them.
#pragma once

#include <chrono>
#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <utility>

#include "frame/StatusCode.h"
#include "messaging/DeviceProperty.h"
#include "messaging/ProgressReporter.h"

namespace Morvu {

namespace DeviceManagement {
class Device;
struct SelectedDevices;
}  // namespace DeviceManagement
namespace XmlMessaging {
class Message;
}

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

// What a job does for its handler: the first three are its manager's.
class JobServices {
 public:
  virtual ~JobServices() = default;

  virtual void Rescan(const XmlMessaging::Message& request) = 0;
  // Fills `devices` with clones of what the request names; a null request names all.
  virtual void SelectDevices(DeviceManagement::SelectedDevices& devices,
                             const XmlMessaging::Message* request) = 0;
  virtual void PostNotification(const Notification& notification) = 0;

  // Posts the message with the job's identifier and object.
  virtual void PostMessage(std::unique_ptr<XmlMessaging::Message> message) = 0;
  virtual void SetHidden(bool hidden) = 0;
  virtual void SetKeepAll(bool keepAll) = 0;
  virtual void SetTimeBeforeRemoval(std::chrono::microseconds duration) = 0;
  virtual void SetNotifyProgress(bool notify) = 0;
};

// Does nothing, and selects nothing.
class NoJobServices : public JobServices {
 public:
  void Rescan(const XmlMessaging::Message& request) override;
  void SelectDevices(DeviceManagement::SelectedDevices& devices,
                     const XmlMessaging::Message* request) override;
  void PostNotification(const Notification& notification) override;
  void PostMessage(std::unique_ptr<XmlMessaging::Message> message) override;
  void SetHidden(bool hidden) override;
  void SetKeepAll(bool keepAll) override;
  void SetTimeBeforeRemoval(std::chrono::microseconds duration) override;
  void SetNotifyProgress(bool notify) override;
};

// The services of a context without a job. They have no state.
JobServices& GetNoJobServices();

// What a drive answered to one question, such as for the value of a feature.
struct DriveReading {
  StatusCode code;
  std::uint32_t value;
};

// Lives in the job and is valid while its handler runs. Nothing here is owned.
struct JobContext {
  XmlMessaging::Message* request = nullptr;  // the job's
  XmlMessaging::Message* reply = nullptr;    // the handler's, for deeper code to add to
  ProgressReporter* reporter = &NoReporter();
  JobServices* services = &GetNoJobServices();
  JobManager* manager = nullptr;
  std::string subject;
  std::uint64_t jobId = 0;  // 0 without a job
  // What was read for one property of a drive and holds others, by the feature that was asked.
  std::map<std::pair<const DeviceManagement::Device*, std::uint8_t>, DriveReading> readings{};

  // Percent, state and error code in one call.
  void Report(std::int32_t percent, std::int32_t state, StatusCode code) const {
    reporter->SetErrorCode(code);
    reporter->SetState(state);
    reporter->SetPercent(percent);
  }
};

}  // namespace Morvu
