// Finds what storage is on the host and keeps the list of drives.
#pragma once

#include <boost/property_tree/ptree_fwd.hpp>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "devices/discovery/Adapter_Generic.h"
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

// What a look at the host has found, before it takes the place of what was known.
struct ScanResult {
  ScanOptions options;
  AdapterList adapters;  // without the generic one; each holds its drives
  std::shared_ptr<Adapter_Generic_Linux> generic;
  std::vector<std::string> order;  // all nodes that could be listed, in the order of a list
};

// Has no lock; one Publish at a time, and none while drives that GetDrives gave are in use.
// It may destroy them, unless it keeps objects.
class AdapterManager {
 public:
  explicit AdapterManager(const ScanOptions& options = {});
  ~AdapterManager();

  // Asks the drives, side by side, and changes nothing here: any thread may.
  static ScanResult FindDrives(const ScanOptions& options);
  // Makes what was found the state. No drive is asked. When it throws, no drive is listed. The
  // adapters that are gone are handed back: what their end takes needs no lock of the caller's.
  [[nodiscard]] AdapterList Publish(ScanResult found);
  // Both.
  void Scan(const ScanOptions& options) { (void)Publish(FindDrives(options)); }
  // A scan that also tells what it changed. Drives are matched as IsSameDrive says, and by
  // their nodes, of which a drive with two ports has two.
  void Rescan(const ScanOptions& options, ScanDifference& difference);
  const std::vector<Device*>& GetDrives() const { return driveList_.GetDrives(); }
  const DeviceList& GetDeviceList() const { return driveList_; }

  // The whole state: all adapters with their drives.
  std::string ToText() const;
  void ToXml(boost::property_tree::ptree& tree) const;

 private:
  void KeepKnown(const ScanResult& found) const;
  AdapterList TakeAdapters(AdapterList found);
  std::vector<Device*> CollectDrives() const;

  AdapterList adapters_;  // without the generic one
  ScanOptions options_;
  DeviceList driveList_;
  std::shared_ptr<Adapter_Generic_Linux> generic_;
};

// The nodes of the drives with this serial number, and of those whose serial number the
// kernel does not know by itself.
std::vector<std::string> FindNodesBySerial(std::string_view serial);
// The nodes of the drives to which a path leads: a node that a scan lists, the block node of
// the same device, a controller with all its namespaces, or a symbolic link to one of these.
std::vector<std::string> FindNodesByPath(const std::string& path);
// The node of the drive with this partition, "sda1" or "/dev/sda1"; none for what is none.
std::vector<std::string> FindNodesByPartition(const std::string& partition);

}  // namespace Morvu::DeviceManagement
