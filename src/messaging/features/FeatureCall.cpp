#include "messaging/features/FeatureCall.h"

#include <algorithm>
#include <charconv>

#include "frame/Text.h"

namespace Morvu {

// The last one of a name counts.
void CallArguments::Set(std::string_view name, std::string_view text) {
  const auto found =
      std::ranges::find(arguments_, name, &std::pair<std::string, std::string>::first);
  if (found == arguments_.end()) {
    arguments_.emplace_back(name, text);
  } else {
    found->second = text;
  }
}

const std::string* CallArguments::Find(std::string_view name) const {
  const auto found =
      std::ranges::find(arguments_, name, &std::pair<std::string, std::string>::first);
  return found == arguments_.end() ? nullptr : &found->second;
}

std::string CallArguments::GetText(std::string_view name, std::string_view missing) const {
  const auto* text = Find(name);
  return text == nullptr ? std::string(missing) : *text;
}

bool CallArguments::GetFlag(std::string_view name) const {
  const auto* text = Find(name);
  return text != nullptr && *text == BoolText(true);
}

std::optional<std::uint64_t> CallArguments::GetNumber(std::string_view name,
                                                      std::uint64_t largest) const {
  const auto* text = Find(name);
  if (text == nullptr) return 0;
  if (text->empty() || !IsDecimal(*text)) return std::nullopt;
  std::uint64_t number = 0;
  const auto parsed = std::from_chars(text->data(), text->data() + text->size(), number);
  return parsed.ec == std::errc() ? std::min(number, largest) : largest;
}

}  // namespace Morvu
