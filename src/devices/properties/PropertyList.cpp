#include "devices/properties/PropertyList.h"

#include <algorithm>

namespace Morvu::DeviceManagement {

void PropertyList::Add(DeviceProperty property) {
  const auto found = std::ranges::find(properties_, property.GetName(), &DeviceProperty::GetName);
  if (found == properties_.end()) {
    properties_.push_back(std::move(property));
  } else {
    *found = std::move(property);
  }
}

void PropertyList::Remove(const PropertyEntry& entry) {
  std::erase_if(properties_,
                [&](const DeviceProperty& property) { return property.GetName() == entry.name; });
}

const DeviceProperty* PropertyList::Find(const PropertyEntry& entry) const {
  return Find(entry.name);
}

const DeviceProperty* PropertyList::Find(std::string_view name) const {
  const auto found = std::ranges::find(properties_, name, &DeviceProperty::GetName);
  return found == properties_.end() ? nullptr : &*found;
}

std::string PropertyList::GetString(const PropertyEntry& entry) const {
  const auto* property = Find(entry);
  return property == nullptr ? std::string() : property->AsString();
}

bool PropertyList::GetBool(const PropertyEntry& entry) const {
  const auto* property = Find(entry);
  return property != nullptr && property->AsBoolean();
}

std::uint64_t PropertyList::GetUnsigned(const PropertyEntry& entry) const {
  const auto* property = Find(entry);
  return property == nullptr ? 0 : property->AsUnsigned();
}

std::int64_t PropertyList::GetSigned(const PropertyEntry& entry) const {
  const auto* property = Find(entry);
  return property == nullptr ? 0 : property->AsSigned();
}

void PropertyList::Merge(const PropertyList& other) {
  for (const auto& property : other) Add(property);
}

void PropertyList::Rebind(const void* from, const void* to) {
  for (auto& property : properties_) property.Rebind(from, to);
}

}  // namespace Morvu::DeviceManagement
