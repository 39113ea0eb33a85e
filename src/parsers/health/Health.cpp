#include "parsers/health/Health.h"

#include <algorithm>
#include <iterator>
#include <tuple>

#include "devices/discovery/SideBySide.h"
#include "devices/model/Device.h"
#include "devices/properties/BasicProperties.h"
#include "devices/system/SystemFacts.h"
#include "frame/Text.h"
#include "frame/status/Files.h"
#include "messaging/features/FeatureRecord.h"
#include "messaging/features/ParserReply.h"

namespace Morvu {

using DeviceManagement::Device;
using Access = DriveHealth::Access;
namespace Properties = DeviceManagement::Properties;

namespace {

std::string ShowText(const Device& device, const PropertyEntry& entry) {
  return Printable(device.GetString(entry));
}

template <typename Number>
std::string ShowNumber(const std::optional<Number>& number) {
  return number ? std::to_string(*number) : std::string();
}

std::string ShowVerdict(const DriveHealth& health) {
  switch (health.access) {
    case Access::InUse:
      return "In use";
    case Access::Asleep:
      return "Asleep";
    case Access::Silent:
      return "<c:LIGHTRED>No answer</c>";
    case Access::Volume:
      return "RAID volume";
    case Access::Answered:
      break;
  }
  const auto text = health.verdict.text.substr(0, health.verdict.text.find(':'));
  if (health.verdict.IsFailing()) return "<c:LIGHTRED>" + text + "</c>";
  return health.verdict.kind == DriveVerdict::Kind::SmartOff ? "SMART off" : text;
}

std::string ShowSelfTest(const DriveHealth& health) {
  if (!health.selfTest) return {};
  switch (*health.selfTest) {
    case SelfTestEnd::NoFault:
      return "No fault";
    case SelfTestEnd::Stopped:
      return "Stopped";
    case SelfTestEnd::Failed:
      return "<c:LIGHTRED>Failed</c>";
    case SelfTestEnd::Running:
      return "Running";
  }
  return {};
}

struct Column {
  std::string_view title;
  std::string_view unit;
  bool isOnScreen;
  std::string (*show)(const Device& device, const DriveHealth& health);
};
// clang-format off
constexpr Column kColumns[] = {
    {"Device Path",      "",  true,  [](const Device& d, const DriveHealth&) { return ShowText(d, Properties::DevicePath); }},
    {"Model",            "",  false, [](const Device& d, const DriveHealth&) { return ShowText(d, Properties::ModelNumber); }},
    {"Serial",           "",  true,  [](const Device& d, const DriveHealth&) { return ShowText(d, Properties::SerialNumber); }},
    {"Verdict",          "",  true,  [](const Device&, const DriveHealth& h) { return ShowVerdict(h); }},
    {"Life",             "%", true,  [](const Device&, const DriveHealth& h) { return ShowNumber(h.lifeLeftPercent); }},
    {"Wear",             "%", false, [](const Device&, const DriveHealth& h) { return ShowNumber(h.wearPercent); }},
    {"Spare",            "%", false, [](const Device&, const DriveHealth& h) { return ShowNumber(h.sparePercent); }},
    {"Temp",             "C", true,  [](const Device&, const DriveHealth& h) { return ShowNumber(h.temperatureCelsius); }},
    {"Errors",           "",  true,  [](const Device&, const DriveHealth& h) { return ShowNumber(h.mediaErrors); }},
    {"Hours",            "",  true,  [](const Device&, const DriveHealth& h) { return ShowNumber(h.powerOnHours); }},
    {"Unsafe Shutdowns", "",  false, [](const Device&, const DriveHealth& h) { return ShowNumber(h.unsafeShutdowns); }},
    {"Bytes Written",    "",  false, [](const Device&, const DriveHealth& h) { return ShowNumber(h.bytesWritten); }},
    {"Self-Test",        "",  true,  [](const Device&, const DriveHealth& h) { return ShowSelfTest(h); }},
    {"Firmware",         "",  true,  [](const Device& d, const DriveHealth&) { return ShowText(d, Properties::Firmware); }},
    {"After Reset",      "",  true,  [](const Device&, const DriveHealth& h) { return Printable(h.waitingFirmware); }},
};

struct FindingRow {
  HealthFinding finding;
  bool (*holds)(const DriveHealth& health);
  std::string_view text;  // behind a count
};
constexpr FindingRow kFindingRows[] = {
    {kFailing, [](const DriveHealth& h) { return h.verdict.IsFailing(); }, "failing"},
    {kWornOut, [](const DriveHealth& h) { return h.IsWornOut(); },         "nearly worn out"},
    {kFaults,  [](const DriveHealth& h) { return h.HasFaults(); },         "with errors"},
    {kUnasked, [](const DriveHealth& h) { return h.IsUnknown(); },         "without a verdict"},
};
// clang-format on

// The first finding that holds, from the top.
std::size_t RankOf(const DriveHealth& health) {
  const auto* row =
      std::ranges::find_if(kFindingRows, [&](const auto& each) { return each.holds(health); });
  return static_cast<std::size_t>(row - std::begin(kFindingRows));
}

// "24 drives: 1 failing, 2 nearly worn out."
std::string Summarize(std::span<const HealthRow> rows) {
  auto text = std::to_string(rows.size()) + (rows.size() == 1 ? " drive: " : " drives: ");
  std::string found;
  for (const auto& each : kFindingRows) {
    const auto count =
        std::ranges::count_if(rows, [&](const auto& row) { return each.holds(row.health); });
    if (count == 0) continue;
    found += (found.empty() ? "" : ", ") + std::to_string(count) + " " + std::string(each.text);
  }
  return text + (found.empty() ? "nothing to act on" : found) + ".";
}

}  // namespace

std::uint32_t FindHealthFindings(const DriveHealth& health) {
  std::uint32_t findings = 0;
  for (const auto& row : kFindingRows) {
    if (row.holds(health)) findings |= row.finding;
  }
  return findings;
}

std::vector<HealthRow> ReadHealthRows(std::span<Device* const> devices) {
  std::vector<HealthRow> rows(devices.size());
  const auto facts = DeviceManagement::SystemFacts::Read();
  DeviceManagement::AskSideBySide(devices.size(), [&](std::size_t i) {
    rows[i] = {devices[i], ReadHealth(*devices[i], facts)};
  });
  return rows;
}

void SortWorstFirst(std::vector<HealthRow>& rows) {
  const auto key = [](const HealthRow& row) {
    constexpr std::uint64_t kUnknown = 101;
    return std::tuple(RankOf(row.health), row.health.lifeLeftPercent.value_or(kUnknown),
                      ~row.health.mediaErrors.value_or(0));
  };
  std::ranges::stable_sort(rows, {}, key);
}

ResultTable TabulateHealth(std::span<const HealthRow> rows, bool isWhole) {
  ResultTable table;
  std::vector<std::string> titles;
  for (const auto& column : kColumns) {
    if (!isWhole && !column.isOnScreen) continue;
    const bool hasUnit = isWhole && !column.unit.empty();
    titles.push_back(std::string(column.title) +
                     (hasUnit ? " (" + std::string(column.unit) + ")" : std::string()));
  }
  table.AppendRow(titles, true);
  for (const auto& row : rows) {
    std::vector<std::string> cells;
    for (const auto& column : kColumns) {
      if (!isWhole && !column.isOnScreen) continue;
      auto text = column.show(*row.device, row.health);
      if (!isWhole && text.empty()) text = "-";
      // "99%", "28 C"
      if (!isWhole && text != "-" && !column.unit.empty()) {
        text += (column.unit == "%" ? "" : " ") + std::string(column.unit);
      }
      cells.push_back(std::move(text));
    }
    table.AppendRow(cells);
  }
  return table;
}

// ---- The family ----

namespace Health {
namespace {

constexpr std::string_view kOrderArgument = "order";
constexpr std::string_view kWorst = "worst";

StatusCode RunOption(const FeatureCall& call) {
  // "-health FILE" leaves out the order.
  const auto first = call.arguments.GetText(kOrderArgument);
  const bool isSorted = first == kWorst;
  const bool hasFile = call.arguments.Has(kFileArgument);
  if (hasFile && !isSorted) return Status::InvalidArguments;
  const auto file = isSorted ? call.arguments.GetText(kFileArgument) : first;
  auto rows = ReadHealthRows(call.devices);
  if (isSorted) SortWorstFirst(rows);
  std::uint32_t findings = 0;
  for (const auto& row : rows) findings |= FindHealthFindings(row.health);
  call.face.NoteFindings(findings);
  if (file.empty()) {
    call.face.Say();
    call.face.Show(TabulateHealth(rows, call.face.IsForPrograms()));
    call.face.Say();
  } else if (!call.face.Save(TabulateHealth(rows, true), file)) {
    return Status::FileNotWritten;
  }
  call.face.Say(Summarize(rows));
  return Status::Completed;
}

constexpr std::string_view kDescriptions[] = {
    "Display the health of all drives, or of the selected one, a row for each: what the drive "
    "itself says, its remaining life, temperature, errors, hours, last self-test, firmware, and "
    "firmware that waits for a reset. The exit status tells what was found: 208 and 1 for a drive "
    "that fails, 2 for one that is nearly worn out, 4 for errors, 8 for one without a verdict."};
constexpr std::string_view kOrderWords[] = {kWorst};
constexpr ArgumentDeclaration kArguments[] = {
    {"[worst]", "(Optional) The worst drive first.", kOrderArgument, kOrderWords},
    {"[filename]", "(Optional) Save the table, with more columns, to the given file. CSV format.",
     kFileArgument},
};
constexpr std::string_view kExamples[] = {"-health", "-health worst", "-health health.csv"};
constexpr OptionDeclaration kOptions[] = {
    {.name = "-health",
     .kind = OptionKind::Texts,
     .category = OptionCategory::Feature,
     .descriptions = kDescriptions,
     .arguments = kArguments,
     .examples = kExamples,
     .scan = OptionScan::Drives,
     .run = &RunOption},
};

}  // namespace
}  // namespace Health

extern constexpr FeatureRecord HealthRecord = {
    .name = "Health",
    .onSeveral = OnSeveral::Together,
    .options = Health::kOptions,
};

}  // namespace Morvu
