// The last address that a drive shows, as a person and a host write it.
#pragma once

#include "frame/StatusCode.h"

namespace Morvu {

namespace DeviceManagement {
class Device;
}
namespace XmlMessaging {
class Property;
}

// The setter of the drive's property "MaximumLBA": "native", "25%", "50gb", or an address.
// Nothing is erased.
StatusCode SetMaximumLba(XmlMessaging::Property& request, DeviceManagement::Device& device);

}  // namespace Morvu
