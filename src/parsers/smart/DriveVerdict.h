// What a drive says of its own health, whatever its attributes look like: SMART RETURN STATUS of
// a SATA drive (ACS-3, 7.47.9), the critical warnings of an NVMe drive (NVMe 1.0, 5.10.1.2), the
// informational exceptions of a SAS drive (SPC-4, 7.3.12).
#pragma once

#include <cstdint>
#include <string>

#include "frame/Bytes.h"
#include "messaging/PropertyEntry.h"

namespace Morvu {

namespace DeviceManagement {
class Device;
}

struct DriveVerdict {
  enum class Kind {
    Passed,
    Failing,   // it expects to fail, or calls a part of it failed
    Unknown,   // it could not be asked, or tells none
    SmartOff,  // SMART is turned off: it judges nothing
  };
  Kind kind = Kind::Unknown;
  std::string text;  // for a person: "Passed", "FAILING: ...", "Unknown", perhaps with a reason

  bool IsFailing() const { return kind == Kind::Failing; }
};

// Asks the drive, which the caller holds.
DriveVerdict ReadVerdict(DeviceManagement::Device& device);
// Of pages that were read already; empty for one that did not come. Of a SAS drive the value of
// the first parameter of its log page 2Fh.
inline constexpr std::uint8_t kExceptionsPage = 0x2F;
inline constexpr std::uint16_t kExceptions = 0x0000;
DriveVerdict JudgeHealthLog(ByteView log);
DriveVerdict JudgeExceptions(ByteView parameter);

// The line of a drive that says it fails, and of one whose SMART is turned off; empty for others.
std::string DescribeAlarm(const DriveVerdict& verdict);

// The verdict's text in a reply and in a notification; no device keeps it.
inline constexpr PropertyEntry kDriveVerdict{"DriveVerdict", "Drive Verdict", PropertyKind::String};

}  // namespace Morvu
