// What the operations on drives share: refusal tables, and the confirm-then-force sequence
// of the destructive ones.
#pragma once

#include <span>
#include <string_view>

#include "devices/model/Device.h"
#include "frame/StatusCode.h"
#include "messaging/features/Face.h"
#include "messaging/features/Feature.h"
#include "messaging/features/FeatureRecord.h"

namespace Morvu {

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
bool ForeignRaidVolume(DeviceManagement::Device& device);  // of drives that are not ours
bool Foreign(DeviceManagement::Device& device);            // neither our drive nor our volume
bool RaidMember(DeviceManagement::Device& device);
bool StorageSpaceMember(DeviceManagement::Device& device);
bool DeviceFault(DeviceManagement::Device& device);
bool FailureReported(DeviceManagement::Device& device);  // "ErrorString" is not empty
bool NoAta(DeviceManagement::Device& device);
bool NoNvme(DeviceManagement::Device& device);
}  // namespace Refuse

// Tells what the run left to tell beside its code.
void TellRemarks(const Feature& feature, Face& face);

// ---- Destructive operations ----

// The texts of one operation at the prompt.
struct EraseTexts {
  std::string_view unable;        // printed when the drive is refused
  std::string_view warning;       // "WARNING! You have selected to format the drive!"
  std::string_view prompt;        // "Proceed with the format?"
  std::string_view begin{};       // printed when it begins
  std::string_view caution{};     // behind that
  std::string_view afterwards{};  // printed at a good end on a drive that had partitions
};

// Decides whether a destructive operation, built with force false and left at
// `code`, may go on: 1 when it may (the caller then forces it), else the result. The user
// is asked; where there is nobody to ask, a partition refuses the run (13). A face that is
// forced has answered both. `details`, lines of what the erase meets, stand in the question.
StatusCode ConfirmErase(StatusCode code, Face& face, const EraseTexts& texts,
                        std::string_view details = {});

}  // namespace Morvu
