// SANITIZE DEVICE of an ATA drive (ACS-3, 4.17): block erase or crypto scramble.
#pragma once

#include <memory>
#include <string_view>

#include "cli/QRKCLI.h"
#include "messaging/XmlMessaging.h"
#include "messaging/features/Feature.h"
#include "messaging/features/JobContext.h"

namespace Morvu {

// A drive sanitizes by itself once it has taken the command; a run then watches it
// for at most five minutes. A cancel ends the watching, not the sanitize.
class Sanitize : public Function {
 public:
  // `force`: go on although the drive has partitions. `crypto`: crypto scramble in
  // place of block erase. A drive that is frozen is put in standby, and refused.
  Sanitize(DeviceManagement::Device* device, bool force, bool crypto,
           const ProgressReporter* reporter);

  void Initialize() override;
  std::int32_t Execute() override;
  void SetForce(bool force) { force_ = force; }

  // `type` is "block" or "crypto"; `cli` is null on the message path.
  static StatusCode Runner(DeviceManagement::Device& device, QRKCLI* cli, const JobContext& context,
                           bool force, std::string_view type);

  static std::unique_ptr<XmlMessaging::Object> Describe(DeviceManagement::Device* device);
  static StatusCode Run(JobContext& context, const XmlMessaging::Object& method,
                        DeviceManagement::SelectedDevices& devices);
  static CLICommand GetFeatureDefinition();
  static StatusCode RunCLI(QRKCLI& cli, SelectedDrives devices);

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
