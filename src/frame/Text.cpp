#include "frame/Text.h"

#include <algorithm>
#include <array>
#include <boost/algorithm/string.hpp>
#include <charconv>
#include <cstdio>
#include <ostream>
#include <sstream>

namespace Morvu {
namespace {

constexpr std::string_view kOpen = "<c:";
constexpr std::string_view kClose = "</c>";
constexpr std::string_view kTranslate = "TRANS_";
constexpr std::string_view kHexDigits = "0123456789ABCDEF";

struct Colour {
  std::string_view name;
  std::string_view sequence;
};

// The terminal's sequences (ECMA-48, SGR), by colour name.
constexpr Colour kColours[] = {
    {"BLACK", "\x1b[30m"},
    {"BLUE", "\x1b[34m"},
    {"GREEN", "\x1b[32m"},
    {"CYAN", "\x1b[36m"},
    {"RED", "\x1b[31m"},
    {"MAGENTA", "\x1b[35m"},
    {"BROWN", "\x1b[33m"},
    {"LIGHTGRAY", "\x1b[37m"},
    {"DARKGRAY", "\x1b[1m\x1b[30m"},
    {"LIGHTBLUE", "\x1b[1m\x1b[34m"},
    {"LIGHTGREEN", "\x1b[1m\x1b[32m"},
    {"LIGHTCYAN", "\x1b[1m\x1b[36m"},
    {"LIGHTRED", "\x1b[1m\x1b[31m"},
    {"LIGHTMAGENTA", "\x1b[1m\x1b[35m"},
    {"YELLOW", "\x1b[1m\x1b[33m"},
    {"WHITE", "\x1b[1m\x1b[30m"},
};
constexpr std::string_view kNormal = "\x1b[0m";

std::size_t IFind(std::string_view text, std::string_view part, std::size_t from = 0) {
  if (from > text.size()) return std::string_view::npos;
  const auto rest = text.substr(from);
  const auto found = boost::ifind_first(rest, part);
  if (found.empty() && !part.empty()) return std::string_view::npos;
  return from + static_cast<std::size_t>(found.begin() - rest.begin());
}

// Calls `write(name, stretch)` for each stretch of the text; `name` is empty for
// plain text. A text without a complete mark is one plain stretch.
template <typename Write>
void ForEachStretch(std::string_view text, Write write) {
  constexpr auto npos = std::string_view::npos;
  // Most texts have no mark, and a search that ignores case is slow.
  if (text.find('<') == npos || IFind(text, kOpen) == npos || IFind(text, kClose) == npos) {
    write(std::string_view(), text);
    return;
  }
  std::size_t at = 0;
  while (at < text.size()) {
    const auto open = IFind(text, kOpen, at);
    write(std::string_view(), text.substr(at, open == npos ? npos : open - at));
    if (open == npos) return;
    const auto nameEnd = text.find('>', open);
    if (nameEnd == npos) return;
    const auto name = text.substr(open + kOpen.size(), nameEnd - open - kOpen.size());
    const auto close = IFind(text, kClose, nameEnd + 1);
    write(name, text.substr(nameEnd + 1, close == npos ? npos : close - nameEnd - 1));
    if (close == npos) return;
    at = close + kClose.size();
  }
}

std::string WithoutTranslationMarks(std::string_view text) {
  return boost::ierase_all_copy(std::string(text), kTranslate);
}

template <typename Number>
std::string PadDecimal(Number magnitude, bool negative, int width) {
  auto digits = std::to_string(magnitude);
  if (static_cast<int>(digits.size()) < width) digits.insert(0, width - digits.size(), '0');
  return negative ? "-" + digits : digits;
}

}  // namespace

void WriteMarkedUp(std::ostream& out, std::string_view text) {
  ForEachStretch(WithoutTranslationMarks(text),
                 [&](std::string_view, std::string_view stretch) { out << stretch; });
}

void WriteColoured(std::ostream& out, std::string_view text) {
  ForEachStretch(WithoutTranslationMarks(text), [&](std::string_view name, std::string_view part) {
    const auto colour = std::ranges::find(kColours, name, &Colour::name);
    if (colour == std::end(kColours)) {
      out << part;
    } else {
      out << colour->sequence << part << kNormal;
    }
  });
}

std::string StripMarkup(std::string_view text) {
  std::string plain;
  plain.reserve(text.size());
  ForEachStretch(text, [&](std::string_view, std::string_view stretch) { plain += stretch; });
  return plain;
}

std::string GetColourName(std::string_view text) {
  const auto open = IFind(text, kOpen);
  if (open == std::string_view::npos) return {};
  const auto end = text.find('>', open);
  if (end == std::string_view::npos) return {};
  return std::string(text.substr(open + kOpen.size(), end - open - kOpen.size()));
}

bool IEquals(std::string_view left, std::string_view right) { return boost::iequals(left, right); }

bool IContains(std::string_view text, std::string_view part) {
  return boost::icontains(text, part);
}

std::string ReplaceAll(std::string_view text, std::string_view from, std::string_view to) {
  if (from.empty()) return std::string(text);
  return boost::replace_all_copy(std::string(text), from, to);
}

std::string Trim(std::string_view text) {
  constexpr std::string_view kBlanks = " \t\r\n\v\f";
  const auto first = text.find_first_not_of(kBlanks);
  if (first == text.npos) return {};
  return std::string(text.substr(first, text.find_last_not_of(kBlanks) - first + 1));
}

std::string ToUpper(std::string_view text) {
  std::string upper(text);
  for (char& c : upper) {
    if (c >= 'a' && c <= 'z') c = static_cast<char>(c - 'a' + 'A');
  }
  return upper;
}

std::vector<std::string> Split(std::string_view text, char separator) {
  std::vector<std::string> pieces;
  for (std::size_t at = 0;;) {
    const auto end = text.find(separator, at);
    pieces.emplace_back(text.substr(at, end == text.npos ? end : end - at));
    if (end == text.npos) return pieces;
    at = end + 1;
  }
}

std::string Join(std::span<const std::string> pieces, std::string_view separator) {
  std::string joined;
  for (std::size_t i = 0; i < pieces.size(); ++i) {
    if (i != 0) joined += separator;
    joined += pieces[i];
  }
  return joined;
}

std::string ToHex(std::span<const std::uint8_t> bytes) {
  std::string text;
  text.reserve(bytes.size() * 2);
  for (const auto byte : bytes) {
    text += kHexDigits[byte >> 4];
    text += kHexDigits[byte & 0x0F];
  }
  return text;
}

std::string ToHexNumber(std::uint64_t value, int width) {
  std::string digits;
  do {
    digits.insert(digits.begin(), kHexDigits[value & 0x0F]);
    value >>= 4;
  } while (value != 0);
  if (static_cast<int>(digits.size()) < width) digits.insert(0, width - digits.size(), '0');
  return digits;
}

std::string ToDecimalText(std::int64_t value, int width) {
  const auto magnitude = static_cast<std::uint64_t>(value);
  return PadDecimal(value < 0 ? 0 - magnitude : magnitude, value < 0, width);
}

std::string ToDecimalText(std::uint64_t value, int width) {
  return PadDecimal(value, false, width);
}

std::uint64_t ParseDecimal(std::string_view text) {
  // A stream reads as the wire's numbers are read: blanks before it, a sign, and
  // whatever stands behind it.
  std::istringstream in{std::string(text)};
  in.imbue(std::locale::classic());
  std::uint64_t value = 0;
  return in >> value ? value : 0;
}

std::uint64_t ParseHex(std::string_view text) {
  std::istringstream in{std::string(text)};
  in.imbue(std::locale::classic());
  std::uint64_t value = 0;
  return in >> std::hex >> value ? value : 0;
}

bool IsDecimal(std::string_view text) {
  return std::ranges::all_of(text, [](char c) { return c >= '0' && c <= '9'; });
}

std::string ReadableSize(std::int64_t bytes) {
  if (bytes < 0) return "Unknown";
  constexpr std::string_view kUnits[] = {"B", "KB", "MB", "GB", "TB"};
  auto value = static_cast<double>(bytes);
  std::size_t unit = 0;
  for (; value >= 1000 && unit + 1 < std::size(kUnits); ++unit) value /= 1000;
  char number[32];
  std::snprintf(number, sizeof number, "%.*f", unit == 0 ? 0 : 2, value);
  return std::string(number) + " " + std::string(kUnits[unit]);
}

}  // namespace Morvu
