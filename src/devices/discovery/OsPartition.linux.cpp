#include "devices/discovery/OsPartition.h"

#include "devices/system/SystemNodes.h"
#include "frame/Logger.h"
#include "frame/Text.h"

namespace Morvu::DeviceManagement {
namespace {

using Drives = std::vector<std::unique_ptr<Device>>;

constexpr std::string_view kFunction = "FindOSPartition";

// The line of `mount` for a mount point; empty unless there is exactly one.
std::string FindMount(const std::string& mountPoint) {
  const auto lines = RunPipeline("mount | grep \" on " + mountPoint + " \"");
  return lines.size() == 1 ? lines[0] : std::string();
}

// "/dev/sda1 on / type ext4 (rw)" -> "/dev/sda1"
std::string_view GetMountedNode(std::string_view line) { return line.substr(0, line.find(" on ")); }

// The volume group whose physical volume a partition is; empty if it is none.
std::string FindVolumeGroup(const std::string& partition) {
  constexpr std::string_view kField = "VG Name";
  if (!IsShellWord(partition)) return {};
  const auto lines =
      RunPipeline("pvdisplay " + partition + " 2>/dev/null | grep \"" + std::string(kField) + "\"");
  if (lines.size() != 1) return {};
  MORVU_LOG(kLogInfo, kFunction, "Found a VG (" + lines[0] + ") related to " + partition);
  return Trim(ReplaceAll(lines[0], kField, ""));
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
  for (const auto& drive : drives) {
    for (auto& partition : drive->GetPartitions()) {
      if (!IsInGroup(rootNode, FindVolumeGroup(partition.GetName()))) continue;
      MORVU_LOG(kLogInfo, kFunction, "VG matches the root device. Marking Drive as OS");
      partition.SetOsPartition(true);
    }
  }
}

void MarkMounted(Device& drive, std::string_view rootNode, std::string_view bootNode) {
  for (auto& partition : drive.GetPartitions()) {
    const auto& name = partition.GetName();
    if (name != rootNode && name != bootNode) continue;
    MORVU_LOG(kLogInfo, kFunction, "/boot or / matched to " + name + ". Marking as OS");
    partition.SetOsPartition(true);
  }
}

}  // namespace

void MarkOsPartitions(const Drives& drives) {
  MORVU_LOG(kLogInfo, kFunction, "Looking for the operating system partition");
  const auto root = FindMount("/");
  if (root.empty()) return;
  MORVU_LOG(kLogInfo, kFunction, "Found root: " + root);
  const auto rootNode = GetMountedNode(root);
  if (rootNode.starts_with("/dev/sd")) {
    MORVU_LOG(kLogInfo, kFunction, "Root contains /dev/sd*");
  } else {
    MarkVolumes(drives, rootNode);
  }

  const auto boot = FindMount("/boot");
  if (!boot.empty()) MORVU_LOG(kLogInfo, kFunction, "Found the /boot device: " + boot);
  for (const auto& drive : drives) MarkMounted(*drive, rootNode, GetMountedNode(boot));
}

}  // namespace Morvu::DeviceManagement
