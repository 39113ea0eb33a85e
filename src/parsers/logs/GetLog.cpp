// The family of the NVMe log pages: -get_log and the method NVMeLogParser.
#include <algorithm>
#include <memory>

#include "devices/model/DriveHold.h"
#include "frame/status/Selection.h"
#include "messaging/features/FeatureRecord.h"
#include "messaging/features/JobContext.h"
#include "messaging/features/ParserReply.h"
#include "operations/Operation.h"
#include "parsers/nvme/NVMeLogParser.h"
#include "parsers/smart/SMARTAttributesParser.h"

namespace Morvu {

using DeviceManagement::Device;
using DeviceManagement::DriveHold;

namespace {

constexpr std::string_view kIdArgument = "LogID";

template <typename LogParser>
std::unique_ptr<NVMeLogParser> Make(Device* device) {
  return std::make_unique<LogParser>(device);
}

struct LogPage {
  std::uint8_t id;
  std::unique_ptr<NVMeLogParser> (*make)(Device* device);
};
template <typename LogParser>
constexpr LogPage kPage{LogParser::kLogId, &Make<LogParser>};
constexpr LogPage kPages[] = {
    kPage<ErrorInfoParser>,    kPage<SMARTHealthLogParser>, kPage<FirmwareSlotInfoParser>,
    kPage<EMStatisticsParser>, kPage<TempStatisticsParser>, kPage<SMARTAttributesParser>,
};

// Reads the page that the call names, and gives the table to `take`.
template <typename Take>
StatusCode ReadPage(const FeatureCall& call, Take take) {
  const auto id = call.arguments.GetNumber<std::uint32_t>(kIdArgument);
  if (!id) return Status::InvalidArguments;
  const auto* page = std::ranges::find(kPages, *id, &LogPage::id);
  if (page == std::end(kPages)) return Status::InvalidLogId;
  const DriveHold hold(call.GetDevice(), DriveHold::Kind::Moment);
  if (!hold.IsTaken()) return hold.GetStatus();
  const auto parser = page->make(&call.GetDevice());
  if (parser->GetErrorCode() != Status::ReadyToRun) return parser->GetErrorCode();
  const bool isRead = parser->Execute() != 0;
  TellRemarks(*parser, call.face);
  return isRead ? take(*parser) : parser->GetErrorCode();
}

StatusCode RunOption(const FeatureCall& call) {
  if (!call.arguments.Has(kIdArgument)) return Status::InvalidArguments;
  return ReadPage(call, [&](const NVMeLogParser& parser) {
    call.face.Show(parser.GetTable());
    return StatusCode(Status::Completed);
  });
}

StatusCode RunMethod(const FeatureCall& call, JobContext& context) {
  return ReadPage(call, [&](const NVMeLogParser& parser) {
    return ReplyTable(call, context, parser, parser.GetTitle());
  });
}

StatusCode Assess(Device& device) { return SMARTHealthLogParser(&device).GetErrorCode(); }

constexpr StatusCode kHiddenCodes[] = {Status::NotSupportedByDrive};
constexpr MethodParameter kParameters[] = {{kFileArgument, "string", true},
                                           {kIdArgument, "uint16", true}};
constexpr CimMethod kMethods[] = {
    {.name = "NVMeLogParser",
     .category = "standard",
     .targetType = "device",
     .parameters = kParameters,
     .hasTable = true,
     .hiddenCodes = kHiddenCodes,
     .assess = &Assess,
     .run = &RunMethod},
};

constexpr std::string_view kDescriptions[] = {"Display the given NVMe log data to the screen."};
constexpr ArgumentDeclaration kArguments[] = {
    {"(log id)", "(Required) NVMe Log ID to parse. Supported log ID's are:", kIdArgument},
    {"(log id)", "1   - Error Information"},
    {"(log id)", "2   - SMART / Health Information"},
    {"(log id)", "3   - Firmware Slot Information"},
    {"(log id)", "196 - Endurance Manager Statistics"},
    {"(log id)", "197 - Temperature Statistics"},
    {"(log id)", "202 - SMART Attributes"},
};
constexpr std::string_view kExamples[] = {"-drive_index 1 -get_log 2"};
constexpr OptionDeclaration kOptions[] = {
    {.name = "-get_log",
     .kind = OptionKind::Text,
     .category = OptionCategory::Feature,
     .descriptions = kDescriptions,
     .arguments = kArguments,
     .examples = kExamples,
     .run = &RunOption},
};

}  // namespace

extern constexpr FeatureRecord GetLogRecord = {
    .name = "GetLog",
    .needsDrive = true,
    .onSeveral = OnSeveral::Each,
    .methods = kMethods,
    .options = kOptions,
};

}  // namespace Morvu
