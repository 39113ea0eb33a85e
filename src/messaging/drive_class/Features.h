// All families of operations that the library has.
#pragma once

#include <span>

#include "messaging/features/FeatureRecord.h"

namespace Morvu {

#define FEATURE(name) extern const FeatureRecord name##Record;
#include "messaging/drive_class/Features.inc"
#undef FEATURE

// In the order in which the help shows their options.
std::span<const FeatureRecord* const> GetFeatures();

}  // namespace Morvu
