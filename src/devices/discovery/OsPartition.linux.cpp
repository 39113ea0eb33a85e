#include "devices/discovery/OsPartition.h"

#include <algorithm>

#include "devices/properties/BasicProperties.h"
#include "devices/system/MountTable.h"
#include "devices/system/SystemNodes.h"
#include "frame/Logger.h"
#include "frame/Platform.h"
#include "frame/Text.h"

namespace Morvu::DeviceManagement {
namespace {

using Drives = std::vector<Device*>;

constexpr std::string_view kFunction = "FindOSPartition";

// The mount at a mount point; null unless there is exactly one.
const Mount* FindOnlyMount(const MountTable& mounts, std::string_view point) {
  return std::ranges::count(mounts, point, &Mount::point) == 1 ? FindMountPoint(mounts, point)
                                                               : nullptr;
}

// The volume group whose physical volume a partition is; empty if it is none.
std::string FindVolumeGroup(const std::string& partition) {
  constexpr std::string_view kField = "VG Name";
  if (!IsShellWord(partition)) return {};
  std::vector<std::string> lines;
  if (!RunCommand("pvdisplay " + partition + " 2>/dev/null", lines)) return {};
  std::erase_if(lines, [&](const auto& line) { return line.find(kField) == line.npos; });
  if (lines.size() != 1) return {};
  MORVU_LOG(kLogInfo, kFunction, "Found a VG (" + lines[0] + ") related to " + partition);
  return Trim(ReplaceAll(lines[0], kField, ""));
}

// Whether a mounted node can be a logical volume: "/dev/mapper/...", "/dev/GROUP/VOLUME".
bool MayBeVolume(std::string_view node) {
  constexpr std::string_view kDevFolder = "/dev/";
  return node.starts_with(kDevFolder) && node.find('/', kDevFolder.size()) != node.npos;
}

// Whether a node is a volume of the group: "/dev/GROUP/VOLUME", or
// "/dev/mapper/GROUP-VOLUME" with each dash of the names doubled.
bool IsInGroup(std::string_view node, std::string_view group) {
  if (group.empty()) return false;
  if (node.starts_with("/dev/" + std::string(group) + "/")) return true;
  const auto prefix = "/dev/mapper/" + ReplaceAll(group, "-", "--") + "-";
  return node.starts_with(prefix) && !node.substr(prefix.size()).starts_with('-');
}

void MarkVolumes(const Drives& drives, std::string_view rootNode) {
  MORVU_LOG(kLogInfo, kFunction,
            "Root was not /dev/sd*. Checking partitions for a connection to root.");
  if (!MayBeVolume(rootNode)) return;
  for (auto* drive : drives) {
    for (auto& partition : drive->GetPartitions()) {
      if (!IsInGroup(rootNode, FindVolumeGroup(partition.GetName()))) continue;
      MORVU_LOG(kLogInfo, kFunction, "VG matches the root device. Marking Drive as OS");
      partition.SetOsPartition(true);
    }
  }
}

void MarkMounted(Device& drive, const Mount& root, const Mount* boot) {
  for (auto& partition : drive.GetPartitions()) {
    const auto& name = partition.GetName();
    if (!IsMountOf(root, name) && (boot == nullptr || !IsMountOf(*boot, name))) continue;
    MORVU_LOG(kLogInfo, kFunction, "/boot or / matched to " + name + ". Marking as OS");
    partition.SetOsPartition(true);
  }
}

void FindPartitions(Device& drive, const SystemFacts& facts) {
  const auto path = drive.GetString(Properties::DevicePath);
  const bool isNvme = ParseNvmeNode(path).has_value();
  if (isNvme) {
    MORVU_LOG(kLogInfo, "FindLogicalDrives", "Checking " + path + " for partitions");
  }
  const auto names = facts.FindPartitions(path);
  if (!names) {
    MORVU_LOG(kLogError, "FindLogicalDrives", "The partitions of " + path + " are not known");
    return;
  }
  for (const auto& name : *names) {
    MORVU_LOG(kLogInfo, "FindLogicalDrives",
              (isNvme ? "Found a partition: " : "Partitions found: ") + name);
    MORVU_LOG(kLogInfo, "FindLogicalDrives", "Adding new Partition object for the partition");
    drive.GetPartitions().emplace_back("/dev/" + name);
  }
}

}  // namespace

void FindLogicalDrives(const Drives& drives, const SystemFacts& facts) {
  MORVU_LOG(kLogInfo, "FindLogicalDrives", "Looking for logical drives");
  for (auto* drive : drives) {
    if (drive->GetKind() == DeviceKind::Drive) FindPartitions(*drive, facts);
  }
}

void MarkOsPartitions(const Drives& drives, const SystemFacts& facts) {
  MORVU_LOG(kLogInfo, kFunction, "Looking for the operating system partition");
  const auto* root = facts.GetMounts() ? FindOnlyMount(*facts.GetMounts(), "/") : nullptr;
  if (root == nullptr) return;
  MORVU_LOG(kLogInfo, kFunction, "Found root: " + ToText(*root));
  if (root->source.starts_with("/dev/sd")) {
    MORVU_LOG(kLogInfo, kFunction, "Root contains /dev/sd*");
  } else {
    MarkVolumes(drives, root->source);
  }

  const auto* boot = FindOnlyMount(*facts.GetMounts(), "/boot");
  if (boot != nullptr) {
    MORVU_LOG(kLogInfo, kFunction, "Found the /boot device: " + ToText(*boot));
  }
  for (auto* drive : drives) MarkMounted(*drive, *root, boot);
}

}  // namespace Morvu::DeviceManagement
