// Patterns of serial numbers: the small part of regular expressions that the tables use. A full
// engine keeps a cache that the end of a host's process destroys under a scan that still runs.
#pragma once

#include <cstddef>
#include <string_view>

namespace Morvu::DeviceManagement {

// One place of a pattern: a character, "." for any, or "[...]" with characters and ranges.
constexpr std::string_view FirstPlace(std::string_view pattern) {
  if (!pattern.starts_with('[')) return pattern.substr(0, 1);
  return pattern.substr(0, pattern.find(']', 1) + 1);  // empty without the bracket's end
}

constexpr bool MatchesPlace(std::string_view place, char c) {
  if (!place.starts_with('[')) return place == "." || place[0] == c;
  const auto set = place.substr(1, place.size() - 2);
  for (std::size_t i = 0; i < set.size(); ++i) {
    const bool isRange = i + 2 < set.size() && set[i + 1] == '-';
    if (isRange ? set[i] <= c && c <= set[i + 2] : set[i] == c) return true;
    if (isRange) i += 2;
  }
  return false;
}

// ".*" stands at a pattern's end only.
inline constexpr std::string_view kAnyRest = ".*";

constexpr bool IsSerialPattern(std::string_view pattern) {
  if (pattern.ends_with(kAnyRest)) pattern.remove_suffix(kAnyRest.size());
  while (!pattern.empty()) {
    const auto place = FirstPlace(pattern);
    const bool isCharacter =
        place.size() == 1 && place.find_first_of("[]*+?(){}|^$\\") == place.npos;
    if (!isCharacter && place.size() < 3) return false;
    pattern.remove_prefix(place.size());
  }
  return true;
}

// Whether the whole text is as the pattern says, which must be one.
constexpr bool MatchesSerialPattern(std::string_view pattern, std::string_view text) {
  while (!pattern.empty()) {
    if (pattern == kAnyRest) return true;
    const auto place = FirstPlace(pattern);
    if (text.empty() || !MatchesPlace(place, text.front())) return false;
    pattern.remove_prefix(place.size());
    text.remove_prefix(1);
  }
  return text.empty();
}

static_assert(MatchesSerialPattern("..A[GHJ].[A-F].*", "xyAJ0C") &&
              MatchesSerialPattern("..A[GHJ].[A-F].*", "xyAH0Frest") &&
              !MatchesSerialPattern("..A[GHJ].[A-F].*", "xyAH0Grest") &&
              !MatchesSerialPattern("..A[GHJ].[A-F].*", "xyAI0Frest") &&
              !MatchesSerialPattern("..A[GHJ].[A-F].*", "xyAH0") &&
              !MatchesSerialPattern("..A[GHJ]", "xyAHx"));
static_assert(!IsSerialPattern("A[BC") && !IsSerialPattern("A*B") && !IsSerialPattern("(A)") &&
              !IsSerialPattern("A[]"));

}  // namespace Morvu::DeviceManagement
