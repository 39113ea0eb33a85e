// The ATA security erase (ACS-3, 4.18) with a password of the library's own, which is
// taken off again afterwards.
#pragma once

#include <string_view>

#include "devices/commands/CommandSet_ATA.h"
#include "messaging/features/Face.h"
#include "messaging/features/Feature.h"

namespace Morvu {

// From the set password to the end of a run the drive is locked by kPassword: who
// loses power in between unlocks it with that (docs/recovery.md).
class SecureErase : public Function {
 public:
  static constexpr std::string_view kPassword = "quillfen";

  // `force`: go on although the drive has partitions. `enhanced`: the drive's enhanced
  // erase mode. A drive that is frozen is put in standby, and refused.
  SecureErase(DeviceManagement::Device* device, bool force, bool enhanced,
              ProgressReporter& reporter);

  void Initialize() override;
  std::int32_t Execute() override;
  bool IsForced() const { return force_; }
  void SetForce(bool force) { force_ = force; }

  static StatusCode Runner(DeviceManagement::Device& device, Face& face, bool enhanced);

 private:
  struct Rules;
  using PasswordCommand = StatusCode (DeviceManagement::CommandSet_ATA::*)(ByteSpan);

  std::string_view GetLogName() const override { return "SecureErase"; }
  bool SecureEraseProcess();
  bool IsFrozen() const;
  // Sends a security command with the block that holds the password.
  bool Send(PasswordCommand command);
  bool ErasePrepare();
  bool EraseUnit();
  // Logs, and sets the code, when the host asked to stop.
  bool IsCanceled();
  // The same while the password is set: it is taken off.
  bool IsCanceledLocked();
  bool Fail(std::string_view text, StatusCode code);
  void CleanUp();

  bool force_;
  bool enhanced_;
};

}  // namespace Morvu
