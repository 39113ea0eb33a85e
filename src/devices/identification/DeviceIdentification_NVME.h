#pragma once

#include "devices/identification/DeviceIdentification.h"
#include "frame/Bytes.h"

namespace Morvu::DeviceManagement {

// IDENTIFY of the controller and of the namespace (NVMe 1.0, 5.11). A drive whose
// "Lun" is 0 is asked about namespace 1.
class DeviceIdentification_NVME : public DeviceIdentification {
 public:
  using DeviceIdentification::DeviceIdentification;
  bool Identify() override;

 private:
  void PutNamespace(ByteView data);
};

}  // namespace Morvu::DeviceManagement
