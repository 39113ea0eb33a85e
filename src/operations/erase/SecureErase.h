// The ATA security erase (ACS-3, 4.18) with a password of the library's own, which is
// taken off again afterwards.
#pragma once

#include <string_view>

#include "messaging/features/Face.h"
#include "messaging/features/Feature.h"
#include "operations/erase/ErasePassword.h"

namespace Morvu {

class SecureErase : public Function {
 public:
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

  bool force_;
  bool enhanced_;
};

}  // namespace Morvu
