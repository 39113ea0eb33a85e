// Which of the system's paths a fleet answers for.
#include <algorithm>
#include <cctype>
#include <iterator>

#include "Controllers.h"
#include "Fleet.h"

namespace Simulator {

namespace {

// Nodes of storage are the fleet's even where it has none of that name: a
// program under test never meets the machine's own drives.
constexpr std::string_view kDevicePrefixes[] = {"sg", "sd", "nvme", "ng", "megaraid", "loop"};

// clang-format off
constexpr std::string_view kSysPrefixes[] = {
    "class/scsi_generic", "class/scsi_device",  "class/scsi_disk", "class/scsi_host",
    "class/block",        "class/nvme",         "class/ata_port",  "block",
    "devices/pci",        "bus/scsi",           "bus/pci/devices", "dev/block",
    "devices/virtual/nvme",
};
// clang-format on

// Words behind /dev/ that stay the system's own in a shell line, where a
// clang-format off
// pattern such as /dev/n* is the fleet's.
constexpr std::string_view kSystemNodes[] = {
    "null", "zero", "full", "random", "urandom", "stdin", "stdout", "stderr",
    "tty",  "fd",   "shm",  "pts",    "ptmx",    "mapper",
};
// clang-format on

bool IsFleetNode(std::string_view name) {
  return std::ranges::any_of(kDevicePrefixes, [&](auto prefix) {
    if (!name.starts_with(prefix)) return false;
    // "sdt" could be anybody's; a node's name has a digit or a disk's letters behind it.
    return name.size() > prefix.size() || prefix == "megaraid";
  });
}

bool IsFleetSys(std::string_view rest) {
  return rest.empty() ||
         std::ranges::any_of(kSysPrefixes, [&](auto prefix) { return rest.starts_with(prefix); });
}

bool IsSystemNode(std::string_view rest) {
  return std::ranges::any_of(kSystemNodes, [&](auto name) {
    if (!rest.starts_with(name)) return false;
    const auto next = rest.substr(name.size());
    return next.empty() ||
           !(std::isalnum(static_cast<unsigned char>(next[0])) || next[0] == '*' || next[0] == '_');
  });
}

// In a shell line a path may be a pattern.
bool IsFleetWord(std::string_view rest) {
  if (rest.starts_with("/dev/")) return !IsSystemNode(rest.substr(5));
  if (rest.starts_with("/sys/")) return IsFleetSys(rest.substr(5));
  return rest.starts_with("/mnt/");
}

}  // namespace

std::string Fleet::Map(std::string_view path) const {
  if (path.starts_with("/dev/")) {
    return IsFleetNode(path.substr(5)) ? root_ + std::string(path) : std::string();
  }
  if (path.starts_with("/sys/")) {
    return IsFleetSys(path.substr(5)) ? root_ + std::string(path) : std::string();
  }
  // Programs mount a fleet's partitions there; their files are the fleet's too.
  if (path == "/mnt" || path.starts_with("/mnt/")) return root_ + std::string(path);
  if (path.starts_with("/run/morvu")) return root_ + std::string(path);
  if (path.starts_with(root_)) return std::string(path);
  return FindAdapterLibrary(root_, path);
}

std::string Fleet::MapCommand(std::string_view command) const {
  std::string mapped;
  for (std::size_t at = 0; at < command.size();) {
    const auto rest = command.substr(at);
    // In the middle of a longer path ("/mnt/dev/") the words mean something else.
    const auto before = at == 0 ? ' ' : command[at - 1];
    const bool starts = !(std::isalnum(static_cast<unsigned char>(before)) || before == '/' ||
                          before == '.' || before == '_' || before == '-');
    if (starts && IsFleetWord(rest)) mapped += root_;
    mapped += command[at++];
  }
  return mapped;
}

}  // namespace Simulator
