// What morvussd is: its texts.
#pragma once

#include "cli/QRKCLI.h"

namespace MorvuTool {

const Morvu::ToolConfig& GetToolConfig();

}  // namespace MorvuTool
