// The password that an ATA security erase needs (ACS-3, 4.18), one of the library's own.
#pragma once

#include <string_view>

#include "devices/commands/CommandSet_ATA.h"

namespace Morvu {

// From Set on the drive counts as having the password, whatever it answered. It is taken off
// by TakeOff, and on every other way out at the end of the object. Who loses power in between
// unlocks the drive by kText (docs/recovery.md).
class ErasePassword {
 public:
  static constexpr std::string_view kText = "quillfen";

  // What the drive tells of its password: IDENTIFY DEVICE, word 128.
  enum class State { Off, On, Unknown };

  // `enhanced`: the drive's enhanced erase mode. The command set must outlive the object.
  ErasePassword(DeviceManagement::CommandSet_ATA& ata, bool enhanced)
      : ata_(ata), enhanced_(enhanced) {}
  ~ErasePassword();
  ErasePassword(const ErasePassword&) = delete;
  ErasePassword& operator=(const ErasePassword&) = delete;

  [[nodiscard]] StatusCode Set();
  [[nodiscard]] StatusCode EraseUnit();
  // Takes it off, and looks whether it is. A drive that still has it is told once more.
  [[nodiscard]] State TakeOff();

 private:
  using Command = StatusCode (DeviceManagement::CommandSet_ATA::*)(ByteSpan);

  // Sends a security command with the block that holds the password.
  StatusCode Send(Command command);
  State Look();

  DeviceManagement::CommandSet_ATA& ata_;
  bool enhanced_;
  bool mayBeSet_ = false;
};

}  // namespace Morvu
