#include "operations/firmware/AttributeCollection.h"

#include "messaging/XmlMessaging.h"

namespace Morvu {

using DeviceManagement::PropertyList;
using XmlMessaging::Object;

std::optional<std::uint64_t> ReadVerdict(const PropertyList& mapping) {
  const auto* status = mapping.Find(FirmwareMapping::Status);
  if (status == nullptr || status->GetKind() != FirmwareMapping::Status.kind) return {};
  return status->HasValue() ? std::optional(status->AsUnsigned()) : std::nullopt;
}

std::string WriteAttributeCollection(const PropertyList& attributes) {
  Object collection;
  collection.SetAttribute("name", "attributeCollection");
  for (const auto& attribute : attributes) collection.AddProperty(attribute.ToXml());
  return collection.ToText();
}

std::optional<PropertyList> ReadAttributeCollection(std::string_view text) {
  const auto collection = Object::Parse(text);
  if (!collection) return {};
  PropertyList attributes;
  for (const auto& property : collection->properties) {
    attributes.Add(DeviceProperty::FromXml(*property));
  }
  return attributes;
}

}  // namespace Morvu
