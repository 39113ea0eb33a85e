// What a report shows of drives.
#pragma once

#include <span>
#include <string>
#include <vector>

#include "cli/DriveInformation.h"
#include "cli/Report.h"
#include "messaging/features/CimClass.h"

namespace Morvu {

// Adds the drives with those of the properties that they have. With `List` no drive is asked;
// with `Information` each is asked for its verdict, and for what else the rows know to ask.
// Lines that warn of drives that say that they fail come back.
std::vector<std::string> AddDrives(Report& report,
                                   std::span<DeviceManagement::Device* const> drives,
                                   std::span<const CimProperty> properties, DriveDetail detail);

}  // namespace Morvu
