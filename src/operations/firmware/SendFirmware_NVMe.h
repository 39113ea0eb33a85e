#pragma once

#include "operations/firmware/SendFirmware.h"

namespace Morvu {

// Firmware Image Download and Firmware Activate (NVMe 1.0, 5.8 and 5.7) to slot 1. The
// drive runs the image after its next reset; an answer that asks for a certain kind of reset
// (NVMe 1.2, 5.8.1: 10Bh, 110h, 111h) is a failure, and the image is committed all the same.
// No percent and no cancel.
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
  // Resets the adapter, and waits until the controller answers again, for 200 seconds.
  StatusCode nvmeReset();
};

}  // namespace Morvu
