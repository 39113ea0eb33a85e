// Numbers and texts in device data. Every read is checked against the bytes that
// are there: what lies behind the end reads as 0, and a write there does nothing.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>

namespace Morvu {

using ByteView = std::span<const std::uint8_t>;
using ByteSpan = std::span<std::uint8_t>;

// A number of `width` bytes (1 to 8) at `offset`; 0 when it is not wholly inside.
constexpr std::uint64_t ReadLittle(ByteView bytes, std::size_t offset, std::size_t width) {
  if (offset > bytes.size() || width > bytes.size() - offset) return 0;
  std::uint64_t value = 0;
  for (std::size_t i = width; i-- > 0;) value = value << 8 | bytes[offset + i];
  return value;
}

constexpr std::uint64_t ReadBig(ByteView bytes, std::size_t offset, std::size_t width) {
  if (offset > bytes.size() || width > bytes.size() - offset) return 0;
  std::uint64_t value = 0;
  for (std::size_t i = 0; i < width; ++i) value = value << 8 | bytes[offset + i];
  return value;
}

constexpr std::uint8_t ReadByte(ByteView bytes, std::size_t offset) {
  return offset < bytes.size() ? bytes[offset] : 0;
}
constexpr std::uint16_t ReadLittle16(ByteView bytes, std::size_t offset) {
  return static_cast<std::uint16_t>(ReadLittle(bytes, offset, 2));
}
constexpr std::uint32_t ReadLittle32(ByteView bytes, std::size_t offset) {
  return static_cast<std::uint32_t>(ReadLittle(bytes, offset, 4));
}
constexpr std::uint64_t ReadLittle64(ByteView bytes, std::size_t offset) {
  return ReadLittle(bytes, offset, 8);
}

constexpr void WriteLittle(std::uint64_t value, std::size_t offset, std::size_t width,
                           ByteSpan bytes) {
  if (offset > bytes.size() || width > bytes.size() - offset) return;
  for (std::size_t i = 0; i < width; ++i, value >>= 8) {
    bytes[offset + i] = static_cast<std::uint8_t>(value);
  }
}

constexpr void WriteBig(std::uint64_t value, std::size_t offset, std::size_t width,
                        ByteSpan bytes) {
  if (offset > bytes.size() || width > bytes.size() - offset) return;
  for (std::size_t i = width; i-- > 0; value >>= 8) {
    bytes[offset + i] = static_cast<std::uint8_t>(value);
  }
}

constexpr void WriteLittle16(std::uint16_t value, std::size_t offset, ByteSpan bytes) {
  WriteLittle(value, offset, 2, bytes);
}
constexpr void WriteLittle32(std::uint32_t value, std::size_t offset, ByteSpan bytes) {
  WriteLittle(value, offset, 4, bytes);
}
constexpr void WriteLittle64(std::uint64_t value, std::size_t offset, ByteSpan bytes) {
  WriteLittle(value, offset, 8, bytes);
}

constexpr std::uint32_t SwapEndian32(std::uint32_t value) { return __builtin_bswap32(value); }
constexpr std::uint64_t SwapEndian64(std::uint64_t value) { return __builtin_bswap64(value); }

// Puts the bytes of an ATA identify string into reading order (ACS-3, 3.4.9), in
// place. A byte outside 21h to 7Ah becomes a blank; an odd last byte stays.
void SwapBytePairs(ByteSpan bytes);

// The field's bytes as a text, up to its first NUL, without blanks around it.
std::string ReadText(ByteView bytes, std::size_t offset, std::size_t length);

}  // namespace Morvu
