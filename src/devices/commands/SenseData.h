// SCSI sense data in both formats (SPC-4, 4.5), and the ATA registers that a translation
// layer puts there (SAT-3, 12.2.5 and 12.2.6).
#pragma once

#include <cstdint>
#include <optional>

#include "frame/Bytes.h"

namespace Morvu::DeviceManagement {

// Additional sense codes of a refusal by the SCSI layer itself (SPC-4, annex D).
inline constexpr std::uint8_t kInvalidOpcode = 0x20;
inline constexpr std::uint8_t kInvalidFieldInCdb = 0x24;
// Of a medium error, and of a transfer that failed between host and device.
inline constexpr std::uint8_t kUnrecoveredReadError = 0x11;
inline constexpr std::uint8_t kTransportParityError = 0x47;

// Sense keys (SPC-4, table 47).
namespace SenseKey {
inline constexpr std::uint8_t NoSense = 0x00;
inline constexpr std::uint8_t RecoveredError = 0x01;
inline constexpr std::uint8_t NotReady = 0x02;
inline constexpr std::uint8_t MediumError = 0x03;
inline constexpr std::uint8_t IllegalRequest = 0x05;
inline constexpr std::uint8_t UnitAttention = 0x06;
inline constexpr std::uint8_t AbortedCommand = 0x0B;
inline constexpr std::uint8_t Completed = 0x0F;
}  // namespace SenseKey

struct Sense {
  static constexpr std::uint8_t kFixed = 0x70;
  static constexpr std::uint8_t kDescriptor = 0x72;

  std::uint8_t format = 0;  // the response code, 0 when there is no sense
  std::uint8_t key = 0;
  std::uint8_t asc = 0;
  std::uint8_t ascq = 0;
  // INFORMATION, where it is valid: of a medium error the first address that failed.
  std::optional<std::uint64_t> information{};

  constexpr bool IsFixed() const { return format == 0x70 || format == 0x71; }
  constexpr bool IsDescriptor() const { return format == 0x72 || format == 0x73; }
  constexpr bool IsThere() const { return IsFixed() || IsDescriptor(); }
  // Tells of an earlier command; the one that it came with was not carried out.
  constexpr bool IsDeferred() const { return format == 0x71 || format == 0x73; }
  constexpr bool Is(std::uint8_t code, std::uint8_t qualifier = 0) const {
    return asc == code && ascq == qualifier;
  }
  // The command did not do what it was sent for.
  constexpr bool TellsFailure() const {
    return IsThere() &&
           (IsDeferred() || (key != SenseKey::NoSense && key != SenseKey::RecoveredError &&
                             key != SenseKey::Completed));
  }
  // LOGICAL UNIT NOT READY, SANITIZE IN PROGRESS.
  constexpr bool IsSanitizing() const {
    return IsThere() && key == SenseKey::NotReady && Is(0x04, 0x1B);
  }
  constexpr bool IsUnitAttention() const { return IsThere() && key == SenseKey::UnitAttention; }
  // The layer knows no such command, or not in this form: no device was asked.
  constexpr bool IsLayersRefusal() const {
    return IsThere() && key == SenseKey::IllegalRequest &&
           (Is(kInvalidOpcode) || Is(kInvalidFieldInCdb));
  }
};

// `bytes` are those that the system has written.
Sense ReadSense(ByteView bytes);

// The registers that an ATA device gave back, as far as the layer has told them. What
// is not known reads as 0.
struct AtaAnswer {
  static constexpr std::uint8_t kLow = 0x01;     // error, count 7:0, LBA 7:0, device, status
  static constexpr std::uint8_t kMiddle = 0x02;  // LBA 23:8
  static constexpr std::uint8_t kUpper = 0x04;   // count 15:8, LBA 47:24

  std::uint8_t known = 0;
  std::uint8_t error = 0;
  std::uint16_t count = 0;
  std::uint64_t lba = 0;
  std::uint8_t device = 0;
  std::uint8_t status = 0;

  constexpr bool Has(std::uint8_t parts) const { return (known & parts) == parts; }
};

// Error bits of a read (ACS-3, 6.3), and status bits (6.1).
namespace AtaError {
inline constexpr std::uint8_t Abort = 0x04;
inline constexpr std::uint8_t IdNotFound = 0x10;
inline constexpr std::uint8_t Uncorrectable = 0x40;
inline constexpr std::uint8_t InterfaceCrc = 0x80;
}  // namespace AtaError

namespace AtaStatus {
inline constexpr std::uint8_t Error = 0x01;
inline constexpr std::uint8_t DataRequest = 0x08;
inline constexpr std::uint8_t DeviceFault = 0x20;
inline constexpr std::uint8_t Busy = 0x80;
}  // namespace AtaStatus

// The registers in sense data; none are known where the sense holds none. `isExtended`
// is whether a 48-bit command was sent.
AtaAnswer ReadAtaRegisters(ByteView bytes, bool isExtended);

}  // namespace Morvu::DeviceManagement
