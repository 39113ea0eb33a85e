// The parts of SCSI sense data that tell refusals (SPC-4, 4.5), in both formats.
#pragma once

#include <cstdint>

#include "frame/Bytes.h"

namespace Morvu::DeviceManagement {

struct Sense {
  static constexpr std::uint8_t kFixed = 0x70;
  static constexpr std::uint8_t kDescriptor = 0x72;
  static constexpr std::uint8_t kIllegalRequest = 0x05;
  static constexpr std::uint8_t kNoSense = 0x00;
  static constexpr std::uint8_t kRecoveredError = 0x01;

  std::uint8_t format = 0;  // the response code, 0 when there is no sense
  std::uint8_t key = 0;
  std::uint8_t asc = 0;
  std::uint8_t ascq = 0;

  constexpr bool IsFixed() const { return format == 0x70 || format == 0x71; }
  constexpr bool IsDescriptor() const { return format == 0x72 || format == 0x73; }
  // The command did not do what it was sent for.
  constexpr bool TellsFailure() const {
    return (IsFixed() || IsDescriptor()) && key != kNoSense && key != kRecoveredError;
  }
  constexpr bool IsIllegalRequest(std::uint8_t code) const {
    return key == kIllegalRequest && asc == code && ascq == 0;
  }
};

constexpr Sense ReadSense(ByteView bytes) {
  Sense sense;
  sense.format = ReadByte(bytes, 0) & 0x7F;
  if (sense.IsDescriptor()) {
    sense.key = ReadByte(bytes, 1) & 0x0F;
    sense.asc = ReadByte(bytes, 2);
    sense.ascq = ReadByte(bytes, 3);
  } else if (sense.IsFixed()) {
    sense.key = ReadByte(bytes, 2) & 0x0F;
    sense.asc = ReadByte(bytes, 12);
    sense.ascq = ReadByte(bytes, 13);
  }
  return sense;
}

// Additional sense codes of a refusal by the SCSI layer itself (SPC-4, table 56).
inline constexpr std::uint8_t kInvalidOpcode = 0x20;
inline constexpr std::uint8_t kInvalidFieldInCdb = 0x24;

}  // namespace Morvu::DeviceManagement
