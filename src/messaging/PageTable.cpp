#include "messaging/PageTable.h"

#include <vector>

#include "frame/Text.h"
#include "messaging/ResultTable.h"

namespace Morvu {
namespace Form {
namespace {

constexpr std::string_view kPrefix = "0x";

int CountDigits(const PagePlace& place) { return static_cast<int>((place.CountBits() + 3) / 4); }

}  // namespace

std::string Decimal(ByteView page, const PagePlace& place) {
  return std::to_string(ReadField(page, place));
}

std::string Signed(ByteView page, const PagePlace& place) {
  const auto unused = 64 - place.CountBits();
  return std::to_string(static_cast<std::int64_t>(ReadField(page, place) << unused) >> unused);
}

std::string Digits(ByteView page, const PagePlace& place) {
  return ToHexNumber(ReadField(page, place), CountDigits(place));
}

std::string Hex(ByteView page, const PagePlace& place) {
  return ToHexNumber(ReadField(page, place));
}

std::string PrefixedDigits(ByteView page, const PagePlace& place) {
  return std::string(kPrefix) + Digits(page, place);
}

std::string PrefixedHex(ByteView page, const PagePlace& place) {
  return std::string(kPrefix) + Hex(page, place);
}

std::string PrefixedHex128(ByteView page, const PagePlace& place) {
  const auto bytes = place.BytesOf(page);
  const auto upper = ReadLittle64(bytes, 8);
  return std::string(kPrefix) + ToHexNumber(upper) +
         ToHexNumber(ReadLittle64(bytes, 0), upper == 0 ? 0 : 16);
}

std::string Words(ByteView page, const PagePlace& place) {
  const auto bytes = place.BytesOf(page);
  std::string digits;
  for (std::size_t i = 0; i + 1 < bytes.size(); i += 2) {
    digits += ToHexNumber(ReadLittle16(bytes, i), 4);
  }
  return digits;
}

std::string Text(ByteView page, const PagePlace& place) {
  return ReadText(page, place.offset, place.width);
}

std::string PrintableText(ByteView page, const PagePlace& place) {
  return Printable(Text(page, place));
}

std::string AtaText(ByteView page, const PagePlace& place) {
  const auto bytes = place.BytesOf(page);
  std::vector<std::uint8_t> copy(bytes.begin(), bytes.end());
  SwapBytePairs(copy);
  return ReadText(copy, 0, copy.size());
}

std::string Title(ByteView, const PagePlace&) { return {}; }

}  // namespace Form

std::string ShowPosition(const PagePlace& place, PagePosition position) {
  if (position == PagePosition::None || place.bits != 0 || place.width == 0) return {};
  const auto unit = position == PagePosition::Word ? 2u : 1u;
  const auto first = place.offset / unit;
  const auto last = (place.offset + place.width - 1u) / unit;
  auto text = std::to_string(first);
  return last == first ? text : text + "-" + std::to_string(last);
}

namespace {

std::string ShowLabel(const PageField& field, PagePosition position) {
  const auto& place = field.place;
  if (position != PagePosition::Word || place.bits == 0) return std::string(field.label);
  const auto high = std::to_string(place.low + place.bits - 1);
  const auto bits = place.bits == 1 ? high : high + ":" + std::to_string(place.low);
  return "    Bit " + bits + " - " + std::string(field.label);
}

}  // namespace

std::string ShowField(ByteView page, const PageField& field) {
  return field.place.IsInside(page) ? field.form(page, field.place) : std::string();
}

void AppendPage(ByteView page, std::span<const PageField> fields, ResultTable& table,
                PagePosition position) {
  for (const auto& field : fields) {
    std::vector<std::string> cells;
    if (position != PagePosition::None) cells.push_back(ShowPosition(field.place, position));
    cells.push_back(ShowLabel(field, position));
    cells.push_back(ShowField(page, field));
    table.AppendRow(cells);
  }
}

}  // namespace Morvu
