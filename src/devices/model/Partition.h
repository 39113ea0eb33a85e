#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "frame/Platform.h"

namespace Morvu::DeviceManagement {

// Sizes of a file system in bytes; -1 when unknown.
struct PartitionSpace {
  std::int64_t size = -1;
  std::int64_t free = -1;
  std::int64_t used = -1;
  std::int64_t GetFreePercentage() const;  // whole percents
};

// One partition of a drive, "/dev/sda1". Sizes are in bytes and read anew at each
// call, -1 when unknown; a partition that is not mounted is mounted for the read.
class Partition {
 public:
  explicit Partition(std::string name);

  const std::string& GetName() const { return name_; }
  const std::string& GetType() const { return type_; }  // file system, as df reports it
  PartitionSpace ReadSpace() const;                     // all in one mount
  std::int64_t GetSize() const;
  std::int64_t GetFreeSpace() const;
  std::int64_t GetUsedSpace() const;
  std::int64_t GetFreePercentage() const;  // whole percents
  bool IsOsPartition() const { return isOs_; }
  void SetOsPartition(bool isOs) { isOs_ = isOs; }
  bool IsRaw() const { return type_ == "RAW"; }
  bool IsNtfs() const { return type_ == "NTFS"; }
  std::int64_t GetLocation() const { return location_; }
  void SetLocation(std::uint32_t low, std::uint32_t high) {
    location_ = static_cast<std::int64_t>(static_cast<std::uint64_t>(high) << 32 | low);
  }

 private:
  std::string name_;
  std::string type_;
  bool isOs_ = false;
  std::int64_t location_ = -1;
};

// Keeps a partition mounted on a folder. Within this process one mount at a time has
// a folder; a second one does not mount, so that it never covers or ends the first.
class PartitionMount {
 public:
  explicit PartitionMount(std::string partition, std::string_view folder = kTestFolder);
  ~PartitionMount();  // unmounts, and removes the folder
  PartitionMount(const PartitionMount&) = delete;
  PartitionMount& operator=(const PartitionMount&) = delete;

  // Mounts the partition unless it is on the folder already; whether it is there.
  bool Mount();
  bool IsMounted() const;  // on the folder
  bool IsListed() const;   // anywhere

  const std::string& GetFolder() const { return folder_; }
  // -1 when unknown.
  std::int64_t GetFreeBytes() const;

 private:
  std::string partition_;
  std::string folder_;
  bool ownsFolder_ = false;
};

}  // namespace Morvu::DeviceManagement
