#include "devices/model/Drive.h"

#include <algorithm>
#include <array>

#include "devices/commands/CommandSet_ATA.h"
#include "devices/properties/BasicProperties.h"
#include "devices/properties/IdentityProperties.h"
#include "devices/properties/ScanProperties.h"
#include "frame/Text.h"
#include "frame/status/Drives.h"
#include "messaging/ResultTable.h"

namespace Morvu::DeviceManagement {
namespace {

constexpr std::size_t kIdentifySize = 512;

void AppendPartition(ResultTable& table, std::size_t position, const Partition& partition) {
  const auto space = partition.ReadSpace();
  table.AppendRow({std::to_string(position),
                   partition.GetName() + (partition.IsOsPartition() ? "*" : ""),
                   ReadableSize(space.free) + " / " + ReadableSize(space.size), space.type});
}

}  // namespace

Drive::Drive() : Device(DeviceKind::Drive) {}

bool Drive::AskConnection() {
  if (!GetBool(Properties::RAIDMember)) return Device::AskConnection();
  // A RAID driver may let nothing but ATA commands through.
  auto* ata = GetCommandSetAs<CommandSet_ATA>(Protocol::Ata);
  std::array<std::uint8_t, kIdentifySize> data{};
  return ata != nullptr && ata->ataIdentifyDevice(data) == Status::Completed;
}

void Drive::CopyFrom(const Device& other) {
  if (&other == this) return;
  if (const auto* drive = dynamic_cast<const Drive*>(&other)) {
    children_.clear();
    for (const auto& child : drive->children_) children_.push_back(child->Clone());
  }
  kind_ = other.GetKind();
  Device::CopyFrom(other);
}

std::unique_ptr<Device> Drive::Clone() const {
  auto clone = std::make_unique<Drive>();
  clone->CopyFrom(*this);
  return clone;
}

std::string Drive::ToText() const {
  ResultTable drive;
  drive.AppendRow({"Index", "Model", "Serial", "Firmware", "Device Path"}, true);
  const auto tell = [this](const PropertyEntry& entry) { return Printable(GetString(entry)); };
  drive.AppendRow({std::to_string(properties_.GetSigned(Properties::Index)),
                   tell(Properties::ModelNumber), tell(Properties::SerialNumber),
                   tell(Properties::Firmware), tell(Properties::DevicePath)});
  auto text = drive.ToText();
  if (partitions_.empty()) return text;

  ResultTable partitions;
  partitions.AppendRow({"Index", "Partition", "Free / Total", "Type"}, true);
  for (std::size_t i = 0; i < partitions_.size(); ++i) {
    AppendPartition(partitions, i, partitions_[i]);
  }
  return text + "\n" + partitions.ToText();
}

bool IsHeldDrive(const Device& drive) {
  return drive.GetUInt(Properties::DriverCommunicationError) == Status::DriveHeld;
}

bool HasIdentity(const Device& device) {
  return !device.GetString(Properties::SerialNumber).empty() ||
         device.GetUInt(Properties::WWID) != 0;
}

bool IsSameDrive(const Device& left, const Device& right) {
  const auto same = [&](const PropertyEntry& entry) {
    return left.GetString(entry) == right.GetString(entry);
  };
  if (left.GetKind() != DeviceKind::Drive || right.GetKind() != DeviceKind::Drive) return false;
  if (!same(Properties::SerialNumber)) return false;
  if (!HasIdentity(left) || !HasIdentity(right)) return same(Properties::DevicePath);
  if (left.GetString(Properties::SerialNumber).empty()) {
    return left.GetUInt(Properties::WWID) == right.GetUInt(Properties::WWID);
  }
  return left.GetUInt(Properties::Lun) == right.GetUInt(Properties::Lun);
}

}  // namespace Morvu::DeviceManagement
