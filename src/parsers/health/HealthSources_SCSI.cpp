#include <algorithm>
#include <array>

#include "devices/commands/CommandSet_SCSI.h"
#include "parsers/health/HealthSources.h"

namespace Morvu::HealthSources {

using DeviceManagement::CommandSet_SCSI;
namespace ScsiRow = DeviceManagement::ScsiRow;

namespace {

constexpr std::size_t kPageSize = 512;
constexpr std::size_t kHeader = 4;  // of a page, and of a parameter

// What a parameter of a log page tells; `value` holds `least` bytes.
struct ParameterRow {
  std::uint8_t page;
  std::uint16_t parameter;
  std::size_t least;
  void (*take)(DriveHealth& health, ByteView value);
};

std::uint64_t Number(ByteView value) {
  return ReadBig(value, 0, std::min<std::size_t>(value.size(), 8));
}

void AddErrors(DriveHealth& health, ByteView value) {
  health.mediaErrors = health.mediaErrors.value_or(0) + Number(value);
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
    {0x2F, 0x0000, 2, [](DriveHealth& h, ByteView v) { h.verdict = JudgeExceptions(v); }},
};
// clang-format on

using LogPage = std::array<std::uint8_t, kPageSize>;

// The page without its header; empty when it did not come, or another one.
ByteView ReadPage(CommandSet_SCSI& scsi, std::uint8_t page, LogPage& data) {
  constexpr std::uint64_t kCumulative = 1;
  data.fill(0);
  const auto status =
      scsi.Send(ScsiRow::LogSense,
                {.length = kPageSize, .blocks = 1, .page = page, .pageControl = kCumulative}, data);
  if (status != Status::Completed || (data[0] & 0x3F) != page) return {};
  const auto length = std::min<std::size_t>(ReadBig(data, 2, 2), kPageSize - kHeader);
  return ByteView(data).subspan(kHeader, length);
}

void TakeParameters(ByteView page, std::uint8_t number, DriveHealth& health) {
  for (std::size_t at = 0; at + kHeader <= page.size();) {
    const auto parameter = ReadBig(page, at, 2);
    const std::size_t length = page[at + 3];
    at += kHeader;
    if (length > page.size() - at) return;
    const auto value = page.subspan(at, length);
    for (const auto& row : kParameters) {
      const bool isIt = row.page == number && row.parameter == parameter;
      if (isIt && value.size() >= row.least) row.take(health, value);
    }
    at += length;
  }
}

}  // namespace

void Read(CommandSet_SCSI& scsi, DriveHealth& health) {
  LogPage list{}, data{};
  const auto supported = ReadPage(scsi, 0, list);
  std::uint8_t last = 0;
  for (const auto& row : kParameters) {
    if (row.page == last || std::ranges::count(supported, row.page) == 0) continue;
    last = row.page;
    TakeParameters(ReadPage(scsi, row.page, data), row.page, health);
  }
}

}  // namespace Morvu::HealthSources
