#pragma once

#include "operations/firmware/SendFirmware.h"

namespace Morvu {

// DOWNLOAD MICROCODE in segments (ACS-3, 7.7), with SMART off and the drive in standby
// meanwhile, unless it stands behind a RAID controller.
class SendFirmware_ATA : public SendFirmware {
 public:
  SendFirmware_ATA(DeviceManagement::Device* device, ProgressReporter& reporter);

  std::int32_t Execute() override;
  void Initialize() override;

 protected:
  bool DownloadChunk(ByteSpan buffer, std::uint16_t blocks, std::uint32_t offsetBlocks) override;

 private:
  struct Rules;

  bool Prepare();
  bool TransferImage();
  bool Cancel();
  // True on success; false leaves 84 or 85 behind.
  bool SetSmartState(bool enable);
  std::uint32_t GetChunkBlocks() const;
  std::string_view GetLogName() const override { return "SendFirmware_ATA"; }

  bool quietDrive_;
};

}  // namespace Morvu
