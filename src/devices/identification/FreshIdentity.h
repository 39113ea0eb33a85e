// Which drive a path leads to now, and what its security state is: one IDENTIFY, and nothing
// else is sent.
#pragma once

#include <chrono>
#include <optional>

#include "devices/properties/PropertyList.h"

namespace Morvu::DeviceManagement {

class CommandSet_ATA;
class CommandSet_NVME;
class Device;

struct FreshIdentity {
  PropertyList properties;  // serial number, World Wide Name, security of a SATA drive
  // How long the drive says that SECURITY ERASE UNIT takes (ACS-3, IDENTIFY words 89, 90).
  std::optional<std::chrono::minutes> eraseTime;
  std::optional<std::chrono::minutes> enhancedEraseTime;
  // Whether FORMAT NVM of one namespace formats all, and its secure erase erases all.
  bool formatsAllSpaces = false;
  bool erasesAllSpaces = false;
};

// Nothing when the drive does not answer, or not soundly.
std::optional<FreshIdentity> ReadFreshIdentity(CommandSet_ATA& ata);
std::optional<FreshIdentity> ReadFreshIdentity(CommandSet_NVME& nvme);
// Over the device's own path; by a descriptor of a block node of its, in place of that path.
std::optional<FreshIdentity> ReadFreshIdentity(Device& device);
std::optional<FreshIdentity> ReadFreshIdentity(Device& device, int blockHandle);

// Whether it is the identity of this very drive.
bool IsIdentityOf(const FreshIdentity& told, const Device& device);

}  // namespace Morvu::DeviceManagement
