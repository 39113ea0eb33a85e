// Which drive a path leads to now, and what its security state is: one IDENTIFY, and nothing
// else is sent.
#pragma once

#include <chrono>
#include <optional>
#include <string>

#include "devices/properties/PropertyList.h"

namespace Morvu::DeviceManagement {

class CommandSet_ATA;
class CommandSet_NVME;
class Device;

// Which commands for its maximum address a SATA drive has (IDENTIFY words 82 to 87 and 119).
struct AtaAddressing {
  bool has48Bit = false;
  bool hasSetMax = false;          // the Host Protected Area feature set of ATA8-ACS
  bool isSetMaxOn = false;         // and it is enabled
  bool hasSetMaxPassword = false;  // which may have locked it
  bool hasAccessibleMax = false;   // the commands of ACS-3 in their place
};
// For a person, of a drive that has no SET MAX.
std::string DescribeNoSetMax(const AtaAddressing& addressing);

struct FreshIdentity {
  PropertyList properties;  // serial number, World Wide Name, security of a SATA drive
  // How long the drive says that SECURITY ERASE UNIT takes (ACS-3, IDENTIFY words 89, 90).
  std::optional<std::chrono::minutes> eraseTime;
  std::optional<std::chrono::minutes> enhancedEraseTime;
  // Of a SATA drive; nothing where it does not tell.
  std::optional<AtaAddressing> addressing;
  std::optional<std::uint64_t> lastLba;
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
