#pragma once

#include "devices/commands/CommandPath_SCSI.h"

namespace Morvu::DeviceManagement {

// Sends ATA commands in ATA PASS-THROUGH CDBs (SAT-3, 12.2). The record is a TaskFile;
// any other length gives 141.
//
// CHECK CONDITION alone is no failure here, since ATA PASS-THROUGH hands the device's
// registers back that way: in descriptor sense (SAT-3, 12.2.6) or in fixed-format sense,
// which kernels before 6.11 lay out in their own way. Sense that is not the ATA device's
// answer leaves the registers unknown.
class CommandPath_ATA_SCSI : public CommandPath_SCSI {
 public:
  explicit CommandPath_ATA_SCSI(std::string devicePath);

  bool TestDevice() override;
  std::unique_ptr<CommandPath> Clone() const override;

 protected:
  Outcome SendOpcodeCore(const Command& command) override;
};

}  // namespace Morvu::DeviceManagement
