// What drives of each kind tell of their health. The caller holds the drive, which answers.
#pragma once

#include <cstdint>
#include <limits>

#include "parsers/health/DriveHealth.h"

namespace Morvu {

namespace DeviceManagement {
class CommandSet_ATA;
class CommandSet_NVME;
class CommandSet_SCSI;
}  // namespace DeviceManagement

namespace HealthSources {

void Read(const DeviceManagement::Device& device, DeviceManagement::CommandSet_ATA& ata,
          DriveHealth& health);
void Read(const DeviceManagement::Device& device, DeviceManagement::CommandSet_NVME& nvme,
          DriveHealth& health);
void Read(DeviceManagement::CommandSet_SCSI& scsi, DriveHealth& health);

// Stands for counts of errors that 64 bits do not hold: they are errors all the same.
inline constexpr auto kMostErrors = std::numeric_limits<std::uint64_t>::max();

// What is left of a drive that is worn so far.
constexpr std::uint64_t LifeLeft(std::uint64_t wearPercent) {
  return wearPercent >= 100 ? 0 : 100 - wearPercent;
}

}  // namespace HealthSources
}  // namespace Morvu
