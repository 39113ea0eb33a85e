#pragma once

#include <memory>
#include <string_view>
#include <vector>

#include "devices/model/Device.h"

namespace Morvu::DeviceManagement {

// The drives that a scan publishes. The adapters own them.
class DeviceList {
 public:
  explicit DeviceList(const ScanOptions& options) : options_(options) {}
  // Keeps the drives that pass the options' filter and numbers them from 0.
  void Set(const std::vector<Device*>& drives);
  void Clear() { drives_.clear(); }
  const std::vector<Device*>& GetDrives() const { return drives_; }
  // Null when no drive has this serial number and a partition of this name.
  Device* Find(std::string_view serialNumber, std::string_view partitionName) const;

 private:
  std::vector<Device*> drives_;
  ScanOptions options_;
};

// What a job selected: clones of its own, and copies of partitions.
struct SelectedDevices {
  std::vector<std::unique_ptr<Device>> devices;
  std::vector<Partition> partitions;

  std::vector<Device*> GetDevices() const;
};

}  // namespace Morvu::DeviceManagement
