// The texts that tell a person about drives.
#pragma once

#include <span>
#include <string>
#include <string_view>

#include "devices/model/Device.h"
#include "messaging/ResultTable.h"

namespace Morvu {

// The drive answers now.
bool IsReachable(DeviceManagement::Device& drive);

enum class DriveDetail { List, Information };

// A table a drive under the title; with `Information` also the drive's state, which
// is asked of the drive, and its partitions.
// Lines that warn of drives that say that they fail go to `warnings`.
std::string DescribeDrives(std::span<DeviceManagement::Device* const> drives,
                           std::string_view title, DriveDetail detail,
                           std::vector<std::string>& warnings);

// One row a drive, for a file.
ResultTable TabulateDrives(std::span<DeviceManagement::Device* const> drives);

}  // namespace Morvu
