#include "devices/discovery/AdapterManager.h"

#include <algorithm>
#include <boost/property_tree/ptree.hpp>
#include <iterator>

#include "devices/discovery/Adapter_Generic.h"
#include "devices/discovery/Adapter_LSI.h"
#include "devices/discovery/Adapter_NVMe.h"
#include "devices/discovery/DriveXml.h"
#include "devices/discovery/HeldDrive.h"
#include "devices/discovery/OsPartition.h"
#include "devices/discovery/SideBySide.h"
#include "devices/model/Drive.h"
#include "devices/properties/BasicProperties.h"
#include "devices/properties/ProductProperties.h"
#include "devices/properties/ScanProperties.h"
#include "devices/system/SystemFacts.h"
#include "devices/system/SystemNodes.h"
#include "frame/Logger.h"
#include "frame/status/Commands.h"
#include "messaging/ResultTable.h"

namespace Morvu::DeviceManagement {
namespace {

// A kind of adapter: the option that asks for it, and its search.
struct AdapterFinder {
  bool ScanOptions::*option;
  void (*find)(AdapterList& list, const ScanOptions& options, const SystemFacts& facts);
};
constexpr AdapterFinder kFinders[] = {
    {&ScanOptions::scanNvme, Adapter_NVMe_Linux::FindAdapters},
    {&ScanOptions::scanLsi, Adapter_LSI::FindAdapters},
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
  return left.GetType() == right.GetType() && left.GetIdentifier() == right.GetIdentifier() &&
         left.GetString(Properties::DevicePath) == right.GetString(Properties::DevicePath);
}

std::shared_ptr<Adapter> FindAdapter(const AdapterList& list, const Adapter& adapter) {
  const auto found =
      std::ranges::find_if(list, [&](const auto& other) { return IsSameAdapter(*other, adapter); });
  return found == list.end() ? nullptr : *found;
}

bool IsOnSameNode(const Device& left, const Device& right) {
  return left.GetString(Properties::DevicePath) == right.GetString(Properties::DevicePath);
}

void CheckDriver(Device& drive) {
  // A volume may bear the model of a drive that is in it, and is none.
  if (IsHeldDrive(drive) || drive.IsAsleep() || drive.GetBool(Properties::RAID)) return;
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
    const auto partner = std::ranges::find_if(others, [&](const auto& other) {
      return IsSameDrive(*other, *drive) && IsOnSameNode(*other, *drive);
    });
    if (partner == others.end()) {
      extraDrives.push_back(drive->Clone());
    } else if (auto missing = FindMissing(*drive, **partner); !missing.empty()) {
      extraPartitions.push_back({drive->Clone(), std::move(missing)});
    }
  }
}

std::vector<Device*> ListAll(const ScanResult& found) {
  std::vector<Device*> drives;
  for (const auto& adapter : found.adapters) {
    for (const auto& drive : adapter->GetDrives()) drives.push_back(drive.get());
  }
  for (const auto& drive : found.generic->GetDrives()) drives.push_back(drive.get());
  return drives;
}

// Appends what a controller's adapter would list, but for what another has listed.
void AppendNodesOf(const std::string& controller, const std::vector<NvmeSpace>& spaces,
                   std::vector<std::string>& nodes) {
  bool hasNamespaces = false;
  for (const auto& space : spaces) {
    if (std::ranges::count(space.controllers, controller) == 0) continue;
    hasNamespaces = true;
    if (std::ranges::count(nodes, space.path) == 0) nodes.push_back(space.path);
  }
  if (!hasNamespaces) nodes.push_back(controller);
}

// The nodes of all drives that the kernel shows, asked or not, in the order of their list.
std::vector<std::string> ListNodes(ScanOptions options, const SystemFacts& facts) {
  options.onlyNodes.clear();
  std::vector<std::string> nodes, generic;
  const auto spaces = facts.GetNvmeSpaces().value_or(std::vector<NvmeSpace>());
  for (const auto& path : facts.GetNvmeNodes().value_or(generic)) {
    const auto node = ParseNvmeNode(path);
    if (options.scanNvme && node && !node->space) AppendNodesOf(path, spaces, nodes);
  }
  if (!options.scanGeneric) return nodes;
  for (const auto& space : spaces) {
    if (!options.scanNvme || space.controllers.empty()) generic.push_back(space.path);
  }
  for (auto& candidate : FindGenericCandidates(options, facts)) {
    generic.push_back(std::move(candidate.path));
  }
  std::ranges::sort(generic);
  nodes.insert(nodes.end(), generic.begin(), generic.end());
  return nodes;
}

// A drive that is listed alone keeps the number that it has among all.
void PutIndex(Device& drive, const std::vector<std::string>& order) {
  const auto place = std::ranges::find(order, drive.GetString(Properties::DevicePath));
  if (place == order.end()) return;
  drive.AddProperty(Properties::Index, static_cast<std::int32_t>(place - order.begin()));
}

std::vector<std::string> FindNodesOfDisk(const std::string& disk, const SystemFacts& facts) {
  auto generic = facts.FindGenericNode(disk);
  if (generic.empty()) return {};
  return {std::move(generic)};
}

}  // namespace

AdapterManager::AdapterManager(const ScanOptions& options)
    : options_(options), driveList_(options), generic_(std::make_shared<Adapter_Generic_Linux>()) {}

AdapterManager::~AdapterManager() = default;

ScanResult AdapterManager::FindDrives(const ScanOptions& options) {
  const auto facts = SystemFacts::Read();
  ScanResult found{options, {}, std::make_shared<Adapter_Generic_Linux>(), {}};
  AdapterList lists[std::size(kFinders)];
  AskSideBySide(1 + std::size(kFinders), [&](std::size_t i) {
    if (i == 0) {
      found.generic->ScanDrives(options, facts);
    } else if (const auto& finder = kFinders[i - 1]; options.*finder.option) {
      finder.find(lists[i - 1], options, facts);
    }
  });
  for (auto& list : lists) std::ranges::move(list, std::back_inserter(found.adapters));
  for (const auto& adapter : found.adapters) adapter->TakeDisks(*found.generic, options, facts);
  if (!options.onlyNodes.empty()) found.order = ListNodes(options, facts);
  if (options.findLogical) {
    const auto drives = ListAll(found);
    FindLogicalDrives(drives, facts);
    MarkOsPartitions(drives, facts);
  }
  return found;
}

AdapterList AdapterManager::Publish(ScanResult found) {
  DeviceList list(found.options);
  KeepKnown(found);
  // No pointer to a drive may outlive it, whatever happens from here on.
  driveList_.Clear();
  // What a look at some drives only has left is no order to join.
  AdapterList gone;
  if (!options_.onlyNodes.empty()) gone.swap(adapters_);
  options_ = std::move(found.options);
  generic_->TakeDrives(*found.generic, options_);
  std::ranges::move(TakeAdapters(std::move(found.adapters)), std::back_inserter(gone));

  const auto drives = CollectDrives();
  for (std::size_t i = 0; i < drives.size(); ++i) {
    auto& drive = *drives[i];
    drive.AddProperty(Properties::OpalState, "No Opal");
    CheckDriver(drive);
    drive.AddProperty(Properties::Index, static_cast<std::int32_t>(i));
    LogDrive(drive);
  }
  list.Set(drives);
  for (auto* drive : list.GetDrives()) PutIndex(*drive, found.order);
  driveList_ = std::move(list);
  return gone;
}

// A drive that somebody works on was not asked: what was known of it stays.
void AdapterManager::KeepKnown(const ScanResult& found) const {
  for (auto* drive : ListAll(found)) {
    if (!IsHeldDrive(*drive)) continue;
    for (const auto* known : driveList_.GetDrives()) {
      // Of a drive without a node the system tells no serial number.
      const bool isNameless = !IsNodePath(drive->GetString(Properties::DevicePath));
      if (!IsOnSameNode(*known, *drive) || !(isNameless || IsSameDrive(*known, *drive))) continue;
      TakeKnown(*drive, *known);
      break;
    }
  }
}

AdapterList AdapterManager::TakeAdapters(AdapterList found) {
  AdapterList gone;
  for (auto& held : adapters_) {
    if (FindAdapter(found, *held) == nullptr) gone.push_back(std::move(held));
  }
  std::erase(adapters_, nullptr);
  for (auto& adapter : found) {
    if (const auto held = FindAdapter(adapters_, *adapter)) {
      held->TakeDrives(*adapter, options_);
    } else {
      adapters_.push_back(std::move(adapter));
    }
  }
  return gone;
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

std::vector<std::string> FindNodesBySerial(std::string_view serial) {
  const auto facts = SystemFacts::Read();
  std::vector<std::string> nodes;
  const auto keep = [&](const std::string& path) {
    const auto known = facts.FindSerialNumber(path);
    if (known.empty() || known == serial) nodes.push_back(path);
  };
  for (const auto& name : facts.GetGenericNodes().value_or(nodes)) keep("/dev/" + name);
  for (const auto& path : facts.GetNvmeNodes().value_or(std::vector<std::string>())) {
    if (ParseNvmeNode(path)) keep(path);
  }
  return nodes;
}

std::vector<std::string> FindNodesByPath(const std::string& path) {
  const auto node = ResolveNode(path);
  const auto facts = SystemFacts::Read();
  const std::string name(GetNodeName(node));
  if (IsGenericName(name)) return {node};
  const auto nvme = ParseNvmeNode(node);
  if (!nvme) return FindNodesOfDisk(name, facts);
  if (nvme->space) return {node};
  std::vector<std::string> nodes;
  for (const auto& space : facts.GetNvmeSpaces().value_or(std::vector<NvmeSpace>())) {
    if (std::ranges::count(space.controllers, node) > 0) nodes.push_back(space.path);
  }
  // One without namespaces is a drive itself.
  if (nodes.empty()) nodes.push_back(node);
  return nodes;
}

std::vector<std::string> FindNodesByPartition(const std::string& partition) {
  const auto facts = SystemFacts::Read();
  const auto disk = facts.FindDiskOfPartition(GetNodeName(partition));
  if (!disk) return {};
  const auto path = "/dev/" + *disk;
  if (ParseNvmeNode(path)) return {path};
  return FindNodesOfDisk(*disk, facts);
}

}  // namespace Morvu::DeviceManagement
