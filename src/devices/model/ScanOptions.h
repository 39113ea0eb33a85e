#pragma once

#include <algorithm>
#include <string>
#include <vector>

namespace Morvu::DeviceManagement {

// What a scan looks for and what it publishes.
struct ScanOptions {
  bool identify = false;          // read each drive's identify data
  bool listChildrenOnly = false;  // an adapter lists its drives and their children
  bool replaceObjects = true;     // throw old drive objects away instead of merging into them
  bool morvuOnly = false;         // publish Morvu drives only
  bool findLogical = false;       // look for partitions and the operating system's drive
  bool scanUsb = false;
  bool scanNvme = true;
  bool scanGeneric = true;
  bool scanLsi = false;
  // A SATA drive in standby is sent nothing but the question for it, and no drive is read from.
  bool letsSleep = false;
  bool scanZmv = false;
  std::vector<std::string> includeProducts{};  // if not empty, only these products
  std::vector<std::string> excludeProducts{};  // drop products that contain one of these
  std::vector<std::string> lsiLibraryPaths{};  // candidates for the LSI adapter library
  // If not empty, only the drives of these nodes ("/dev/sg0") are asked and listed. Their
  // "Index" is their place among all that the kernel shows.
  std::vector<std::string> onlyNodes{};

  bool Wants(const std::string& node) const {
    return onlyNodes.empty() || std::ranges::count(onlyNodes, node) > 0;
  }
};

}  // namespace Morvu::DeviceManagement
