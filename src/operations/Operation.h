// What the operations on drives share: refusal tables, the rules of a drive
// method, and the confirm-then-force sequence of the destructive ones.
#pragma once

#include <concepts>
#include <cstdint>
#include <initializer_list>
#include <limits>
#include <memory>
#include <span>
#include <string>
#include <string_view>

#include "devices/model/Device.h"
#include "devices/model/DeviceList.h"
#include "frame/StatusCode.h"
#include "messaging/XmlMessaging.h"
#include "messaging/features/CimClass.h"
#include "messaging/features/JobContext.h"

namespace Morvu {

class QRKCLI;

// ---- Refusals ----

// One row of an operation's table of refusals. The table is read from the top; the
// first test that holds gives the code.
template <typename Operation>
struct Refusal {
  bool (*holds)(Operation& operation);
  StatusCode code;
};

// The code of the first row that holds; 1 when none does. Ends an Initialize:
//   EndInitialize(FirstRefusal<Format>(kRefusals, *this));
template <typename Operation>
StatusCode FirstRefusal(std::span<const Refusal<std::type_identity_t<Operation>>> table,
                        Operation& operation) {
  for (const auto& row : table) {
    if (row.holds(operation)) return row.code;
  }
  return Status::ReadyToRun;
}

// A row's test that asks the operation's device:
//   {OfDevice<Refuse::NotConnected>, Status::NoCommunication},
// It holds for an operation without a device.
template <bool (*Test)(DeviceManagement::Device&), typename Operation>
bool OfDevice(Operation& operation) {
  auto* device = operation.GetDevice();
  return device == nullptr || Test(*device);
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
bool NoNvme(DeviceManagement::Device& device);
// The drive was lost while its partitions were looked for: none may not be assumed.
bool PartitionsUnknown(DeviceManagement::Device& device);
// The system could not be asked for the drive's partitions. Nothing is sent to the drive.
bool PartitionsUnasked(DeviceManagement::Device& device);
// A partition is known from the scan, or the system shows one now, or is not sure.
bool HasPartition(DeviceManagement::Device& device);
}  // namespace Refuse

// The operating-system rule before a destructive run: forced, or no partition now.
bool MayErase(DeviceManagement::Device& device, bool force);

// ---- Drive methods ----

// The one selected device; null when there is not exactly one.
DeviceManagement::Device* OnlyDevice(DeviceManagement::SelectedDevices& devices);

// The steps that every method's run begins with: progress messages on, exactly one
// device (else null, and the method's status is 245).
DeviceManagement::Device* BeginMethod(JobContext& context,
                                      DeviceManagement::SelectedDevices& devices);

// A method's parameter. A missing text is `missing`; a boolean is true only for
// "True"; a missing number is 0, and one that is out of the type's range, a negative
// one too, reads as the type's largest, so that the check of its range refuses it.
std::string GetTextParameter(const XmlMessaging::Object& method, std::string_view name,
                             std::string_view missing = "");
bool GetBoolParameter(const XmlMessaging::Object& method, std::string_view name);
std::uint64_t GetNumberParameter(const XmlMessaging::Object& method, std::string_view name,
                                 std::uint64_t largest);
template <std::unsigned_integral Number>
Number GetNumberParameter(const XmlMessaging::Object& method, std::string_view name) {
  return static_cast<Number>(GetNumberParameter(method, name, std::numeric_limits<Number>::max()));
}

// The description of the drive method `name`, for a class or for a device whose
// method could not be tested.
std::unique_ptr<XmlMessaging::Object> DescribeMethod(std::string_view name);
// The same for a device on which the method's Feature was left at `status`: null
// when that is one of `hidden`; with the list of the status when the method has one.
std::unique_ptr<XmlMessaging::Object> DescribeMethod(std::string_view name, StatusCode status,
                                                     std::initializer_list<StatusCode> hidden = {});

// ---- The command line ----

// The beginning of every RunCLI: logs "Start" under the caller's file, and tells
// whether the line holds the family's option.
bool BeginRunCLI(const QRKCLI& cli, std::string_view option, const char* file = __builtin_FILE(),
                 int line = __builtin_LINE());

// The drive that the line selected, the first when it names several; null when it
// selected none: an operation that needs a drive does not guess.
DeviceManagement::Device* GetPickedDrive(const QRKCLI& cli,
                                         std::span<DeviceManagement::Device* const> drives);

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
// prompt the user is asked. `force` answers both.
StatusCode ConfirmErase(StatusCode code, QRKCLI* cli, bool force, const EraseTexts& texts);

}  // namespace Morvu
