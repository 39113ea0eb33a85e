#include "parsers/sct/ErrorRecoveryControl.h"

#include <algorithm>
#include <optional>

#include "devices/properties/SettingProperties.h"
#include "frame/Logger.h"
#include "frame/Text.h"
#include "frame/status/Settings.h"
#include "messaging/XmlMessaging.h"
#include "messaging/features/FeatureRecord.h"
#include "operations/Operation.h"
#include "operations/SettingProperty.h"

namespace Morvu {

using DeviceManagement::Device;
namespace Properties = DeviceManagement::Properties;

namespace {

struct Timer {
  SctTimer timer;
  std::string_view name;    // of a parser
  std::string_view option;  // at the prompt
  std::string_view title;
  const PropertyEntry* property;
};
// clang-format off
constexpr Timer kTimers[] = {
    {SctTimer::Read,  "read",  "read_timer",  "Error Read Recovery Timer",  &Properties::ReadErrorRecoveryTimer},
    {SctTimer::Write, "write", "write_timer", "Error Write Recovery Timer", &Properties::WriteErrorRecoveryTimer},
};
// clang-format on
constexpr std::string_view kBoth = "both";

std::optional<std::uint16_t> ParseTime(std::string_view text) {
  const auto time = ParseDecimal(text);
  if (!time || *time > 0xFFFF) return std::nullopt;
  return static_cast<std::uint16_t>(*time);
}

}  // namespace

ErrorRecoveryControl::ErrorRecoveryControl(Device* device, std::string timer,
                                           ProgressReporter& reporter)
    : Parser(device, reporter), timer_(std::move(timer)) {
  ErrorRecoveryControl::Initialize();
}

void ErrorRecoveryControl::Initialize() {
  table_.AppendRow({"Timer", "Value (100ms units)"}, true);
  const bool isKnown =
      timer_ == kBoth || std::ranges::find(kTimers, timer_, &Timer::name) != std::end(kTimers);
  if (!isKnown) return EndInitialize(Status::InvalidErrorRecovery);
  EndInitialize(SCT_Error_Recovery_Control(device_, SctTimer::Read, NoReporter()).GetErrorCode());
}

std::int32_t ErrorRecoveryControl::Execute() {
  MORVU_LOG(kLogInfo, "Execute", "Executing...");
  StatusCode result = Status::Completed;
  for (const auto& row : kTimers) {
    if (timer_ != kBoth && timer_ != row.name) continue;
    SCT_Error_Recovery_Control get(device_, row.timer, NoReporter());
    if (get.GetErrorCode() == Status::ReadyToRun && get.Execute() != 0) {
      table_.AppendRow({std::string(row.title), std::to_string(get.GetTransferValue())});
    } else if (result == Status::Completed) {
      TakeResult(get);
      result = get.GetErrorCode();
    }
  }
  MORVU_LOG(kLogDebug, "Execute", "Filled structure with data.");
  End(result);
  return result == Status::Completed;
}

// ---- Properties ----

namespace {

const Timer* FindTimer(std::string_view property) {
  const auto* row = std::ranges::find_if(
      kTimers, [&](const Timer& timer) { return timer.property->name == property; });
  return row == std::end(kTimers) ? nullptr : row;
}

}  // namespace

std::unique_ptr<XmlMessaging::Property> GetErrorRecoveryProperty(JobContext*,
                                                                 const PropertyEntry& entry,
                                                                 Device* device) {
  return DescribeSetting(entry, device, [&](Device& drive) -> SettingReading {
    SCT_Error_Recovery_Control get(&drive, FindTimer(entry.name)->timer, NoReporter());
    if (get.GetErrorCode() == Status::ReadyToRun) get.Execute();
    return {get.GetErrorCode(), std::to_string(get.GetTransferValue()), JoinRemarks(get)};
  });
}

StatusCode SetErrorRecoveryProperty(XmlMessaging::Property& request, Device& device) {
  const auto* row = FindTimer(request.GetAttribute("name"));
  if (row == nullptr) return Status::InvalidArguments;
  const auto time = ParseTime(request.value);
  if (!time) return Status::InvalidErrorRecovery;
  SCT_Error_Recovery_Control set(&device, row->timer, *time, NoReporter());
  if (set.GetErrorCode() == Status::ReadyToRun) set.Execute();
  request.SetAttribute("detail", JoinRemarks(set));
  return set.GetErrorCode();
}

// ---- The family ----

namespace {

constexpr std::string_view kTimerArgument = "timer";
constexpr std::string_view kValueArgument = "value";

StatusCode ShowTimers(const FeatureCall& call, std::string_view timer) {
  ErrorRecoveryControl parser(&call.GetDevice(), std::string(timer), call.face.GetReporter());
  if (parser.GetErrorCode() != Status::ReadyToRun) return parser.GetErrorCode();
  parser.Execute();
  // Of two timers the one that could be read is shown as well.
  if (!parser.GetTable().GetDataRows().empty()) call.face.Show(parser.GetTable());
  TellRemarks(parser, call.face);
  return parser.GetErrorCode();
}

StatusCode RunErrorRecovery(const FeatureCall& call) {
  if (!call.arguments.Has(kTimerArgument)) return ShowTimers(call, kBoth);
  const auto* row =
      std::ranges::find(kTimers, call.arguments.GetText(kTimerArgument), &Timer::option);
  if (row == std::end(kTimers)) return Status::InvalidErrorRecovery;
  if (!call.arguments.Has(kValueArgument)) return ShowTimers(call, row->name);
  const auto time = ParseTime(call.arguments.GetText(kValueArgument));
  if (!time) return Status::InvalidErrorRecovery;
  SCT_Error_Recovery_Control set(&call.GetDevice(), row->timer, *time, call.face.GetReporter());
  if (set.GetErrorCode() == Status::ReadyToRun) set.Execute();
  TellRemarks(set, call.face);
  return set.GetErrorCode();
}

constexpr std::string_view kDescriptions[] = {
    "Display the selected drive's current error read and write recovery timers."};
constexpr std::string_view kTimerWords[] = {"read_timer", "write_timer"};
constexpr ArgumentDeclaration kArguments[] = {
    {"[timer]",
     "(Optional) Display the selected drive's current error recovery time value for the specified "
     "timer. Supported values are: read_timer and write_timer.",
     kTimerArgument, kTimerWords},
    {"[value]",
     "(Optional) Write the given value to the selected drive's error recovery timer. Must specify "
     "a "
     "[timer]. Value must be a decimal integer literal and is in 100ms units.",
     kValueArgument},
};
constexpr std::string_view kExamples[] = {"-drive_index 1 -error_recovery_control read_timer",
                                          "-drive_index 1 -error_recovery_control write_timer 5"};
constexpr OptionDeclaration kOptions[] = {
    {.name = "-error_recovery_control",
     .kind = OptionKind::Texts,
     .category = OptionCategory::Feature,
     .descriptions = kDescriptions,
     .arguments = kArguments,
     .examples = kExamples,
     .run = &RunErrorRecovery,
     .wrongWords = Status::InvalidErrorRecovery},
};

}  // namespace

extern constexpr FeatureRecord ErrorRecoveryControlRecord = {
    .name = "ErrorRecoveryControl",
    .group = HelpGroup::Change,
    .needsDrive = true,
    .isSequence = true,
    .options = kOptions,
};

}  // namespace Morvu
