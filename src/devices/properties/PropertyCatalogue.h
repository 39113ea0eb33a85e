// The names of all device properties: Properties::SerialNumber and so on.
#pragma once

#include <span>
#include <string_view>

#include "messaging/DeviceProperty.h"

namespace Morvu::DeviceManagement {

namespace Properties {
#define PROPERTY(identifier, key, display, kind) \
  inline constexpr PropertyEntry identifier{key, display, PropertyKind::kind};
#include "devices/properties/PropertyCatalogue.inc"
#undef PROPERTY
}  // namespace Properties

// All entries, in catalogue order.
std::span<const PropertyEntry* const> GetPropertyCatalogue();

}  // namespace Morvu::DeviceManagement
