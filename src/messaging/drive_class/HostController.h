// The drive method "HostController": the controller that a drive hangs on, and its
// driver.
#pragma once

#include <memory>

#include "messaging/features/CimClass.h"

namespace Morvu::HostController {

// A drive of another make has no such method.
std::unique_ptr<XmlMessaging::Object> Describe(DeviceManagement::Device* device);

// Adds the List "HostController" to the reply: rows of a category, a field and its value.
StatusCode Run(JobContext& context, const XmlMessaging::Object& method,
               DeviceManagement::SelectedDevices& devices);

}  // namespace Morvu::HostController
