#pragma once

#include "operations/firmware/SendFirmware.h"

namespace Morvu {

// WRITE BUFFER (SPC-4) in the mode that downloads with offsets, saves and
// activates; the pieces go out in order, each without an offset of its own. No percent
// and no cancel.
class SendFirmware_SCSI : public SendFirmware {
 public:
  SendFirmware_SCSI(DeviceManagement::Device* device, ProgressReporter& reporter)
      : SendFirmware(device, reporter) {}

  std::int32_t Execute() override;
  void Initialize() override {}

 protected:
  bool DownloadChunk(ByteSpan, std::uint16_t, std::uint32_t) override { return false; }

 private:
  std::string_view GetLogName() const override { return "SendFirmware_SCSI"; }
};

}  // namespace Morvu
