#include "operations/firmware/SendFirmware_ATA.h"

#include <algorithm>
#include <vector>

#include "devices/commands/CommandSet_ATA.h"
#include "devices/properties/BasicProperties.h"
#include "devices/properties/DriverProperties.h"
#include "devices/properties/FirmwareProperties.h"
#include "devices/properties/IdentityProperties.h"
#include "devices/properties/ProductProperties.h"
#include "frame/Logger.h"
#include "frame/Platform.h"
#include "frame/status/Drives.h"
#include "frame/status/Firmware.h"
#include "frame/status/Health.h"
#include "frame/status/Testing.h"
#include "operations/Operation.h"

namespace Morvu {

using DeviceManagement::Device;
namespace Properties = DeviceManagement::Properties;

namespace {

constexpr std::uint8_t kWithOffsets = 0x03;  // subcommand: segments, saved and used at once
constexpr std::uint64_t kLargestSector = 4096;
constexpr std::uint64_t kOffsetLimit = 1 << 20;  // blocks that an offset can name

constexpr std::chrono::seconds kSettleTime{5};

}  // namespace

struct SendFirmware_ATA::Rules {
  static bool NoDownload(Device& device) {
    return !device.GetBool(Properties::DownloadMicrocodePossible);
  }

  static constexpr Refusal<SendFirmware_ATA> kTable[] = {
      {OfDevice<NoDownload>, Status::ControllerIdeMode},
  };
};

SendFirmware_ATA::SendFirmware_ATA(Device* device, ProgressReporter& reporter)
    : SendFirmware(device, reporter),
      quietDrive_(!device->GetBool(Properties::LSI) && !device->GetBool(Properties::RAIDMember)) {
  SendFirmware_ATA::Initialize();
}

void SendFirmware_ATA::Initialize() {
  EndInitialize(FirstRefusal<SendFirmware_ATA>(Rules::kTable, *this));
}

std::int32_t SendFirmware_ATA::Execute() {
  if (!Prepare()) return false;
  SetPercent(10);
  MORVU_LOG(kLogDebug, "Execute", "Sending the firmware.");
  const bool sent = TransferImage();
  if (GetErrorCode() == Status::Canceled) return Cancel();

  // A drive whose download failed is left as one that took it is.
  MORVU_LOG(kLogInfo, "Execute", "Firmware sent.");
  SleepFor(kSettleTime);
  SetPercent(85);
  if (quietDrive_) {
    StandbyImmediate();
    SetPercent(87);
    SetSmartState(true);
  }
  return sent;
}

bool SendFirmware_ATA::Prepare() {
  MORVU_LOG(kLogInfo, "Execute", "Preparing drive for update.");
  if (quietDrive_ && !SetSmartState(false)) return Fail(GetErrorCode());
  SetPercent(8);
  if (IsCancelRequested()) {
    SetSmartState(true);
    SetErrorCode(Status::Canceled);
    SetState(FeatureState::Running);
    return false;
  }
  if (quietDrive_ && !StandbyImmediate()) {
    SetSmartState(true);
    return Fail(Status::StandbyFailed);
  }
  return true;
}

bool SendFirmware_ATA::Cancel() {
  MORVU_LOG(kLogWarning, "Execute", "Canceled.");
  if (quietDrive_) {
    StandbyImmediate();
    SetSmartState(true);
  }
  SetErrorCode(Status::Canceled);
  SetState(FeatureState::Running);
  return false;
}

bool SendFirmware_ATA::TransferImage() {
  const auto sectorSize = device_->GetUInt(Properties::SectorSize);
  if (sectorSize == 0 || sectorSize > kLargestSector) return Fail(Status::FirmwareUpdateFailed);
  const auto total = image_.size() / sectorSize + (image_.size() % sectorSize != 0 ? 1 : 0);
  if (total == 0 || total > kOffsetLimit) return Fail(Status::FirmwareUpdateFailed);

  const auto chunk = GetChunkBlocks();
  for (std::uint64_t sent = 0; sent < total;) {
    const auto blocks = std::min<std::uint64_t>(chunk, total - sent);
    std::vector<std::uint8_t> buffer(static_cast<std::size_t>(blocks * sectorSize));
    CopyImage(static_cast<std::size_t>(sent * sectorSize), buffer);
    if (!DownloadChunk(buffer, static_cast<std::uint16_t>(blocks),
                       static_cast<std::uint32_t>(sent))) {
      return Fail(Status::FirmwareUpdateFailed);
    }
    sent += blocks;
    SetPercent(static_cast<std::int32_t>(sent * 65 / total + 10));
    if (IsCancelRequested()) {
      SetErrorCode(Status::Canceled);
      SetState(FeatureState::Running);
      return false;
    }
  }
  return true;
}

std::uint32_t SendFirmware_ATA::GetChunkBlocks() const {
  // What the controllers take in one command.
  constexpr std::uint32_t kMost = 256, kRaidAdapter = 255, kIdeMode = 1;
  if (device_->GetString(Properties::DriverManufacturer) == "LSI API" &&
      device_->GetBool(Properties::RAIDMember)) {
    return kRaidAdapter;
  }
  return device_->GetBool(Properties::ControllerIDEMode) ? kIdeMode : kMost;
}

bool SendFirmware_ATA::DownloadChunk(ByteSpan buffer, std::uint16_t blocks,
                                     std::uint32_t offsetBlocks) {
  return ata_ != nullptr && ata_->ataDownloadMicrocode(buffer, kWithOffsets, blocks,
                                                       offsetBlocks) == Status::Completed;
}

bool SendFirmware_ATA::SetSmartState(bool enable) {
  const bool disable = !enable && device_->GetBool(Properties::SMARTEnabled);
  std::vector<std::uint8_t> sector(
      static_cast<std::size_t>(std::min(device_->GetUInt(Properties::SectorSize), kLargestSector)));
  const bool done =
      ata_ != nullptr && (disable ? ata_->ataSmartDisableOperations(sector)
                                  : ata_->ataSmartEnableOperations(sector)) == Status::Completed;
  if (!done) SetErrorCode(disable ? Status::SmartDisableFailed : Status::SmartEnableFailed);
  return done;
}

}  // namespace Morvu
