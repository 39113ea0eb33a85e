// Properties that stand in what a device answers, as a table.
#pragma once

#include <span>

#include "devices/properties/PropertyList.h"
#include "messaging/PageTable.h"

namespace Morvu::DeviceManagement {

struct PropertyField {
  const PropertyEntry* entry;
  PagePlace place;
  PageForm text = Form::Text;  // how a text stands there
};

// Adds the value of each field, by the kind of its property, over what is there. A
// field that the page does not hold changes nothing.
void PutFields(ByteView page, std::span<const PropertyField> fields, PropertyList& properties);

}  // namespace Morvu::DeviceManagement
