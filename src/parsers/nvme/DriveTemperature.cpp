#include "parsers/nvme/DriveTemperature.h"

#include <algorithm>
#include <array>
#include <limits>
#include <optional>

#include "devices/commands/CommandSet_NVME.h"
#include "devices/model/Device.h"
#include "devices/properties/BasicProperties.h"
#include "frame/Logger.h"
#include "messaging/PageTable.h"
#include "parsers/nvme/FeatureNamespace.h"

namespace Morvu {

using DeviceManagement::CommandSet_NVME;
using DeviceManagement::Device;
namespace Properties = DeviceManagement::Properties;
namespace Protocol = DeviceManagement::Protocol;

namespace {

constexpr std::uint8_t kTemperatureLog = 0xC5;
constexpr std::uint32_t kTemperatureDwords = 0x81;  // the log is asked for with NUMD 128
constexpr std::size_t kTemperatureLogSize = 512;
constexpr PagePlace kCurrentTemperature{0, 8};  // degrees Celsius

// What the notification service tells; no device keeps it.
constexpr PropertyEntry kTemperatureValue{"Temperature", "Temperature", PropertyKind::Sint16};
constexpr std::uint32_t kTemperatureType = 2;

std::optional<std::int16_t> ReadTemperature(const Device& device, CommandSet_NVME& nvme) {
  std::array<std::uint8_t, kTemperatureDwords * 4> data{};
  const auto status =
      nvme.nvmeGetLogPage(kTemperatureLog, kTemperatureDwords, GetNamespace(device), data);
  if (status != Status::Completed) {
    MORVU_LOG(kLogInfo, "ReadTemperature",
              "No temperature log, error code = " + std::to_string(status.Value()));
    return std::nullopt;
  }
  const auto page = ByteView(data).first(kTemperatureLogSize);
  // A log without anything in it tells of no temperature, not of 0 degrees.
  if (std::ranges::all_of(page, [](auto byte) { return byte == 0; })) return std::nullopt;
  const auto degrees = static_cast<std::int64_t>(ReadField(page, kCurrentTemperature));
  using Limits = std::numeric_limits<std::int16_t>;
  if (degrees < Limits::min() || degrees > Limits::max()) return std::nullopt;
  return static_cast<std::int16_t>(degrees);
}

}  // namespace

void NotifyTemperatures(JobContext& context, std::span<Device* const> devices) {
  for (auto* device : devices) {
    auto* nvme = device->GetCommandSetAs<CommandSet_NVME>(Protocol::Nvme);
    const bool isSound =
        device->GetBool(Properties::Morvu) && device->GetString(Properties::ErrorString).empty();
    if (nvme == nullptr || !isSound) continue;
    const auto degrees = ReadTemperature(*device, *nvme);
    if (!degrees) continue;
    context.services->PostNotification(
        {.type = kTemperatureType,
         .value = DeviceProperty(kTemperatureValue, *degrees),
         .objectPath = "MorvuSSD." + device->GetString(Properties::SerialNumber),
         .status = 0});
  }
}

}  // namespace Morvu
