#include "operations/settings/SctPhy.h"

#include <algorithm>
#include <optional>

#include "devices/identification/DeviceIdentification.h"
#include "devices/identification/Products.h"
#include "devices/model/Drive.h"
#include "devices/properties/BasicProperties.h"
#include "devices/properties/LinkProperties.h"
#include "devices/properties/SettingProperties.h"
#include "frame/Logger.h"
#include "frame/Platform.h"
#include "frame/Text.h"
#include "frame/status/Drives.h"
#include "frame/status/Settings.h"
#include "messaging/XmlMessaging.h"
#include "messaging/features/FeatureRecord.h"
#include "operations/Operation.h"
#include "operations/SettingProperty.h"
#include "operations/settings/SctSaves.h"

namespace Morvu {

using DeviceManagement::Device;
namespace Properties = DeviceManagement::Properties;

namespace {

// The vendor's action codes.
constexpr std::uint16_t kPhyConfigAction = 0xC002;
constexpr std::uint16_t kClockingAction = 0xC003;
constexpr std::uint16_t kPhySpeedAction = 0xC004;
constexpr std::uint16_t kCominitAction = 0xC100;
constexpr std::uint16_t kOtherClockingAction = 0xC60E;  // of products that have no more than it

constexpr std::size_t kCustomValues = 6;

struct PhyConfigName {
  std::uint16_t config;
  std::string_view text;
};
constexpr PhyConfigName kPhyConfigNames[] = {
    {0, "0 (Default Enterprise Settings)"},
    {1, "1 (Client Settings)"},
    {2, "2 (Alternate Enterprise Settings)"},
    {SCT_Custom_PHY::kCustom, "6 (Custom Settings)"},
};

struct PhySpeedName {
  std::string_view text;
  std::uint16_t code;
};
constexpr PhySpeedName kPhySpeedNames[] = {
    {"1.5", 0}, {"3", 1}, {"3.0", 1}, {"6", 2}, {"6.0", 2},
};

std::optional<std::uint16_t> FindPhyConfig(std::string_view text) {
  const auto config = ParseDecimal(text);
  const auto* row = std::ranges::find_if(
      kPhyConfigNames, [&](const PhyConfigName& name) { return config == name.config; });
  if (row == std::end(kPhyConfigNames)) return std::nullopt;
  return row->config;
}

std::optional<std::uint16_t> FindPhySpeed(std::string_view text) {
  const auto* row = std::ranges::find(kPhySpeedNames, text, &PhySpeedName::text);
  if (row == std::end(kPhySpeedNames)) return std::nullopt;
  return row->code;
}

// Products that set their clocking by an action of their own, from a firmware on.
bool HasOtherClocking(const Device& device) {
  const auto from = DeviceManagement::ProductOf(device).clockingFirmware;
  return !from.empty() && device.GetString(Properties::Firmware).substr(0, from.size()) >= from;
}

}  // namespace

// ---- The actions ----

std::int32_t SctPhyAction::Execute() {
  if (!SCT::Execute()) return false;
  if (!NeedsCominit()) return true;
  // Its result does not matter: the setting has been taken.
  SCT_COMINIT cominit(device_, NoReporter());
  if (cominit.GetErrorCode() == Status::ReadyToRun) cominit.Execute();
  return true;
}

SCT_Custom_PHY::SCT_Custom_PHY(Device* device, std::uint16_t config,
                               std::vector<std::uint16_t> values, ProgressReporter& reporter)
    : SctPhyAction(device, kPhyConfigAction, config, reporter), values_(std::move(values)) {
  SCT_Custom_PHY::Initialize();
}

void SCT_Custom_PHY::Initialize() {
  SCT::Initialize();
  const bool fits = functionCode_ != kCustom || values_.size() == kCustomValues;
  if (GetErrorCode() == Status::ReadyToRun && !fits) EndInitialize(Status::InvalidCustomPhy);
}

std::int32_t SCT_Custom_PHY::Execute() {
  if (functionCode_ == kCustom) {
    std::ranges::transform(values_, GetKeySectorParameters().begin(),
                           [](std::uint16_t value) { return static_cast<std::uint8_t>(value); });
  }
  return SctPhyAction::Execute();
}

SCT_PHY_Speed::SCT_PHY_Speed(Device* device, std::uint16_t speed, ProgressReporter& reporter)
    : SctPhyAction(device, kPhySpeedAction, speed, reporter) {
  SCT::Initialize();
}

SCT_SSC::SCT_SSC(Device* device, bool enable, ProgressReporter& reporter)
    : SctPhyAction(device, kClockingAction, enable ? 1 : 0, reporter) {
  SCT_SSC::Initialize();
}

void SCT_SSC::Initialize() {
  if (device_ == nullptr || !HasOtherClocking(*device_)) return SCT::Initialize();
  actionCode_ = kOtherClockingAction;
  EndInitialize(FindRefusal());
}

bool SCT_SSC::NeedsCominit() const { return actionCode_ == kClockingAction; }

SCT_COMINIT::SCT_COMINIT(Device* device, ProgressReporter& reporter)
    : SCT(device, kCominitAction, 0, Answer::None, reporter) {
  SCT::Initialize();
}

// ---- What the drive shows ----

namespace {

// Of the last scan, or of the identification just before.
std::string ShowPhy(const PropertyEntry& entry, const Device& device) {
  if (&entry == &Properties::PhySpeed) {
    return device.GetString(Properties::SataNegotiatedSpeed);
  }
  if (&entry == &Properties::SSCEnabled) return BoolText(device.GetBool(entry));
  const auto* row =
      std::ranges::find(kPhyConfigNames, device.GetUInt(entry), &PhyConfigName::config);
  return row == std::end(kPhyConfigNames) ? "Unknown" : std::string(row->text);
}

// Behind a COMINIT the link needs its time; who answers then has to be the same drive.
std::string ShowPhyAfresh(const PropertyEntry& entry, const Device& device) {
  constexpr int kTries = 10;
  constexpr std::chrono::seconds kPause{1};
  for (int i = 0; i < kTries; ++i) {
    if (i > 0) SleepFor(kPause);
    const auto clone = device.Clone();
    if (clone->TestConnection() && DeviceManagement::IdentifyDevice(clone.get())) {
      return IsSameDrive(*clone, device) ? ShowPhy(entry, *clone) : std::string();
    }
  }
  return {};
}

bool HasPhySetting(const PropertyEntry& entry, const Device& device) {
  const bool isClocking = &entry == &Properties::SSCEnabled;
  return device.HasCommandSet(DeviceManagement::Protocol::Ata) &&
         (DeviceManagement::ProductOf(device).hasOemAttributes ||
          (isClocking && HasOtherClocking(device)));
}

// What a run has told, for either face.
struct PhyOutcome {
  StatusCode code;
  RemainingSaves saves{};
  std::string shown{};  // by the drive, after a good end; empty where it does not answer
};

PhyOutcome RunPhyAction(SctPhyAction& action, const PropertyEntry& entry,
                        const std::function<void(const std::string&)>& say) {
  PhyOutcome outcome{.code = action.GetErrorCode()};
  if (outcome.code != Status::ReadyToRun) return outcome;
  outcome.saves = CheckRemainingSaves(*action.GetDevice(), true);
  for (const auto& line : outcome.saves.lines) say(line);
  outcome.code = outcome.saves.code;
  if (outcome.code != Status::ReadyToRun) return outcome;
  action.Execute();
  outcome.code = action.GetErrorCode();
  if (outcome.code == Status::Completed) outcome.shown = ShowPhyAfresh(entry, *action.GetDevice());
  return outcome;
}

}  // namespace

// ---- Properties ----

std::unique_ptr<XmlMessaging::Property> GetPhyProperty(JobContext*, const PropertyEntry& entry,
                                                       Device* device) {
  return DescribeSetting(entry, device, [&](Device& drive) -> SettingReading {
    if (Refuse::NotMorvu(drive)) return {Status::NotAMorvuDrive};
    if (!HasPhySetting(entry, drive)) return {Status::NotSupportedByDrive};
    const auto text = ShowPhy(entry, drive);
    if (text.empty()) return {Status::NotSupportedByDrive};
    return {Status::Completed, text};
  });
}

namespace {

StatusCode WritePhyProperty(XmlMessaging::Property& request, SctPhyAction& action,
                            const PropertyEntry& entry) {
  const auto outcome = RunPhyAction(action, entry, [](const std::string&) {});
  if (outcome.saves.count >= 0) {
    request.SetAttribute("remainingSaves", std::to_string(outcome.saves.count));
  }
  request.SetAttribute("detail", JoinRemarks(action));
  if (outcome.code != Status::Completed) return outcome.code;
  request.SetAttribute("powercycle", BoolText(true));
  request.SetAttribute("shows", outcome.shown);
  return outcome.code;
}

}  // namespace

StatusCode SetPhyConfig(XmlMessaging::Property& request, Device& device) {
  const auto config = FindPhyConfig(request.value);
  if (!config) return Status::InvalidPhyConfig;
  SCT_Custom_PHY action(&device, *config, {}, NoReporter());
  return WritePhyProperty(request, action, Properties::PhyConfig);
}

StatusCode SetPhySpeed(XmlMessaging::Property& request, Device& device) {
  const auto speed = FindPhySpeed(request.value);
  if (!speed) return Status::InvalidPhySpeed;
  SCT_PHY_Speed action(&device, *speed, NoReporter());
  return WritePhyProperty(request, action, Properties::PhySpeed);
}

StatusCode SetSscEnabled(XmlMessaging::Property& request, Device& device) {
  const bool enable = IEquals(request.value, "true");
  if (!enable && !IEquals(request.value, "false")) return Status::InvalidArguments;
  MORVU_LOG(kLogInfo, "SetCimProperty",
            std::string("SSCEnabled=") + (enable ? "true" : "false") + " given.");
  SCT_SSC action(&device, enable, NoReporter());
  return WritePhyProperty(request, action, Properties::SSCEnabled);
}

// ---- The families ----

namespace {

constexpr std::string_view kConfigArgument = "config";
constexpr std::string_view kValuesArgument = "values";
constexpr std::string_view kSpeedArgument = "speed";

// Says how the run ended, and what the drive has told beside it.
void TellOutcome(Face& face, const SctPhyAction& action, const PhyOutcome& outcome,
                 const std::string& good, const std::string& bad) {
  if (outcome.code == Status::CanceledByUser) return;
  if (outcome.code != Status::Completed) {
    face.Say(bad);
    TellRemarks(action, face);
    return;
  }
  face.Say(good);
  face.Say(outcome.shown.empty() ? "The drive does not answer yet."
                                 : "The drive shows now: " + outcome.shown);
}

StatusCode RunPhyOption(const FeatureCall& call, SctPhyAction& action, const PropertyEntry& entry,
                        const std::string& good, const std::string& bad) {
  const auto outcome = RunPhyAction(action, entry, [&](const auto& line) { call.face.Say(line); });
  TellOutcome(call.face, action, outcome, good, bad);
  return outcome.code;
}

// Six bytes in hexadecimal; none, and a line says why, where one is no such byte.
std::optional<std::vector<std::uint16_t>> ParseCustomValues(const FeatureCall& call) {
  std::vector<std::uint16_t> values;
  const auto text = call.arguments.GetText(kValuesArgument);
  if (text.empty()) return values;
  for (const auto& word : Split(text, ' ')) {
    const auto value = ParseHex(word);
    if (word.find_first_not_of("0123456789ABCDEFabcdef") != word.npos) {
      call.face.Say("Invalid parameter value given: " + word);
    }
    if (!value || *value > 0xFF) return std::nullopt;
    values.push_back(static_cast<std::uint16_t>(*value));
  }
  return values;
}

StatusCode RunSetPhyConfig(const FeatureCall& call) {
  const auto text = call.arguments.GetText(kConfigArgument);
  const auto config = FindPhyConfig(text);
  if (!config) return Status::InvalidPhyConfig;
  // Values belong to the custom configuration alone.
  const bool isCustom = *config == SCT_Custom_PHY::kCustom;
  if (!isCustom && call.arguments.Has(kValuesArgument)) return Status::InvalidPhyConfig;
  auto values = ParseCustomValues(call);
  if (!values) return Status::InvalidCustomPhy;
  SCT_Custom_PHY action(&call.GetDevice(), *config, std::move(*values), call.face.GetReporter());
  return RunPhyOption(
      call, action, Properties::PhyConfig,
      "Successfully set drive's PHY Config to " + text + "\nPlease power cycle the drive.",
      "Failed to set drive's PHY Config to " + text);
}

StatusCode RunSetPhySpeed(const FeatureCall& call) {
  const auto text = call.arguments.GetText(kSpeedArgument);
  const auto speed = FindPhySpeed(text);
  if (!speed) return Status::InvalidPhySpeed;
  SCT_PHY_Speed action(&call.GetDevice(), *speed, call.face.GetReporter());
  return RunPhyOption(
      call, action, Properties::PhySpeed,
      "Successfully set drive's PHY Speed to " + text + "\nPlease power cycle the drive.",
      "Failed to set drive's PHY speed to " + text);
}

template <bool enable>
StatusCode RunSsc(const FeatureCall& call) {
  const std::string verb = enable ? "Enable" : "Disable";
  MORVU_LOG(kLogInfo, "RunCLI",
            enable ? "-enable_ssc option given." : "-disable_ssc option given.");
  SCT_SSC action(&call.GetDevice(), enable, call.face.GetReporter());
  return RunPhyOption(call, action, Properties::SSCEnabled,
                      verb + " SSC succeeded.\nPower cycle the drive for changes to take effect.",
                      verb + " SSC failed!");
}

constexpr std::string_view kConfigText[] = {
    "Set the drive's PHY settings. For the setting to take effect the drive will need to be power "
    "cycled."};
constexpr std::string_view kConfigWords[] = {"0", "1", "2"};
constexpr ArgumentDeclaration kConfigArguments[] = {
    {"(config)", "(Required) Supported values are:", kConfigArgument, kConfigWords},
    {"(config)", "0 = Default enterprise settings."},
    {"(config)", "1 = Client settings."},
    {"(config)", "2 = Alternate Enterprise settings."},
};
constexpr std::string_view kConfigExamples[] = {"-drive_index 1 -set_phy_config 1"};

constexpr std::string_view kSpeedText[] = {
    "Set the drive's negotiated Serial ATA signal speed. For the setting to take effect the drive "
    "will need to be power cycled."};
constexpr std::string_view kSpeedWords[] = {"1.5", "3", "6"};
constexpr ArgumentDeclaration kSpeedArguments[] = {
    {"(speed)", "(Required) Supported PHY speeds are: 1.5, 3, and 6.", kSpeedArgument,
     kSpeedWords}};
constexpr std::string_view kSpeedExamples[] = {"-drive_index 1 -set_phy_speed 6"};

constexpr std::string_view kEnableText[] = {
    "Enable the drive's spread spectrum clocking (SSC) feature. Word 129, bit 1 of Identify Device "
    "data will report 1 when SSC is enabled. For the setting to take effect the drive will need to "
    "be power cycled."};
constexpr std::string_view kEnableExamples[] = {"-drive_index 1 -enable_ssc"};
constexpr std::string_view kDisableText[] = {
    "Disable the drive's spread spectrum clocking feature. Word 129, bit 1 of Identify Device data "
    "will report 0 when SSC is disabled. For the setting to take effect the drive will need to be "
    "power cycled."};
constexpr std::string_view kDisableExamples[] = {"-drive_index 1 -disable_ssc"};

constexpr OptionDeclaration kOptions[] = {
    {.name = "-set_phy_config",
     .kind = OptionKind::Texts,
     .category = OptionCategory::Feature,
     .descriptions = kConfigText,
     .arguments = kConfigArguments,
     .examples = kConfigExamples,
     .run = &RunSetPhyConfig,
     .wrongWords = Status::InvalidPhyConfig,
     .restArgument = kValuesArgument},
    {.name = "-set_phy_speed",
     .kind = OptionKind::Texts,
     .category = OptionCategory::Feature,
     .descriptions = kSpeedText,
     .arguments = kSpeedArguments,
     .examples = kSpeedExamples,
     .run = &RunSetPhySpeed,
     .wrongWords = Status::InvalidPhySpeed},
    {.name = "-enable_ssc",
     .kind = OptionKind::Flag,
     .category = OptionCategory::Feature,
     .descriptions = kEnableText,
     .arguments = {},
     .examples = kEnableExamples,
     .run = &RunSsc<true>},
    {.name = "-disable_ssc",
     .kind = OptionKind::Flag,
     .category = OptionCategory::Feature,
     .descriptions = kDisableText,
     .arguments = {},
     .examples = kDisableExamples,
     .run = &RunSsc<false>},
};

}  // namespace

extern constexpr FeatureRecord SctPhyRecord = {
    .name = "SctPhy",
    .group = HelpGroup::Change,
    .needsDrive = true,
    .isSequence = true,
    .options = kOptions,
};

}  // namespace Morvu
