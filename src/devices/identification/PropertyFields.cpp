#include "devices/identification/PropertyFields.h"

namespace Morvu::DeviceManagement {
namespace {

DeviceProperty ReadProperty(ByteView page, const PropertyField& field) {
  const auto& entry = *field.entry;
  if (entry.kind == PropertyKind::String) return {entry, field.text(page, field.place)};
  const auto value = ReadField(page, field.place);
  if (entry.kind == PropertyKind::Boolean) return {entry, value != 0};
  return {entry, value};
}

}  // namespace

void PutFields(ByteView page, std::span<const PropertyField> fields, PropertyList& properties) {
  for (const auto& field : fields) {
    if (field.place.IsInside(page)) properties.Add(ReadProperty(page, field));
  }
}

}  // namespace Morvu::DeviceManagement
