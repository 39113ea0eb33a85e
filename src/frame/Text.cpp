#include "frame/Text.h"

#include <algorithm>
#include <charconv>
#include <ostream>

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

constexpr char ToLower(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c; }
constexpr bool IsSame(char left, char right) { return ToLower(left) == ToLower(right); }

std::size_t IFind(std::string_view text, std::string_view part, std::size_t from = 0) {
  if (from > text.size()) return std::string_view::npos;
  const auto begin = text.begin() + static_cast<std::ptrdiff_t>(from);
  const auto found = std::search(begin, text.end(), part.begin(), part.end(), IsSame);
  if (found == text.end() && !part.empty()) return std::string_view::npos;
  return static_cast<std::size_t>(found - text.begin());
}

struct Mark {
  std::size_t begin;
  std::size_t end;
  std::string_view name;
};

// The next complete mark: "<c:", a name, ">".
std::optional<Mark> FindMark(std::string_view text, std::size_t from) {
  constexpr std::string_view kNameCharacters =
      "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789_-";
  for (auto at = IFind(text, kOpen, from); at != text.npos; at = IFind(text, kOpen, at + 1)) {
    const auto name = at + kOpen.size();
    const auto end = text.find_first_not_of(kNameCharacters, name);
    if (end == text.npos) return std::nullopt;
    if (text[end] == '>') return Mark{at, end + 1, text.substr(name, end - name)};
  }
  return std::nullopt;
}

std::string WithoutTranslationMarks(std::string_view text) {
  std::string without;
  for (std::size_t at = 0;;) {
    const auto mark = IFind(text, kTranslate, at);
    without += text.substr(at, mark == text.npos ? mark : mark - at);
    if (mark == text.npos) return without;
    at = mark + kTranslate.size();
  }
}

template <typename Number>
std::optional<Number> ParseWhole(std::string_view text, int base) {
  Number number = 0;
  const auto* end = text.data() + text.size();
  const auto [stop, error] = std::from_chars(text.data(), end, number, base);
  if (error != std::errc() || stop != end) return std::nullopt;
  return number;
}

template <typename Number>
std::string PadDecimal(Number magnitude, bool negative, int width) {
  auto digits = std::to_string(magnitude);
  if (static_cast<int>(digits.size()) < width) digits.insert(0, width - digits.size(), '0');
  return negative ? "-" + digits : digits;
}

}  // namespace

std::vector<Stretch> SplitStretches(std::string_view text) {
  // Most texts have no mark, and a search that ignores case is slow.
  if (text.find('<') == text.npos || IFind(text, kClose) == text.npos) return {{{}, text}};
  std::vector<Stretch> stretches;
  const auto add = [&](std::string_view colour, std::size_t begin, std::size_t end) {
    if (end > begin) stretches.push_back({colour, text.substr(begin, end - begin)});
  };
  for (std::size_t at = 0;;) {
    const auto mark = FindMark(text, at);
    add({}, at, mark ? mark->begin : text.size());
    if (!mark) return stretches;
    const auto close = IFind(text, kClose, mark->end);
    add(mark->name, mark->end, std::min(close, text.size()));
    if (close == text.npos) return stretches;
    at = close + kClose.size();
  }
}

void WriteMarkedUp(std::ostream& out, std::string_view text) {
  const auto plain = WithoutTranslationMarks(text);
  for (const auto& stretch : SplitStretches(plain)) out << stretch.text;
}

void WriteColoured(std::ostream& out, std::string_view text) {
  const auto plain = WithoutTranslationMarks(text);
  for (const auto& [name, part] : SplitStretches(plain)) {
    const auto colour = std::ranges::find(kColours, name, &Colour::name);
    if (colour == std::end(kColours)) {
      out << part;
    } else {
      out << colour->sequence << part << kNormal;
    }
  }
}

std::string StripMarkup(std::string_view text) {
  std::string plain;
  plain.reserve(text.size());
  for (const auto& stretch : SplitStretches(text)) plain += stretch.text;
  return plain;
}

std::string Printable(std::string_view text) {
  std::string plain(text);
  for (auto& c : plain) {
    const auto byte = static_cast<unsigned char>(c);
    if (byte < ' ' || byte == 0x7F) c = ' ';
    if (byte > 0x7F) c = '?';
  }
  for (const auto mark : {kOpen, kClose, kTranslate}) {
    for (auto at = IFind(plain, mark); at != plain.npos; at = IFind(plain, mark, at)) {
      plain[mark == kTranslate ? at + mark.size() - 1 : at] = '?';
    }
  }
  return plain;
}

std::string GetColourName(std::string_view text) {
  const auto mark = FindMark(text, 0);
  return mark ? std::string(mark->name) : std::string();
}

bool IEquals(std::string_view left, std::string_view right) {
  return std::ranges::equal(left, right, IsSame);
}

bool IContains(std::string_view text, std::string_view part) {
  return IFind(text, part) != text.npos;
}

std::string ReplaceAll(std::string_view text, std::string_view from, std::string_view to) {
  if (from.empty()) return std::string(text);
  std::string replaced;
  for (std::size_t at = 0;;) {
    const auto found = text.find(from, at);
    replaced += text.substr(at, found == text.npos ? found : found - at);
    if (found == text.npos) return replaced;
    replaced += to;
    at = found + from.size();
  }
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

std::optional<std::uint64_t> ParseDecimal(std::string_view text) {
  return ParseWhole<std::uint64_t>(text, 10);
}

std::optional<std::int64_t> ParseSigned(std::string_view text) {
  return ParseWhole<std::int64_t>(text, 10);
}

std::optional<std::uint64_t> ParseHex(std::string_view text) {
  return ParseWhole<std::uint64_t>(text, 16);
}

std::optional<bool> ParseBool(std::string_view text) {
  if (text == "True" || text == "true" || text == "1") return true;
  if (text == "False" || text == "false" || text == "0") return false;
  return std::nullopt;
}

bool IsDecimal(std::string_view text) {
  const auto isDigit = [](char c) { return c >= '0' && c <= '9'; };
  return !text.empty() && std::ranges::all_of(text, isDigit);
}

std::string ReadableSize(std::int64_t bytes) {
  if (bytes < 0) return "Unknown";
  constexpr std::string_view kUnits[] = {"B", "KB", "MB", "GB", "TB"};
  auto value = static_cast<double>(bytes);
  std::size_t unit = 0;
  for (; value >= 1000 && unit + 1 < std::size(kUnits); ++unit) value /= 1000;
  char number[32];
  const auto end = std::to_chars(std::begin(number), std::end(number), value,
                                 std::chars_format::fixed, unit == 0 ? 0 : 2);
  return std::string(number, end.ptr) + " " + std::string(kUnits[unit]);
}

}  // namespace Morvu
