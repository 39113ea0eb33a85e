#pragma once

#include "frame/Bytes.h"
#include "messaging/features/Feature.h"

namespace Morvu {

// Pushes one firmware image through a drive's command set and activates it. The
// caller judges the result, and has set the device's time-out.
class SendFirmware : public Function {
 public:
  // The image is not owned and outlives Execute. Nothing behind its end is read: what
  // a last block or dword has beyond it goes out as zeros.
  void SetData(ByteView image) { image_ = image; }

  // The drive took the image, and says that it runs it after a reset, not before.
  bool WaitsForReset() const { return waitsForReset_; }
  // The status by which an NVMe controller says so; 0 when it needed none.
  StatusCode GetNvmeStatus() const { return nvmeStatus_; }

 protected:
  SendFirmware(DeviceManagement::Device* device, ProgressReporter& reporter);

  // The ATA family's way of sending `blocks` sectors, `offsetBlocks` into the image.
  virtual bool DownloadChunk(ByteSpan buffer, std::uint16_t blocks, std::uint32_t offsetBlocks) = 0;

  // Copies the image from `offset` on, as far as it goes, and zeros behind it.
  void CopyImage(std::size_t offset, ByteSpan buffer) const;
  // Sets code and state of a failure, and returns false.
  bool Fail(StatusCode code);

  ByteView image_;
  bool waitsForReset_ = false;
  StatusCode nvmeStatus_ = Status::Completed;
};

}  // namespace Morvu
