#include "operations/firmware/FirmwareUpdate.h"

#include "devices/identification/DeviceIdentification.h"
#include "devices/identification/Products.h"
#include "devices/properties/BasicProperties.h"
#include "devices/properties/ProductProperties.h"
#include "devices/properties/SecurityProperties.h"
#include "frame/Logger.h"
#include "frame/Platform.h"
#include "frame/status/Drives.h"
#include "frame/status/Files.h"
#include "frame/status/Firmware.h"
#include "operations/Operation.h"
#include "operations/firmware/AttributeCollection.h"
#include "operations/firmware/SendFirmware_ATA.h"
#include "operations/firmware/SendFirmware_ATA_Dunmere.h"
#include "operations/firmware/SendFirmware_NVMe.h"
#include "operations/firmware/SendFirmware_SCSI.h"

namespace Morvu {

using DeviceManagement::Device;
using DeviceManagement::TimeoutGuard;
namespace Properties = DeviceManagement::Properties;
namespace Protocol = DeviceManagement::Protocol;

namespace {

constexpr std::uint32_t kTransferTimeoutSeconds = 10;

}  // namespace

struct FirmwareUpdate::Rules {
  template <std::uint64_t Verdict>
  static bool IsVerdict(FirmwareUpdate& update) {
    return update.GetMappingStatus() == Verdict;
  }
  static bool HasNoImage(FirmwareUpdate& update) {
    return !update.HasFile() && update.GetMappingStatus() == FirmwareMapping::kUnknownDrive;
  }
  static bool SecurityIsOn(Device& device) {
    return device.GetBool(Properties::SecurityEnabled) && !device.GetBool(Properties::LSI);
  }

  // clang-format off
  static constexpr Refusal<FirmwareUpdate> kTable[] = {
      {OfDevice<Refuse::NotConnected>, Status::NoCommunication},
      {OfDevice<Refuse::RaidVolume>,   Status::RaidVolume},
      {OfDevice<Refuse::NotMorvu>,     Status::NotAMorvuDrive},
      {IsVerdict<0>,                   Status::FirmwareCurrent},
      {IsVerdict<3>,                   Status::FirmwarePreproduction},
      {IsVerdict<2>,                   Status::FirmwareUnsupported},
      {IsVerdict<4>,                   Status::ContactSupport},
      {IsVerdict<5>,                   Status::FirmwareNeedsOtherTool},
      {IsVerdict<6>,                   Status::ContactRepresentative},
      {HasNoImage,                     Status::NoFirmware},
      {OfDevice<SecurityIsOn>,         Status::FirmwareSecurityEnabled},
  };
  // clang-format on
};

FirmwareUpdate::FirmwareUpdate(Device* device, bool ignoreSecurity, std::string file,
                               ProgressReporter& reporter)
    : Function(device, reporter),
      ignoreSecurity_(ignoreSecurity),
      source_(Source::File),
      file_(std::move(file)) {
  FirmwareUpdate::Initialize();
}

FirmwareUpdate::FirmwareUpdate(Device* device, bool ignoreSecurity, std::int32_t moduleType,
                               std::string audience, std::span<const std::string> extraDirectories,
                               ProgressReporter& reporter)
    : Function(device, reporter),
      ignoreSecurity_(ignoreSecurity),
      source_(Source::Module),
      moduleType_(moduleType),
      audience_(std::move(audience)),
      moduleDirectories_{GetExecutableDirectory() + "FirmwareModules"} {
  moduleDirectories_.insert(moduleDirectories_.end(), extraDirectories.begin(),
                            extraDirectories.end());
  FirmwareUpdate::Initialize();
}

FirmwareUpdate::FirmwareUpdate(Device* device, bool ignoreSecurity, EmbeddedMapping mapping,
                               EmbeddedBinary binary, ProgressReporter& reporter)
    : Function(device, reporter),
      ignoreSecurity_(ignoreSecurity),
      source_(Source::Embedded),
      embeddedMapping_(std::move(mapping)),
      embeddedBinary_(std::move(binary)) {
  FirmwareUpdate::Initialize();
}

FirmwareUpdate::~FirmwareUpdate() = default;

std::uint64_t FirmwareUpdate::GetMappingStatus() const {
  return mapping_.GetUnsigned(FirmwareMapping::Status);
}

void FirmwareUpdate::Initialize() {
  sender_.reset();
  mapping_ = {};
  if (device_ != nullptr) mapping_ = GetTargetMappingAttributes(device_->GetProperties());
  MORVU_LOG(kLogDebug, "Initialize",
            "Firmware Mapping Attributes: " + WriteAttributeCollection(mapping_));

  auto code = FirstRefusal<FirmwareUpdate>(Rules::kTable, *this);
  const bool mayRun =
      code == Status::ReadyToRun || (ignoreSecurity_ && code == Status::FirmwareSecurityEnabled);
  if (mayRun) {
    sender_ = MakeSender();
    code = sender_ ? sender_->GetErrorCode() : Status::NoCommunication;
  }
  EndInitialize(code);
}

std::unique_ptr<SendFirmware> FirmwareUpdate::MakeSender() {
  auto& reporter = GetReporter();
  const bool nvme = device_->HasCommandSet(Protocol::Nvme);
  if (DeviceManagement::ProductOf(*device_).takesFirstBlockTwice) {
    return std::make_unique<SendFirmware_ATA_Dunmere>(device_, reporter);
  }
  if (device_->HasCommandSet(Protocol::Ata)) {
    return std::make_unique<SendFirmware_ATA>(device_, reporter);
  }
  if (device_->HasCommandSet(Protocol::Scsi) && !nvme) {
    return std::make_unique<SendFirmware_SCSI>(device_, reporter);
  }
  if (nvme) return std::make_unique<SendFirmware_NVMe>(device_, reporter);
  return nullptr;
}

std::int32_t FirmwareUpdate::Execute() {
  if (!BeginExecute()) return false;
  if (!sender_) return Fail(Status::NoCommunication);
  MORVU_LOG(kLogDebug, "Execute", "Retrieving firmware data.");
  const auto binaries = GetFirmwareBinaries();
  if (binaries.empty()) return FailWithoutData();
  for (const auto& binary : binaries) {
    if (!Install(binary)) return false;
  }
  return true;
}

bool FirmwareUpdate::Install(const FirmwareBinary& binary) {
  SetPercent(5);
  if (binary.empty()) return FailWithoutData();
  const auto before = device_->GetString(Properties::Firmware);
  sender_->SetData(binary);
  sender_->SetErrorCode(Status::ReadyToRun);  // of an earlier image nothing counts
  bool sent = false;
  {
    const TimeoutGuard timeout(device_->GetPath(), kTransferTimeoutSeconds);
    sent = sender_->Execute() != 0;
  }
  MORVU_LOG(kLogInfo, "Execute", "Finished sending data.");
  SetPercent(90);
  MORVU_LOG(kLogDebug, "Execute", "Re-identifying the drive.");
  UpdateProperties(*device_);
  SetPercent(93);

  // A drive may drop the last answer on its way into the new firmware. One that tells
  // no revision at all has not come back.
  const auto now = device_->GetString(Properties::Firmware);
  if (!sent && (now == before || now.empty())) {
    MORVU_LOG(kLogError, "Execute", "Failed to update the firmware.");
    Fail(sender_->GetErrorCode());
    SetPercent(100);
    if (device_->GetString(Properties::OEM) == "Lenovo" &&
        device_->GetBool(Properties::SecurityEnabled)) {
      SetErrorCode(Status::FirmwareSecurityEnabled);
    }
    return false;
  }
  MORVU_LOG(kLogInfo, "Execute", "Passed.");
  End(Status::Completed);
  SetPercent(100);
  return true;
}

bool FirmwareUpdate::Fail(StatusCode code) {
  SetErrorCode(code);
  SetState(FeatureState::Failed);
  return false;
}

bool FirmwareUpdate::FailWithoutData() {
  MORVU_LOG(kLogError, "Execute", "Failed to get the firmware data.");
  Fail(Status::FileNotRead);
  SetPercent(100);
  return false;
}

}  // namespace Morvu
