#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "messaging/features/Feature.h"

namespace Morvu {

namespace XmlMessaging {
class Property;
}

// Sets one feature of a drive: by SET FEATURES on ATA (ACS-3, 7.45), by Set Features on NVMe
// (NVMe 1.0, 5.12), where it lasts until the controller's next reset.
class SetFeature : public Function {
 public:
  // ATA: the registers Features, Count and LBA. NVMe: the identifier, cdw11 and cdw12.
  SetFeature(DeviceManagement::Device* device, std::uint8_t featureId, std::uint32_t value1,
             std::uint32_t value2, ProgressReporter& reporter);

  void Initialize() override;
  std::int32_t Execute() override;

 private:
  struct Rules;

  // The drive answers, or its controller does.
  bool IsConnected();
  StatusCode Send();

  std::uint8_t featureId_;
  std::uint32_t value1_;
  std::uint32_t value2_;
};

// The temperature at which an NVMe drive warns, in kelvins.
class TemperatureThreshold : public SetFeature {
 public:
  TemperatureThreshold(DeviceManagement::Device* device, std::uint16_t kelvin,
                       ProgressReporter& reporter);

  void Initialize() override;

  // The setter of the drive's property.
  static StatusCode SetProperty(XmlMessaging::Property& request, DeviceManagement::Device& device);
};

// The mode of an NVMe drive's power governor: 0 (25 W), 1 (20 W) or 2 (10 W).
class NVMe_PowerGovernor : public SetFeature {
 public:
  NVMe_PowerGovernor(DeviceManagement::Device* device, std::uint8_t mode,
                     ProgressReporter& reporter)
      : SetFeature(device, kId, mode, 0, reporter) {}

  static constexpr std::uint8_t kId = 0xC6;
};

}  // namespace Morvu
