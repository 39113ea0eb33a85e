#pragma once

namespace Morvu::DeviceManagement {

class Device;

// Turns what a device answers into properties. False for a null device and for a
// device that did not answer; properties that could not be read stay as they were.
bool IdentifyDevice(Device* device);

}  // namespace Morvu::DeviceManagement
