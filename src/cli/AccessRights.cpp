#include "cli/AccessRights.h"

#include <fcntl.h>
#include <linux/capability.h>
#include <sys/syscall.h>
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

struct NeededCapability {
  unsigned number;
  std::string_view name;
};
// The kernel asks for the first before ATA and vendor commands, for the second before NVMe ones.
constexpr NeededCapability kNeeded[] = {
    {CAP_SYS_RAWIO, "CAP_SYS_RAWIO"},
    {CAP_SYS_ADMIN, "CAP_SYS_ADMIN"},
};

// A node is not opened for this: the close of one sets off udev's rules.
bool IsForbidden(const std::string& node) {
  return faccessat(AT_FDCWD, node.c_str(), R_OK, AT_EACCESS) != 0 &&
         (errno == EACCES || errno == EPERM);
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

std::uint64_t ReadCapabilities() {
  __user_cap_header_struct header{_LINUX_CAPABILITY_VERSION_3, 0};
  __user_cap_data_struct sets[_LINUX_CAPABILITY_U32S_3]{};
  // Who cannot be asked is not said to lack anything.
  if (syscall(SYS_capget, &header, sets) != 0) return ~std::uint64_t{0};
  return sets[0].effective | std::uint64_t{sets[1].effective} << 32;
}

std::string DescribeMissingRights(std::span<Device* const> drives, std::uint64_t capabilities) {
  auto nodes = FindForbiddenNodes();
  if (!nodes.empty()) {
    const auto more = nodes.size() > kShownNodes ? nodes.size() - kShownNodes : 0;
    nodes.resize(nodes.size() - more);
    auto text = "Missing rights: this user may not open " + Join(nodes, ", ");
    if (more != 0) text += " and " + std::to_string(more) + " more";
    return text + ".\nRun the tool as root.\n";
  }
  const bool allAnswer = std::ranges::all_of(drives, [](const Device* drive) {
    return drive->GetUInt(DeviceManagement::Properties::DriverCommunicationError) == 0;
  });
  if (allAnswer) return {};

  std::vector<std::string> missing;
  for (const auto& needed : kNeeded) {
    if ((capabilities >> needed.number & 1) == 0) missing.emplace_back(needed.name);
  }
  if (missing.empty()) return {};
  return "Missing rights: commands to drives need " + Join(missing, " and ") +
         ".\nRun the tool as root; a container must be given what is missing.\n";
}

}  // namespace Morvu
