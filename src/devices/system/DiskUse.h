// Who uses a disk, as far as the kernel's tables tell. Much of it stands in no table: an
// exclusive open of the block node (BlockNode) tells that somebody has the disk, not who.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "devices/system/SystemFacts.h"

namespace Morvu::DeviceManagement {

// A partition, or a disk that is used as a whole.
struct DiskPart {
  std::string node;       // "/dev/sda1"
  Names mountPoints;      // of this process's mount namespace
  bool isSystem = false;  // the running system has its root or what it boots from there
};

struct DiskUse {
  std::vector<DiskPart> parts;
  Names loops;             // "/dev/loop0 (over /dev/sda1)"
  bool isClaimed = false;  // an exclusive open is refused
  bool isOpen = false;     // some program has a partition open

  bool IsFree() const { return parts.empty() && loops.empty() && !isClaimed && !isOpen; }
  bool IsSystems() const;
  // Whether who was told of this use knows all of a later one.
  bool Covers(const DiskUse& later) const;
  // A line each, for a person.
  Names Describe() const;
};

// The parts and loops of the disks ("/dev/sda"); nothing when the system could not be asked.
std::optional<DiskUse> ReadDiskUse(const Names& disks);

}  // namespace Morvu::DeviceManagement
