// SANITIZE DEVICE of an ATA drive (ACS-3, 4.17): block erase or crypto scramble.
#pragma once

#include <string_view>

#include "messaging/features/Face.h"
#include "messaging/features/Feature.h"

namespace Morvu {

// A drive sanitizes by itself once it has taken the command; a run then watches it
// for at most five minutes. A cancel ends the watching, not the sanitize.
class Sanitize : public Function {
 public:
  // `force`: go on although the drive has partitions. `crypto`: crypto scramble in
  // place of block erase. A drive that is frozen is put in standby, and refused.
  Sanitize(DeviceManagement::Device* device, bool force, bool crypto, ProgressReporter& reporter);

  void Initialize() override;
  std::int32_t Execute() override;
  bool IsForced() const { return force_; }
  void SetForce(bool force) { force_ = force; }

  // `type` is "block" or "crypto".
  static StatusCode Runner(DeviceManagement::Device& device, Face& face, std::string_view type);

 private:
  struct Rules;

  std::string_view GetLogName() const override { return "Sanitize"; }
  // Asks the drive.
  bool IsSanitizeFrozen();
  StatusCode SanitizeProcess();
  StatusCode GetSanitizeResult();
  // One question for the state. True when the drive is done; a code other than 0
  // when it tells a failure.
  bool IsOver(StatusCode& code);

  bool force_;
  bool crypto_;
};

}  // namespace Morvu
