// A page of a device as a table: a row tells where a field stands, what it is called and
// how it is shown. A new page is such a table and no code:
//
//   constexpr PageField kSlots[] = {
//       {{0, 1, 0, 3}, "Active Firmware Slot", Form::Decimal},
//       {{8, 8},       "Firmware Rev Slot 1",  Form::Text},
//   };
//   AppendPage(page, kSlots, table);
#pragma once

#include <algorithm>
#include <concepts>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>

#include "frame/Bytes.h"

namespace Morvu {

class ResultTable;

// `width` bytes from `offset` on; or of these, as a little-endian number of at most 8
// bytes, `bits` bits from bit `low` on.
struct PagePlace {
  std::uint16_t offset;
  std::uint16_t width;
  std::uint8_t low = 0;
  std::uint8_t bits = 0;  // 0: all of them

  constexpr bool IsInside(ByteView page) const {
    return offset <= page.size() && width <= page.size() - offset;
  }
  constexpr ByteView BytesOf(ByteView page) const {
    return IsInside(page) ? page.subspan(offset, width) : ByteView();
  }
  constexpr unsigned CountBits() const { return bits != 0 ? bits : width * 8u; }
};

// The number at a place, of at most 8 bytes; 0 for what the page does not hold wholly.
template <std::unsigned_integral Number = std::uint64_t>
constexpr Number ReadField(ByteView page, const PagePlace& place) {
  auto value = ReadLittle(page, place.offset, place.width) >> place.low;
  if (place.bits != 0 && place.bits < 64) value &= (std::uint64_t{1} << place.bits) - 1;
  return static_cast<Number>(value);
}

// The sum of all bytes, modulo 256: 0 of an ATA sector that keeps a checksum in its last.
constexpr std::uint8_t SumOf(ByteView page) {
  unsigned sum = 0;
  for (const auto byte : page) sum += byte;
  return static_cast<std::uint8_t>(sum);
}

constexpr bool IsZero(ByteView bytes) {
  return std::ranges::all_of(bytes, [](auto byte) { return byte == 0; });
}

// How a field is shown. It is asked for fields that the page holds wholly only.
using PageForm = std::string (*)(ByteView page, const PagePlace& place);

struct PageField {
  PagePlace place;
  std::string_view label;
  PageForm form;
};

namespace Form {
std::string Decimal(ByteView page, const PagePlace& place);
std::string Signed(ByteView page, const PagePlace& place);  // two's complement
// Upper-case hexadecimal with all digits for which the field has room, and with none
// but those that count.
std::string Digits(ByteView page, const PagePlace& place);
std::string Hex(ByteView page, const PagePlace& place);
// The same behind "0x".
std::string PrefixedDigits(ByteView page, const PagePlace& place);
std::string PrefixedHex(ByteView page, const PagePlace& place);
// A number of 128 bits behind "0x", in two halves of 64: an upper half of 0 is one digit, and
// the lower one stands behind it as Hex shows it; behind any other it has all 16 digits.
std::string PrefixedHex128(ByteView page, const PagePlace& place);
// The digits of each 16-bit word, in their order.
std::string Words(ByteView page, const PagePlace& place);
// The bytes up to the first NUL, without blanks around them.
std::string Text(ByteView page, const PagePlace& place);
// The same as a foreign text (Printable).
std::string PrintableText(ByteView page, const PagePlace& place);
// The first, whose bytes are exchanged in pairs (ACS-3, 3.4.9).
std::string AtaText(ByteView page, const PagePlace& place);
// Nothing: the row is a title of those behind it.
std::string Title(ByteView page, const PagePlace& place);
}  // namespace Form

// The first column of a table of identify data: where the field stands.
enum class PagePosition {
  None,
  Byte,  // "4-23"
  Word,  // the same in 16-bit words
};
// Empty for a field of bits, which belongs to the row above it.
std::string ShowPosition(const PagePlace& place, PagePosition position);

// The field as text. Empty where the page ends before it does: not known is not 0.
std::string ShowField(ByteView page, const PageField& field);

// A row for each field: its label and its value, behind its position where that is
// asked for. In a table of words the label of a field of bits tells which they are:
// "    Bit 7:6 - Obsolete".
void AppendPage(ByteView page, std::span<const PageField> fields, ResultTable& table,
                PagePosition position = PagePosition::None);

}  // namespace Morvu
