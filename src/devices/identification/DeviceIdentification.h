// Identification: what a device answers about itself becomes its properties.
#pragma once

#include <cstdint>

namespace Morvu::DeviceManagement {

class Device;

// Base of the members, one for each kind of command set.
class DeviceIdentification {
 public:
  static constexpr std::uint32_t kDefaultSectorSize = 512;

  // Gives the device the sector size with which it is asked, and "RAIDMember" if it
  // has none. `device` is not owned and may be null.
  explicit DeviceIdentification(Device* device);
  virtual ~DeviceIdentification() = default;
  DeviceIdentification(const DeviceIdentification&) = delete;
  DeviceIdentification& operator=(const DeviceIdentification&) = delete;

  // True when the device answered. What could not be read stays as it was.
  virtual bool Identify() = 0;

 protected:
  // Adds to the device's properties which product it is, as far as they tell. Whether
  // they do.
  bool DetectProduct();
  // A sector size that a device told, or the default where it cannot be one.
  static std::uint32_t CheckedSectorSize(std::uint64_t told);

  Device* device_;
};

// Turns what a device answers into properties. False for a null device and for a
// device that did not answer; properties that could not be read stay as they were.
bool IdentifyDevice(Device* device);

// Identification, then the values that follow from it. True when the device could be
// identified.
bool UpdateProperties(Device& device);

}  // namespace Morvu::DeviceManagement
