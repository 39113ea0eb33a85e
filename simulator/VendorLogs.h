// The vendor's logs, Event Log and NLog, as a drive has them that was given none: what stands
// in them is made anew with each read and always the same.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace Simulator {

// ATA logs DEh and B9h. Each block bears its number, so that a lost or doubled one is seen.
inline constexpr std::uint16_t kEventLogBlocks = 0x3300;
void PutEventBlock(std::uint32_t number, std::uint8_t* block);

struct NlogEntry {
  std::uint32_t num;
  std::uint32_t words;  // of data, of 4 bytes
};

// An NLog image: its header, and the entries, whose data bear their number.
std::vector<std::uint8_t> MakeNlog(std::span<const NlogEntry> entries);
// The NVMe form: a header of 4,096 bytes in front of up to two images.
std::vector<std::uint8_t> MakeNvmeNlog(std::span<const std::vector<std::uint8_t>> images);

// Those that a drive has of its own: ATA logs DFh and BAh, NVMe logs 0 and 1 of opcode D2h.
const std::vector<std::uint8_t>& BuiltInNlog();
const std::vector<std::uint8_t>& BuiltInNvmeNlog();
const std::vector<std::uint8_t>& BuiltInNvmeEventLog();

}  // namespace Simulator
