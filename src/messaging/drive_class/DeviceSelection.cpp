#include "messaging/drive_class/DeviceSelection.h"

#include <algorithm>
#include <charconv>
#include <optional>
#include <string>

#include "devices/properties/BasicProperties.h"
#include "frame/Text.h"
#include "messaging/XmlMessaging.h"
#include "messaging/drive_class/MorvuSSD.h"

namespace Morvu {
namespace {

using DeviceManagement::Device;
using DeviceManagement::DeviceKind;
using DeviceManagement::SelectedDevices;
using XmlMessaging::Object;
using XmlMessaging::Property;
using Drives = std::span<Device* const>;
namespace Properties = DeviceManagement::Properties;

// The number that the whole text writes, if it writes one. "0" names a drive; a text
// that merely reads as 0 must not.
std::optional<std::int64_t> WholeNumber(std::string_view text) {
  std::int64_t number = 0;
  const auto* end = text.data() + text.size();
  const auto [stop, error] = std::from_chars(text.data(), end, number);
  if (error != std::errc() || stop != end || number < 0) return std::nullopt;
  return number;
}

bool IsKey(const Property& property) {
  if (property.GetAttribute("key") != BoolText(true)) return false;
  return property.GetAttribute("name") != Properties::Index.name || IsDecimal(property.value);
}

// Null when the Object has no key.
const Property* FindKey(const Object& object) {
  const auto key = std::ranges::find_if(object.properties,
                                        [](const auto& property) { return IsKey(*property); });
  return key == object.properties.end() ? nullptr : key->get();
}

bool IsNamedBy(const Device& device, const std::string& key) {
  if (device.GetString(Properties::SerialNumber) == key) return true;
  const auto* index = device.GetProperties().Find(Properties::Index);
  const auto number = WholeNumber(key);
  return index != nullptr && number && index->AsSigned() == *number;
}

void SelectByKey(Drives drives, const Object& object, SelectedDevices& selected) {
  const auto* key = FindKey(object);
  if (key == nullptr) return;
  const bool morvuOnly = object.GetAttribute("cimClass") == kMorvuClass;
  for (auto* drive : drives) {
    if (drive->GetKind() != DeviceKind::Drive) continue;
    if (morvuOnly && !drive->GetBool(Properties::Morvu)) continue;
    if (IsNamedBy(*drive, key->value)) selected.devices.push_back(drive->Clone());
  }
}

void SelectPartitions(Drives drives, const Object& object, SelectedDevices& selected) {
  const auto child = std::ranges::find_if(object.properties, [](const auto& property) {
    return property->GetAttribute("name") == "Id";
  });
  if (child == object.properties.end()) return;
  const auto id = WholeNumber((*child)->value);
  if (!id) return;
  for (const auto* drive : drives) {
    if (drive->GetKind() != DeviceKind::Drive) continue;
    const auto& partitions = drive->GetPartitions();
    const auto found = std::ranges::find_if(
        partitions, [&](const auto& partition) { return drive->GetPartitionId(partition) == *id; });
    if (found != partitions.end()) selected.partitions.push_back(*found);
  }
}

}  // namespace

void SelectDevices(Drives drives, const XmlMessaging::Message* request, SelectedDevices& selected) {
  if (CloneSelected(drives, request, selected)) DropUnreachable(selected);
}

void DropUnreachable(SelectedDevices& selected) {
  std::erase_if(selected.devices, [](const auto& device) { return !device->TestConnection(); });
}

bool CloneSelected(Drives drives, const XmlMessaging::Message* request, SelectedDevices& selected) {
  bool named = false;
  if (request != nullptr) {
    for (const auto& object : request->objects) {
      if (IsDriveClass(object->GetAttribute("cimClass"))) {
        named = true;
        SelectByKey(drives, *object, selected);
      } else if (object->GetAttribute("name") == kPartitionName) {
        SelectPartitions(drives, *object, selected);
      }
    }
  }
  if (named) return true;
  for (const auto* drive : drives) selected.devices.push_back(drive->Clone());
  return false;
}

}  // namespace Morvu
