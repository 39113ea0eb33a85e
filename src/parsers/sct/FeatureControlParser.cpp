#include "parsers/sct/FeatureControlParser.h"

#include <algorithm>

#include "devices/properties/SettingProperties.h"
#include "frame/Logger.h"
#include "frame/Text.h"
#include "frame/status/Drives.h"
#include "frame/status/NvmeStatus.h"
#include "frame/status/Settings.h"
#include "messaging/XmlMessaging.h"
#include "messaging/features/FeatureRecord.h"
#include "operations/Operation.h"
#include "operations/SettingProperty.h"
#include "operations/settings/SetFeature.h"
#include "parsers/nvme/GetFeature_NVMe.h"

namespace Morvu {

using DeviceManagement::Device;
namespace Properties = DeviceManagement::Properties;
namespace Protocol = DeviceManagement::Protocol;

namespace {

std::string ShowNumber(std::uint16_t state) { return std::to_string(state); }
std::string ShowMinutes(std::uint16_t state) { return std::to_string(state) + " minute(s)"; }
std::string ShowMode(std::uint16_t state) {
  constexpr std::string_view kModes[] = {"(Unconstrained. Limited by maximum budget)", "(Typical)",
                                         "(Low)"};
  const auto mode = state < std::size(kModes) ? kModes[state] : "(Unknown)";
  return std::to_string(state) + " " + std::string(mode);
}

// clang-format off
constexpr FeatureControl kControls[] = {
    // property, description, feature, form, range, its error, option
    {&Properties::WriteCacheState,     "Write Cache State",            &SCT_Write_Cache_State,            ShowNumber,  1, 3,      Status::InvalidWriteCacheState,     "-wc_state"},
    {&Properties::TempLoggingInterval, "Temperature Logging interval", &SCT_Temperature_Logging_Interval, ShowMinutes, 1, 0xFFFF, Status::InvalidTemperatureInterval, "-temp_logging_interval"},
    {&Properties::PLITestTimeInterval, "PLI Cap Test Time Interval",   &SCT_PLI_Cap_Test_Time_Interval,   ShowMinutes, 0, 6,      Status::InvalidPliInterval,         "-pli_test_time_interval"},
    {&Properties::PowerGovernorMode,   "Power Governor Mode",          &SCT_Power_Governor_Mode,          ShowMode,    0, 2,      Status::InvalidPowerMode,           "-pg_mode"},
};
// clang-format on

bool IsPowerGovernor(const FeatureControl& control) {
  return control.feature == &SCT_Power_Governor_Mode;
}

// The value of a set; none for another text and for what is out of the setting's range.
std::optional<std::uint16_t> ParseState(const FeatureControl& control, std::string_view text) {
  const auto state = ParseDecimal(text);
  if (!state || *state < control.least || *state > control.most) return std::nullopt;
  return static_cast<std::uint16_t>(*state);
}

// The set, after its run.
std::unique_ptr<Function> Set(Device& device, const FeatureControl& control, std::uint16_t state,
                              SctKept kept, ProgressReporter& reporter) {
  std::unique_ptr<Function> set;
  if (IsPowerGovernor(control) && device.HasCommandSet(Protocol::Nvme)) {
    set = std::make_unique<NVMe_PowerGovernor>(&device, static_cast<std::uint8_t>(state), reporter);
  } else {
    set = std::make_unique<SCT_Feature_Control>(&device, *control.feature, state, kept, reporter);
  }
  if (set->GetErrorCode() == Status::ReadyToRun) set->Execute();
  return set;
}

}  // namespace

FeatureControlParser::FeatureControlParser(Device* device, const FeatureControl& control,
                                           ProgressReporter& reporter)
    : Parser(device, reporter), control_(control) {
  FeatureControlParser::Initialize();
}

FeatureControlParser::~FeatureControlParser() = default;

void FeatureControlParser::Initialize() {
  table_.AppendRow({"Feature Control Description", "Value"}, true);
  if (IsPowerGovernor(control_) && nvme_ != nullptr) {
    table_.Clear();
    nvmeFeature_ =
        std::make_unique<GetFeature_NVMe>(device_, *FindNvmeFeature(NVMe_PowerGovernor::kId));
    return EndInitialize(nvmeFeature_->GetErrorCode());
  }
  stateFeature_ = std::make_unique<SCT_Feature_Control>(device_, *control_.feature, SctGet::State,
                                                        NoReporter());
  if (control_.feature->hasOptions) {
    optionFeature_ = std::make_unique<SCT_Feature_Control>(device_, *control_.feature,
                                                           SctGet::Options, NoReporter());
  }
  EndInitialize(stateFeature_->GetErrorCode());
}

std::int32_t FeatureControlParser::Execute() {
  MORVU_LOG(kLogInfo, "Execute", "Executing...");
  if (nvmeFeature_ != nullptr) return ExecuteNvme();
  if (stateFeature_ == nullptr || !Get(*stateFeature_, stateText_)) return false;
  if (optionFeature_ != nullptr && !Get(*optionFeature_, optionText_)) return false;
  table_.AppendRow(
      {std::string(control_.description), control_.show(stateFeature_->GetTransferValue())});
  if (optionFeature_ != nullptr) {
    table_.AppendRow({"Option Flag: Non-volatile bit", optionText_});
  }
  return true;
}

// Takes over how it ended: a flag that could not be read is no good end either.
bool FeatureControlParser::Get(SCT_Feature_Control& get, std::string& text) {
  const bool isRead = get.GetErrorCode() == Status::ReadyToRun && get.Execute() != 0;
  if (isRead) text = std::to_string(get.GetTransferValue());
  TakeResult(get);
  return isRead;
}

bool FeatureControlParser::ExecuteNvme() {
  const bool isRead = nvmeFeature_->Execute() != 0;
  table_.Append(nvmeFeature_->GetTable());
  End(nvmeFeature_->GetErrorCode());
  return isRead;
}

// ---- Properties ----

namespace {

const FeatureControl* FindControl(std::string_view property) {
  const auto* row = std::ranges::find_if(
      kControls, [&](const FeatureControl& control) { return control.property->name == property; });
  return row == std::end(kControls) ? nullptr : row;
}

// The state alone, as a number.
SettingReading ReadState(const FeatureControl& control, Device& device) {
  if (IsPowerGovernor(control) && device.HasCommandSet(Protocol::Nvme)) {
    GetFeature_NVMe get(&device, *FindNvmeFeature(NVMe_PowerGovernor::kId));
    if (get.GetErrorCode() == Status::ReadyToRun) get.Execute();
    return {get.GetErrorCode(), std::to_string(get.GetResult() & 0xFF)};
  }
  SCT_Feature_Control get(&device, *control.feature, SctGet::State, NoReporter());
  if (get.GetErrorCode() == Status::ReadyToRun) get.Execute();
  return {get.GetErrorCode(), std::to_string(get.GetTransferValue()), JoinRemarks(get)};
}

}  // namespace

std::unique_ptr<XmlMessaging::Property> GetFeatureControlProperty(JobContext*,
                                                                  const PropertyEntry& entry,
                                                                  Device* device) {
  return DescribeSetting(entry, device,
                         [&](Device& drive) { return ReadState(*FindControl(entry.name), drive); });
}

StatusCode SetFeatureControlProperty(XmlMessaging::Property& request, Device& device) {
  const auto* control = FindControl(request.GetAttribute("name"));
  if (control == nullptr) return Status::InvalidArguments;
  const auto state = ParseState(*control, request.value);
  if (!state) return control->rangeError;
  const auto set = Set(device, *control, *state, SctKept::OverPowerCycles, NoReporter());
  request.SetAttribute("detail", JoinRemarks(*set));
  return set->GetErrorCode();
}

// ---- The family ----

namespace {

constexpr std::string_view kStateArgument = "state";
constexpr std::string_view kVolatile = "-volatile";

StatusCode ShowControl(const FeatureCall& call, const FeatureControl& control) {
  FeatureControlParser parser(&call.GetDevice(), control, call.face.GetReporter());
  if (parser.GetErrorCode() == Status::ReadyToRun && parser.Execute() != 0) {
    if (IsPowerGovernor(control)) {
      constexpr std::int64_t kColumnWidth = 20;
      parser.GetTable().SetColumnWidth(0, kColumnWidth);
      parser.GetTable().SetColumnWidth(1, kColumnWidth);
    }
    call.face.Show(parser.GetTable());
  }
  TellRemarks(parser, call.face);
  return parser.GetErrorCode();
}

template <std::size_t Row>
StatusCode RunControl(const FeatureCall& call) {
  const auto& control = kControls[Row];
  const bool isVolatile = call.arguments.GetFlag(kVolatile);
  // A flag without a place in the action would be passed over.
  if (isVolatile && !control.feature->hasOptions) return Status::InvalidSctFeature;
  if (!call.arguments.Has(kStateArgument)) return ShowControl(call, control);
  const auto state = ParseState(control, call.arguments.GetText(kStateArgument));
  if (!state) return control.rangeError;
  const auto set = Set(call.GetDevice(), control, *state,
                       isVolatile ? SctKept::UntilPowerCycle : SctKept::OverPowerCycles,
                       call.face.GetReporter());
  TellRemarks(*set, call.face);
  return set->GetErrorCode();
}

constexpr std::string_view kCacheText[] = {
    "Display the selected drive's write cache state, and option flag."};
constexpr std::string_view kCacheWords[] = {"1", "2", "3"};
constexpr ArgumentDeclaration kCacheArguments[] = {
    {"[state]",
     "(Optional) Set the drive's write cache state. Use -volatile to make the setting persist "
     "after "
     "power cycle. Valid states are:",
     kStateArgument, kCacheWords},
    {"[state]", "1 - write cache state is determined by Set Features."},
    {"[state]", "2 - write cache state is enabled."},
    {"[state]", "3 - write cache state is disabled."},
};
constexpr std::string_view kCacheExamples[] = {"-drive_index 1 -wc_state 3",
                                               "-drive_index 1 -wc_state 1 -volatile"};

constexpr std::string_view kIntervalText[] = {
    "Display the selected drive's temperature logging interval time,  and option flag."};
constexpr ArgumentDeclaration kIntervalArguments[] = {
    {"[time]",
     "(Optional) Set the selected drives temperature logging interval time in minutes. 1 <= time "
     "<= "
     "65535.",
     kStateArgument},
    {"[time]", "Use -volatile to make the setting persist after power cycle."},
};
constexpr std::string_view kIntervalExamples[] = {
    "-drive_index 1 -temp_logging_interval 2", "-drive_index 1 -temp_logging_interval 5 -volatile"};

constexpr std::string_view kPliText[] = {
    "Display the selected drive's PLI test time interval,  and option flag."};
constexpr std::string_view kPliWords[] = {"0", "1", "2", "3", "4", "5", "6"};
constexpr ArgumentDeclaration kPliArguments[] = {
    {"[test_time_interval]",
     "(Optional) Set the selected drives PLI test time interval. Use -volatile to make the setting "
     "persist after power cycle. Valid values are:",
     kStateArgument, kPliWords},
    {"[test_time_interval]", "0: stop interval testing, no immediate test"},
    {"[test_time_interval]", "1: stop interval testing, do immediate test"},
    {"[test_time_interval]", "2: test every hour (60 minutes), do immediate test"},
    {"[test_time_interval]", "3: test every day (1440 minutes), do immediate test"},
    {"[test_time_interval]", "4: test every 3 days (4320 minutes), do immediate test"},
    {"[test_time_interval]", "5: test every 7 days (10080 minutes), do immediate test"},
    {"[test_time_interval]", "6: test every 14 days (20160 minutes), do immediate test"},
};
constexpr std::string_view kPliExamples[] = {"-drive_index 1 -pli_test_time_interval 2",
                                             "-drive_index 1 -pli_test_time_interval 5 -volatile"};

constexpr std::string_view kModeText[] = {"Display the selected drive's power governor mode."};
constexpr std::string_view kModeWords[] = {"0", "1", "2"};
constexpr ArgumentDeclaration kModeArguments[] = {
    {"[mode]", "(Optional) Set the power governor mode. Valid mode values are: 0, 1, 2.",
     kStateArgument, kModeWords},
    {"[mode]", "0 - ATA: Unconstrained. Power will be limited by maximum budget only. NVMe: 25W"},
    {"[mode]", "1 - ATA: Typical (7W). NVMe: 20W"},
    {"[mode]", "2 - ATA: Low (5W). NVMe: 10W"},
};
constexpr std::string_view kModeExamples[] = {"-drive_index 1 -pg_mode 2"};

// Of the control in the row: what differs is its texts.
template <std::size_t Row>
constexpr OptionDeclaration Declare(std::span<const std::string_view> text,
                                    std::span<const ArgumentDeclaration> arguments,
                                    std::span<const std::string_view> examples) {
  return {.name = kControls[Row].option,
          .kind = OptionKind::Texts,
          .category = OptionCategory::Feature,
          .descriptions = text,
          .arguments = arguments,
          .examples = examples,
          .run = &RunControl<Row>,
          .wrongWords = Status::InvalidSctFeature};
}
constexpr OptionDeclaration kOptions[] = {
    Declare<0>(kCacheText, kCacheArguments, kCacheExamples),
    Declare<1>(kIntervalText, kIntervalArguments, kIntervalExamples),
    Declare<2>(kPliText, kPliArguments, kPliExamples),
    Declare<3>(kModeText, kModeArguments, kModeExamples),
};

}  // namespace

extern constexpr FeatureRecord FeatureControlRecord = {
    .name = "FeatureControl",
    .group = HelpGroup::Change,
    .needsDrive = true,
    .isSequence = true,
    .options = kOptions,
};

}  // namespace Morvu
