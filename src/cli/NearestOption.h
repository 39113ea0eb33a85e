// What a mistyped option was perhaps meant to be.
#pragma once

#include <memory>
#include <span>
#include <string>
#include <string_view>

#include "cli/CLIParameter.h"

namespace Morvu {

// The name of the option that fewest slips of a key lead from to `word`: a letter that is missing,
// too much or another, and two that changed places. Case is no slip. Empty where none is near.
std::string FindNearestOption(std::string_view word,
                              std::span<const std::unique_ptr<CLIParameter>> options);

}  // namespace Morvu
