// The health of all drives for Prometheus: its text format, version 0.0.4.
#include <array>
#include <charconv>
#include <chrono>
#include <ctime>

#include "devices/model/Device.h"
#include "devices/properties/BasicProperties.h"
#include "devices/properties/IdentityProperties.h"
#include "frame/Text.h"
#include "frame/status/Files.h"
#include "messaging/features/FeatureRecord.h"
#include "messaging/features/ParserReply.h"
#include "parsers/health/Health.h"

namespace Morvu {

using DeviceManagement::Device;
using Access = DriveHealth::Access;
namespace Properties = DeviceManagement::Properties;

namespace Metrics {
namespace {

// ---- Values ----

std::string ToText(double value) {
  std::array<char, 64> text{};
  const auto end = std::to_chars(text.data(), text.data() + text.size(), value);
  return {text.data(), end.ptr};
}

using Value = std::optional<std::string>;  // none: no series

Value Whole(const std::optional<std::uint64_t>& value, std::uint64_t unit = 1) {
  if (!value) return {};
  if (*value > ~std::uint64_t{0} / unit) return {};
  return std::to_string(*value * unit);
}
Value Signed(const std::optional<std::int64_t>& value) {
  if (!value) return {};
  return std::to_string(*value);
}
Value Ratio(const std::optional<std::uint64_t>& percent) {
  if (!percent) return {};
  return ToText(static_cast<double>(*percent) / 100);
}
Value Flag(bool value) { return value ? "1" : "0"; }

// A RAID volume is no drive that could answer; its members are.
Value IsUp(const DriveHealth& health) {
  if (health.access == Access::Volume) return {};
  return Flag(health.access == Access::Answered);
}
Value IsFailing(const DriveHealth& health) {
  if (health.verdict.kind == DriveVerdict::Kind::Unknown ||
      health.verdict.kind == DriveVerdict::Kind::SmartOff) {
    return {};
  }
  return Flag(health.verdict.IsFailing());
}
Value TestIs(const DriveHealth& health, SelfTestEnd end) {
  if (!health.selfTest) return {};
  return Flag(*health.selfTest == end);
}

// ---- The table ----

constexpr std::uint64_t kSecondsOfHour = 3600;

struct MetricRow {
  std::string_view name, type, help;
  Value (*get)(const DriveHealth& health);
};
// clang-format off
constexpr MetricRow kMetrics[] = {
    {"morvu_drive_up",                      "gauge",   "Whether the drive was asked and answered.",                            IsUp},
    {"morvu_drive_asleep",                  "gauge",   "Whether the drive is in standby; it is let sleep.",                    [](const DriveHealth& h) { return Flag(h.access == Access::Asleep); }},
    {"morvu_drive_in_use",                  "gauge",   "Whether another program or job works on the drive.",                   [](const DriveHealth& h) { return Flag(h.access == Access::InUse); }},
    {"morvu_drive_failing",                 "gauge",   "The drive's own verdict: 1 when it expects to fail.",                  IsFailing},
    {"morvu_drive_life_remaining_ratio",    "gauge",   "What remains of the planned life.",                                    [](const DriveHealth& h) { return Ratio(h.lifeLeftPercent); }},
    {"morvu_drive_wear_ratio",              "gauge",   "What is used of the planned life; goes on beyond 1.",                  [](const DriveHealth& h) { return Ratio(h.wearPercent); }},
    {"morvu_drive_spare_ratio",             "gauge",   "What remains of the spare blocks.",                                    [](const DriveHealth& h) { return Ratio(h.sparePercent); }},
    {"morvu_drive_spare_threshold_ratio",   "gauge",   "Below it the drive calls its spare blocks too few.",                   [](const DriveHealth& h) { return Ratio(h.spareThresholdPercent); }},
    {"morvu_drive_temperature_celsius",     "gauge",   "Temperature of the drive.",                                            [](const DriveHealth& h) { return Signed(h.temperatureCelsius); }},
    {"morvu_drive_media_errors_total",      "counter", "Uncorrectable errors of the media.",                                   [](const DriveHealth& h) { return Whole(h.mediaErrors); }},
    {"morvu_drive_power_on_seconds_total",  "counter", "Time with power, counted in hours.",                                   [](const DriveHealth& h) { return Whole(h.powerOnHours, kSecondsOfHour); }},
    {"morvu_drive_unsafe_shutdowns_total",  "counter", "Losses of power without notice.",                                      [](const DriveHealth& h) { return Whole(h.unsafeShutdowns); }},
    {"morvu_drive_written_bytes_total",     "counter", "What hosts have written.",                                             [](const DriveHealth& h) { return Whole(h.bytesWritten); }},
    {"morvu_drive_self_test_failed",        "gauge",   "Whether the drive failed its last self-test.",                         [](const DriveHealth& h) { return TestIs(h, SelfTestEnd::Failed); }},
    {"morvu_drive_self_test_running",       "gauge",   "Whether a self-test runs.",                                            [](const DriveHealth& h) { return TestIs(h, SelfTestEnd::Running); }},
};
// clang-format on

// ---- The text ----

// A drive's text, of which Printable leaves ASCII on one line, in a label.
std::string Label(std::string_view name, std::string_view text) {
  auto value = ReplaceAll(Printable(text), "\\", "\\\\");
  return std::string(name) + "=\"" + ReplaceAll(value, "\"", "\\\"") + "\"";
}

// What tells a drive's series from those of others: namespaces share a serial number, and so do
// the two ports of a drive.
std::string Name(const Device& device) {
  return Label("device", device.GetString(Properties::DevicePath)) + "," +
         Label("serial", device.GetString(Properties::SerialNumber));
}

class Text {
 public:
  void Begin(std::string_view name, std::string_view type, std::string_view help) {
    for (const auto& [what, text] : {std::pair("# HELP ", help), std::pair("# TYPE ", type)}) {
      text_ += what + std::string(name) + " " + std::string(text) + "\n";
    }
  }
  void Add(std::string_view name, const std::string& labels, std::string_view value) {
    text_ += std::string(name);
    if (!labels.empty()) text_ += "{" + labels + "}";
    text_ += " " + std::string(value) + "\n";
  }
  void AddOne(std::string_view name, std::string_view help, std::string_view value) {
    Begin(name, "gauge", help);
    Add(name, {}, value);
  }
  std::string Take() { return std::move(text_); }

 private:
  std::string text_;
};

void AddInfo(Text& text, std::span<const HealthRow> rows) {
  constexpr std::string_view kInfo = "morvu_drive_info";
  text.Begin(kInfo, "gauge",
             "Who the drive is, and its firmware; of one asleep as the kernel knows it.");
  for (const auto& [device, health] : rows) {
    const auto firmware = device->GetString(Properties::Firmware);
    text.Add(kInfo,
             Name(*device) + "," + Label("model", device->GetString(Properties::ModelNumber)) +
                 "," + Label("firmware", firmware),
             "1");
  }
  constexpr std::string_view kWaiting = "morvu_drive_firmware_waiting_info";
  text.Begin(kWaiting, "gauge", "Firmware that the drive runs after its next reset.");
  for (const auto& [device, health] : rows) {
    if (health.waitingFirmware.empty()) continue;
    text.Add(kWaiting, Name(*device) + "," + Label("firmware", health.waitingFirmware), "1");
  }
}

std::string MakeText(std::span<const HealthRow> rows, const FeatureCall& call) {
  const auto took = std::chrono::steady_clock::now() - call.begin;
  Text text;
  AddInfo(text, rows);
  for (const auto& row : kMetrics) {
    text.Begin(row.name, row.type, row.help);
    for (const auto& [device, health] : rows) {
      if (const auto value = row.get(health)) text.Add(row.name, Name(*device), *value);
    }
  }
  if (!call.areChosen) {  // who names some does not count them all
    text.AddOne("morvu_drives", "Drives that the machine has.", std::to_string(rows.size()));
  }
  text.AddOne("morvu_run_duration_seconds", "Time that this run took.",
              ToText(std::chrono::duration<double>(took).count()));
  text.AddOne("morvu_run_timestamp_seconds", "When this run was, since 1970.",
              std::to_string(std::time(nullptr)));
  return text.Take();
}

StatusCode RunOption(const FeatureCall& call) {
  const auto rows = ReadHealthRows(call.devices);
  auto text = MakeText(rows, call);
  if (const auto file = call.arguments.GetText(kFileArgument); !file.empty()) {
    return call.face.Publish(text, file) ? Status::Completed : Status::FileNotWritten;
  }
  text.pop_back();  // a line has its own end
  call.face.Say(text);
  return Status::Completed;
}

constexpr std::string_view kDescriptions[] = {
    "Print the health of all drives for Prometheus (text format 0.0.4), and nothing else. A SATA "
    "drive that sleeps is not woken."};
constexpr ArgumentDeclaration kArguments[] = {{"[filename]",
                                               "(Optional) Write it to the given file, which "
                                               "readers find whole at any time: for the textfile "
                                               "collector of the node exporter.",
                                               kFileArgument}};
constexpr std::string_view kExamples[] = {
    "-metrics", "-metrics /var/lib/prometheus/node-exporter/morvussd.prom"};
constexpr OptionDeclaration kOptions[] = {
    {.name = "-metrics",
     .kind = OptionKind::Texts,
     .category = OptionCategory::Feature,
     .descriptions = kDescriptions,
     .arguments = kArguments,
     .examples = kExamples,
     .scan = OptionScan::Drives,
     .run = &RunOption,
     .isForPrograms = true},
};

}  // namespace
}  // namespace Metrics

extern constexpr FeatureRecord MetricsRecord = {
    .name = "Metrics",
    .onSeveral = OnSeveral::Together,
    .options = Metrics::kOptions,
};

}  // namespace Morvu
