#include <algorithm>

#include "devices/commands/CommandSet_SCSI.h"
#include "messaging/PageTable.h"
#include "parsers/health/HealthSources.h"
#include "parsers/smart/ScsiLog.h"

namespace Morvu::HealthSources {

using DeviceManagement::CommandSet_SCSI;

namespace {

// What a parameter of a log page tells; `value` holds `least` bytes.
struct ParameterRow {
  std::uint8_t page;
  std::uint16_t parameter;
  std::size_t least;
  void (*take)(DriveHealth& health, ByteView value);
};

// A counter, whose length the drive chooses; nothing where 64 bits do not hold it.
std::optional<std::uint64_t> Number(ByteView value) {
  const auto last = std::min<std::size_t>(value.size(), 8);
  if (!IsZero(value.first(value.size() - last))) return {};
  return ReadBig(value, value.size() - last, last);
}

void AddErrors(DriveHealth& health, ByteView value) {
  const auto known = health.mediaErrors.value_or(0);
  health.mediaErrors = known + std::min(Number(value).value_or(kMostErrors), kMostErrors - known);
}

void TakeTemperature(DriveHealth& health, ByteView value) {
  constexpr std::uint8_t kUnknown = 0xFF;
  if (value[1] != kUnknown) health.temperatureCelsius = value[1];
}

void TakeWear(DriveHealth& health, ByteView value) {
  health.wearPercent = value[3];
  health.lifeLeftPercent = LifeLeft(*health.wearPercent);
}

// The first parameter is the last test's; one of zeros tells of none.
void TakeSelfTest(DriveHealth& health, ByteView value) {
  constexpr unsigned kStoppedByCommand = 1, kStoppedElse = 2, kLastFault = 7, kRunning = 15;
  const unsigned result = value[0] & 0x0F;
  if (value[0] >> 5 == 0) return;
  if (result == 0) health.selfTest = SelfTestEnd::NoFault;
  if (result == kStoppedByCommand || result == kStoppedElse) health.selfTest = SelfTestEnd::Stopped;
  if (result > kStoppedElse && result <= kLastFault) health.selfTest = SelfTestEnd::Failed;
  if (result == kRunning) health.selfTest = SelfTestEnd::Running;
}

// clang-format off
constexpr ParameterRow kParameters[] = {
    // page, parameter, bytes                 SPC-4, 7.3; SBC-3, 6.4
    {0x02, 0x0005, 1, [](DriveHealth& h, ByteView v) { h.bytesWritten = Number(v); }},  // write errors: bytes processed
    {0x02, 0x0006, 1, AddErrors},                                                       // and the uncorrected ones
    {0x03, 0x0006, 1, AddErrors},                                                       // of reads
    {0x05, 0x0006, 1, AddErrors},                                                       // of verifies
    {0x0D, 0x0000, 2, TakeTemperature},
    {0x10, 0x0001, 1, TakeSelfTest},
    {0x11, 0x0001, 4, TakeWear},                                                        // solid state media
    {0x15, 0x0000, 4, [](DriveHealth& h, ByteView v) { h.powerOnHours = ReadBig(v, 0, 4) / 60; }},  // background scan: minutes
    {kExceptionsPage, kExceptions, 2, [](DriveHealth& h, ByteView v) { h.verdict = JudgeExceptions(v); }},
};
// clang-format on

}  // namespace

void Read(CommandSet_SCSI& scsi, DriveHealth& health) {
  ScsiLog log(scsi);
  for (const auto& row : kParameters) {
    const auto value = log.Find(row.page, row.parameter);
    if (value.size() >= row.least) row.take(health, value);
  }
}

}  // namespace Morvu::HealthSources
