#include "devices/commands/CommandSet.h"

#include <algorithm>

#include "devices/commands/CommandPath.h"
#include "devices/commands/CommandSet_ATA.h"
#include "devices/commands/CommandSet_NVME.h"
#include "devices/commands/CommandSet_SCSI.h"
#include "devices/properties/BasicProperties.h"
#include "devices/properties/PropertyList.h"

namespace Morvu::DeviceManagement {

StatusCode CommandSet::Send(ByteSpan command, ByteSpan reply, std::uint8_t flags, ByteSpan data,
                            std::uint32_t blockCount, std::uintptr_t asyncMarker) {
  RecordCommand(command, reply, flags, data, blockCount);
  const auto sectorSize =
      static_cast<std::uint32_t>(properties_->GetUnsigned(Properties::SectorSize));
  const auto length = std::min<std::uint64_t>(std::uint64_t{sectorSize} * blockCount, data.size());
  return path_->SendOpcode(command, reply, flags, data.first(static_cast<std::size_t>(length)),
                           asyncMarker);
}

void CommandSet::RecordCommand(ByteView, ByteView, std::uint8_t, ByteView, std::uint32_t) {}

std::unique_ptr<CommandSet> CreateCommandSet(const PropertyList& properties, CommandPath& path) {
  const auto& protocol = path.GetProtocol();
  if (protocol == Transport::Ata) return std::make_unique<CommandSet_ATA>(properties, path);
  if (protocol == Transport::Nvme) return std::make_unique<CommandSet_NVME>(properties, path);
  if (protocol == Transport::Scsi) return std::make_unique<CommandSet_SCSI>(properties, path);
  return nullptr;
}

}  // namespace Morvu::DeviceManagement
