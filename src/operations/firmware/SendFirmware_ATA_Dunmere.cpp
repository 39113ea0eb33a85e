#include "operations/firmware/SendFirmware_ATA_Dunmere.h"

#include <array>

#include "devices/commands/CommandSet_ATA.h"
#include "frame/Logger.h"
#include "frame/status/Firmware.h"

namespace Morvu {
namespace {

constexpr std::uint8_t kWholeImage = 0x07;
constexpr std::uint32_t kVendorOffset = 0x414C;
constexpr std::size_t kBlock = 4096;  // holds a sector of either size

}  // namespace

std::int32_t SendFirmware_ATA_Dunmere::Execute() {
  if (!SendFirmware_ATA::Execute()) return false;
  MORVU_LOG(kLogInfo, "Execute", "Sending extra download.");
  std::array<std::uint8_t, kBlock> block;
  CopyImage(0, block);
  if (ata_->ataDownloadMicrocode(block, kWholeImage, 1, kVendorOffset) == Status::Completed) {
    return true;
  }
  MORVU_LOG(kLogError, "Execute", "Failed extra download.");
  return Fail(Status::FirmwareUpdateFailed);
}

}  // namespace Morvu
