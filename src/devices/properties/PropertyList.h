// An ordered bag of named values, one for each name.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "messaging/DeviceProperty.h"

namespace Morvu::DeviceManagement {

class PropertyList {
 public:
  // Adds the value, or replaces, in its place, the one of this name.
  void Add(DeviceProperty property);
  void Remove(const PropertyEntry& entry);

  // The value under the entry's name; null if there is none.
  const DeviceProperty* Find(const PropertyEntry& entry) const;
  const DeviceProperty* Find(std::string_view name) const;
  bool Has(const PropertyEntry& entry) const { return Find(entry) != nullptr; }

  // An absent property reads as an empty one: "", 0, false.
  std::string GetString(const PropertyEntry& entry) const;
  bool GetBool(const PropertyEntry& entry) const;
  std::uint64_t GetUnsigned(const PropertyEntry& entry) const;
  std::int64_t GetSigned(const PropertyEntry& entry) const;

  // Adds all values of `other`, which win over those that are here.
  void Merge(const PropertyList& other);
  // Lets the dynamic values that asked `from` ask `to`.
  void Rebind(const void* from, const void* to);

  auto begin() const { return properties_.begin(); }
  auto end() const { return properties_.end(); }
  bool IsEmpty() const { return properties_.empty(); }

 private:
  std::vector<DeviceProperty> properties_;
};

}  // namespace Morvu::DeviceManagement
