#pragma once

#include <memory>
#include <vector>

#include "devices/model/Device.h"

namespace Morvu::DeviceManagement {

// Marks the partitions that hold / and /boot, also where / is a logical volume.
void MarkOsPartitions(const std::vector<std::unique_ptr<Device>>& drives);

}  // namespace Morvu::DeviceManagement
