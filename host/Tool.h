// What morvussd is: its texts, and the Features that it offers.
#pragma once

#include <span>

#include "cli/QRKCLI.h"

namespace MorvuTool {

// One row a family.
std::span<const Morvu::FeatureEntry> GetFeatureMap();
const Morvu::ToolConfig& GetToolConfig();

}  // namespace MorvuTool
