#include "Options.h"

#include <algorithm>
#include <charconv>

namespace Simdrives {

namespace {

bool Holds(const std::vector<std::string_view>& names, std::string_view name) {
  return std::ranges::find(names, name) != names.end();
}

bool Parse(std::string_view text, int base, std::uint64_t& value) {
  const auto* end = text.data() + text.size();
  const auto parsed = std::from_chars(text.data(), end, value, base);
  return parsed.ec == std::errc() && parsed.ptr == end && !text.empty();
}

}  // namespace

Options::Options(const std::vector<std::string>& arguments,
                 const std::vector<std::string_view>& flags,
                 const std::vector<std::string_view>& values) {
  for (std::size_t i = 0; i < arguments.size(); ++i) {
    const auto& argument = arguments[i];
    if (!argument.starts_with("--")) {
      words_.push_back(argument);
      continue;
    }
    if (Holds(flags, argument)) {
      values_[argument] = "";
      continue;
    }
    if (!Holds(values, argument)) throw UsageError("unknown option " + argument);
    if (++i == arguments.size()) throw UsageError(argument + " needs a value");
    values_[argument] = arguments[i];
  }
}

void Options::NeedWords(std::size_t least, std::size_t most, std::string_view form) const {
  if (words_.size() >= least && words_.size() <= most) return;
  throw UsageError("usage: morvu-simdrives " + std::string(form));
}

std::string Options::Text(const std::string& name, std::string fallback) const {
  const auto found = values_.find(name);
  return found == values_.end() ? fallback : found->second;
}

std::uint64_t Options::Number(const std::string& name, std::uint64_t fallback) const {
  return Has(name) ? ToNumber(Text(name), UINT64_MAX, name) : fallback;
}

std::uint8_t Options::HexByte(const std::string& name) const { return ToHexByte(Text(name)); }

std::uint64_t ToNumber(const std::string& text, std::uint64_t most, std::string_view what) {
  std::uint64_t value = 0;
  const bool hex = text.starts_with("0x") || text.starts_with("0X");
  const bool parsed =
      hex ? Parse(std::string_view(text).substr(2), 16, value) : Parse(text, 10, value);
  if (!parsed) throw UsageError(std::string(what) + " needs a number, not \"" + text + "\"");
  if (value > most) throw UsageError(std::string(what) + " is at most " + std::to_string(most));
  return value;
}

std::uint64_t ToBytes(const std::string& text) {
  static constexpr std::string_view kUnits = "KMGT";
  const auto unit = text.empty() ? kUnits.npos : kUnits.find(text.back());
  const auto digits = unit == kUnits.npos ? text : text.substr(0, text.size() - 1);
  const auto value = ToNumber(digits, std::uint64_t{1} << 52, "a size");
  const auto shift = unit == kUnits.npos ? 0 : 10 * (unit + 1);
  if (value > (std::uint64_t{1} << 52) >> shift)
    throw UsageError("the size " + text + " is too large");
  return value << shift;
}

std::uint8_t ToHexByte(const std::string& text) {
  std::string_view digits = text;
  if (digits.starts_with("0x") || digits.starts_with("0X")) digits.remove_prefix(2);
  std::uint64_t value = 0;
  if (!Parse(digits, 16, value) || value > 0xFF) {
    throw UsageError("\"" + text + "\" is not a byte of two hexadecimal digits");
  }
  return static_cast<std::uint8_t>(value);
}

}  // namespace Simdrives
