// The temperature that an NVMe drive tells in its vendor log C5h, "Temperature Statistics".
#pragma once

#include <span>

#include "messaging/features/JobContext.h"

namespace Morvu {

namespace DeviceManagement {
class Device;
}

// Posts the current temperature of each NVMe drive among the devices that tells one, in
// degrees Celsius.
void NotifyTemperatures(JobContext& context, std::span<DeviceManagement::Device* const> devices);

}  // namespace Morvu
