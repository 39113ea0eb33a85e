#include "cli/AccessRights.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <string_view>
#include <vector>

#include "devices/properties/ScanProperties.h"
#include "devices/system/KernelFiles.h"
#include "devices/system/SystemNodes.h"
#include "frame/Text.h"

namespace Morvu {
namespace {

using DeviceManagement::Device;

constexpr std::size_t kShownNodes = 4;

// Opens and closes the node; nothing is sent to it.
bool IsForbidden(const std::string& node) {
  const int handle = open(node.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
  if (handle < 0) return errno == EACCES || errno == EPERM;
  close(handle);
  return false;
}

std::vector<std::string> FindForbiddenNodes() {
  std::vector<std::string> nodes;
  for (auto& name : DeviceManagement::ListFolder("/dev").value_or(nodes)) {
    const bool isDrives = DeviceManagement::IsGenericName(name) || name.starts_with("nvme");
    if (isDrives) nodes.push_back("/dev/" + name);
  }
  std::erase_if(nodes, [](const auto& node) { return !IsForbidden(node); });
  return nodes;
}

}  // namespace

std::string DescribeMissingRights(std::span<Device* const> drives) {
  const bool isRoot = geteuid() == 0;
  const bool allAnswer = std::ranges::all_of(drives, [](const Device* drive) {
    return drive->GetUInt(DeviceManagement::Properties::DriverCommunicationError) == 0;
  });
  if (isRoot && allAnswer && !drives.empty()) return {};

  auto nodes = FindForbiddenNodes();
  if (!nodes.empty()) {
    const auto more = nodes.size() > kShownNodes ? nodes.size() - kShownNodes : 0;
    nodes.resize(nodes.size() - more);
    auto text = "Missing rights: this user may not open " + Join(nodes, ", ");
    if (more != 0) text += " and " + std::to_string(more) + " more";
    return text + ".\nRun the tool as root.\n";
  }
  if (isRoot || allAnswer) return {};
  return "Missing rights: commands to drives need the capabilities CAP_SYS_RAWIO and "
         "CAP_SYS_ADMIN.\nRun the tool as root.\n";
}

}  // namespace Morvu
