#include "devices/model/Adapter.h"

#include <algorithm>
#include <tuple>

#include "devices/model/Drive.h"
#include "devices/properties/AdapterProperties.h"
#include "devices/properties/BasicProperties.h"
#include "messaging/ResultTable.h"

namespace Morvu::DeviceManagement {
namespace {

// Members of an array stand behind the other drives; node paths go by their bytes.
bool ComesBefore(const std::unique_ptr<Device>& left, const std::unique_ptr<Device>& right) {
  const auto key = [](const Device& device) {
    return std::make_tuple(device.GetBool(Properties::RAIDMember),
                           device.GetString(Properties::DevicePath));
  };
  return key(*left) < key(*right);
}

bool HasSameText(const Device& left, const Device& right, const PropertyEntry& entry) {
  return left.GetString(entry) == right.GetString(entry);
}

// The same drive among those found; on the same node, if it has several.
Adapter::Devices::iterator FindAgain(Adapter::Devices& found, const Device& held) {
  const auto isSame = [&](const auto& drive) {
    return IsSameDrive(held, *drive) && HasSameText(held, *drive, Properties::ModelNumber);
  };
  const auto onNode = std::ranges::find_if(found, [&](const auto& drive) {
    return isSame(drive) && HasSameText(held, *drive, Properties::DevicePath);
  });
  return onNode != found.end() ? onNode : std::ranges::find_if(found, isSame);
}

}  // namespace

Adapter::Adapter(std::string_view type) : Device(DeviceKind::Adapter), type_(type) {
  AddProperty(Properties::PortNumber, -1);
}

void Adapter::CopyFrom(const Device& other) {
  if (&other == this) return;
  Device::CopyFrom(other);
  const auto* adapter = dynamic_cast<const Adapter*>(&other);
  if (adapter == nullptr) return;
  type_ = adapter->type_;
  drives_.clear();
  for (const auto& drive : adapter->drives_) {
    drives_.push_back(drive->Clone());
    drives_.back()->SetParent(this);
  }
}

std::vector<Device*> Adapter::ListDrives(const ScanOptions& options) const {
  std::vector<Device*> list;
  for (const auto& device : drives_) {
    list.push_back(device.get());
    const auto* drive = device->AsDrive();
    if (!options.listChildrenOnly || drive == nullptr) continue;
    for (const auto& child : drive->GetChildren()) list.push_back(child.get());
  }
  return list;
}

std::string Adapter::ToText() const {
  ResultTable table;
  table.AppendRow({"Drive", "Type", "Model", "Serial", "Firmware"}, true);
  for (const auto& drive : drives_) {
    if (drive->GetKind() != DeviceKind::Drive) continue;
    table.AppendRow({std::to_string(drive->GetProperties().GetSigned(Properties::Index)),
                     drive->GetPath().GetProtocol(), drive->GetString(Properties::ModelNumber),
                     drive->GetString(Properties::SerialNumber),
                     drive->GetString(Properties::Firmware)});
  }
  return table.ToText();
}

void Adapter::SyncDrives(Devices found, const ScanOptions& options) {
  for (auto& drive : found) drive->SetOptions(options);
  Devices kept;
  if (!options.replaceObjects) {
    for (auto& held : drives_) {
      const auto same = FindAgain(found, *held);
      if (same == found.end()) continue;
      held->CopyFrom(**same);
      kept.push_back(std::move(held));
      found.erase(same);
    }
  }
  std::ranges::move(found, std::back_inserter(kept));
  for (auto& device : kept) {
    device->SetParent(this);
    // Members that this adapter owns by their volume do not keep it alive.
    if (auto* drive = device->AsDrive()) {
      for (auto& child : drive->GetChildren()) child->SetParent(this);
    }
  }
  std::ranges::sort(kept, ComesBefore);
  drives_ = std::move(kept);
}

}  // namespace Morvu::DeviceManagement
