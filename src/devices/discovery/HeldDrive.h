// A drive that somebody works on while a scan looks: nothing is sent to it, and its place in the
// list stays.
#pragma once

#include "devices/model/Device.h"
#include "devices/system/SystemFacts.h"

namespace Morvu::DeviceManagement {

// Gives the drive of a node what the kernel has read of it before, and marks it
// ("DriverCommunicationError" is 180).
void DescribeHeldDrive(Device& drive, const SystemFacts& facts);

// What the kernel has read of a drive that is not asked now.
void DescribeUnasked(Device& drive, const SystemFacts& facts);

// What an earlier scan knew of the drive takes the place of the little that the kernel tells;
// the partitions are what the system shows now, the membership in volumes what the controller says.
void TakeKnown(Device& held, const Device& known);

}  // namespace Morvu::DeviceManagement
