#pragma once

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
  bool scanZmv = false;
  std::vector<std::string> includeProducts{};  // if not empty, only these products
  std::vector<std::string> excludeProducts{};  // drop products that contain one of these
  std::vector<std::string> lsiLibraryPaths{};  // candidates for the LSI adapter library
};

}  // namespace Morvu::DeviceManagement
