#include "devices/system/SystemNodes.h"

#include <algorithm>
#include <charconv>

#include "frame/Platform.h"
#include "frame/Text.h"

namespace Morvu::DeviceManagement {
namespace {

constexpr std::string_view kDevFolder = "/dev/";
constexpr std::string_view kNvmePrefix = "nvme";
// What a grep pattern of ours takes for the characters of a path in /sys.
constexpr std::string_view kAnyPath = "[[:alnum:][:punct:]]*";

bool IsDigit(char c) { return c >= '0' && c <= '9'; }

// Cuts a decimal number from the front of `text`.
std::optional<std::uint32_t> TakeNumber(std::string_view& text) {
  std::uint32_t number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (error != std::errc()) return {};
  text.remove_prefix(static_cast<std::size_t>(end - text.data()));
  return number;
}

// The directory of a SCSI device in /sys, with "/" behind it, by its generic node.
std::string FindSysfsFolder(std::string_view name) {
  const auto node = "/" + std::string(name);
  const auto lines = RunPipeline("ls -l /sys/class/scsi_generic | grep -o \"\\.\\./\\.\\./" +
                                 std::string(kAnyPath) + node + "$\"");
  if (lines.size() != 1) return {};
  const std::string_view path = lines.front();
  const auto level = path.rfind('/', path.size() - node.size() - 1);
  return level == path.npos ? std::string() : std::string(path.substr(0, level + 1));
}

std::vector<std::string> ListScsiPartitions(std::string_view name) {
  const auto folder = FindSysfsFolder(name);
  if (!IsShellWord(folder)) return {};
  return RunPipeline("ls -l /sys/class/block | grep -o \"" + folder +
                     "block/sd[[:alpha:]]\\+/sd[[:alpha:]]\\+[[:digit:]]\\+$\" | "
                     "grep -o \"sd[[:alpha:]]\\+[[:digit:]]\\+$\"");
}

std::vector<std::string> ListNvmePartitions(const std::string& path, const NvmeNode& node) {
  const auto name = std::string(GetNodeName(path)) + (node.space ? "" : "n[[:digit:]]\\+");
  return RunPipeline("ls -l " + path + "* 2>/dev/null | grep -o \"" + name + "p[[:digit:]]\\+$\"");
}

}  // namespace

std::string_view GetNodeName(std::string_view devicePath) {
  return devicePath.substr(devicePath.rfind('/') + 1);
}

bool IsShellWord(std::string_view text) {
  return !text.empty() && text.front() != '-' && std::ranges::all_of(text, [](char c) {
    return IsDigit(c) || (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') ||
           std::string_view("/._:+-").find(c) != std::string_view::npos;
  });
}

std::optional<NvmeNode> ParseNvmeNode(std::string_view path) {
  auto rest = path;
  for (const auto prefix : {kDevFolder, kNvmePrefix}) {
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

std::vector<std::string> ListGenericNodes() {
  std::vector<std::string> names;
  for (auto& line : RunPipeline("ls -l /dev/sg* 2>/dev/null | grep -E -o \"/sg[[:digit:]]+$\"")) {
    names.push_back(line.substr(1));
  }
  return names;
}

std::vector<std::string> ListNvmeNodes() {
  auto lines = RunPipeline("ls /dev/n* 2>/dev/null");
  std::erase_if(lines, [](const auto& line) { return line.find(kNvmePrefix) == line.npos; });
  return lines;
}

std::vector<std::string> ListPartitions(std::string_view devicePath) {
  const auto name = GetNodeName(devicePath);
  if (name.size() < 3 || !IsShellWord(devicePath)) return {};
  if (const auto node = ParseNvmeNode(devicePath)) {
    return ListNvmePartitions(std::string(devicePath), *node);
  }
  return ListScsiPartitions(name);
}

std::vector<std::string> RunPipeline(const std::string& command) {
  std::vector<std::string> lines;
  if (!RunCommand(command, lines)) lines.clear();
  return lines;
}

}  // namespace Morvu::DeviceManagement
