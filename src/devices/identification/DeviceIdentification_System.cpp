#include "devices/identification/DeviceIdentification_System.h"

#include "frame/Logger.h"

namespace Morvu::DeviceManagement {

bool DeviceIdentification_System::Identify() {
  MORVU_LOG(kLogDebug, "Identify", "DeviceIdentification_System::Identify");
  DetectProduct();
  return true;
}

}  // namespace Morvu::DeviceManagement
