#pragma once

#include "devices/identification/DeviceIdentification.h"

namespace Morvu::DeviceManagement {

// What the operating system told of the device, before it is asked itself.
class DeviceIdentification_System : public DeviceIdentification {
 public:
  using DeviceIdentification::DeviceIdentification;
  bool Identify() override;
};

}  // namespace Morvu::DeviceManagement
