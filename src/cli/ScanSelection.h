// Which drives a command line lets be asked: a line that selects one drive by a name that the
// kernel knows waits for no other.
#pragma once

#include "devices/model/ScanOptions.h"

namespace Morvu {

class CLIParser;
namespace DeviceManagement {
class AdapterManager;
}

// Scans for what the line needs; all drives, unless its only selector leads to some.
void ScanForSelection(const CLIParser& line, DeviceManagement::AdapterManager& manager,
                      DeviceManagement::ScanOptions options);

}  // namespace Morvu
