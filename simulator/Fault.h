// A fault to set on a simulated drive: what goes wrong, and with which command.
//
//   drive.Inject(Fault::AtaError(0x51, 0x04).OnOpcode(0xF4));   each SECURITY ERASE UNIT
//   drive.Inject(Fault::Vanish().OnCommand(3));                 the third command from now
//   drive.Inject(Fault::NvmeStatus(0x10A).OnOpcode(0x80).Times(1));
//
// Without On... it meets every command. OnCommand(n) counts the commands that
// match the opcode, if one is given, from the moment of Inject.
#pragma once

#include "DriveState.h"

namespace Simulator {

class Fault {
 public:
  // Whatever the drive: an ATA command is aborted (51h, 04h), an NVMe command
  // ends in an internal error (006h), a SCSI command finds the drive BUSY.
  static Fault Fail();
  static Fault AtaError(std::uint8_t status = 0x51, std::uint8_t error = 0x04,
                        std::uint32_t lba = 0);
  // SCSI status byte (02h is CHECK CONDITION) with fixed or descriptor sense of key, asc, ascq.
  static Fault ScsiError(std::uint8_t status, std::uint8_t key = 0, std::uint8_t asc = 0,
                         std::uint8_t ascq = 0);
  static Fault NvmeStatus(std::uint16_t status);  // status code type in bits 10:8
  static Fault IoctlError(int errorNumber);
  static Fault HostError(std::uint16_t hostStatus, std::uint16_t driverStatus = 0);
  static Fault Vanish();
  static Fault Delay(std::uint32_t milliseconds);
  static Fault ShortData(std::uint32_t bytes);
  static Fault GarbageData(Garbage garbage);
  static Fault Hang();
  static Fault Signal(int signal);  // to the thread that sends the command
  static Fault KillBefore();
  static Fault KillAfter();

  Fault& OnCommand(std::uint32_t n);  // 1 is the next one
  Fault& OnOpcode(std::uint8_t opcode, CommandClass commandClass = CommandClass::Any);
  Fault& OnFeature(std::uint8_t feature);
  Fault& Times(std::uint32_t times);  // 0: from then on, each

  const FaultSlot& Slot() const { return slot_; }

 private:
  explicit Fault(FaultAction action);
  FaultSlot slot_{};
};

}  // namespace Simulator
