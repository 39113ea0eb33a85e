#include "operations/firmware/FirmwareModules.h"

namespace Morvu {
namespace {

using ModulesOfRequest = std::shared_ptr<FirmwareModules>;
// A plain pointer: a host's threads may end in any order. In the static block of the thread: the
// leak checker does not understand the loader's dynamic ones.
[[gnu::tls_model("initial-exec")]] thread_local const ModulesOfRequest* requestsModules = nullptr;

}  // namespace

std::shared_ptr<const FirmwareModule> FirmwareModules::Open(const std::string& path) {
  if (const auto known = modules_.find(path); known != modules_.end()) return known->second;
  auto module = FirmwareModule::Open(path);
  auto& kept = modules_[path];
  if (module) kept = std::make_shared<const FirmwareModule>(*std::move(module));
  return kept;
}

std::shared_ptr<FirmwareModules> FirmwareModules::OfRequest() {
  return requestsModules == nullptr ? std::make_shared<FirmwareModules>() : *requestsModules;
}

FirmwareModulesScope::FirmwareModulesScope() {
  if (requestsModules != nullptr) return;
  modules_ = std::make_shared<FirmwareModules>();
  requestsModules = &modules_;
}

FirmwareModulesScope::~FirmwareModulesScope() {
  if (modules_ != nullptr) requestsModules = nullptr;
}

}  // namespace Morvu
