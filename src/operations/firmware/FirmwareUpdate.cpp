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

constexpr std::chrono::seconds kTransferTimeout{10};
// How long a drive may stay away after it took an image.
constexpr std::chrono::seconds kLongestReturn{10};

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
      file_(std::move(file)),
      images_(GetReporter()) {
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
      moduleDirectories_{GetExecutableDirectory() + "FirmwareModules"},
      images_(GetReporter()) {
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
      embeddedBinary_(std::move(binary)),
      images_(GetReporter()) {
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
  auto& reporter = images_;
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

StatusCode FirmwareUpdate::GetNvmeStatus() const {
  return sender_ ? sender_->GetNvmeStatus() : StatusCode(Status::Completed);
}

std::int32_t FirmwareUpdate::Execute() {
  if (!BeginExecute()) return false;
  if (!sender_) return Fail(Status::NoCommunication);
  oldRevision_ = device_->GetString(Properties::Firmware);
  MORVU_LOG(kLogDebug, "Execute", "Retrieving firmware data.");
  const auto names = ListFirmwareBinaries();
  if (names.empty()) return FailWithoutData();
  for (std::size_t i = 0; i < names.size(); ++i) {
    if (i > 0 && IsCancelRequested()) return Cancel();
    images_.Begin(i, names.size());
    if (!Install(GetFirmwareBinary(names[i]))) return false;
  }
  End(Status::Completed);
  SetPercent(100);
  return true;
}

bool FirmwareUpdate::Install(const FirmwareBinary& binary) {
  images_.SetPercent(5);
  if (binary.empty()) return FailWithoutData();
  const auto before = device_->GetString(Properties::Firmware);
  const bool sent = Send(binary);
  MORVU_LOG(kLogInfo, "Execute", "Finished sending data.");
  images_.SetPercent(90);
  MORVU_LOG(kLogDebug, "Execute", "Re-identifying the drive.");
  const bool identified = UpdateProperties(*device_);
  images_.SetPercent(93);

  // A drive may drop the last answer on its way into the new firmware. One that tells
  // no revision at all has not come back.
  const auto now = device_->GetString(Properties::Firmware);
  const bool changed = now != before && !now.empty();
  runsAfterReset_ = sender_->WaitsForReset() && !changed;
  if (!sent && !changed) return JudgeFailure();
  if (!identified && !ComesBack()) {
    MORVU_LOG(kLogError, "Execute", "The drive took the image and does not answer any more.");
    SetPercent(100);
    return Fail(Status::NoCommunication);
  }
  MORVU_LOG(kLogInfo, "Execute", "Passed.");
  return true;
}

bool FirmwareUpdate::Send(const FirmwareBinary& binary) {
  sender_->SetData(binary);
  sender_->SetErrorCode(Status::ReadyToRun);  // of an earlier image nothing counts
  const TimeoutGuard timeout(device_->GetCommandPath(), kTransferTimeout);
  return sender_->Execute() != 0;
}

bool FirmwareUpdate::JudgeFailure() {
  MORVU_LOG(kLogError, "Execute", "Failed to update the firmware.");
  Fail(sender_->GetErrorCode());
  SetPercent(100);
  if (device_->GetString(Properties::OEM) == "Lenovo" &&
      device_->GetBool(Properties::SecurityEnabled)) {
    SetErrorCode(Status::FirmwareSecurityEnabled);
  }
  return false;
}

bool FirmwareUpdate::ComesBack() {
  const auto end = GetUptime() + kLongestReturn;
  while (!device_->TestConnection()) {
    MORVU_LOG(kLogWarning, "Execute", "Waiting for the drive to answer.");
    if (GetUptime() >= end) return false;
    SleepFor(std::chrono::seconds(1));
  }
  UpdateProperties(*device_);
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

bool FirmwareUpdate::Cancel() {
  MORVU_LOG(kLogWarning, "Execute", "Canceled.");
  SetErrorCode(Status::Canceled);
  SetState(FeatureState::Running);
  return false;
}

}  // namespace Morvu
