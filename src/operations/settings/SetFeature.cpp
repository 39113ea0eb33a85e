#include "operations/settings/SetFeature.h"

#include "devices/commands/CommandSet_ATA.h"
#include "devices/commands/CommandSet_NVME.h"
#include "frame/Logger.h"
#include "frame/status/Drives.h"
#include "frame/status/NvmeStatus.h"
#include "frame/status/Settings.h"
#include "operations/Operation.h"
#include "parsers/nvme/FeatureNamespace.h"

namespace Morvu {

using DeviceManagement::Device;
namespace AtaRow = DeviceManagement::AtaRow;
namespace NvmeRow = DeviceManagement::NvmeRow;

struct SetFeature::Rules {
  static bool Unreachable(SetFeature& set) { return !set.IsConnected(); }
  static bool NoCommandSet(SetFeature& set) { return set.ata_ == nullptr && set.nvme_ == nullptr; }

  // clang-format off
  static constexpr Refusal<SetFeature> kTable[] = {
      {Unreachable,                       Status::NoCommunication},
      {OfDevice<Refuse::RaidVolume>,      Status::RaidVolume},
      {OfDevice<Refuse::NotMorvu>,        Status::NotAMorvuDrive},
      {NoCommandSet,                      Status::NotSupportedByDrive},
      {OfDevice<Refuse::DeviceFault>,     Status::DeviceFault},
      {OfDevice<Refuse::FailureReported>, Status::DisableLogical},
  };
  // clang-format on
};

SetFeature::SetFeature(Device* device, std::uint8_t featureId, std::uint32_t value1,
                       std::uint32_t value2, ProgressReporter& reporter)
    : Function(device, reporter), featureId_(featureId), value1_(value1), value2_(value2) {
  SetFeature::Initialize();
}

void SetFeature::Initialize() { EndInitialize(FirstRefusal<SetFeature>(Rules::kTable, *this)); }

// The set's own path leads to the controller, as the adapter's does, which is other threads'.
bool SetFeature::IsConnected() {
  return device_ != nullptr &&
         (device_->TestConnection() || (nvme_ != nullptr && nvme_->GetPath().TestDevice()));
}

std::int32_t SetFeature::Execute() {
  MORVU_LOG(kLogInfo, "Execute", "Executing...");
  if (!IsConnected()) {
    MORVU_LOG(kLogError, "Execute", "Drive connection failed.");
    End(Status::NoCommunication);
    return false;
  }
  MORVU_LOG(kLogDebug, "Execute", "Drive connection successful.");
  const auto result = Send();
  if (result != Status::Completed) {
    if (const auto words = DescribeNvmeStatus(result); !words.empty()) Tell({false, words});
    MORVU_LOG(kLogError, "Execute",
              "Set Feature failed with an error code = " + std::to_string(ToToldNumber(result)));
    End(Status::SetFeatureFailed);
    return false;
  }
  MORVU_LOG(kLogInfo, "Execute", "Set Feature successful.");
  SetPercent(100);
  End(Status::Completed);
  return true;
}

StatusCode SetFeature::Send() {
  if (nvme_ == nullptr) {
    return ata_->Send(AtaRow::SetFeatures,
                      {.lba = value2_, .count = value1_, .features = featureId_});
  }
  return SendToFeature(*device_, FeatureAim::Namespace, [&](std::uint32_t nsid) {
    return nvme_->Send(
        NvmeRow::SetFeatures,
        {.nsid = nsid, .featureId = featureId_, .value11 = value1_, .value12 = value2_});
  });
}

}  // namespace Morvu
