#pragma once

#include <memory>

#include "messaging/features/CimClass.h"

namespace Morvu {

// The drive's property "SystemTrimEnabled": whether this system passes TRIM on to the drive.
// The drive is not asked; where the system does not tell, there is no value.
std::unique_ptr<XmlMessaging::Property> GetSystemTrimProperty(JobContext* context,
                                                              const PropertyEntry& entry,
                                                              DeviceManagement::Device* device);

}  // namespace Morvu
