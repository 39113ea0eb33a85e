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
using DeviceManagement::SelectedDevices;
using XmlMessaging::Object;

namespace {

// CHECK POWER MODE's Count register in standby (ACS-3, 7.3).
constexpr std::uint8_t kStandbyMode = 0x00;

// clang-format off
constexpr Refusal<StandbyImmediate> kRefusals[] = {
    {OfDevice<Refuse::NotConnected>,    Status::NoCommunication},
    {OfDevice<Refuse::RaidVolume>,      Status::RaidVolume},
    {OfDevice<Refuse::NotMorvu>,        Status::NotAMorvuDrive},
    {OfDevice<Refuse::RaidMember>,      Status::RaidMemberRefused},
    {OfDevice<Refuse::NoAta>,           Status::NotSupportedByDrive},
    {OfDevice<Refuse::DeviceFault>,     Status::DeviceFault},
    {OfDevice<Refuse::FailureReported>, Status::DisableLogical},
};
// clang-format on

constexpr std::string_view kOptionName = "-standby_immediate";
constexpr std::string_view kDescriptions[] = {
    "Send an ATA Standby Immediate command to the selected drive. This will prepare the drive for "
    "a power cycle."};
constexpr std::string_view kExamples[] = {"-drive_index 1 -standby_immediate"};
constexpr OptionDeclaration kOption = {
    .name = kOptionName,
    .kind = OptionKind::Flag,
    .category = OptionCategory::Feature,
    .descriptions = kDescriptions,
    .arguments = {},
    .examples = kExamples,
};

}  // namespace

StandbyImmediate::StandbyImmediate(Device* device, const ProgressReporter* reporter)
    : Function(device, reporter) {
  StandbyImmediate::Initialize();
}

void StandbyImmediate::Initialize() {
  EndInitialize(FirstRefusal<StandbyImmediate>(kRefusals, *this));
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

StatusCode StandbyImmediate::Runner(Device& device, QRKCLI* cli, const JobContext& context) {
  StandbyImmediate standby(&device, context.reporter);
  if (standby.GetErrorCode() != Status::ReadyToRun) return standby.GetErrorCode();
  if (cli != nullptr) cli->PrintLine("Sending Standby Immediate...");
  standby.Execute();
  return standby.GetErrorCode();
}

std::unique_ptr<Object> StandbyImmediate::Describe(Device* device) {
  if (device == nullptr) return DescribeMethod("StandbyImmediate");
  return DescribeMethod("StandbyImmediate", StandbyImmediate(device, nullptr).GetErrorCode(),
                        {Status::RaidVolume, Status::NotSupportedByDrive});
}

StatusCode StandbyImmediate::Run(JobContext& context, const Object&, SelectedDevices& devices) {
  auto* device = BeginMethod(context, devices);
  return device == nullptr ? Status::NoDeviceSelected : Runner(*device, nullptr, context);
}

CLICommand StandbyImmediate::GetFeatureDefinition() { return CLICommand(kOption); }

StatusCode StandbyImmediate::RunCLI(QRKCLI& cli, SelectedDrives devices) {
  const bool isAsked = BeginRunCLI(cli, kOptionName);
  auto* device = GetPickedDrive(cli, devices);
  if (!isAsked || device == nullptr) return cli.Finish(Status::InvalidArguments);
  return cli.Finish(Runner(*device, &cli, JobContext()));
}

}  // namespace Morvu
