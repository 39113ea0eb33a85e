// A drive's medium as its commands address it.
#pragma once

#include <cstdint>
#include <optional>

namespace Morvu::DeviceManagement {

class Device;

// How many logical blocks can be addressed, from 0 on: "MaximumLBA" is the count itself on an
// ATA drive, on any other the last address. Nothing when it is not known.
std::optional<std::uint64_t> CountBlocks(const Device& device);

// The logical block in bytes: a power of two from 512 to 65,536; nothing for any other.
std::optional<std::uint32_t> GetBlockSize(const Device& device);

}  // namespace Morvu::DeviceManagement
