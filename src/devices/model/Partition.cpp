#include "devices/model/Partition.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/statvfs.h>

#include <cerrno>
#include <limits>

#include "devices/system/FolderMount.h"
#include "devices/system/MountTable.h"
#include "frame/Logger.h"
#include "frame/status/Drives.h"

namespace Morvu::DeviceManagement {
namespace {

// As the mount table has them behind "rw".
constexpr std::string_view kOptions = "nosuid,nodev,noexec";

}  // namespace

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
  root_ = FileHandle();
  mount_.reset();
}

bool PartitionMount::Mount() {
  if (status_ == Status::Completed) return true;
  const MountTurn turn(folder_);
  status_ = turn.IsTaken() ? MountInTurn() : Status::NoCommunication;
  return status_ == Status::Completed;
}

StatusCode PartitionMount::MountInTurn() {
  const auto mounts = ReadMountTable();
  if (!mounts) return Status::NoCommunication;
  DeviceManagement::Mount mount;
  if (const auto* found = FindMountPoint(*mounts, folder_)) {
    if (const auto code = LockRoot(mount); code != Status::Completed) return code;
    // A killed run's, as nobody has its lock. What a person has mounted without these is left.
    const bool isLeft = found->options.find(kOptions) != found->options.npos;
    if (isLeft) mount_ = std::make_unique<FolderMount>(folder_);
    // A list's that was killed cannot be written to.
    const bool isReadOnly = isLeft && found->options.starts_with("ro,");
    if (!isReadOnly && TakeRoot(mount)) return Status::Completed;
    if (!isLeft) return Status::NoCommunication;
    root_ = FileHandle();
    mount_.reset();
  }
  mount_ = std::make_unique<FolderMount>(partition_, folder_, "-o " + std::string(kOptions));
  auto code = mount_->IsMounted() ? LockRoot(mount) : Status::NoCommunication;
  if (code == Status::Completed && !TakeRoot(mount)) code = Status::NoCommunication;
  if (code != Status::Completed) mount_.reset();
  return code;
}

StatusCode PartitionMount::LockRoot(DeviceManagement::Mount& mount) {
  auto root = OpenFile(folder_, O_RDONLY | O_DIRECTORY | O_NOFOLLOW);
  if (!root.IsOpen()) return Status::NoCommunication;
  // The lock of a run that is at work; it goes with its process.
  if (flock(root.Get(), LOCK_EX | LOCK_NB) != 0) {
    return errno == EWOULDBLOCK ? Status::DriveHeld : Status::NoCommunication;
  }
  const auto told = ReadMountOfHandle(root.Get());
  if (!told || told->point != folder_) return Status::NoCommunication;
  mount = *told;
  root_ = std::move(root);
  return Status::Completed;
}

bool PartitionMount::TakeRoot(const DeviceManagement::Mount& mount) {
  if (IsMountOf(mount, partition_)) {
    type_ = mount.type;
    return true;
  }
  MORVU_LOG(kLogError, "TakeRoot", folder_ + " is not a mount of " + partition_ + ".");
  root_ = FileHandle();
  return false;
}

bool PartitionMount::IsMounted() const { return status_ == Status::Completed; }

bool PartitionMount::IsListed() const {
  const auto mounts = ReadMountTable();
  return mounts && FindMountOf(*mounts, partition_) != nullptr;
}

std::int64_t PartitionMount::GetFreeBytes() const {
  struct statvfs64 told {};
  while (fstatvfs64(root_.Get(), &told) != 0) {
    if (errno != EINTR) return -1;
  }
  const auto most = static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max());
  const std::uint64_t blocks = told.f_bavail, size = told.f_frsize;
  return size == 0 || blocks > most / size ? -1 : static_cast<std::int64_t>(blocks * size);
}

}  // namespace Morvu::DeviceManagement
