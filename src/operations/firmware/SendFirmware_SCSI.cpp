#include "operations/firmware/SendFirmware_SCSI.h"

#include <algorithm>
#include <array>

#include "devices/commands/CommandSet_SCSI.h"
#include "frame/Logger.h"
#include "frame/status/Firmware.h"

namespace Morvu {
namespace {

constexpr std::uint32_t kTimeoutSeconds = 200;
constexpr std::size_t kPiece = 4096;
constexpr std::uint32_t kPieceBlocks = 8;
constexpr std::uint8_t kDownloadWithOffsets = 0x07;

}  // namespace

std::int32_t SendFirmware_SCSI::Execute() {
  if (scsi_ == nullptr || image_.empty()) return Fail(Status::FirmwareUpdateFailed);
  const DeviceManagement::TimeoutGuard timeout(device_->GetPath(), kTimeoutSeconds);
  MORVU_LOG(kLogInfo, "Execute", "Sending the firmware.");
  std::array<std::uint8_t, kPiece> piece;
  for (std::size_t offset = 0; offset < image_.size(); offset += kPiece) {
    CopyImage(offset, piece);
    const auto length = static_cast<std::uint32_t>(std::min(kPiece, image_.size() - offset));
    if (scsi_->scsiWriteBuffer(piece, kDownloadWithOffsets, 0, length, kPieceBlocks) !=
        Status::Completed) {
      return Fail(Status::FirmwareUpdateFailed);
    }
  }
  return true;
}

}  // namespace Morvu
