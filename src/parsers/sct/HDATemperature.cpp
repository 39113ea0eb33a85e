#include "parsers/sct/HDATemperature.h"

#include <algorithm>
#include <string>

#include "frame/Logger.h"
#include "frame/status/Commands.h"
#include "frame/status/Drives.h"
#include "messaging/PageTable.h"
#include "messaging/XmlMessaging.h"
#include "messaging/features/FeatureRecord.h"
#include "messaging/features/JobContext.h"
#include "messaging/features/ParserReply.h"
#include "operations/Operation.h"

namespace Morvu {

using DeviceManagement::Device;

namespace {

constexpr std::uint16_t kTemperatureTable = 2;

// clang-format off
constexpr PageField kFields[] = {
    {{ 0, 2}, "Format Version",                                     Form::Decimal},
    {{ 2, 2}, "Sampling Period",                                    Form::Decimal},
    {{ 4, 2}, "Interval",                                           Form::Decimal},
    {{ 6, 1}, "Maximum recommended continuous operating temperature", Form::Signed},
    {{ 7, 1}, "Maximum Temperature Limit",                          Form::Signed},
    {{ 8, 1}, "Minimum recommended continuous operating temperature", Form::Signed},
    {{ 9, 1}, "Minimum Temperature Limit",                          Form::Signed},
    {{30, 2}, "Circular buffer size",                               Form::Decimal},
    {{32, 2}, "Circular buffer index",                              Form::Decimal},
};
// clang-format on
constexpr PagePlace kVersion{0, 2}, kInterval{4, 2}, kRingSize{30, 2}, kRingIndex{32, 2};
constexpr std::size_t kRing = 34;
constexpr std::uint8_t kNoSample = 0x80;

// "4", or "4 - 477" for a row of several samples.
std::string ShowRange(const std::string& first, const std::string& last) {
  return first == last ? first : first + " - " + last;
}
std::string ShowMinutes(const TemperatureSample& sample) {
  return sample.minutes ? std::to_string(*sample.minutes) : "Unknown";
}
std::string ShowDegrees(const TemperatureSample& sample) {
  return sample.degrees ? std::to_string(*sample.degrees) : "-";
}

}  // namespace

std::vector<TemperatureSample> ReadTemperatureHistory(ByteView table) {
  if (table.size() < kRing) return {};
  const auto size = ReadField<std::size_t>(table, kRingSize);
  const auto newest = ReadField<std::size_t>(table, kRingIndex);
  const auto interval = ReadField<std::uint32_t>(table, kInterval);
  if (size == 0 || size > table.size() - kRing || newest >= size) return {};
  std::vector<TemperatureSample> samples;
  for (std::size_t age = size; age-- > 0;) {
    const auto index = (newest + size - age) % size;
    const auto byte = table[kRing + index];
    TemperatureSample sample{.index = index, .minutes = {}, .degrees = {}};
    if (interval != 0) sample.minutes = static_cast<std::uint32_t>(age) * interval;
    if (byte != kNoSample) sample.degrees = static_cast<std::int8_t>(byte);
    samples.push_back(sample);
  }
  return samples;
}

void AppendTemperatureFields(ByteView table, ResultTable& rows) {
  AppendPage(table, kFields, rows);
}

HDATemperature::HDATemperature(Device* device, ProgressReporter& reporter)
    : SctDataTableParser(device, kTemperatureTable, reporter) {}

std::int32_t HDATemperature::Execute() {
  MORVU_LOG(kLogInfo, "Execute", "Executing...");
  if (SctDataTableParser::Execute() == 0) return false;
  // Behind a SATA layer nothing else tells that the sector has come.
  if (ReadField(GetRawTable(), kVersion) == 0) {
    Note("What came is no table of temperatures.");
    End(Status::SmartReadLogFailed);
    return false;
  }
  table_.Clear();
  table_.AppendRow({"Field", "Value"}, true);
  AppendTemperatureFields(GetRawTable(), table_);
  MORVU_LOG(kLogDebug, "Execute", "Filled structure with data.");
  return true;
}

ResultTable HDATemperature::GetHistory(bool joinsEqual) const {
  ResultTable history;
  history.AppendRow({"Index", "Minutes ago", "Temperature"}, true);
  const auto samples = ReadTemperatureHistory(GetRawTable());
  for (auto first = samples.begin(); first != samples.end();) {
    auto next = first + 1;
    if (joinsEqual) {
      next = std::find_if(next, samples.end(), [&](const TemperatureSample& sample) {
        return sample.degrees != first->degrees;
      });
    }
    const auto& last = *(next - 1);
    history.AppendRow({ShowRange(std::to_string(first->index), std::to_string(last.index)),
                       ShowRange(ShowMinutes(*first), ShowMinutes(last)), ShowDegrees(*first)});
    first = next;
  }
  return history;
}

// ---- The family ----

namespace {

constexpr std::string_view kHistoryName = "TemperatureHistory";

StatusCode RunTemperature(const FeatureCall& call) {
  HDATemperature parser(&call.GetDevice(), call.face.GetReporter());
  if (parser.GetErrorCode() == Status::ReadyToRun && parser.Execute() != 0) {
    call.face.Show(parser.GetTable());
    call.face.Say();
    call.face.Show(parser.GetHistory(true));
  }
  TellRemarks(parser, call.face);
  return parser.GetErrorCode();
}

StatusCode RunTemperatureMethod(const FeatureCall& call, JobContext& context) {
  HDATemperature parser(&call.GetDevice(), call.face.GetReporter());
  if (parser.GetErrorCode() == Status::ReadyToRun && parser.Execute() != 0) {
    AddToReply(context, parser.GetHistory(false).ToXml(false, parser.GetSerialNumber()),
               kHistoryName);
  }
  TellRemarks(parser, call.face);
  return ReplyTable(call, context, parser, parser.GetTitle());
}

StatusCode AssessTemperature(Device& device) { return HDATemperature(&device).GetErrorCode(); }

constexpr std::string_view kDescriptions[] = {"Display selected drive's HDA Temperature data."};
constexpr std::string_view kExamples[] = {"-drive_index 1 -hda_temp"};
constexpr MethodParameter kParameters[] = {{kFileArgument, "string", true}};
constexpr StatusCode kHiddenCodes[] = {Status::NotAMorvuDrive, Status::RaidVolume,
                                       Status::NotSupportedByDrive};
constexpr CimMethod kMethods[] = {
    {.name = "HDATemperature",
     .displayName = "HDA Temperature",
     .category = "advanced",
     .targetType = "device",
     .parameters = kParameters,
     .hasTable = true,
     .hiddenCodes = kHiddenCodes,
     .assess = &AssessTemperature,
     .run = &RunTemperatureMethod},
};
constexpr OptionDeclaration kOptions[] = {
    {.name = "-hda_temp",
     .kind = OptionKind::Flag,
     .category = OptionCategory::Feature,
     .descriptions = kDescriptions,
     .arguments = {},
     .examples = kExamples,
     .run = &RunTemperature},
};

}  // namespace

extern constexpr FeatureRecord HDATemperatureRecord = {
    .name = "HDATemperature",
    .needsDrive = true,
    .isSequence = true,
    .methods = kMethods,
    .options = kOptions,
};

}  // namespace Morvu
