#pragma once

#include "devices/commands/CommandSet_SCSI.h"
#include "devices/identification/DeviceIdentification.h"

namespace Morvu::DeviceManagement {

// Standard INQUIRY data (SPC-4, 6.6.2) and READ CAPACITY (SBC-3, 5.15 and 5.16).
class DeviceIdentification_SCSI : public DeviceIdentification {
 public:
  using DeviceIdentification::DeviceIdentification;
  bool Identify() override;

 private:
  bool ReadInquiry(CommandSet_SCSI& scsi);
  bool ReadCapacity(CommandSet_SCSI& scsi);
};

}  // namespace Morvu::DeviceManagement
