#include <array>

#include "devices/commands/CommandSet_NVME.h"
#include "devices/model/Device.h"
#include "devices/properties/BasicProperties.h"
#include "messaging/PageTable.h"
#include "parsers/health/HealthSources.h"
#include "parsers/nvme/FeatureNamespace.h"
#include "parsers/nvme/NVMeLogParser.h"
#include "parsers/nvme/NvmeHealth.h"

namespace Morvu::HealthSources {

using DeviceManagement::CommandSet_NVME;
using DeviceManagement::Device;

namespace {

using Page = std::array<std::uint8_t, (NvmeHealth::kNumd + 1) * 4>;
constexpr std::uint64_t kDataUnit = 512'000;  // bytes

// A counter of 128 bits; nothing where 64 do not hold it times `unit`.
std::optional<std::uint64_t> ReadCounter(ByteView page, const PagePlace& place,
                                         std::uint64_t unit = 1) {
  const auto low = ReadLittle(page, place.offset, 8);
  if (ReadLittle(page, place.offset + 8u, 8) != 0 || low > ~std::uint64_t{0} / unit) return {};
  return low * unit;
}

void TakeHealth(ByteView log, DriveHealth& health) {
  constexpr std::int64_t kZeroCelsius = 273;  // Kelvin
  // Controllers without a sensor tell the absolute zero.
  if (const auto kelvin = ReadField(log, NvmeHealth::kTemperature); kelvin != 0) {
    health.temperatureCelsius = static_cast<std::int64_t>(kelvin) - kZeroCelsius;
  }
  health.sparePercent = ReadField(log, NvmeHealth::kSpare);
  health.spareThresholdPercent = ReadField(log, NvmeHealth::kSpareThreshold);
  health.wearPercent = ReadField(log, NvmeHealth::kPercentageUsed);
  health.lifeLeftPercent = LifeLeft(*health.wearPercent);
  health.bytesWritten = ReadCounter(log, NvmeHealth::kDataUnitsWritten, kDataUnit);
  health.powerOnHours = ReadCounter(log, NvmeHealth::kPowerOnHours);
  health.unsafeShutdowns = ReadCounter(log, NvmeHealth::kUnsafeShutdowns);
  health.mediaErrors = ReadCounter(log, NvmeHealth::kMediaErrors).value_or(kMostErrors);
}

// The revision in the slot that the next reset activates (NVMe 1.0, 5.10.1.3). That may be the
// active slot, with another image than the one that was loaded from it.
std::string FindWaitingFirmware(ByteView log, const std::string& running) {
  constexpr PagePlace kActive{0, 1, 0, 3}, kNext{0, 1, 4, 3};
  const auto text = [&](std::uint64_t slot) {
    return Form::PrintableText(log, {static_cast<std::uint16_t>(slot * 8), 8});
  };
  const auto next = ReadField(log, kNext);
  if (next == 0 || (next == ReadField(log, kActive) && text(next) == running)) return {};
  return text(next);
}

}  // namespace

void Read(const Device& device, CommandSet_NVME& nvme, DriveHealth& health) {
  Page log{};
  const bool hasHealth =
      ReadLogPage(device, nvme, NvmeHealth::kLogId, NvmeHealth::kNumd, log) == Status::Completed;
  health.verdict = JudgeHealthLog(hasHealth ? ByteView(log) : ByteView());
  if (health.verdict.kind != DriveVerdict::Kind::Unknown) TakeHealth(log, health);
  log.fill(0);
  if (ReadLogPage(device, nvme, FirmwareSlotInfoParser::kLogId, NvmeHealth::kNumd, log) ==
      Status::Completed) {
    health.waitingFirmware =
        FindWaitingFirmware(log, device.GetString(DeviceManagement::Properties::Firmware));
  }
}

}  // namespace Morvu::HealthSources
