#include "messaging/drive_class/DeviceSelection.h"

#include <algorithm>
#include <string>

#include "devices/model/DriveHold.h"
#include "devices/properties/BasicProperties.h"
#include "devices/system/SystemFacts.h"
#include "frame/Text.h"
#include "messaging/XmlMessaging.h"
#include "messaging/drive_class/MorvuSSD.h"

namespace Morvu {
namespace {

using DeviceManagement::Device;
using DeviceManagement::DeviceKind;
using DeviceManagement::DriveHold;
using DeviceManagement::SelectedDevices;
using XmlMessaging::Object;
using XmlMessaging::Property;
using Drives = std::span<Device* const>;
namespace Properties = DeviceManagement::Properties;

bool IsKey(const Property& property) {
  if (ParseBool(property.GetAttribute("key")) != true) return false;
  return property.GetAttribute("name") != Properties::Index.name || ParseDecimal(property.value);
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
  // "0" names a drive; a text that merely reads as 0 must not.
  const auto number = ParseSigned(key);
  return index != nullptr && number && *number >= 0 && index->AsSigned() == *number;
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
  const auto id = ParseSigned((*child)->value);
  if (!id || *id < 0) return;
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

bool NamesDrive(const XmlMessaging::Message& request) {
  return std::ranges::any_of(request.objects, [](const auto& object) {
    return IsDriveClass(object->GetAttribute("cimClass")) && FindKey(*object) != nullptr;
  });
}

void DropUnreachable(SelectedDevices& selected) {
  if (selected.devices.empty()) return;
  const auto facts = DeviceManagement::SystemFacts::Read();
  std::erase_if(selected.devices, [&](const auto& device) {
    const DriveHold hold(*device, facts, DriveHold::Kind::Moment);
    return hold.IsTaken() && !device->TestConnection();
  });
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
