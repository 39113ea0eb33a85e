// Finds what storage is on the host and keeps the list of drives.
#pragma once

#include <boost/property_tree/ptree_fwd.hpp>
#include <memory>
#include <string>
#include <vector>

#include "devices/model/Adapter.h"
#include "devices/model/DeviceList.h"

namespace Morvu::DeviceManagement {

// What two scans differ in. All drives are clones, owned by this record.
struct ScanDifference {
  struct PartitionChange {
    std::unique_ptr<Device> drive;
    std::vector<Partition> partitions;
  };
  std::vector<std::unique_ptr<Device>> addedDrives;
  std::vector<std::unique_ptr<Device>> removedDrives;
  std::vector<PartitionChange> addedPartitions;
  std::vector<PartitionChange> removedPartitions;
};

// Has no lock; one scan at a time. A scan may destroy the drives that GetDrives
// gave before, unless it keeps objects.
class AdapterManager {
 public:
  explicit AdapterManager(const ScanOptions& options = {});
  ~AdapterManager();

  void Scan(const ScanOptions& options);
  // A scan that also tells what it changed. Drives are matched as IsSameDrive says.
  void Rescan(const ScanOptions& options, ScanDifference& difference);
  const std::vector<Device*>& GetDrives() const { return driveList_.GetDrives(); }
  const DeviceList& GetDeviceList() const { return driveList_; }

  // The whole state: all adapters with their drives.
  std::string ToText() const;
  void ToXml(boost::property_tree::ptree& tree) const;

 private:
  void UpdateAdapters();
  std::vector<Device*> CollectDrives() const;

  AdapterList adapters_;  // without the generic one
  ScanOptions options_;
  DeviceList driveList_;
  std::shared_ptr<Adapter_Generic_Linux> generic_;
};

}  // namespace Morvu::DeviceManagement
