#pragma once

#include "devices/commands/CommandSet.h"
#include "devices/commands/ScsiCommands.h"

namespace Morvu::DeviceManagement {

// The SCSI commands: any of the table, and by name those that the library uses. 131 for
// what the device refused and for a read that brought too little; a shorter buffer than
// the command moves gives 141, and nothing is sent.
class CommandSet_SCSI : public CommandSet {
 public:
  CommandSet_SCSI(const PropertyList& properties, CommandPath& path)
      : CommandSet(properties, path, Protocol::Scsi) {}
  std::unique_ptr<CommandSet> Clone(const PropertyList& properties,
                                    CommandPath& path) const override;

  StatusCode Send(const ScsiCommand& command, const ScsiArguments& arguments = {},
                  ByteSpan data = {});

  // One block each of 512 bytes of data, of which the device fills a part.
  StatusCode scsiInquiry(ByteSpan data, std::uint8_t length);
  StatusCode scsiReadCapacity10(ByteSpan data);
  StatusCode scsiReadCapacity16(ByteSpan data, std::uint32_t length);
  // `arguments` are mode, bufferId, offset, length and blocks.
  StatusCode scsiWriteBuffer(ByteSpan data, const ScsiArguments& arguments);

 private:
  std::uint64_t GetLength(const ScsiCommand& row, const ScsiArguments& arguments) const;
};

}  // namespace Morvu::DeviceManagement
