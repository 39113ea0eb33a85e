// Declares the properties of one group of the catalogue: a row of the file that
// PROPERTY_GROUP names becomes the constant Properties::IDENTIFIER. Included once by each
// group's header, and by nobody else.

#include "messaging/PropertyEntry.h"

namespace Morvu::DeviceManagement::Properties {

#define PROPERTY(identifier, key, display, kind) \
  inline constexpr PropertyEntry identifier{key, display, PropertyKind::kind};
#include PROPERTY_GROUP
#undef PROPERTY
#undef PROPERTY_GROUP

}  // namespace Morvu::DeviceManagement::Properties
