#include "devices/system/MountTable.h"

#include <algorithm>

#include "devices/system/KernelFiles.h"
#include "devices/system/SystemNodes.h"
#include "frame/Text.h"

namespace Morvu::DeviceManagement {
namespace {

// The fields of a line; behind the options stand some more, and "-" ends them.
enum Field : std::size_t { kId = 0, kDevice = 2, kPoint = 4, kOptions = 5, kFirstOptional = 6 };

bool IsOctal(char c) { return c >= '0' && c <= '7'; }

// A blank is written as \040, and so is whatever else would break a line.
std::string Unescape(std::string_view field) {
  std::string text;
  for (std::size_t i = 0; i < field.size(); ++i) {
    const bool escaped = field[i] == '\\' && i + 3 < field.size() && IsOctal(field[i + 1]) &&
                         IsOctal(field[i + 2]) && IsOctal(field[i + 3]);
    if (!escaped) {
      text += field[i];
      continue;
    }
    text += static_cast<char>((field[i + 1] - '0') * 64 + (field[i + 2] - '0') * 8 +
                              (field[i + 3] - '0'));
    i += 3;
  }
  return text;
}

std::optional<Mount> ParseLine(std::string_view line) {
  const auto fields = Split(line, ' ');
  if (fields.size() <= kFirstOptional) return {};
  const auto dash = std::find(fields.begin() + kFirstOptional, fields.end(), "-");
  if (fields.end() - dash < 3) return {};
  return Mount{fields[kId], fields[kDevice],   Unescape(fields[kPoint]),
               dash[1],     Unescape(dash[2]), fields[kOptions]};
}

}  // namespace

std::optional<MountTable> ParseMountTable(std::string_view text) {
  MountTable table;
  for (const auto& line : Split(text, '\n')) {
    if (line.empty()) continue;
    auto mount = ParseLine(line);
    if (!mount) return {};
    table.push_back(std::move(*mount));
  }
  return table;
}

std::optional<MountTable> ReadMountTable() {
  const auto text = ReadKernelFile("/proc/self/mountinfo");
  if (!text) return {};
  return ParseMountTable(*text);
}

std::optional<Mount> ReadMountOfHandle(int handle) {
  constexpr std::string_view kLabel = "mnt_id:";
  const auto info = ReadKernelFile("/proc/self/fdinfo/" + std::to_string(handle));
  const auto mounts = ReadMountTable();
  if (!info || !mounts) return {};
  for (const auto& line : Split(*info, '\n')) {
    if (!line.starts_with(kLabel)) continue;
    const auto found =
        std::ranges::find(*mounts, Trim(std::string_view(line).substr(kLabel.size())), &Mount::id);
    if (found != mounts->end()) return *found;
  }
  return {};
}

std::string ToText(const Mount& mount) {
  return mount.source + " on " + mount.point + " type " + mount.type + " (" + mount.options + ")";
}

bool IsMountOf(const Mount& mount, std::string_view node) {
  if (mount.source == node) return true;
  const auto number = ReadAttribute("/sys/class/block/" + std::string(GetNodeName(node)) + "/dev");
  return !number.empty() && number == mount.deviceNumber;
}

const Mount* FindMountPoint(const MountTable& table, std::string_view point) {
  const auto found = std::find_if(table.rbegin(), table.rend(),
                                  [&](const Mount& mount) { return mount.point == point; });
  return found == table.rend() ? nullptr : &*found;
}

const Mount* FindMountOf(const MountTable& table, std::string_view node) {
  const auto number = ReadAttribute("/sys/class/block/" + std::string(GetNodeName(node)) + "/dev");
  const auto found = std::ranges::find_if(table, [&](const Mount& mount) {
    return mount.source == node || (!number.empty() && mount.deviceNumber == number);
  });
  return found == table.end() ? nullptr : &*found;
}

}  // namespace Morvu::DeviceManagement
