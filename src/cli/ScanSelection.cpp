#include "cli/ScanSelection.h"

#include <algorithm>
#include <string>
#include <string_view>
#include <vector>

#include "cli/CLIParser.h"
#include "devices/discovery/AdapterManager.h"
#include "devices/model/Device.h"
#include "devices/properties/BasicProperties.h"

namespace Morvu {
namespace {

using DeviceManagement::AdapterManager;
using Nodes = std::vector<std::string>;

Nodes FindSerialNodes(const std::string& serial) {
  return DeviceManagement::FindNodesBySerial(serial);
}

// A selector whose drive the kernel knows without asking it. `isDrivesOwn` is a value that
// the drives tell: one of which the kernel does not know may bear it as well.
struct Selector {
  std::string_view option;
  Nodes (*find)(const std::string& value);
  bool isDrivesOwn;
};
constexpr Selector kSelectors[] = {
    {"-drive_path", DeviceManagement::FindNodesByPath, false},
    {"-drive_letter", DeviceManagement::FindNodesByPartition, false},
    {"-drive_serial", FindSerialNodes, true},
};

const Selector* FindSelector(std::string_view option) {
  const auto* found = std::ranges::find(kSelectors, option, &Selector::option);
  return found == std::end(kSelectors) ? nullptr : found;
}

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
  const auto* selector = parameter == nullptr ? nullptr : FindSelector(parameter->GetName());
  const bool hasValue = selector != nullptr && !parameter->GetValues().empty() &&
                        !parameter->GetValues().front().empty();
  if (!hasValue || (destroys && selector->isDrivesOwn)) return manager.Scan(options);

  const auto& value = parameter->GetValues().front();
  auto narrow = options;
  narrow.onlyNodes = selector->find(value);
  if (!narrow.onlyNodes.empty()) manager.Scan(narrow);
  if (selector->isDrivesOwn && !IsListed(manager, value)) manager.Scan(options);
}

}  // namespace Morvu
