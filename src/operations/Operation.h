// What the operations on drives share: refusal tables, the rules of a drive
// method, and the confirm-then-force sequence of the destructive ones.
#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <string_view>

#include "devices/Device.h"
#include "devices/DeviceList.h"
#include "frame/StatusCode.h"
#include "messaging/JobContext.h"
#include "messaging/XmlMessaging.h"

namespace Morvu {

class QRKCLI;

// One row of an operation's table of refusals. The table is read from the top; the
// first test that holds gives the code.
template <typename Operation>
struct Refusal {
  bool (*holds)(Operation& operation);
  StatusCode code;
};

// The code of the first row that holds; 1 when none does.
template <typename Operation>
StatusCode FirstRefusal(std::span<const Refusal<std::type_identity_t<Operation>>> table,
                        Operation& operation) {
  for (const auto& row : table) {
    if (row.holds(operation)) return row.code;
  }
  return Status::ReadyToRun;
}

// A row's test that asks the operation's device.
template <auto Test, typename Operation>
bool OfDevice(Operation& operation) {
  return Test(operation.GetDevice());
}

// The tests that many tables share. None changes the device.
namespace Refuse {
bool NotConnected(DeviceManagement::Device& device);
bool RaidVolume(DeviceManagement::Device& device);
bool NotMorvu(DeviceManagement::Device& device);
bool RaidMember(DeviceManagement::Device& device);
bool StorageSpaceMember(DeviceManagement::Device& device);
bool DeviceFault(DeviceManagement::Device& device);
bool FailureReported(DeviceManagement::Device& device);  // "ErrorString" is not empty
bool NoAta(DeviceManagement::Device& device);
// A partition is known from the scan, or the system shows one now.
bool HasPartition(DeviceManagement::Device& device);
}  // namespace Refuse

// The operating-system rule before a destructive run: forced, or no partition now.
bool MayErase(DeviceManagement::Device& device, bool force);

// ---- Drive methods ----

// The one selected device; null when there is not exactly one.
DeviceManagement::Device* OnlyDevice(DeviceManagement::SelectedDevices& devices);

// A method's parameter: its text, empty when missing; true only for "True"; a
// decimal number, 0 when missing.
std::string GetTextParameter(const XmlMessaging::Object& method, std::string_view name,
                             std::string_view missing = "");
bool GetBoolParameter(const XmlMessaging::Object& method, std::string_view name);
std::uint64_t GetNumberParameter(const XmlMessaging::Object& method, std::string_view name);

// The steps that every method's run begins with: progress messages on, exactly one
// device (else null, and the method's status is 245).
DeviceManagement::Device* BeginMethod(JobContext& context,
                                      DeviceManagement::SelectedDevices& devices);

// The description of the drive method `name`, with the list of its `status` when
// that is not null. Null when the status is one of `hidden`.
std::unique_ptr<XmlMessaging::Object> DescribeMethod(std::string_view name,
                                                     const StatusCode* status,
                                                     std::span<const StatusCode> hidden);

// ---- Destructive operations ----

// The texts of one operation at the prompt.
struct EraseTexts {
  std::string_view unable;   // printed when the drive is refused
  std::string_view warning;  // "WARNING! You have selected to format the drive!"
  std::string_view prompt;   // "Proceed with the format?"
};

// Decides whether a destructive operation, built with force false and left at
// `code`, may go on: 1 when it may (the caller then forces it), else the result.
// `cli` is null on the message path, where a partition refuses the run (13); at the
// prompt the user is asked, unless `force`.
StatusCode ConfirmErase(StatusCode code, QRKCLI* cli, bool force, const EraseTexts& texts);

}  // namespace Morvu
