// Wipes a drive, whatever it speaks.
#pragma once

#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "messaging/features/Face.h"
#include "operations/erase/SendFormat.h"

namespace Morvu {

// Checks the drive and holds the settings; a SendFormat does the work.
class Format : public Erasure {
 public:
  Format(DeviceManagement::Device* device, const FormatSettings& settings,
         ProgressReporter& reporter);

  void Initialize() override;
  std::int32_t Execute() override;
  StatusCode Refuse(StatusCode code) override;
  bool IsSecure() const override { return settings_.secureErase != 0; }
  std::optional<std::chrono::minutes> GetDuration(
      const DeviceManagement::FreshIdentity& identity) const override;

  // Checks the settings, asks, and formats. `notes` are lines that stand in the question too.
  static StatusCode Runner(DeviceManagement::Device& device, const FormatSettings& settings,
                           Face& face, std::string_view notes = {});

 private:
  struct Rules;

  std::unique_ptr<SendFormat> MakeSender();
  void LogSettings() const;

  std::unique_ptr<SendFormat> sender_;
  FormatSettings settings_;
};

// What is wrong with the settings for this drive, a line for each; empty when they fit.
std::vector<std::string> CheckFormatSettings(const DeviceManagement::Device& device,
                                             const FormatSettings& settings);

// The layout that an NVMe drive has now, without a secure erase.
FormatSettings GetCurrentLayout(const DeviceManagement::Device& device);

}  // namespace Morvu
