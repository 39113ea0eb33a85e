// DOWNLOAD MICROCODE (ACS-3, 7.7).
#include "Ata.h"
#include "Bytes.h"
#include "Firmware.h"

namespace Simulator {

namespace {

constexpr std::uint8_t kSegments = 0x03, kWhole = 0x07, kDeferred = 0x0E, kActivate = 0x0F;
// Count register on success.
constexpr std::uint16_t kMoreExpected = 1, kApplied = 2, kAwaitsActivation = 3;

void Activate(AtaCommand& command) {
  auto& firmware = command.Ata().firmware;
  SetText(command.State().firmware, Revision(firmware));
  firmware.running = firmware.deferred = 0;
  ++firmware.activations;
}

void Defer(AtaCommand& command) {
  auto& firmware = command.Ata().firmware;
  SetText(firmware.pending, Revision(firmware));
  firmware.running = 0;
  firmware.deferred = 1;
}

struct Segment {
  std::uint32_t blocks, offset;
};

Segment Decode(const AtaRegisters& in) {
  const auto lba = static_cast<std::uint32_t>(in.lba);
  return {(in.count & 0xFFu) | (lba & 0xFF) << 8, lba >> 8 & 0xFFFF};
}

void TakeSegment(AtaCommand& command, bool deferred) {
  auto& firmware = command.Ata().firmware;
  const auto segment = Decode(command.In());
  const auto data = command.Take(static_cast<std::size_t>(segment.blocks) * kBlock);
  if (data.empty() || !TakePiece(firmware, segment.offset, segment.blocks, kBlock, data)) {
    firmware.running = 0;
    return command.Abort();
  }
  ++firmware.transfers;
  const bool ends = firmware.imageBlocks != 0 && IsWhole(firmware);
  command.Out().count = !ends ? kMoreExpected : deferred ? kAwaitsActivation : kApplied;
  if (!ends) return;
  if (deferred) {
    Defer(command);
  } else {
    Activate(command);
  }
}

// Some drives want one more block behind an image, sent in the whole-image
// mode at an offset that the standard gives no meaning to.
constexpr Segment kVendorSeal{1, 0x414C};

void TakeWhole(AtaCommand& command) {
  auto& firmware = command.Ata().firmware;
  const auto segment = Decode(command.In());
  if (segment.offset == kVendorSeal.offset && segment.blocks == kVendorSeal.blocks) {
    if (firmware.transfers == 0) command.Abort();
    return;
  }
  const auto data = command.Take(static_cast<std::size_t>(segment.blocks) * kBlock);
  if (data.empty() || !TakePiece(firmware, 0, segment.blocks, kBlock, data) || !IsWhole(firmware)) {
    firmware.running = 0;
    return command.Abort();
  }
  ++firmware.transfers;
  Activate(command);
  command.Out().count = kApplied;
}

}  // namespace

void AtaDownloadMicrocode(AtaCommand& command) {
  switch (command.Feature()) {
    case kSegments:
      return TakeSegment(command, false);
    case kDeferred:
      return TakeSegment(command, true);
    case kWhole:
      return TakeWhole(command);
    case kActivate: {
      auto& firmware = command.Ata().firmware;
      if (!firmware.deferred) return command.Abort();
      Activate(command);
      command.Out().count = kApplied;
      return;
    }
    default:
      return command.Abort();
  }
}

// An image that names no size ends where another command begins; a partial
// image of ours is dropped.
void AtaFinishDownload(AtaCommand& command) {
  const auto opcode = command.In().command;
  if (opcode == 0x92 || opcode == 0x93) return;
  auto& firmware = command.Ata().firmware;
  if (!firmware.running) return;
  if (IsWhole(firmware)) Activate(command);
  firmware.running = 0;
}

}  // namespace Simulator
