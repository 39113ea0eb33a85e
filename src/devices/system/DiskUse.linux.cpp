#include "devices/system/DiskUse.h"

#include <sys/stat.h>
#include <sys/sysmacros.h>

#include <algorithm>
#include <set>

#include "devices/system/KernelFiles.h"
#include "devices/system/MountTable.h"
#include "devices/system/SystemNodes.h"
#include "frame/Text.h"

namespace Morvu::DeviceManagement {
namespace {

constexpr std::string_view kBlockFolder = "/sys/class/block/";
constexpr std::string_view kNodePrefix = "/dev/";
// What a running system cannot do without, or not start again.
constexpr std::string_view kSystemPoints[] = {"/", "/usr", "/boot", "/boot/efi", "/efi"};

std::string BlockFile(std::string_view name, std::string_view file) {
  return std::string(kBlockFolder).append(name).append(file);
}

std::string NumberOf(std::string_view node) {
  return ReadAttribute(BlockFile(GetNodeName(node), "/dev"));
}

// The block nodes that the system's file systems stand on, down to the disks: a root on a
// volume has the volume's partitions below it.
class SystemNodes {
 public:
  explicit SystemNodes(const MountTable& mounts) {
    const auto names = ListFolder(std::string(kBlockFolder)).value_or(Names());
    for (const auto& mount : mounts) {
      if (std::ranges::count(kSystemPoints, mount.point) == 0) continue;
      for (const auto& name : names) {
        if (IsMountOf(mount, std::string(kNodePrefix) + name)) Add(name);
      }
    }
  }
  bool Has(std::string_view node) const { return names_.contains(GetNodeName(node)); }

 private:
  void Add(const std::string& name) {
    if (!names_.insert(name).second) return;
    for (const auto& slave : ListFolder(BlockFile(name, "/slaves")).value_or(Names())) Add(slave);
  }

  std::set<std::string, std::less<>> names_;
};

DiskPart MakePart(std::string node, const MountTable& mounts, const SystemNodes& systems) {
  DiskPart part{std::move(node), {}, false};
  part.isSystem = systems.Has(part.node);
  const auto number = NumberOf(part.node);
  for (const auto& mount : mounts) {
    const bool isItsOwn =
        mount.source == part.node || (!number.empty() && mount.deviceNumber == number);
    if (isItsOwn) part.mountPoints.push_back(mount.point);
  }
  return part;
}

// By the device that the path leads to now; by its name where it leads nowhere from here.
bool IsBacking(const std::string& file, const std::string& node) {
  struct stat64 found {};
  if (stat64(file.c_str(), &found) == 0 && S_ISBLK(found.st_mode)) {
    const auto number =
        std::to_string(major(found.st_rdev)) + ":" + std::to_string(minor(found.st_rdev));
    if (number == NumberOf(node)) return true;
  }
  return GetNodeName(file) == GetNodeName(node);
}

// False when the system could not be asked.
bool FindLoops(const Names& nodes, Names& loops) {
  const auto names = ListFolder(std::string(kBlockFolder));
  if (!names) return false;
  for (const auto& name : *names) {
    if (!name.starts_with("loop")) continue;
    const auto file = ReadAttribute(BlockFile(name, "/loop/backing_file"));
    if (file.empty()) continue;
    for (const auto& node : nodes) {
      if (IsBacking(file, node)) loops.push_back("/dev/" + name + " (over " + node + ")");
    }
  }
  return true;
}

bool Contains(const Names& names, const std::string& name) {
  return std::ranges::find(names, name) != names.end();
}

}  // namespace

bool DiskUse::IsSystems() const {
  return std::ranges::any_of(parts, [](const DiskPart& part) { return part.isSystem; });
}

bool DiskUse::Covers(const DiskUse& later) const {
  const auto isKnown = [&](const DiskPart& part) {
    const auto told = std::ranges::find(parts, part.node, &DiskPart::node);
    return told != parts.end() && (told->isSystem || !part.isSystem) &&
           std::ranges::all_of(part.mountPoints, [&](const auto& point) {
             return Contains(told->mountPoints, point);
           });
  };
  return std::ranges::all_of(later.parts, isKnown) &&
         std::ranges::all_of(later.loops,
                             [&](const auto& loop) { return Contains(loops, loop); }) &&
         (isClaimed || !later.isClaimed) && (isOpen || !later.isOpen);
}

Names DiskUse::Describe() const {
  Names lines;
  bool isExplained = !loops.empty();
  for (const auto& part : parts) {
    const bool isMounted = !part.mountPoints.empty();
    isExplained = isExplained || isMounted;
    lines.push_back(part.node + ": " +
                    (isMounted ? "mounted on " + Join(part.mountPoints, ", ") : "not mounted") +
                    (part.isSystem ? ", this system runs from it" : ""));
  }
  for (const auto& loop : loops) lines.push_back("In use by " + loop);
  if ((isClaimed || isOpen) && !isExplained) {
    lines.emplace_back("In use: swap, a volume, an array, another container or a program has it");
  }
  return lines;
}

std::optional<DiskUse> ReadDiskUse(const Names& disks) {
  const auto facts = SystemFacts::Read();
  if (!facts.GetMounts()) return {};
  const SystemNodes systems(*facts.GetMounts());
  DiskUse use;
  Names nodes;
  for (const auto& disk : disks) {
    const auto partitions = facts.FindPartitions(disk);
    if (!partitions) return {};
    nodes.push_back(disk);
    auto whole = MakePart(disk, *facts.GetMounts(), systems);
    if (!whole.mountPoints.empty() || whole.isSystem) use.parts.push_back(std::move(whole));
    for (const auto& name : *partitions) {
      nodes.push_back(std::string(kNodePrefix) + name);
      use.parts.push_back(MakePart(nodes.back(), *facts.GetMounts(), systems));
    }
  }
  if (!FindLoops(nodes, use.loops)) return {};
  return use;
}

}  // namespace Morvu::DeviceManagement
