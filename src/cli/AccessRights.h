// Whether this process may talk to the host's drives.
#pragma once

#include <cstdint>
#include <span>
#include <string>

#include "devices/model/Device.h"

namespace Morvu {

// The effective capabilities of this thread, a bit each.
std::uint64_t ReadCapabilities();

// What the process lacks, as lines for the user; empty when it lacks nothing. Capabilities
// are looked at only when a drive did not answer. No node is opened.
std::string DescribeMissingRights(std::span<DeviceManagement::Device* const> drives,
                                  std::uint64_t capabilities = ReadCapabilities());

}  // namespace Morvu
