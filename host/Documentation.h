// The manual page and the completion of morvussd, made from its option data.
#pragma once

#include <span>
#include <string>

#include "cli/CLIParser.h"
#include "cli/QRKCLI.h"

namespace MorvuTool {

std::string MakeManualPage(const Morvu::CLIParser& parser, const Morvu::ToolConfig& config);
std::string MakeBashCompletion(const Morvu::CLIParser& parser, const Morvu::ToolConfig& config,
                               std::span<const Morvu::FeatureRecord* const> features);
// The options of docs/command-line.md: a table of the features and one of the tool's own.
std::string MakeOptionTables(std::span<const Morvu::FeatureRecord* const> features);

}  // namespace MorvuTool
