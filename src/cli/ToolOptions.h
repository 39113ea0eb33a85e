// The options that every tool has, whatever its Features.
#pragma once

#include <span>

#include "cli/CLIParameter.h"

namespace Morvu {

// In the order in which they are registered, and so handled.
std::span<const OptionDeclaration> GetToolOptions();

}  // namespace Morvu
