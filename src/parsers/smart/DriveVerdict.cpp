#include "parsers/smart/DriveVerdict.h"

#include <array>
#include <string_view>

#include "devices/commands/AtaCommands.h"
#include "devices/commands/CommandSet_ATA.h"
#include "devices/commands/CommandSet_NVME.h"
#include "devices/commands/CommandSet_SCSI.h"
#include "devices/identification/FreshIdentity.h"
#include "devices/model/Device.h"
#include "devices/properties/IdentityProperties.h"
#include "frame/Text.h"
#include "messaging/PageTable.h"
#include "parsers/nvme/FeatureNamespace.h"
#include "parsers/nvme/NvmeHealth.h"
#include "parsers/smart/ScsiLog.h"

namespace Morvu {

using DeviceManagement::CommandSet_ATA;
using DeviceManagement::CommandSet_NVME;
using DeviceManagement::CommandSet_SCSI;
using DeviceManagement::Device;
using Kind = DriveVerdict::Kind;
namespace Properties = DeviceManagement::Properties;
namespace Protocol = DeviceManagement::Protocol;

namespace {

DriveVerdict Unknown(std::string_view reason) {
  return {Kind::Unknown, "Unknown: " + std::string(reason)};
}

// Whether the drive itself says, now, that SMART is off.
bool IsSmartOff(CommandSet_ATA& ata) {
  const auto told = DeviceManagement::ReadFreshIdentity(ata);
  if (!told) return false;
  const auto* enabled = told->properties.Find(Properties::SMARTEnabled);
  return enabled != nullptr && !enabled->AsBoolean();
}

// The key comes back in the LBA as it went, or as its opposite.
DriveVerdict ReadVerdict(CommandSet_ATA& ata) {
  constexpr std::uint64_t kPassed = 0xC24F, kFailing = 0x2CF4;
  if (ata.Send(DeviceManagement::AtaRow::SmartReturnStatus) != Status::Completed) {
    if (IsSmartOff(ata)) return {Kind::SmartOff, "Unknown: SMART is turned off"};
    return Unknown("the drive's answer did not come");
  }
  switch (ata.GetAnswer().lba >> 8 & 0xFFFF) {
    case kPassed:
      return {Kind::Passed, "Passed"};
    case kFailing:
      return {Kind::Failing, "FAILING: an attribute is beyond its threshold"};
    default:
      return Unknown("the drive's answer makes no sense");
  }
}

constexpr std::string_view kWarnings[] = {
    "available spare below its threshold", "temperature beyond a threshold", "reliability degraded",
    "media read-only", "backup of the volatile memory failed"};

DriveVerdict ReadVerdict(CommandSet_NVME& nvme, const Device& device) {
  std::array<std::uint8_t, (NvmeHealth::kNumd + 1) * 4> log{};
  const auto status = ReadLogPage(device, nvme, NvmeHealth::kLogId, NvmeHealth::kNumd, log);
  return JudgeHealthLog(status == Status::Completed ? ByteView(log) : ByteView());
}

}  // namespace

DriveVerdict JudgeHealthLog(ByteView log) {
  // A log of zeros tells of a drive at the absolute zero.
  if (IsZero(log)) return Unknown("the drive's answer did not come");
  const auto warnings = ReadField<std::uint8_t>(log, NvmeHealth::kCriticalWarning);
  if (warnings == 0) return {Kind::Passed, "Passed"};
  std::string text;
  for (std::size_t bit = 0; bit < std::size(kWarnings); ++bit) {
    if ((warnings >> bit & 1) != 0) text += ", " + std::string(kWarnings[bit]);
  }
  return {Kind::Failing, "FAILING: critical warning 0x" + ToHexNumber(warnings, 2) + text};
}

// The additional sense codes by which a drive tells that it expects to fail (SPC-4, annex F).
DriveVerdict JudgeExceptions(ByteView parameter) {
  constexpr std::uint8_t kWarning = 0x0B, kFailurePrediction = 0x5D, kTest = 0xFF;
  if (parameter.size() < 2) return {Kind::Unknown, "Unknown"};
  const auto code = parameter[0], qualifier = parameter[1];
  const bool isFailing = code == kWarning || (code == kFailurePrediction && qualifier != kTest);
  if (!isFailing) return {Kind::Passed, "Passed"};
  return {Kind::Failing,
          "FAILING: " + std::string(code == kWarning ? "a warning" : "a failure predicted") + ", " +
              ToHexNumber(code, 2) + "h/" + ToHexNumber(qualifier, 2) + "h"};
}

DriveVerdict ReadVerdict(Device& device) {
  if (auto* ata = device.GetCommandSetAs<CommandSet_ATA>(Protocol::Ata)) return ReadVerdict(*ata);
  if (auto* nvme = device.GetCommandSetAs<CommandSet_NVME>(Protocol::Nvme)) {
    return ReadVerdict(*nvme, device);
  }
  if (auto* scsi = device.GetCommandSetAs<CommandSet_SCSI>(Protocol::Scsi)) {
    return JudgeExceptions(ScsiLog(*scsi).Find(kExceptionsPage, kExceptions));
  }
  return {Kind::Unknown, "Unknown"};
}

std::string DescribeAlarm(const DriveVerdict& verdict) {
  if (verdict.kind == Kind::SmartOff) {
    return "SMART is turned off on this drive: it watches nothing. -enable_smart turns it on.";
  }
  if (!verdict.IsFailing()) return {};
  return "The drive says that it is " + verdict.text + ". Save its data and replace it.";
}

}  // namespace Morvu
