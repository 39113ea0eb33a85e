// Named access to little- and big-endian fields of a record, and to the
// space-padded texts of the ATA, NVMe and SCSI standards.
#pragma once

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>

namespace Simulator {

template <typename T>
T GetLittle(const std::uint8_t* at) {
  T value = 0;
  for (std::size_t i = 0; i < sizeof(T); ++i) {
    value = static_cast<T>(value | static_cast<T>(static_cast<T>(at[i]) << (8 * i)));
  }
  return value;
}

template <typename T>
void PutLittle(std::uint8_t* at, T value) {
  for (std::size_t i = 0; i < sizeof(T); ++i) at[i] = static_cast<std::uint8_t>(value >> (8 * i));
}

// A big-endian field of `width` bytes, at most 8.
inline std::uint64_t GetBig(const std::uint8_t* at, std::size_t width) {
  std::uint64_t value = 0;
  for (std::size_t i = 0; i < width; ++i) value = value << 8 | at[i];
  return value;
}

inline void PutBig(std::uint8_t* at, std::size_t width, std::uint64_t value) {
  for (std::size_t i = 0; i < width; ++i) {
    at[i] = static_cast<std::uint8_t>(value >> (8 * (width - 1 - i)));
  }
}

// Left-aligned, padded with blanks, cut to `width`.
inline void PutText(std::uint8_t* at, std::size_t width, std::string_view text) {
  std::memset(at, ' ', width);
  std::memcpy(at, text.data(), std::min(width, text.size()));
}

// A fixed text field without its padding of blanks and zeros.
inline std::string GetText(const char* at, std::size_t width) {
  std::string_view text(at, strnlen(at, width));
  while (!text.empty() && text.back() == ' ') text.remove_suffix(1);
  return std::string(text);
}

template <std::size_t Size>
std::string GetText(const char (&field)[Size]) {
  return GetText(field, Size);
}

// Cut to what fits, always ended by a zero.
template <std::size_t Size>
void SetText(char (&field)[Size], std::string_view text) {
  std::memset(field, 0, Size);
  std::memcpy(field, text.data(), std::min(Size - 1, text.size()));
}

}  // namespace Simulator
