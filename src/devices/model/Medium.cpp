#include "devices/model/Medium.h"

#include <bit>
#include <limits>

#include "devices/model/Device.h"
#include "devices/properties/BasicProperties.h"

namespace Morvu::DeviceManagement {

std::optional<std::uint64_t> CountBlocks(const Device& device) {
  const auto* maximum = device.GetProperties().Find(Properties::MaximumLBA);
  if (maximum == nullptr || !maximum->HasValue()) return std::nullopt;
  const auto value = maximum->AsUnsigned();
  if (device.HasCommandSet(Protocol::Ata)) return value;
  if (value == std::numeric_limits<std::uint64_t>::max()) return std::nullopt;
  return value + 1;
}

std::optional<std::uint32_t> GetBlockSize(const Device& device) {
  constexpr std::uint64_t kLeast = 512, kMost = 65'536;
  const auto size = device.GetUInt(Properties::SectorSize);
  if (size < kLeast || size > kMost || !std::has_single_bit(size)) return std::nullopt;
  return static_cast<std::uint32_t>(size);
}

}  // namespace Morvu::DeviceManagement
