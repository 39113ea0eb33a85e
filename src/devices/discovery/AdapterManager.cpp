#include "devices/discovery/AdapterManager.h"

#include <algorithm>
#include <boost/property_tree/ptree.hpp>

#include "devices/discovery/Adapter_Generic.h"
#include "devices/discovery/Adapter_NVMe.h"
#include "devices/discovery/DriveXml.h"
#include "devices/identification/DeviceIdentification.h"
#include "devices/model/Drive.h"
#include "devices/properties/BasicProperties.h"
#include "devices/properties/ProductProperties.h"
#include "devices/properties/ScanProperties.h"
#include "frame/Logger.h"
#include "frame/status/Commands.h"
#include "messaging/ResultTable.h"

namespace Morvu::DeviceManagement {
namespace {

// A kind of adapter: the option that asks for it, and its search.
struct AdapterFinder {
  bool ScanOptions::*option;
  void (*find)(AdapterList& list, const ScanOptions& options);
};
constexpr AdapterFinder kFinders[] = {
    {&ScanOptions::scanNvme, Adapter_NVMe_Linux::FindAdapters},
};

// What a drive's product speaks, and the error when the installed driver lets no
// command of that kind through.
struct DriverCheck {
  std::string_view productProtocol;
  std::string_view commandSet;
  std::string_view otherCommandSet;
  StatusCode error;
};
// clang-format off
constexpr DriverCheck kDriverChecks[] = {
    {"ATA",  Protocol::Ata,  Protocol::SmartPt, Status::AtaDriverUnreachable},
    {"SCSI", Protocol::Scsi, Protocol::Scsi,    Status::ScsiDriverUnreachable},
    {"NVME", Protocol::Nvme, Protocol::Nvme,    Status::NvmeDriverMissing},
};
// clang-format on

// The number of an adapter may pass to another controller when one is taken out.
bool IsSameAdapter(const Adapter& left, const Adapter& right) {
  return left.GetIdentifier() == right.GetIdentifier() &&
         left.GetString(Properties::DevicePath) == right.GetString(Properties::DevicePath);
}

bool Holds(const AdapterList& list, const Adapter& adapter) {
  return std::ranges::any_of(list,
                             [&](const auto& other) { return IsSameAdapter(*other, adapter); });
}

void CheckDriver(Device& drive) {
  const auto protocol = drive.GetString(Properties::ProductProtocol);
  const auto check = std::ranges::find(kDriverChecks, protocol, &DriverCheck::productProtocol);
  if (check == std::end(kDriverChecks)) return;
  if (drive.HasCommandSet(check->commandSet) || drive.HasCommandSet(check->otherCommandSet)) return;
  drive.AddProperty(Properties::DriverCommunicationError, check->error.Value());
}

void LogDrive(const Device& drive) {
  if (!IsLogged(kLogInfo)) return;
  MORVU_LOG(kLogInfo, "Scan", "Device " + std::to_string(drive.GetUInt(Properties::Index)));
  for (const auto& property : drive.GetProperties()) {
    if (property.IsDynamic()) continue;
    MORVU_LOG(kLogInfo, "Scan", property.GetName() + " = " + property.ToText());
  }
  for (const auto& partition : drive.GetPartitions()) {
    MORVU_LOG(kLogInfo, "Scan", "Partition: " + partition.GetName());
  }
}

using Clones = std::vector<std::unique_ptr<Device>>;

Clones CloneAll(const std::vector<Device*>& drives) {
  Clones clones;
  for (const auto* drive : drives) clones.push_back(drive->Clone());
  return clones;
}

// The partitions of `drive` whose names `other` lacks.
std::vector<Partition> FindMissing(const Device& drive, const Device& other) {
  std::vector<Partition> missing;
  for (const auto& partition : drive.GetPartitions()) {
    if (std::ranges::count(other.GetPartitions(), partition.GetName(), &Partition::GetName) == 0) {
      missing.push_back(partition);
    }
  }
  return missing;
}

// What is in `drives` and not in `others`.
template <typename Drives, typename Others>
void Compare(const Drives& drives, const Others& others, Clones& extraDrives,
             std::vector<ScanDifference::PartitionChange>& extraPartitions) {
  for (const auto& drive : drives) {
    if (drive->GetKind() != DeviceKind::Drive) continue;
    const auto partner = std::ranges::find_if(
        others, [&](const auto& other) { return IsSameDrive(*other, *drive); });
    if (partner == others.end()) {
      extraDrives.push_back(drive->Clone());
    } else if (auto missing = FindMissing(*drive, **partner); !missing.empty()) {
      extraPartitions.push_back({drive->Clone(), std::move(missing)});
    }
  }
}

}  // namespace

AdapterManager::AdapterManager(const ScanOptions& options)
    : options_(options), driveList_(options), generic_(std::make_shared<Adapter_Generic_Linux>()) {}

AdapterManager::~AdapterManager() = default;

void AdapterManager::Scan(const ScanOptions& options) {
  options_ = options;
  UpdateAdapters();
  generic_->ScanDrives(options_, nullptr);
  for (const auto& adapter : adapters_) adapter->ScanDrives(options_, generic_.get());

  const auto drives = CollectDrives();
  for (std::size_t i = 0; i < drives.size(); ++i) {
    auto& drive = *drives[i];
    if (options_.identify) UpdateProperties(drive);
    drive.AddProperty(Properties::OpalState, "No Opal");
    CheckDriver(drive);
    drive.AddProperty(Properties::Index, static_cast<std::int32_t>(i));
    LogDrive(drive);
  }
  driveList_ = DeviceList(options_);
  driveList_.Set(drives);
}

void AdapterManager::UpdateAdapters() {
  AdapterList found;
  for (const auto& finder : kFinders) {
    if (options_.*finder.option) finder.find(found, options_);
  }
  std::erase_if(adapters_, [&](const auto& held) { return !Holds(found, *held); });
  std::erase_if(found, [&](const auto& adapter) { return Holds(adapters_, *adapter); });
  std::ranges::move(found, std::back_inserter(adapters_));
}

std::vector<Device*> AdapterManager::CollectDrives() const {
  std::vector<Device*> drives;
  const auto append = [&](const Adapter& adapter) {
    const auto listed = adapter.ListDrives(options_);
    drives.insert(drives.end(), listed.begin(), listed.end());
  };
  for (const auto& adapter : adapters_) append(*adapter);
  if (options_.scanGeneric) append(*generic_);
  return drives;
}

void AdapterManager::Rescan(const ScanOptions& options, ScanDifference& difference) {
  const auto before = CloneAll(driveList_.GetDrives());
  Scan(options);
  const auto& now = driveList_.GetDrives();
  Compare(now, before, difference.addedDrives, difference.addedPartitions);
  Compare(before, now, difference.removedDrives, difference.removedPartitions);
}

std::string AdapterManager::ToText() const {
  ResultTable table;
  table.AppendRow({"Adapter", "Model", "Serial", "Firmware"}, true);
  for (const auto* drive : driveList_.GetDrives()) {
    const auto* adapter = dynamic_cast<const Adapter*>(drive->GetParent());
    table.AppendRow({adapter == nullptr ? std::string() : adapter->GetIdentifier(),
                     drive->GetString(Properties::ModelNumber),
                     drive->GetString(Properties::SerialNumber),
                     drive->GetString(Properties::Firmware)});
  }
  return table.ToText();
}

void AdapterManager::ToXml(boost::property_tree::ptree& tree) const {
  auto& adapters = tree.put("adapters", "");
  for (const auto& adapter : adapters_) WriteAdapterXml(*adapter, adapters);
  WriteAdapterXml(*generic_, adapters);
}

}  // namespace Morvu::DeviceManagement
