#pragma once

#include "devices/commands/CommandPath.h"

namespace Morvu::DeviceManagement {

// Sends SCSI CDBs with the kernel's SG_IO interface (<scsi/sg.h>). `reply` is the
// sense buffer.
//
// CHECK CONDITION alone is no failure of the ATA path, since ATA PASS-THROUGH hands
// its registers back that way (SAT-3, 12.2.6); plain SCSI commands judge the sense.
class CommandPath_SCSI : public CommandPath {
 public:
  explicit CommandPath_SCSI(std::string devicePath);

  bool TestDevice() override;
  std::unique_ptr<CommandPath> Clone() const override;

 protected:
  CommandPath_SCSI(std::string devicePath, std::string_view protocol, std::string_view description);

  StatusCode SendOpcodeCore(ByteSpan command, ByteSpan reply, std::uint8_t flags, ByteSpan data,
                            std::uintptr_t asyncMarker) override;

  // The SG_IO call itself: 0, 131, or the negative result of the call.
  StatusCode SendCdb(ByteSpan cdb, ByteSpan sense, std::uint8_t flags, ByteSpan data,
                     std::uintptr_t asyncMarker);
};

}  // namespace Morvu::DeviceManagement
