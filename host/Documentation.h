// The manual page and the completion of morvussd, made from its option data.
#pragma once

#include <string>

#include "cli/CLIParser.h"
#include "cli/QRKCLI.h"

namespace MorvuTool {

std::string MakeManualPage(const Morvu::CLIParser& parser, const Morvu::ToolConfig& config);
std::string MakeBashCompletion(const Morvu::CLIParser& parser, const Morvu::ToolConfig& config);

}  // namespace MorvuTool
