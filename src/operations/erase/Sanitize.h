// SANITIZE DEVICE of an ATA drive (ACS-3, 4.17): block erase or crypto scramble.
#pragma once

#include <string_view>

#include "operations/erase/Erasure.h"

namespace Morvu {

// A drive sanitizes by itself once it has taken the command; a run then watches it
// for at most five minutes. A cancel ends the watching, not the sanitize.
class Sanitize : public Erasure {
 public:
  // `permit` may be null: then nothing is erased. `crypto`: crypto scramble in place of block
  // erase.
  Sanitize(DeviceManagement::Device* device, const ErasePermit* permit, bool crypto,
           ProgressReporter& reporter);

  void Initialize() override;
  std::int32_t Execute() override;
  // A drive that is frozen is put in standby, as its power has to go off.
  StatusCode Refuse(StatusCode code) override;

  // `type` is "block" or "crypto".
  static StatusCode Runner(DeviceManagement::Device& device, Face& face, std::string_view type);

 private:
  struct Rules;

  // Asks the drive.
  bool IsSanitizeFrozen();
  StatusCode SanitizeProcess();
  StatusCode GetSanitizeResult();
  // One question for the state. True when the drive is done; a code other than 0
  // when it tells a failure.
  bool IsOver(StatusCode& code);

  bool crypto_;
};

}  // namespace Morvu
