#include <algorithm>
#include <array>

#include "devices/commands/CommandSet_ATA.h"
#include "devices/identification/Products.h"
#include "devices/model/Device.h"
#include "devices/properties/BasicProperties.h"
#include "frame/Text.h"
#include "messaging/PageTable.h"
#include "parsers/health/HealthSources.h"
#include "parsers/smart/SmartAttribute.h"
#include "parsers/smart/SmartAttributeEntry.h"

namespace Morvu::HealthSources {

using DeviceManagement::AtaArguments;
using DeviceManagement::CommandSet_ATA;
using DeviceManagement::Device;
namespace AtaRow = DeviceManagement::AtaRow;
namespace Properties = DeviceManagement::Properties;

namespace {

constexpr std::size_t kBlock = 512;
using Block = std::array<std::uint8_t, kBlock>;

// A layer below tells no residual: what came short is known by its sum.
bool IsWhole(ByteView block) { return !IsZero(block) && SumOf(block) == 0; }

// ---- Attributes, by the names that the maker's table gives them ----

struct AttributeRow {
  std::string_view name;
  bool ofAnyMaker;  // the number means the same on drives of others
  void (*take)(DriveHealth& health, ByteView entry);
};

std::uint64_t Raw(ByteView entry) { return ReadField(entry, SmartEntry::kRaw); }
std::uint64_t Normalized(ByteView entry) { return ReadField(entry, SmartEntry::kNormalized); }

// Drives keep something else above the hours, and above the degrees.
std::uint64_t ShortRaw(ByteView entry) { return ReadField(entry, SmartEntry::kShortRaw); }
std::int64_t Degrees(ByteView entry) { return static_cast<std::int8_t>(Raw(entry)); }

constexpr std::uint64_t kHostWriteUnit = 32 << 20;  // bytes

// A later row takes the place of an earlier one.
// clang-format off
constexpr AttributeRow kAttributeRows[] = {
    {"Power-On Hours Count",          true,  [](DriveHealth& h, ByteView e) { h.powerOnHours = ShortRaw(e); }},
    {"Unexpected Power Loss Count",   false, [](DriveHealth& h, ByteView e) { h.unsafeShutdowns = ShortRaw(e); }},
    {"Unsafe Shutdown Count",         false, [](DriveHealth& h, ByteView e) { h.unsafeShutdowns = ShortRaw(e); }},
    {"Uncorrectable Error Count",     false, [](DriveHealth& h, ByteView e) { h.mediaErrors = Raw(e); }},
    {"Temperature",                   false, [](DriveHealth& h, ByteView e) { h.temperatureCelsius = Degrees(e); }},
    {"Temperature - Device Internal", true,  [](DriveHealth& h, ByteView e) { h.temperatureCelsius = Degrees(e); }},
    {"Drive Temperature",             false, [](DriveHealth& h, ByteView e) { h.temperatureCelsius = Degrees(e); }},
    {"Available Reserved Space",      false, [](DriveHealth& h, ByteView e) { h.sparePercent = Normalized(e); }},
    {"Host Writes",                   false, [](DriveHealth& h, ByteView e) { h.bytesWritten = ShortRaw(e) * kHostWriteUnit; }},
    {"Media Wearout Indicator",       false, [](DriveHealth& h, ByteView e) { h.lifeLeftPercent = Normalized(e); }},
    {"Percent Drive Life Remaining",  false, [](DriveHealth& h, ByteView e) { h.lifeLeftPercent = ShortRaw(e); }},
    {"Percentage of Drive Life Used", false, [](DriveHealth& h, ByteView e) { h.wearPercent = ShortRaw(e); }},
};
// clang-format on

void TakeAttributes(const Device& device, ByteView data, DriveHealth& health) {
  constexpr std::size_t kFirst = 2, kCount = 30;
  const auto& product = DeviceManagement::ProductOf(device);
  for (const auto& row : kAttributeRows) {
    if (!row.ofAnyMaker && !device.GetBool(Properties::Morvu)) continue;
    // An OEM's drives count in units of its own.
    if (row.name == "Host Writes" && product.hasOemAttributes) continue;
    if (row.name == "Media Wearout Indicator" && product.hidesLife) continue;
    for (std::size_t i = 0; i < kCount; ++i) {
      const auto entry = data.subspan(kFirst + i * SmartEntry::kSize, SmartEntry::kSize);
      const auto id = ReadField(entry, SmartEntry::kId);
      if (id != 0 && LookUpAttributeName(device, ToHexNumber(id, 2)) == row.name) {
        row.take(health, entry);
      }
    }
  }
}

// The self-test execution status byte (ATA8-ACS, table 55).
SelfTestEnd ReadSelfTest(ByteView data) {
  constexpr std::size_t kStatus = 363;
  constexpr unsigned kFirstFault = 3, kLastFault = 8, kRunning = 15;
  const unsigned state = data[kStatus] >> 4;
  if (state == 0) return SelfTestEnd::NoFault;
  if (state == kRunning) return SelfTestEnd::Running;
  return state >= kFirstFault && state <= kLastFault ? SelfTestEnd::Failed : SelfTestEnd::Stopped;
}

// ---- Device Statistics (ACS-3, 9.5) ----

constexpr std::uint8_t kStatisticsLog = 0x04;
constexpr std::size_t kStatisticsPages = 8;

struct StatisticRow {
  std::uint8_t page;
  PagePlace value;  // in its page
  void (*take)(DriveHealth& health, std::uint64_t value, const Device& device);
};
// clang-format off
constexpr StatisticRow kStatistics[] = {
    {1, {16, 4}, [](DriveHealth& h, std::uint64_t v, const Device&) { h.powerOnHours = v; }},
    {1, {24, 6}, [](DriveHealth& h, std::uint64_t v, const Device& device) { h.bytesWritten = v * device.GetUInt(Properties::SectorSize); }},
    {4, { 8, 4}, [](DriveHealth& h, std::uint64_t v, const Device&) { h.mediaErrors = v; }},
    {5, { 8, 1}, [](DriveHealth& h, std::uint64_t v, const Device&) { h.temperatureCelsius = static_cast<std::int8_t>(v); }},
    {7, { 8, 1}, [](DriveHealth& h, std::uint64_t v, const Device&) { h.wearPercent = v; h.lifeLeftPercent = LifeLeft(v); }},
};
// clang-format on

bool HasGeneralLogs(CommandSet_ATA& ata) {
  constexpr PagePlace kSupported{84 * 2, 2}, kEnabled{87 * 2, 2};
  constexpr std::uint64_t kLogs = 1 << 5, kValidMask = 3 << 14, kValid = 1 << 14;
  Block data{};
  if (ata.ataIdentifyDevice(data) != Status::Completed) return false;
  const auto tells = [&](const PagePlace& place) {
    const auto word = ReadField(data, place);
    return (word & kValidMask) == kValid && (word & kLogs) != 0;
  };
  return tells(kSupported) || tells(kEnabled);
}

// A log that a drive does not list is not asked for: its error log would tell of each reading.
bool HasStatistics(CommandSet_ATA& ata) {
  Block directory{};
  if (ata.Send(AtaRow::ReadLogExt, {.lba = 0, .count = 1}, directory) != Status::Completed) {
    return false;
  }
  return ReadField(directory, {kStatisticsLog * 2, 2}) >= kStatisticsPages;
}

void TakeStatistics(const Device& device, ByteView log, DriveHealth& health) {
  constexpr std::uint8_t kSupported = 0x80, kValid = 0x40;
  constexpr PagePlace kPageNumber{2, 1};
  for (const auto& row : kStatistics) {
    const auto page = log.subspan(row.page * kBlock, kBlock);
    if (ReadField(page, kPageNumber) != row.page) continue;
    const auto flags = page[row.value.offset + 7u];
    if ((flags & kSupported) == 0 || (flags & kValid) == 0) continue;
    row.take(health, ReadField(page, row.value), device);
  }
}

}  // namespace

void Read(const Device& device, CommandSet_ATA& ata, DriveHealth& health) {
  Block data{};
  if (ata.ataSmartReadData(data) == Status::Completed && IsWhole(data)) {
    TakeAttributes(device, data, health);
    health.selfTest = ReadSelfTest(data);
  }
  std::array<std::uint8_t, kStatisticsPages * kBlock> log{};
  const AtaArguments statistics{.lba = kStatisticsLog, .count = kStatisticsPages};
  if (HasGeneralLogs(ata) && HasStatistics(ata) &&
      ata.Send(AtaRow::ReadLogExt, statistics, log) == Status::Completed) {
    TakeStatistics(device, log, health);
  }
  auto& life = health.lifeLeftPercent;
  if (life) life = std::min<std::uint64_t>(*life, 100);
  if (!life && health.wearPercent) life = LifeLeft(*health.wearPercent);
  if (life && !health.wearPercent) health.wearPercent = 100 - *life;
}

}  // namespace Morvu::HealthSources
