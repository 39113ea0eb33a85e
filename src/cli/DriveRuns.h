// One feature on several drives, side by side.
#pragma once

#include "cli/Prompt.h"

namespace Morvu {

// Runs the option on each drive; drives that can only be worked on together, as the namespaces of
// an NVMe subsystem, are one run. What each has told, and its end, follow in the order of the
// drives. The code is the worst end.
StatusCode RunOnDrives(QRKCLI& cli, const FeatureRecord& feature, const OptionDeclaration& option,
                       SelectedDrives devices);

}  // namespace Morvu
