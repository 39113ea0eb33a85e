// Wipes a drive, whatever it speaks.
#pragma once

#include <memory>
#include <string_view>

#include "cli/QRKCLI.h"
#include "messaging/XmlMessaging.h"
#include "messaging/features/JobContext.h"
#include "operations/erase/SendFormat.h"

namespace Morvu {

// Checks the drive and holds the settings; a SendFormat does the work. Built with
// `force` false it tells a partition (13) from a drive that is free.
class Format : public Function {
 public:
  Format(DeviceManagement::Device* device, const FormatSettings& settings, bool force,
         const ProgressReporter* reporter);

  void Initialize() override;
  std::int32_t Execute() override;
  void SetForce(bool force);
  void SetEnhanced(bool enhanced);

  // Checks the settings, asks, and formats. `cli` is null on the message path.
  static StatusCode Runner(DeviceManagement::Device& device, const FormatSettings& settings,
                           QRKCLI* cli, const JobContext& context, bool force);

  // The method "Format", for drives with NVMe.
  static std::unique_ptr<XmlMessaging::Object> Describe(DeviceManagement::Device* device);
  static StatusCode Run(JobContext& context, const XmlMessaging::Object& method,
                        DeviceManagement::SelectedDevices& devices);
  // The method "Delete", for any drive; one with NVMe keeps its layout.
  static std::unique_ptr<XmlMessaging::Object> DescribeDelete(DeviceManagement::Device* device);
  static StatusCode RunDelete(JobContext& context, const XmlMessaging::Object& method,
                              DeviceManagement::SelectedDevices& devices);

  static CLICommand GetFeatureDefinition();
  static StatusCode RunCLI(QRKCLI& cli, SelectedDrives devices);

 private:
  std::string_view GetLogName() const override { return "Format"; }
  std::unique_ptr<SendFormat> MakeSender();
  void LogSettings() const;

  bool force_;
  std::unique_ptr<SendFormat> sender_;
  FormatSettings settings_;
};

// What is wrong with the settings for this drive, a line for each; empty when they fit.
std::vector<std::string> CheckFormatSettings(const DeviceManagement::Device& device,
                                             const FormatSettings& settings);

// The layout that an NVMe drive has now, without a secure erase.
FormatSettings GetCurrentLayout(const DeviceManagement::Device& device);

}  // namespace Morvu
