// Puts a drive in standby, before its power is taken away.
#pragma once

#include <memory>
#include <string_view>

#include "cli/QRKCLI.h"
#include "messaging/XmlMessaging.h"
#include "messaging/features/Feature.h"
#include "messaging/features/JobContext.h"

namespace Morvu {

class StandbyImmediate : public Function {
 public:
  StandbyImmediate(DeviceManagement::Device* device, const ProgressReporter* reporter);

  void Initialize() override;
  std::int32_t Execute() override;

  // `cli` is null on the message path.
  static StatusCode Runner(DeviceManagement::Device& device, QRKCLI* cli,
                           const JobContext& context);

  static std::unique_ptr<XmlMessaging::Object> Describe(DeviceManagement::Device* device);
  static StatusCode Run(JobContext& context, const XmlMessaging::Object& method,
                        DeviceManagement::SelectedDevices& devices);
  static CLICommand GetFeatureDefinition();
  static StatusCode RunCLI(QRKCLI& cli, SelectedDrives devices);

 private:
  std::string_view GetLogName() const override { return "StandbyImmediate"; }
  bool Fail(std::string_view text, StatusCode code);
};

}  // namespace Morvu
