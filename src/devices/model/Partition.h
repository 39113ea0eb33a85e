#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "devices/system/FileSystemSpace.h"
#include "frame/FileHandle.h"
#include "frame/Platform.h"
#include "frame/StatusCode.h"

namespace Morvu::DeviceManagement {

class FolderMount;
struct Mount;

// The space of a partition's file system, and its type; -1 and empty when unknown.
struct PartitionSpace : FileSystemSpace {
  std::int64_t GetFreePercentage() const;  // whole percents
};

// One partition of a drive, "/dev/sda1". Values are read anew at each call, without a write
// to the disk: where it is mounted, else in a moment's mount, which costs some time. Whoever
// needs several of them takes them from one ReadSpace.
class Partition {
 public:
  explicit Partition(std::string name) : name_(std::move(name)) {}

  const std::string& GetName() const { return name_; }
  PartitionSpace ReadSpace() const;  // all in one reading
  std::string GetType() const { return ReadSpace().type; }
  std::int64_t GetSize() const { return ReadSpace().size; }
  std::int64_t GetFreeSpace() const { return ReadSpace().free; }
  std::int64_t GetUsedSpace() const { return ReadSpace().used; }
  std::int64_t GetFreePercentage() const { return ReadSpace().GetFreePercentage(); }
  bool IsOsPartition() const { return isOs_; }
  void SetOsPartition(bool isOs) { isOs_ = isOs; }
  bool IsRaw() const { return GetType() == "RAW"; }
  bool IsNtfs() const { return GetType() == "NTFS"; }
  std::int64_t GetLocation() const { return location_; }
  void SetLocation(std::uint32_t low, std::uint32_t high) {
    location_ = static_cast<std::int64_t>(static_cast<std::uint64_t>(high) << 32 | low);
  }

 private:
  std::string name_;
  bool isOs_ = false;
  std::int64_t location_ = -1;
};

// Keeps a partition mounted on a folder, for test files to be written there, one run at a time
// on the machine. A folder on which another has mounted something is left alone; the mount that a
// killed run has left is taken over, or ended where it is of another partition.
class PartitionMount {
 public:
  explicit PartitionMount(std::string partition, std::string_view folder = kTestFolder);
  ~PartitionMount();  // unmounts what it mounted, and removes the folder

  // Mounts the partition unless it is on the folder already; whether it is there, and this run's.
  bool Mount();
  // 0 when it is; 180 while another run has the folder, 4 when it could not be mounted.
  StatusCode GetStatus() const { return status_; }
  // The root of the partition's file system, proven by the kernel to be its; -1 while not mounted.
  // Files are reached through it alone: the folder's name may lead elsewhere.
  int GetHandle() const { return root_.Get(); }
  const std::string& GetType() const { return type_; }  // of the file system: "ext4"
  bool IsMounted() const;                               // on the folder
  bool IsListed() const;                                // anywhere

  const std::string& GetFolder() const { return folder_; }
  // For users, in bytes; -1 when unknown.
  std::int64_t GetFreeBytes() const;

 private:
  StatusCode MountInTurn();
  // 180 while another has it; `mount` is what the folder is the root of.
  StatusCode LockRoot(DeviceManagement::Mount& mount);
  // False, and it is closed again, where it is not this partition's.
  bool TakeRoot(const DeviceManagement::Mount& mount);

  std::string partition_;
  std::string folder_;
  std::unique_ptr<FolderMount> mount_;
  FileHandle root_;
  std::string type_;
  StatusCode status_ = Status::NotRun;
};

}  // namespace Morvu::DeviceManagement
