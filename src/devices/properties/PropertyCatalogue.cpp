#include "devices/properties/PropertyCatalogue.h"

namespace Morvu::DeviceManagement {
namespace {

constexpr const PropertyEntry* kCatalogue[] = {
#define PROPERTY(identifier, key, display, kind) &Properties::identifier,
#include "devices/properties/PropertyCatalogue.inc"
#undef PROPERTY
};
static_assert(std::size(kCatalogue) == 106);

}  // namespace

std::span<const PropertyEntry* const> GetPropertyCatalogue() { return kCatalogue; }

}  // namespace Morvu::DeviceManagement
