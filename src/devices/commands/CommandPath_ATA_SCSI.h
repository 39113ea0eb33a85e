#pragma once

#include "devices/commands/CommandPath_SCSI.h"

namespace Morvu::DeviceManagement {

// Sends ATA commands in ATA PASS-THROUGH CDBs (SAT-3, 12.2). `command` is a
// TaskFile, `reply` a TaskFilePrevious; both hold the device's registers afterwards.
//
// The registers come back in descriptor sense (SAT-3, 12.2.6) or in fixed-format
// sense; kernels before 6.11 put the latter in places of their own. Sense that is
// not the ATA device's answer leaves the records as they went in.
class CommandPath_ATA_SCSI : public CommandPath_SCSI {
 public:
  explicit CommandPath_ATA_SCSI(std::string devicePath);

  bool TestDevice() override;
  std::unique_ptr<CommandPath> Clone() const override;

 protected:
  StatusCode SendOpcodeCore(ByteSpan command, ByteSpan reply, std::uint8_t flags, ByteSpan data,
                            std::uintptr_t asyncMarker) override;
};

}  // namespace Morvu::DeviceManagement
