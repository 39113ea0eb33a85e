// The transports that a device can be reached by, and the command set that each selects.
#include <algorithm>
#include <iterator>

#include "devices/commands/CommandPath_ATA_SCSI.h"
#include "devices/commands/CommandPath_NVME.h"
#include "devices/commands/CommandPath_SCSI.h"
#include "devices/commands/CommandSet_ATA.h"
#include "devices/commands/CommandSet_NVME.h"
#include "devices/commands/CommandSet_SCSI.h"
#include "devices/properties/BasicProperties.h"
#include "devices/properties/PropertyList.h"

namespace Morvu::DeviceManagement {
namespace {

using MakePath = std::unique_ptr<CommandPath> (*)(const std::string& devicePath);
using MakeSet = std::unique_ptr<CommandSet> (*)(const PropertyList& properties, CommandPath& path);

template <typename Path>
std::unique_ptr<CommandPath> NewPath(const std::string& devicePath) {
  return std::make_unique<Path>(devicePath);
}

template <typename Set>
std::unique_ptr<CommandSet> NewSet(const PropertyList& properties, CommandPath& path) {
  return std::make_unique<Set>(properties, path);
}

bool IsNvmeNode(std::string_view path) {
  return path.substr(path.rfind('/') + 1).starts_with("nvme");
}
bool IsAnyNode(std::string_view) { return true; }

struct TransportRow {
  std::string_view protocol;
  bool (*mayAnswer)(std::string_view devicePath);
  MakePath makePath;
  MakeSet makeSet;
};

// In the order in which a node is tried. Today's kernels refuse SCSI commands on the
// nodes of NVMe drives, older ones let some through. Of the others ATA comes first: a
// disk that answers it is an ATA disk, whatever stands before it.
// clang-format off
constexpr TransportRow kTransports[] = {
    {Transport::Nvme, &IsNvmeNode, &NewPath<CommandPath_NVME>,     &NewSet<CommandSet_NVME>},
    {Transport::Ata,  &IsAnyNode,  &NewPath<CommandPath_ATA_SCSI>, &NewSet<CommandSet_ATA>},
    {Transport::Scsi, &IsAnyNode,  &NewPath<CommandPath_SCSI>,     &NewSet<CommandSet_SCSI>},
};
// clang-format on

}  // namespace

std::unique_ptr<CommandPath> CreateCommandPath(const PropertyList& properties) {
  const auto devicePath = properties.GetString(Properties::DevicePath);
  for (const auto& row : kTransports) {
    if (!row.mayAnswer(devicePath)) continue;
    auto path = row.makePath(devicePath);
    if (path->IsOpen() && path->TestDevice()) return path;
  }
  return nullptr;
}

std::unique_ptr<CommandPath> CreateBasePath(const PropertyList& properties, bool generic) {
  if (!generic) return CreateCommandPath(properties);
  return std::make_unique<CommandPath_Plain>(properties.GetString(Properties::DevicePath));
}

std::unique_ptr<CommandSet> CreateCommandSet(const PropertyList& properties, CommandPath& path) {
  const auto row = std::ranges::find(kTransports, path.GetProtocol(), &TransportRow::protocol);
  return row == std::end(kTransports) ? nullptr : row->makeSet(properties, path);
}

}  // namespace Morvu::DeviceManagement
