#include "cli/NearestOption.h"

#include <algorithm>
#include <array>
#include <cstdint>

#include "frame/Text.h"

namespace Morvu {
namespace {

constexpr std::size_t kLongest = 40;
// A word of as many letters may have a slip.
constexpr std::size_t kLettersASlip = 3;

// The least number of slips between two words of at most kLongest letters (Damerau and
// Levenshtein's distance, where no place is changed twice).
std::size_t CountSlips(std::string_view from, std::string_view to) {
  std::array<std::array<std::uint8_t, kLongest + 1>, kLongest + 1> table{};
  auto* const slips = table.data();
  for (std::size_t i = 0; i <= from.size(); ++i) {
    for (std::size_t j = 0; j <= to.size(); ++j) {
      auto least = i + j;
      if (i > 0 && j > 0) {
        const std::size_t other = from[i - 1] == to[j - 1] ? 0 : 1;
        least = std::min<std::size_t>(slips[i - 1][j], slips[i][j - 1]) + 1;
        least = std::min(least, slips[i - 1][j - 1] + other);
        const bool areTurned =
            i > 1 && j > 1 && from[i - 1] == to[j - 2] && from[i - 2] == to[j - 1];
        if (areTurned) least = std::min<std::size_t>(least, slips[i - 2][j - 2] + 1U);
      }
      slips[i][j] = static_cast<std::uint8_t>(least);
    }
  }
  return slips[from.size()][to.size()];
}

}  // namespace

std::string FindNearestOption(std::string_view word,
                              std::span<const std::unique_ptr<CLIParameter>> options) {
  std::string nearest;
  if (word.size() > kLongest) return nearest;
  const auto told = ToUpper(word);
  auto fewest = word.size() / kLettersASlip + 1;
  for (const auto& option : options) {
    const auto& name = option->GetName();
    const auto longer = std::max(name.size(), word.size());
    const auto shorter = std::min(name.size(), word.size());
    if (option->IsHidden() || !option->IsSupported() || name.size() > kLongest ||
        longer - shorter >= fewest) {
      continue;
    }
    const auto slips = CountSlips(told, ToUpper(name));
    if (slips >= fewest) continue;
    fewest = slips;
    nearest = name;
  }
  return nearest;
}

}  // namespace Morvu
