// What the tests of scans share.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "TestFleet.h"
#include "devices/discovery/AdapterManager.h"
#include "devices/model/Drive.h"
#include "devices/properties/BasicProperties.h"

namespace Morvu::Testing {

using DeviceManagement::AdapterManager;
using DeviceManagement::Device;
using DeviceManagement::ScanOptions;
namespace Properties = DeviceManagement::Properties;
namespace Protocol = DeviceManagement::Protocol;

inline std::vector<std::string> PathsOf(const std::vector<Device*>& drives) {
  std::vector<std::string> paths;
  for (const auto* drive : drives) paths.push_back(drive->GetString(Properties::DevicePath));
  return paths;
}

// What a scan finds of the machine.
struct Scanned : AdapterManager {
  explicit Scanned(const ScanOptions& options = {}) { Scan(options); }
};

inline std::vector<std::string> ScanPaths(const ScanOptions& options = {}) {
  return PathsOf(Scanned(options).GetDrives());
}

// Null, and a failure, when the scan did not list the node.
inline Device* FindDrive(const AdapterManager& manager, std::string_view path) {
  for (auto* drive : manager.GetDrives()) {
    if (drive->GetString(Properties::DevicePath) == path) return drive;
  }
  ADD_FAILURE() << path << " is not listed";
  return nullptr;
}

// A drive is pulled: its nodes and links are gone.
inline void Pull(const Simulator::TestFleet& fleet, const std::string& name) {
  for (const char* folder : {"/dev", "/sys/class/scsi_generic", "/sys/class/block"}) {
    std::vector<std::filesystem::path> gone;
    for (const auto& entry : std::filesystem::directory_iterator(fleet.Folder() + folder)) {
      const auto file = entry.path().filename().string();
      if (file == name || file.starts_with(name + "n")) gone.push_back(entry.path());
    }
    for (const auto& path : gone) std::filesystem::remove(path);
  }
}

}  // namespace Morvu::Testing
