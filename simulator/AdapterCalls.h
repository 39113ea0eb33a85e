// What the vendor's library of a fleet's RAID controllers does. It is strict: a call with a wrong
// group, command, size or offset, or with a byte set that means nothing, is refused.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace Simulator {

// What the library saw in this process.
struct AdapterRecord {
  std::uint32_t begun = 0, ended = 0;  // 0/0 and 0/9 that were taken
  std::uint32_t calls = 0;
  std::uint32_t malformed = 0;  // refused for what the caller wrote, or out of turn
  std::uint32_t running = 0;    // right now
};
AdapterRecord GetAdapterRecord();

// The ways in which it can misbehave (WriteLibraryFaults), by name.
bool IsLibraryFault(std::string_view name);
std::string ListLibraryFaults();

}  // namespace Simulator
