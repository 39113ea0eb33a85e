#include "devices/system/DiskAttributes.h"

#include "devices/system/KernelFiles.h"
#include "devices/system/SystemFacts.h"
#include "frame/Text.h"

namespace Morvu::DeviceManagement {
namespace {

std::optional<std::uint64_t> ReadNumber(const std::string& disk, const std::string& name) {
  const auto folder = "/sys/class/block/" + disk.substr(disk.rfind('/') + 1) + "/";
  return ParseDecimal(ReadAttribute(folder + name));
}

}  // namespace

std::optional<bool> PassesDiscards(std::string_view devicePath) {
  const auto disks = SystemFacts::Read().FindWholeDisks(devicePath);
  if (!disks || disks->empty()) return std::nullopt;
  for (const auto& disk : *disks) {
    const auto limit = ReadNumber(disk, "queue/discard_max_bytes");
    if (!limit) return std::nullopt;
    if (*limit == 0) return false;
  }
  return true;
}

std::optional<std::uint64_t> FindKernelSize(std::string_view devicePath) {
  constexpr std::uint64_t kUnit = 512;  // of sysfs, whatever the disk's sectors
  const auto disks = SystemFacts::Read().FindWholeDisks(devicePath);
  if (!disks || disks->size() != 1) return std::nullopt;
  const auto units = ReadNumber(disks->front(), "size");
  if (!units) return std::nullopt;
  return *units * kUnit;
}

}  // namespace Morvu::DeviceManagement
