#include "devices/model/Partition.h"

#include <limits>

#include "devices/system/FolderMount.h"
#include "devices/system/MountTable.h"

namespace Morvu::DeviceManagement {

std::int64_t PartitionSpace::GetFreePercentage() const {
  constexpr auto kLargestFactor = std::numeric_limits<std::int64_t>::max() / 100;
  if (size <= 0 || free < 0) return -1;
  // Sizes beyond 92 PB lose their last bits, and no percent by it.
  const int shift = free > kLargestFactor ? 7 : 0;
  return (free >> shift) * 100 / (size >> shift);
}

PartitionSpace Partition::ReadSpace() const { return {ReadFileSystemSpace(name_, kTestFolder)}; }

PartitionMount::PartitionMount(std::string partition, std::string_view folder)
    : partition_(std::move(partition)), folder_(folder) {
  Mount();
}

PartitionMount::~PartitionMount() {
  if (mount_ == nullptr) return;
  const MountTurn turn(folder_);
  mount_.reset();
}

bool PartitionMount::Mount() {
  if (IsMounted()) return true;
  const MountTurn turn(folder_);
  if (!turn.IsTaken()) return false;
  mount_ = std::make_unique<FolderMount>(partition_, folder_, "-o nosuid,nodev,noexec");
  return IsMounted();
}

bool PartitionMount::IsMounted() const {
  const auto mounts = ReadMountTable();
  const auto* mount = mounts ? FindMountPoint(*mounts, folder_) : nullptr;
  return mount != nullptr && IsMountOf(*mount, partition_);
}

bool PartitionMount::IsListed() const {
  const auto mounts = ReadMountTable();
  return mounts && FindMountOf(*mounts, partition_) != nullptr;
}

std::int64_t PartitionMount::GetFreeBytes() const {
  return IsMounted() ? ReadMountedSpace(folder_).free : -1;
}

}  // namespace Morvu::DeviceManagement
