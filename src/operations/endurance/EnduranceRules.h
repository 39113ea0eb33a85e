// The drives whose wear can be counted.
#pragma once

#include "devices/model/Device.h"

namespace Morvu::Refuse {

// Of a generation that does not count it.
bool NoWorkloadCounters(DeviceManagement::Device& device);
// Of one that counts it from a later firmware on; a revision too short to tell counts as earlier.
bool TooOldForCounters(DeviceManagement::Device& device);

}  // namespace Morvu::Refuse
