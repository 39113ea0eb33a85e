#include "operations/testing/StandbyImmediate.h"

#include "devices/commands/CommandSet_ATA.h"
#include "frame/Logger.h"
#include "frame/status/Commands.h"
#include "frame/status/Drives.h"
#include "frame/status/Requests.h"
#include "frame/status/Testing.h"
#include "operations/Operation.h"

namespace Morvu {

using DeviceManagement::Device;

namespace {

// CHECK POWER MODE's Count register in standby (ACS-3, 7.3).
constexpr std::uint8_t kStandbyMode = 0x00;

constexpr std::string_view kDescriptions[] = {
    "Send an ATA Standby Immediate command to the selected drive. This will prepare the drive for "
    "a power cycle."};
constexpr std::string_view kExamples[] = {"-drive_index 1 -standby_immediate"};

}  // namespace

struct StandbyImmediate::Rules {
  // clang-format off
  static constexpr Refusal<StandbyImmediate> kTable[] = {
      {OfDevice<Refuse::NotConnected>,    Status::NoCommunication},
      {OfDevice<Refuse::RaidVolume>,      Status::RaidVolume},
      {OfDevice<Refuse::NotMorvu>,        Status::NotAMorvuDrive},
      {OfDevice<Refuse::RaidMember>,      Status::RaidMemberRefused},
      {OfDevice<Refuse::NoAta>,           Status::NotSupportedByDrive},
      {OfDevice<Refuse::DeviceFault>,     Status::DeviceFault},
      {OfDevice<Refuse::FailureReported>, Status::DisableLogical},
  };
  // clang-format on
};

StandbyImmediate::StandbyImmediate(Device* device, ProgressReporter& reporter)
    : Function(device, reporter) {
  StandbyImmediate::Initialize();
}

void StandbyImmediate::Initialize() {
  EndInitialize(FirstRefusal<StandbyImmediate>(Rules::kTable, *this));
}

std::int32_t StandbyImmediate::Execute() {
  if (!BeginExecute()) return false;
  if (!Function::StandbyImmediate()) {
    return Fail("Standby Immediate command failed.", Status::StandbyFailed);
  }
  MORVU_LOG(kLogInfo, "Execute",
            "Standby Immediate command passed. Checking power mode to verify.");
  if (ata_->ataCheckPowerMode() != Status::Completed) {
    return Fail("Check Power Mode command failed. Unable to verify standby status.",
                Status::CheckPowerModeFailed);
  }
  if (static_cast<std::uint8_t>(ata_->GetAnswer().count) != kStandbyMode) {
    return Fail("Drive is not in standby mode.", Status::StandbyFailed);
  }
  MORVU_LOG(kLogInfo, "Execute", "Drive is in standby mode.");
  End(Status::Completed);
  return true;
}

bool StandbyImmediate::Fail(std::string_view text, StatusCode code) {
  MORVU_LOG(kLogError, "Execute", text);
  End(code);
  return false;
}

StatusCode StandbyImmediate::Runner(Device& device, Face& face) {
  StandbyImmediate standby(&device, face.GetReporter());
  if (standby.GetErrorCode() != Status::ReadyToRun) return standby.GetErrorCode();
  face.Say("Sending Standby Immediate...");
  standby.Execute();
  return standby.GetErrorCode();
}

namespace {

StatusCode RunStandby(const FeatureCall& call) {
  return StandbyImmediate::Runner(call.GetDevice(), call.face);
}

StatusCode AssessStandby(Device& device) {
  return StandbyImmediate(&device, NoReporter()).GetErrorCode();
}

constexpr StatusCode kHiddenCodes[] = {Status::RaidVolume, Status::NotSupportedByDrive};
constexpr CimMethod kMethods[] = {
    {.name = "StandbyImmediate",
     .displayName = "Standby Immediate",
     .description = "Issue an ATA Standby immediate command.",
     .category = "advanced",
     .targetType = "device",
     .hiddenCodes = kHiddenCodes,
     .assess = &AssessStandby,
     .run = &RunAsMethod<RunStandby>},
};
constexpr OptionDeclaration kOptions[] = {
    {.name = "-standby_immediate",
     .kind = OptionKind::Flag,
     .category = OptionCategory::Feature,
     .descriptions = kDescriptions,
     .arguments = {},
     .examples = kExamples,
     .run = &RunStandby},
};

}  // namespace

extern constexpr FeatureRecord StandbyImmediateRecord = {
    .name = "StandbyImmediate",
    .group = HelpGroup::Change,
    .needsDrive = true,
    .isSequence = true,
    .methods = kMethods,
    .options = kOptions,
};

}  // namespace Morvu
