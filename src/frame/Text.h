// Texts: colour mark-up, numbers and comparisons.
#pragma once

#include <cstddef>
#include <cstdint>
#include <iosfwd>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace Morvu {

// Colour mark-up is <c:NAME>text</c>, several times in a text; "TRANS_" stands
// before a word that a translation could replace. A text without a complete mark and
// an end of one has no mark-up; what only looks like a mark is text.

// A piece of a text: `colour` is the NAME around it, empty for plain text.
struct Stretch {
  std::string_view colour;
  std::string_view text;
};
// The stretches of the text in order. They point into it.
std::vector<Stretch> SplitStretches(std::string_view text);

// Writes the text without marks and without "TRANS_".
void WriteMarkedUp(std::ostream& out, std::string_view text);
// The same, with the terminal's colour sequences in place of the marks.
void WriteColoured(std::ostream& out, std::string_view text);
// The text without colour marks.
std::string StripMarkup(std::string_view text);
// The NAME of the first mark, or empty.
std::string GetColourName(std::string_view text);

// A foreign text, as a drive's own words, on one line that colours nothing and steers no
// terminal: control characters are blanks, and what is no ASCII, or would read as a mark, is "?".
std::string Printable(std::string_view text);

// Comparisons that ignore the case of ASCII letters, whatever the host's locale.
bool IEquals(std::string_view left, std::string_view right);
bool IContains(std::string_view text, std::string_view part);

std::string ReplaceAll(std::string_view text, std::string_view from, std::string_view to);
std::string Trim(std::string_view text);
std::string ToUpper(std::string_view text);
// The pieces between separators; always at least one.
std::vector<std::string> Split(std::string_view text, char separator);
std::string Join(std::span<const std::string> pieces, std::string_view separator);

// Two upper-case hexadecimal digits a byte.
std::string ToHex(std::span<const std::uint8_t> bytes);
// Upper-case hexadecimal with leading zeros up to `width`.
std::string ToHexNumber(std::uint64_t value, int width = 0);
// Decimal with leading zeros up to `width` digits; a minus sign comes before them.
std::string ToDecimalText(std::int64_t value, int width = 0);
std::string ToDecimalText(std::uint64_t value, int width = 0);

// The number that the whole text writes, without a blank or a plus sign; none for any
// other text, and for a number that the type does not hold.
std::optional<std::uint64_t> ParseDecimal(std::string_view text);
std::optional<std::int64_t> ParseSigned(std::string_view text);
std::optional<std::uint64_t> ParseHex(std::string_view text);  // without "0x"
// Digits and nothing else, at least one, however many: a number that may be too large.
bool IsDecimal(std::string_view text);

// "447.13 GB": decimal units, two places; "Unknown" for a negative size.
std::string ReadableSize(std::int64_t bytes);

inline std::string BoolText(bool value) { return value ? "True" : "False"; }
// The booleans that hosts write: "True", "true", "1", and their opposites; none for any other text.
std::optional<bool> ParseBool(std::string_view text);

}  // namespace Morvu
