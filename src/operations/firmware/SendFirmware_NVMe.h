#pragma once

#include "operations/firmware/SendFirmware.h"

namespace Morvu {

// Firmware Image Download and Firmware Activate (NVMe 1.0, 5.8 and 5.7) to slot 1. The
// drive runs the image after its next reset. No percent and no cancel.
class SendFirmware_NVMe : public SendFirmware {
 public:
  SendFirmware_NVMe(DeviceManagement::Device* device, ProgressReporter& reporter)
      : SendFirmware(device, reporter) {}

  std::int32_t Execute() override;
  void Initialize() override {}

 protected:
  bool DownloadChunk(ByteSpan, std::uint16_t, std::uint32_t) override { return false; }

 private:
  StatusCode TransferImage();
  StatusCode Activate();
  // Resets the adapter, and waits until the controller answers again.
  StatusCode nvmeReset();
  std::string_view GetLogName() const override { return "SendFirmware_NVMe"; }
};

}  // namespace Morvu
