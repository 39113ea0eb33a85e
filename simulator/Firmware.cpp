#include "Firmware.h"

#include <cstdio>
#include <cstring>

#include "Bytes.h"
#include "Journal.h"

namespace Simulator {

namespace {

constexpr std::size_t kRevisionAt = 16, kSizeAt = 24, kHeaderSize = 28;

void Begin(FirmwareState& firmware, std::uint32_t unitSize, std::span<const std::uint8_t> data) {
  firmware.nextBlock = 0;
  firmware.imageBlocks = 0;
  firmware.digest = 0;
  firmware.running = 1;
  SetText(firmware.pending, "");
  if (data.size() < kHeaderSize || std::memcmp(data.data(), kImageMark, kRevisionAt) != 0) return;
  SetText(firmware.pending, GetText(reinterpret_cast<const char*>(&data[kRevisionAt]), 8));
  const auto bytes = GetLittle<std::uint32_t>(&data[kSizeAt]);
  firmware.imageBlocks = bytes / unitSize + (bytes % unitSize != 0 ? 1 : 0);
}

}  // namespace

bool TakePiece(FirmwareState& firmware, std::uint32_t offset, std::uint32_t units,
               std::uint32_t unitSize, std::span<const std::uint8_t> data) {
  if (firmware.refuseImages || units == 0) return false;
  if (offset == 0) Begin(firmware, unitSize, data);
  if (!firmware.running || offset != firmware.nextBlock) return false;
  if (firmware.imageBlocks != 0 && units > firmware.imageBlocks - offset) return false;
  firmware.nextBlock += units;
  firmware.digest = firmware.digest * 31 + Digest(data.data(), data.size());
  return true;
}

bool IsWhole(const FirmwareState& firmware) {
  return firmware.running && firmware.nextBlock != 0 &&
         (firmware.imageBlocks == 0 || firmware.nextBlock == firmware.imageBlocks);
}

std::string Revision(const FirmwareState& firmware) {
  if (firmware.pending[0] != '\0') return GetText(firmware.pending);
  if (firmware.next[0] != '\0') return GetText(firmware.next);
  char made[16];
  std::snprintf(made, sizeof made, "SIM%05X", static_cast<unsigned>(firmware.digest & 0xFFFFF));
  return made;
}

}  // namespace Simulator
