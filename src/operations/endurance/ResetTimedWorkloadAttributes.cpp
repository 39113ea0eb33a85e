#include "operations/endurance/ResetTimedWorkloadAttributes.h"

#include <algorithm>

#include "devices/commands/CommandSet_ATA.h"
#include "devices/commands/CommandSet_NVME.h"
#include "devices/identification/Products.h"
#include "devices/properties/BasicProperties.h"
#include "frame/Logger.h"
#include "frame/status/Commands.h"
#include "frame/status/Drives.h"
#include "frame/status/Endurance.h"
#include "frame/status/NvmeStatus.h"
#include "frame/status/Settings.h"
#include "operations/Operation.h"
#include "operations/endurance/EnduranceRules.h"
#include "parsers/nvme/FeatureNamespace.h"

namespace Morvu {

using DeviceManagement::Device;
namespace NvmeRow = DeviceManagement::NvmeRow;
namespace Properties = DeviceManagement::Properties;

namespace {

constexpr std::uint8_t kResetSubcommand = 0x40;  // vendor: of SMART EXECUTE OFF-LINE IMMEDIATE
constexpr std::uint8_t kResetFeature = 0xD5;     // vendor: of Set Features
constexpr std::uint32_t kReset = 1;

}  // namespace

namespace Refuse {

bool NoWorkloadCounters(Device& device) {
  constexpr std::string_view kProducts[] = {"Yarrowick", "Yarrowick SLC", "Dunmere", "Plinthway"};
  return std::ranges::count(kProducts, device.GetString(Properties::Product)) > 0;
}

bool TooOldForCounters(Device& device) {
  constexpr std::size_t kRevision = 4;
  const auto firmware = device.GetString(Properties::Firmware);
  const auto revision = firmware.size() > kRevision ? firmware.substr(kRevision) : std::string();
  return device.GetString(Properties::Product) == "Tarnwell" && revision < "02M0";
}

}  // namespace Refuse

struct ResetTimedWorkloadAttributes::Rules {
  // clang-format off
  static constexpr Refusal<ResetTimedWorkloadAttributes> kTable[] = {
      {OfDevice<Refuse::NotConnected>,       Status::NoCommunication},
      {OfDevice<Refuse::RaidVolume>,         Status::RaidVolume},
      {OfDevice<Refuse::NotMorvu>,           Status::NotAMorvuDrive},
      {OfDevice<Refuse::RaidMember>,         Status::RaidMemberRefused},
      {OfDevice<Refuse::DeviceFault>,        Status::DeviceFault},
      {OfDevice<Refuse::NoWorkloadCounters>, Status::EnduranceGenerationUnsupported},
      {OfDevice<Refuse::TooOldForCounters>,  Status::EnduranceFirmwareTooOld},
      {OfDevice<Refuse::FailureReported>,    Status::DisableLogical},
  };
  // clang-format on
};

void ResetTimedWorkloadAttributes::Initialize() {
  EndInitialize(FirstRefusal<ResetTimedWorkloadAttributes>(Rules::kTable, *this));
}

std::int32_t ResetTimedWorkloadAttributes::Execute() {
  if (!BeginExecute()) return false;
  MORVU_LOG(kLogInfo, "reset", "Executing Reset...");
  return reset();
}

bool ResetTimedWorkloadAttributes::EndReset(StatusCode code) {
  End(code);
  return code == Status::Completed;
}

ResetTimedWorkloadAttributes_ATA::ResetTimedWorkloadAttributes_ATA(Device* device,
                                                                   ProgressReporter& reporter)
    : ResetTimedWorkloadAttributes(device, reporter) {
  Initialize();
}

bool ResetTimedWorkloadAttributes_ATA::reset() {
  const auto result = ata_->ataSmartExecuteOffline(kResetSubcommand);
  MORVU_LOG(kLogInfo, "reset",
            "SMART Execute off line immediate return with status code = " +
                std::to_string(result.Value()));
  if (result != Status::Completed) return EndReset(Status::SmartExecuteOfflineFailed);
  return EndReset(Status::Completed);
}

ResetTimedWorkloadAttributes_NVMe::ResetTimedWorkloadAttributes_NVMe(Device* device,
                                                                     ProgressReporter& reporter)
    : ResetTimedWorkloadAttributes(device, reporter) {
  ResetTimedWorkloadAttributes_NVMe::Initialize();
}

void ResetTimedWorkloadAttributes_NVMe::Initialize() {
  ResetTimedWorkloadAttributes::Initialize();
  if (GetErrorCode() != Status::ReadyToRun) return;
  const auto product = device_->GetString(Properties::Product);
  if (!DeviceManagement::NvmeSmartFamily(product)) EndInitialize(Status::NotSupportedByDrive);
}

bool ResetTimedWorkloadAttributes_NVMe::reset() {
  const auto result = SendToFeature(*device_, FeatureAim::Namespace, [&](std::uint32_t nsid) {
    return nvme_->Send(NvmeRow::SetFeatures,
                       {.nsid = nsid, .featureId = kResetFeature, .value11 = kReset});
  });
  MORVU_LOG(
      kLogInfo, "reset",
      "NVMe Reset Timed workload attributes. Result = " + std::to_string(ToToldNumber(result)));
  if (result == Status::Completed) return EndReset(Status::Completed);
  if (const auto words = DescribeNvmeStatus(result); !words.empty()) Note(words);
  return EndReset(Status::SetFeatureFailed);
}

}  // namespace Morvu
