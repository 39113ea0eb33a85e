#include "devices/commands/SenseData.h"

#include <algorithm>

namespace Morvu::DeviceManagement {
namespace {

constexpr std::uint8_t kFormatMask = 0x7F;
constexpr std::uint8_t kValid = 0x80;           // INFORMATION holds what SPC-4 has there
constexpr std::uint8_t kAtaInformation = 0x1D;  // ATA PASS-THROUGH INFORMATION AVAILABLE

// A descriptor of this type and length (SPC-4, 4.5.2); empty when there is none.
ByteView FindDescriptor(ByteView bytes, std::uint8_t type, std::uint8_t length) {
  constexpr std::size_t kHeader = 8;
  const auto end = std::min<std::size_t>(bytes.size(), kHeader + ReadByte(bytes, 7));
  for (auto at = kHeader; at + 2 <= end; at += 2 + std::size_t{bytes[at + 1]}) {
    const bool isWhole = at + 2 + length <= end;
    if (bytes[at] == type && bytes[at + 1] == length && isWhole) {
      return bytes.subspan(at, std::size_t{2} + length);
    }
  }
  return {};
}

// The ATA Status Return descriptor (SAT-3, 12.2.6).
ByteView FindAtaDescriptor(ByteView bytes) { return FindDescriptor(bytes, 0x09, 12); }

std::optional<std::uint64_t> ReadInformation(ByteView bytes, bool isFixed) {
  const auto descriptor = isFixed ? ByteView() : FindDescriptor(bytes, 0x00, 10);
  if (isFixed ? (bytes[0] & kValid) == 0 : descriptor.empty() || (descriptor[2] & kValid) == 0) {
    return std::nullopt;
  }
  return isFixed ? ReadBig(bytes, 3, 4) : ReadBig(descriptor, 4, 8);
}

AtaAnswer ReadDescriptor(ByteView descriptor, bool isExtended) {
  AtaAnswer answer;
  if (descriptor.empty()) return answer;
  const auto byte = [&](std::size_t at) { return std::uint64_t{descriptor[at]}; };
  answer.known = AtaAnswer::kLow | AtaAnswer::kMiddle;
  answer.error = descriptor[3];
  answer.count = descriptor[5];
  answer.lba = byte(7) | byte(9) << 8 | byte(11) << 16;
  answer.device = descriptor[12];
  answer.status = descriptor[13];
  const bool tellsUpper = (descriptor[2] & 1) != 0;
  if (!tellsUpper || !isExtended) return answer;
  answer.known |= AtaAnswer::kUpper;
  answer.count = static_cast<std::uint16_t>(answer.count | descriptor[4] << 8);
  answer.lba |= byte(6) << 24 | byte(8) << 32 | byte(10) << 40;
  return answer;
}

// Fixed format (SAT-3, tables 150 and 151).
AtaAnswer ReadFixed(ByteView bytes, bool isExtended) {
  AtaAnswer answer;
  answer.known = AtaAnswer::kLow | AtaAnswer::kMiddle;
  answer.error = ReadByte(bytes, 3);
  answer.status = ReadByte(bytes, 4);
  answer.device = ReadByte(bytes, 5);
  answer.count = ReadByte(bytes, 6);
  answer.lba = ReadLittle(bytes, 9, 3);
  // Of the upper halves it is told only whether they are zero.
  constexpr std::uint8_t kExtend = 0x80, kCountUpper = 0x40, kLbaUpper = 0x20;
  const bool isZero = (ReadByte(bytes, 8) & (kExtend | kCountUpper | kLbaUpper)) == kExtend;
  if (isExtended && isZero) answer.known |= AtaAnswer::kUpper;
  return answer;
}

// Linux before 6.11 wrote the same fields from byte 8 on, and the sense ends behind 18
// bytes: LBA 23:8 is lost.
AtaAnswer ReadOldFixed(ByteView bytes) {
  AtaAnswer answer;
  answer.known = AtaAnswer::kLow;
  answer.error = ReadByte(bytes, 8);
  answer.status = ReadByte(bytes, 9);
  answer.device = ReadByte(bytes, 10);
  answer.count = ReadByte(bytes, 11);
  answer.lba = ReadByte(bytes, 17);
  return answer;
}

// Fixed format has no mark for registers: they stand only in the senses by which a
// layer reports them, and a medium error's INFORMATION looks the same otherwise.
bool MayHoldRegisters(ByteView bytes, const Sense& sense) {
  if (sense.key == SenseKey::NoSense || sense.key == SenseKey::RecoveredError) {
    return sense.Is(0x00, kAtaInformation);
  }
  if (sense.key == SenseKey::AbortedCommand) return sense.Is(0x00);
  const bool isError = sense.key == SenseKey::MediumError || sense.key == SenseKey::IllegalRequest;
  return isError && !sense.IsLayersRefusal() && (bytes[0] & kValid) == 0;
}

}  // namespace

Sense ReadSense(ByteView bytes) {
  Sense sense;
  sense.format = ReadByte(bytes, 0) & kFormatMask;
  if (sense.IsDescriptor()) {
    sense.key = ReadByte(bytes, 1) & 0x0F;
    sense.asc = ReadByte(bytes, 2);
    sense.ascq = ReadByte(bytes, 3);
  } else if (sense.IsFixed()) {
    sense.key = ReadByte(bytes, 2) & 0x0F;
    sense.asc = ReadByte(bytes, 12);
    sense.ascq = ReadByte(bytes, 13);
  }
  if (sense.IsThere()) sense.information = ReadInformation(bytes, sense.IsFixed());
  return sense;
}

AtaAnswer ReadAtaRegisters(ByteView bytes, bool isExtended) {
  const auto sense = ReadSense(bytes);
  if (sense.IsDeferred()) return {};
  if (sense.IsDescriptor()) return ReadDescriptor(FindAtaDescriptor(bytes), isExtended);
  if (!sense.IsFixed() || !MayHoldRegisters(bytes, sense)) return {};
  auto answer = ReadFixed(bytes, isExtended);
  if (answer.status == 0) answer = ReadOldFixed(bytes);
  if (answer.status == 0) return {};
  const bool needsError =
      sense.key == SenseKey::MediumError || sense.key == SenseKey::IllegalRequest;
  if (needsError && (answer.status & AtaStatus::Error) == 0) return {};
  return answer;
}

}  // namespace Morvu::DeviceManagement
