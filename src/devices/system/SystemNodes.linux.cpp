#include "devices/system/SystemNodes.h"

#include <algorithm>
#include <charconv>

namespace Morvu::DeviceManagement {
namespace {

constexpr std::string_view kNodeFolder = "/dev/";
constexpr std::string_view kNvmePrefix = "nvme";

bool IsDigit(char c) { return c >= '0' && c <= '9'; }

// Cuts a decimal number from the front of `text`.
std::optional<std::uint32_t> TakeNumber(std::string_view& text) {
  std::uint32_t number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (error != std::errc()) return {};
  text.remove_prefix(static_cast<std::size_t>(end - text.data()));
  return number;
}

}  // namespace

std::string_view GetNodeName(std::string_view devicePath) {
  return devicePath.substr(devicePath.rfind('/') + 1);
}

bool IsNodePath(std::string_view devicePath) {
  return devicePath.empty() || devicePath.starts_with('/');
}

bool IsShellWord(std::string_view text) {
  return !text.empty() && text.front() != '-' && std::ranges::all_of(text, [](char c) {
    return IsDigit(c) || (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') ||
           std::string_view("/._:+-").find(c) != std::string_view::npos;
  });
}

std::optional<NvmeNode> ParseNvmeNode(std::string_view path) {
  auto rest = path;
  for (const auto prefix : {kNodeFolder, kNvmePrefix}) {
    if (!rest.starts_with(prefix)) return {};
    rest.remove_prefix(prefix.size());
  }
  if (!TakeNumber(rest)) return {};
  NvmeNode node{std::string(path.substr(0, path.size() - rest.size())), {}};
  if (rest.empty()) return node;
  if (rest.front() != 'n') return {};
  rest.remove_prefix(1);
  node.space = TakeNumber(rest);
  if (!node.space || *node.space == 0 || !rest.empty()) return {};
  return node;
}

bool IsGenericName(std::string_view name) {
  constexpr std::string_view kPrefix = "sg";
  if (!name.starts_with(kPrefix) || name.size() == kPrefix.size()) return false;
  return std::ranges::all_of(name.substr(kPrefix.size()), IsDigit);
}

}  // namespace Morvu::DeviceManagement
