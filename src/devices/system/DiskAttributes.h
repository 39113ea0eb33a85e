// What the kernel has of the disks behind a node; nothing where it does not tell.
#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

namespace Morvu::DeviceManagement {

// Whether it passes discards, as fstrim and the discard mount option send them, on to each.
std::optional<bool> PassesDiscards(std::string_view devicePath);

// The size, in bytes, of the one disk that there is: it was read when the disk came.
std::optional<std::uint64_t> FindKernelSize(std::string_view devicePath);

}  // namespace Morvu::DeviceManagement
