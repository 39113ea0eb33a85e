// Reads of an NVMe namespace's blocks by the kernel's pass-through of I/O commands.
#pragma once

#include <cstdint>

#include "devices/commands/CommandPath.h"

namespace Morvu::DeviceManagement {

// READ (NVMe 1.0, 6.8) by the namespace's own node, which `space` leads to. `data` holds
// `blocks` logical blocks, from 1 to 65,536; they bear no metadata.
StatusCode ReadNvmeBlocks(CommandPath& space, std::uint64_t lba, std::uint32_t blocks,
                          ByteSpan data);

}  // namespace Morvu::DeviceManagement
