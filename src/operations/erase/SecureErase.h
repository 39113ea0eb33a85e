// The ATA security erase (ACS-3, 4.18) with a password of the library's own, which is
// taken off again afterwards.
#pragma once

#include <string_view>

#include "devices/commands/CommandSet_ATA.h"
#include "operations/erase/Erasure.h"

namespace Morvu {

// From the set password to the end of a run the drive is locked by kPassword: who
// loses power in between unlocks it with that (docs/recovery.md).
class SecureErase : public Erasure {
 public:
  static constexpr std::string_view kPassword = "quillfen";

  // `permit` may be null: then nothing is erased. `enhanced`: the drive's enhanced erase mode.
  SecureErase(DeviceManagement::Device* device, const ErasePermit* permit, bool enhanced,
              ProgressReporter& reporter);

  void Initialize() override;
  std::int32_t Execute() override;
  // A drive that is frozen is put in standby, as its power has to go off.
  StatusCode Refuse(StatusCode code) override;
  std::optional<std::chrono::minutes> GetDuration(
      const DeviceManagement::FreshIdentity& identity) const override;

  static StatusCode Runner(DeviceManagement::Device& device, Face& face, bool enhanced);

 private:
  struct Rules;
  using PasswordCommand = StatusCode (DeviceManagement::CommandSet_ATA::*)(ByteSpan);

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

  bool enhanced_;
};

}  // namespace Morvu
