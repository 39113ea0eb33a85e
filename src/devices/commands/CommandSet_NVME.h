#pragma once

#include <memory>

#include "devices/commands/CommandSet.h"
#include "devices/commands/NvmeCommands.h"

namespace Morvu::DeviceManagement {

// The NVMe commands: any of the table, and by name those that the library uses. A command
// is logged and sent; the code is 0, an NVMe status (FromNvmeStatus) or -errno of the
// call. `data` must hold what the command moves; a shorter buffer gives 141, a count that
// its field cannot hold 172, and nothing is sent.
//
// Commands go to the controller's node. A set that was cloned for a drive has a path
// of its own on it, so that no two threads share one and none outlives its adapter.
class CommandSet_NVME : public CommandSet {
 public:
  CommandSet_NVME(const PropertyList& properties, CommandPath& path);
  CommandSet_NVME(const PropertyList& properties, std::unique_ptr<CommandPath> path);
  std::unique_ptr<CommandSet> Clone(const PropertyList& properties,
                                    CommandPath& path) const override;

  StatusCode Send(const NvmeCommand& command, const NvmeArguments& arguments, ByteSpan data = {});

  StatusCode nvmeGetLogPage(std::uint8_t logId, std::uint32_t dwords, std::uint32_t nsid,
                            ByteSpan data);
  StatusCode nvmeIdentify(std::uint8_t cns, std::uint32_t nsid, ByteSpan data);
  StatusCode nvmeGetFeatures(std::uint8_t featureId, std::uint32_t nsid, std::uint32_t dwords,
                             ByteSpan data);
  StatusCode nvmeFirmwareActivate(std::uint8_t slot, std::uint8_t action);
  StatusCode nvmeFirmwareImageDownload(std::uint32_t dwords, std::uint32_t offsetDwords,
                                       ByteSpan data);
  StatusCode nvmeFormatNVM(const NvmeArguments& arguments);

 private:
  std::unique_ptr<CommandPath> ownPath_;  // null when the path is another's
};

}  // namespace Morvu::DeviceManagement
