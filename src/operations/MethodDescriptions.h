// How the drive class's methods are described to a host.
#pragma once

#include <span>
#include <string_view>

#include "messaging/features/CimClass.h"

namespace Morvu {

// All rows, in ascending byte order of the names.
std::span<const MethodDescription> GetMethodDescriptions();
// Null when no row has this name.
const MethodDescription* FindMethodDescription(std::string_view name);

}  // namespace Morvu
