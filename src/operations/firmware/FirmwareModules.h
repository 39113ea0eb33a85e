#pragma once

#include <map>
#include <memory>
#include <string>

#include "operations/firmware/FirmwareModule.h"

namespace Morvu {

// The firmware modules of one request: each file is verified and loaded when it is first
// asked for, and stays so, for all drives of the request. Belongs to the request's thread.
class FirmwareModules {
 public:
  FirmwareModules() = default;
  FirmwareModules(const FirmwareModules&) = delete;
  FirmwareModules& operator=(const FirmwareModules&) = delete;

  // Null when the file is no module.
  std::shared_ptr<const FirmwareModule> Open(const std::string& path);

  // Those of the request that this thread is at work on; without a request new ones.
  static std::shared_ptr<FirmwareModules> OfRequest();

 private:
  std::map<std::string, std::shared_ptr<const FirmwareModule>> modules_;
};

// While one lives, what its thread asks of modules is one request. Of several the outermost
// counts.
class FirmwareModulesScope {
 public:
  FirmwareModulesScope();
  ~FirmwareModulesScope();
  FirmwareModulesScope(const FirmwareModulesScope&) = delete;
  FirmwareModulesScope& operator=(const FirmwareModulesScope&) = delete;

 private:
  std::shared_ptr<FirmwareModules> modules_;  // null on an inner one
};

}  // namespace Morvu
