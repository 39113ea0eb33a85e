#include "devices/discovery/DriveXml.h"

#include <boost/property_tree/ptree.hpp>
#include <string>

#include "devices/identification/Products.h"
#include "devices/model/Adapter.h"
#include "devices/model/Drive.h"
#include "devices/properties/AdapterProperties.h"
#include "devices/properties/BasicProperties.h"
#include "devices/properties/DriverProperties.h"
#include "devices/properties/IdentityProperties.h"
#include "devices/properties/ProductProperties.h"
#include "devices/properties/ScanProperties.h"
#include "devices/properties/SecurityProperties.h"

namespace Morvu::DeviceManagement {
namespace {

using boost::property_tree::ptree;
using Writer = std::string (*)(const Drive& drive);

std::string ToText(const Device& device, const PropertyEntry& entry) {
  const auto* property = device.GetProperties().Find(entry);
  return property != nullptr ? property->ToText() : DeviceProperty(entry).ToText();
}

std::string YesNo(bool value) { return value ? "yes" : "no"; }

template <const PropertyEntry& Entry>
std::string Value(const Drive& drive) {
  return Entry.kind == PropertyKind::Boolean ? YesNo(drive.GetBool(Entry)) : ToText(drive, Entry);
}

template <const PropertyEntry& Entry>
std::string OfParent(const Drive& drive) {
  return drive.GetParent() == nullptr ? std::string() : ToText(*drive.GetParent(), Entry);
}

std::string ParentIdentifier(const Drive& drive) {
  const auto* adapter = dynamic_cast<const Adapter*>(drive.GetParent());
  return adapter == nullptr ? std::string() : adapter->GetIdentifier();
}

std::string PathDescription(const Drive& drive) { return drive.GetPath().GetDescription(); }

std::string DriverVersion(const Drive& drive) {
  return ToText(drive, Properties::DriverMajorVersion) + "." +
         ToText(drive, Properties::DriverMinorVersion);
}

std::string AhciMode(const Drive& drive) {
  return YesNo(!drive.GetBool(Properties::ControllerIDEMode));
}

std::string LifeSupported(const Drive& drive) { return YesNo(!ProductOf(drive).hidesLife); }

std::string ChildCount(const Drive& drive) { return std::to_string(drive.GetChildren().size()); }

struct Row {
  const char* key;
  Writer write;
};
// clang-format off
constexpr Row kRows[] = {
    {"model",                Value<Properties::ModelNumber>},
    {"serial",               Value<Properties::SerialNumber>},
    {"firmware",             Value<Properties::Firmware>},
    {"series",               Value<Properties::ProductFamily>},
    {"oem",                  Value<Properties::OEM>},
    {"generation",           Value<Properties::Product>},
    {"command_path",         PathDescription},
    {"device_path",          Value<Properties::DevicePath>},
    {"pnp_string",           Value<Properties::PNPString>},
    {"driver_manufacturer",  Value<Properties::DriverManufacturer>},
    {"driver_description",   Value<Properties::DriverDescription>},
    {"driver_version",       DriverVersion},
    {"adapter_name",         ParentIdentifier},
    {"adapter_path",         OfParent<Properties::DevicePath>},
    {"adapter_port",         OfParent<Properties::PortNumber>},
    {"morvu",                Value<Properties::Morvu>},
    {"morvu_array",          Value<Properties::MorvuRAID>},
    {"csmi",                 Value<Properties::CSMI>},
    {"raid_member",          Value<Properties::RAIDMember>},
    {"trim_supported",       Value<Properties::TrimSupported>},
    {"smart_enabled",        Value<Properties::SMARTEnabled>},
    {"ahci_mode",            AhciMode},
    {"storage_space_member", Value<Properties::StorageSpaceMember>},
    {"life_supported",       LifeSupported},
    {"tcg_supported",        Value<Properties::TCGSupported>},
    {"df_supported",         Value<Properties::DigitalFenceSupported>},
    {"rse_supported",        Value<Properties::RemoteSecureEraseSupported>},
    {"index",                Value<Properties::Index>},
    {"raid_member_count",    ChildCount},
    {"physical_size",        Value<Properties::PhysicalSize>},
    {"maximum_lba",          Value<Properties::MaximumLBA>},
    {"port_number",          Value<Properties::PortNumber>},
    {"lun",                  Value<Properties::Lun>},
    {"target_id",            Value<Properties::TargetID>},
    {"path_id",              Value<Properties::PathID>},
};
// clang-format on
static_assert(std::size(kRows) == 35);

void WritePartition(const Drive& drive, const Partition& partition, ptree& tree) {
  const auto space = partition.ReadSpace();
  auto& node = tree.add("Partition", "");
  node.put("<xmlattr>.name", "Partition");
  node.put("<xmlattr>.direction", "io");
  node.put("Path", partition.GetName());
  node.put("LogicalSize", space.size);
  node.put("FreeSpace", space.free);
  node.put("UsedSpace", space.used);
  node.put("FreePercentage", space.GetFreePercentage());
  node.put("Type", space.type);
  node.put("Id", drive.GetPartitionId(partition));
}

}  // namespace

void WriteDriveXml(const Drive& drive, ptree& tree) {
  auto& node = tree.add("drive", "");
  for (const auto& row : kRows) node.put(row.key, row.write(drive));
  for (const auto& partition : drive.GetPartitions()) WritePartition(drive, partition, node);
}

void WriteAdapterXml(const Adapter& adapter, ptree& tree) {
  auto& node = tree.add("adapter", "");
  node.put("type", adapter.GetType());
  node.put("identifier", adapter.GetIdentifier());
  auto& drives = node.put("drives", "");
  for (const auto& device : adapter.GetDrives()) {
    if (const auto* drive = device->AsDrive()) WriteDriveXml(*drive, drives);
  }
}

}  // namespace Morvu::DeviceManagement
