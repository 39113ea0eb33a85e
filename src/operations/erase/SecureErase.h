// The ATA security erase (ACS-3, 4.18) with a password of the library's own, which is
// taken off again afterwards.
#pragma once

#include <string_view>

#include "operations/erase/ErasePassword.h"
#include "operations/erase/Erasure.h"

namespace Morvu {

class SecureErase : public Erasure {
 public:
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
  bool SecureEraseProcess();
  bool IsFrozen() const;
  // The erase, and the password off again whatever came of it.
  StatusCode EraseByPassword();
  StatusCode SendErase(ErasePassword& password);
  // Logs, and sets the code, when the host asked to stop.
  bool IsCanceled();
  // Logs; the code.
  StatusCode Fail(std::string_view text, StatusCode code);
  // A drive that may still have the password is warned of.
  void TellPassword(ErasePassword::State state);

  bool enhanced_;
};

}  // namespace Morvu
