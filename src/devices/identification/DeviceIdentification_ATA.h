#pragma once

#include "devices/identification/DeviceIdentification.h"

namespace Morvu::DeviceManagement {

// IDENTIFY DEVICE (ACS-3, 7.12). Behind a controller in IDE mode a drive counts as
// identified whatever it answers, but for the products that need their identify data.
class DeviceIdentification_ATA : public DeviceIdentification {
 public:
  using DeviceIdentification::DeviceIdentification;
  bool Identify() override;

 private:
  bool ReadIdentifyData();
  bool CountsAsIdentified() const;
};

}  // namespace Morvu::DeviceManagement
