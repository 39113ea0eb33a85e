#pragma once

#include <cstdint>
#include <string>

namespace Morvu::DeviceManagement {

// One partition of a drive, "/dev/sda1". Sizes are in bytes and read anew at each
// call, -1 when unknown; a partition that is not mounted is mounted for the read.
class Partition {
 public:
  explicit Partition(std::string name);

  const std::string& GetName() const { return name_; }
  const std::string& GetType() const { return type_; }  // file system, as df reports it
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

}  // namespace Morvu::DeviceManagement
