// The health of a drive in a few values, whatever it speaks, read by a few commands: SMART data
// and Device Statistics of a SATA drive (ACS-3, 7.47 and 9.5), the health and the firmware slot log
// of an NVMe drive (NVMe 1.0, 5.10.1), log pages of a SAS drive (SPC-4, 7.3; SBC-3, 6.4).
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "parsers/smart/DriveVerdict.h"

namespace Morvu {

namespace DeviceManagement {
class Device;
class SystemFacts;
}  // namespace DeviceManagement

// How the last self-test ended. A SATA drive that never made one says that none found a fault.
enum class SelfTestEnd { NoFault, Stopped, Failed, Running };

// A value that could not be had is absent.
struct DriveHealth {
  enum class Access {
    Answered,
    InUse,   // another program or job works on it: nothing was sent
    Asleep,  // in standby: nothing but the question for it was sent
    Silent,  // it does not answer, or no way leads to it
    Volume,  // of a RAID controller: it has no health of its own
  };
  Access access = Access::Silent;
  DriveVerdict verdict{DriveVerdict::Kind::Unknown, "Unknown"};
  std::optional<std::uint64_t> lifeLeftPercent;  // 100 of a new drive
  std::optional<std::uint64_t> wearPercent;      // of the planned life; goes on beyond 100
  std::optional<std::uint64_t> sparePercent;     // of the spare blocks that are left
  std::optional<std::uint64_t> spareThresholdPercent;
  std::optional<std::int64_t> temperatureCelsius;
  std::optional<std::uint64_t> mediaErrors;
  std::optional<std::uint64_t> powerOnHours;
  std::optional<std::uint64_t> unsafeShutdowns;
  std::optional<std::uint64_t> bytesWritten;  // by the host
  std::optional<SelfTestEnd> selfTest;
  std::string waitingFirmware;  // runs after a reset; empty when none is known of

  // Remaining life runs out, or spare blocks do.
  bool IsWornOut() const;
  // Something to look at, though the drive does not say that it fails.
  bool HasFaults() const;
  bool IsUnknown() const;
};

// Asks the drive, which is held for the moment.
DriveHealth ReadHealth(DeviceManagement::Device& device,
                       const DeviceManagement::SystemFacts& facts);

}  // namespace Morvu
