// Settings under SCT feature control that have a form of their own: the physical sector size,
// and the power governor's budgets.
#pragma once

#include <memory>

#include "messaging/features/CimClass.h"

namespace Morvu {

// The drive's properties "PhysicalSectorSize", "PowerGovernorAveragePower" and
// "PowerGovernorBurstPower".
std::unique_ptr<XmlMessaging::Property> GetSctProperty(JobContext* context,
                                                       const PropertyEntry& entry,
                                                       DeviceManagement::Device* device);
StatusCode SetPhysicalSectorSize(XmlMessaging::Property& request, DeviceManagement::Device& device);

}  // namespace Morvu
