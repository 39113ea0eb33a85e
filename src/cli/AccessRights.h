// Whether this process may talk to the host's drives.
#pragma once

#include <span>
#include <string>

#include "devices/model/Device.h"

namespace Morvu {

// What the process lacks, as lines for the user; empty when it lacks nothing. Looks
// at the device nodes only when it is not root's process or a drive did not answer.
std::string DescribeMissingRights(std::span<DeviceManagement::Device* const> drives);

}  // namespace Morvu
