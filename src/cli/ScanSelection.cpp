#include "cli/ScanSelection.h"

#include <algorithm>
#include <string>
#include <string_view>
#include <vector>

#include "cli/CLIParser.h"
#include "cli/ToolOptions.h"
#include "devices/discovery/AdapterManager.h"
#include "devices/model/Device.h"
#include "devices/properties/BasicProperties.h"

namespace Morvu {
namespace {

using DeviceManagement::AdapterManager;

// The line's only selector, if it is one of these.
const CLIParameter* FindOnlySelector(const CLIParser& line) {
  if (line.HasOption("-drive_list")) return nullptr;
  const CLIParameter* only = nullptr;
  for (const auto& parameter : line.GetParameters()) {
    if (!parameter->IsGiven() || parameter->GetCategory() != OptionCategory::DriveSelection) {
      continue;
    }
    if (only != nullptr) return nullptr;
    only = parameter.get();
  }
  return only;
}

bool IsListed(const AdapterManager& manager, const std::string& serial) {
  return std::ranges::any_of(manager.GetDrives(), [&](const auto* drive) {
    return drive->GetString(DeviceManagement::Properties::SerialNumber) == serial;
  });
}

}  // namespace

void ScanForSelection(const CLIParser& line, AdapterManager& manager,
                      const DeviceManagement::ScanOptions& options, bool destroys) {
  const auto* parameter = FindOnlySelector(line);
  const auto* selector = parameter == nullptr ? nullptr : FindToolOption(parameter->GetName());
  const bool hasValue = selector != nullptr && selector->findNodes != nullptr &&
                        !parameter->GetValues().empty() && !parameter->GetValues().front().empty();
  // The kernel does not know the drives behind a RAID controller, nor which disk is its volume.
  if (options.scanLsi || !hasValue || (destroys && selector->isDrivesOwn))
    return manager.Scan(options);

  const auto& value = parameter->GetValues().front();
  auto narrow = options;
  narrow.onlyNodes = selector->findNodes(value);
  if (!narrow.onlyNodes.empty()) manager.Scan(narrow);
  if (selector->isDrivesOwn && !IsListed(manager, value)) manager.Scan(options);
}

}  // namespace Morvu
