#include "operations/settings/SctSettings.h"

#include <algorithm>
#include <optional>

#include "devices/properties/SettingProperties.h"
#include "frame/Text.h"
#include "messaging/XmlMessaging.h"
#include "messaging/features/FeatureRecord.h"
#include "operations/Operation.h"
#include "operations/SettingProperty.h"
#include "operations/settings/SCT.h"

namespace Morvu {

using DeviceManagement::Device;
namespace Properties = DeviceManagement::Properties;

namespace {

// As a property, and as the prompt tells it.
std::string ShowSize(std::uint16_t state) {
  return state == 0 ? "512" : state == 1 ? "4096" : "Unknown";
}
std::string TellSize(std::uint16_t state) {
  return state == 0   ? "Physical Sector Size = 512 Bytes"
         : state == 1 ? "Physical Sector Size = 4K Bytes"
                      : "Physical Sector Size is unknown!";
}
std::string ShowPower(std::uint16_t state) { return std::to_string(state) + " Milliwatts"; }
std::string TellAverage(std::uint16_t state) {
  return "Power governor average power = " + ShowPower(state);
}
std::string TellBurst(std::uint16_t state) {
  return "Power governor burst power = " + ShowPower(state);
}

struct SctSetting {
  const PropertyEntry* property;
  const SctFeature* feature;
  std::string (*show)(std::uint16_t state);
  std::string (*tell)(std::uint16_t state);
};
// clang-format off
constexpr SctSetting kSectorSize = {&Properties::PhysicalSectorSize,        &SCT_Physical_Sector_Size,       ShowSize,  TellSize};
constexpr SctSetting kAverage    = {&Properties::PowerGovernorAveragePower, &SCT_Power_Governor_Avg_Power,   ShowPower, TellAverage};
constexpr SctSetting kBurst      = {&Properties::PowerGovernorBurstPower,   &SCT_Power_Governor_Burst_Power, ShowPower, TellBurst};
// clang-format on
constexpr const SctSetting* kSettings[] = {&kSectorSize, &kAverage, &kBurst};

// 0 or 1: sectors of 512 or of 4096 bytes.
std::optional<std::uint16_t> ParseSize(std::string_view text) {
  const auto state = ParseDecimal(text);
  if (!state || *state > 1) return std::nullopt;
  return static_cast<std::uint16_t>(*state);
}

}  // namespace

// ---- Properties ----

std::unique_ptr<XmlMessaging::Property> GetSctProperty(JobContext*, const PropertyEntry& entry,
                                                       Device* device) {
  return DescribeSetting(entry, device, [&](Device& drive) -> SettingReading {
    const auto& setting = **std::ranges::find_if(
        kSettings, [&](const SctSetting* row) { return row->property->name == entry.name; });
    SCT_Feature_Control get(&drive, *setting.feature, SctGet::State, NoReporter());
    if (get.GetErrorCode() == Status::ReadyToRun) get.Execute();
    return {get.GetErrorCode(), setting.show(get.GetTransferValue()), JoinRemarks(get)};
  });
}

StatusCode SetPhysicalSectorSize(XmlMessaging::Property& request, Device& device) {
  const auto state = ParseSize(request.value);
  if (!state) return Status::InvalidArguments;
  SCT_Feature_Control set(&device, SCT_Physical_Sector_Size, *state, SctKept::OverPowerCycles,
                          NoReporter());
  if (set.GetErrorCode() == Status::ReadyToRun) set.Execute();
  request.SetAttribute("detail", JoinRemarks(set));
  return set.GetErrorCode();
}

// ---- The family ----

namespace {

constexpr std::string_view kStateArgument = "state";

StatusCode Execute(Face& face, SCT_Feature_Control& sct) {
  if (sct.GetErrorCode() == Status::ReadyToRun) sct.Execute();
  TellRemarks(sct, face);
  return sct.GetErrorCode();
}

StatusCode TellSetting(const FeatureCall& call, const SctSetting& setting) {
  SCT_Feature_Control get(&call.GetDevice(), *setting.feature, SctGet::State,
                          call.face.GetReporter());
  const auto code = Execute(call.face, get);
  if (code == Status::Completed) call.face.Say(setting.tell(get.GetTransferValue()));
  return code;
}

StatusCode RunSectorSize(const FeatureCall& call) {
  if (!call.arguments.Has(kStateArgument)) return TellSetting(call, kSectorSize);
  const auto state = ParseSize(call.arguments.GetText(kStateArgument));
  if (!state) {
    call.face.Say("Error: Invalid state value provided. The value can be either 0 or 1.");
    return Status::InvalidArguments;
  }
  SCT_Feature_Control set(&call.GetDevice(), SCT_Physical_Sector_Size, *state,
                          SctKept::OverPowerCycles, call.face.GetReporter());
  return Execute(call.face, set);
}

template <const SctSetting& Setting>
StatusCode RunPower(const FeatureCall& call) {
  return TellSetting(call, Setting);
}

constexpr std::string_view kSizeText[] = {
    "Display the selected drives physical sector size to the screen."};
constexpr std::string_view kSizeWords[] = {"0", "1"};
constexpr ArgumentDeclaration kSizeArguments[] = {
    {"[state]", "(Optional) Set the selected drive's physical sector size. Supported values are:",
     kStateArgument, kSizeWords},
    {"[state]", "0 = 512Byte physical sector size."},
    {"[state]", "1 = 4KByte physical sector size."},
};
constexpr std::string_view kSizeExamples[] = {"-drive_index 1 -physical_sector_size",
                                              "-drive_index 1 -physical_sector_size 1"};
constexpr std::string_view kAverageText[] = {
    "Display the selected drive's power governor average power setting. Value is returned in "
    "miliwatts."};
constexpr std::string_view kAverageExamples[] = {"-drive_index 1 -pg_average"};
constexpr std::string_view kBurstText[] = {
    "Display the selected drive's power governor burst power setting. Value is returned in "
    "miliwatts."};
constexpr std::string_view kBurstExamples[] = {"-drive_index 1 -pg_burst"};

constexpr OptionDeclaration kOptions[] = {
    {.name = "-physical_sector_size",
     .kind = OptionKind::Texts,
     .category = OptionCategory::Feature,
     .descriptions = kSizeText,
     .arguments = kSizeArguments,
     .examples = kSizeExamples,
     .run = &RunSectorSize},
    {.name = "-pg_average",
     .kind = OptionKind::Flag,
     .category = OptionCategory::Feature,
     .descriptions = kAverageText,
     .arguments = {},
     .examples = kAverageExamples,
     .run = &RunPower<kAverage>},
    {.name = "-pg_burst",
     .kind = OptionKind::Flag,
     .category = OptionCategory::Feature,
     .descriptions = kBurstText,
     .arguments = {},
     .examples = kBurstExamples,
     .run = &RunPower<kBurst>},
};

}  // namespace

extern constexpr FeatureRecord SctSettingsRecord = {
    .name = "SctSettings",
    .group = HelpGroup::Change,
    .needsDrive = true,
    .isSequence = true,
    .options = kOptions,
};

}  // namespace Morvu
