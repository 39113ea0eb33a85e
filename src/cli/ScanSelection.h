// Which drives a command line lets be asked: a line that selects one drive by a name that the
// kernel knows waits for no other.
#pragma once

#include "devices/model/ScanOptions.h"

namespace Morvu {

class CLIParser;
namespace DeviceManagement {
class AdapterManager;
}

// Scans for what the line needs; all drives, unless its only selector leads to some. Before
// data are destroyed each drive is asked whether the serial number is its own too.
void ScanForSelection(const CLIParser& line, DeviceManagement::AdapterManager& manager,
                      const DeviceManagement::ScanOptions& options, bool destroys);

}  // namespace Morvu
