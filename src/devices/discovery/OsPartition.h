#pragma once

#include <memory>
#include <vector>

#include "devices/model/Device.h"
#include "devices/system/SystemFacts.h"

namespace Morvu::DeviceManagement {

// Gives each drive the names of its partitions, as the kernel shows them.
void FindLogicalDrives(const std::vector<Device*>& drives, const SystemFacts& facts);

// Marks the partitions that hold / and /boot, also where / is a logical volume.
void MarkOsPartitions(const std::vector<Device*>& drives, const SystemFacts& facts);

}  // namespace Morvu::DeviceManagement
