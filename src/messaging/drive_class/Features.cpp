#include "messaging/drive_class/Features.h"

namespace Morvu {

std::span<const FeatureRecord* const> GetFeatures() {
  static constexpr const FeatureRecord* kFeatures[] = {
#define FEATURE(name) &name##Record,
#include "messaging/drive_class/Features.inc"
#undef FEATURE
  };
  return kFeatures;
}

}  // namespace Morvu
