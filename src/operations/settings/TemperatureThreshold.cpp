#include <charconv>
#include <optional>

#include "frame/Logger.h"
#include "frame/Text.h"
#include "messaging/XmlMessaging.h"
#include "messaging/features/FeatureRecord.h"
#include "operations/Operation.h"
#include "operations/SettingProperty.h"
#include "operations/settings/SetFeature.h"

namespace Morvu {

using DeviceManagement::Device;

namespace {

constexpr std::uint8_t kFeatureId = 0x04;  // NVMe 1.0, 5.12.1.4
constexpr std::uint16_t kZeroCelsius = 273;
constexpr std::uint16_t kWarmest = 75;
constexpr std::string_view kValueArgument = "value";

// Degrees Celsius, with a decimal point perhaps; none for another text and for what is out of
// range. "nan", "inf", signs, exponents and hexadecimal digits are no such number.
std::optional<double> ParseDegrees(std::string_view text) {
  if (text.find_first_not_of("0123456789.") != text.npos) return std::nullopt;
  double degrees = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), degrees);
  const bool isWhole = error == std::errc() && end == text.data() + text.size();
  if (!isWhole || degrees > kWarmest) return std::nullopt;
  return degrees;
}

}  // namespace

TemperatureThreshold::TemperatureThreshold(Device* device, std::uint16_t kelvin,
                                           ProgressReporter& reporter)
    : SetFeature(device, kFeatureId, kelvin, 0, reporter) {
  TemperatureThreshold::Initialize();
}

void TemperatureThreshold::Initialize() {
  const auto code = GetErrorCode();  // as the base was left by its own
  const bool lacksNvme = code == Status::ReadyToRun && nvme_ == nullptr;
  EndInitialize(lacksNvme ? Status::NotSupportedByDrive : code);
}

StatusCode TemperatureThreshold::SetProperty(XmlMessaging::Property& request, Device& device) {
  const auto degrees = ParseDecimal(request.value);
  if (!degrees || *degrees > kWarmest) return Status::InvalidArguments;
  TemperatureThreshold set(&device, static_cast<std::uint16_t>(*degrees + kZeroCelsius),
                           NoReporter());
  if (set.GetErrorCode() == Status::ReadyToRun) set.Execute();
  request.SetAttribute("detail", JoinRemarks(set));
  return set.GetErrorCode();
}

// ---- The family ----

namespace {

StatusCode RunTempThreshold(const FeatureCall& call) {
  const auto degrees = ParseDegrees(call.arguments.GetText(kValueArgument));
  if (!degrees) {
    call.face.Say("Invalid value for threshold. Value must be between 0 and 75.");
    return Status::InvalidArguments;
  }
  TemperatureThreshold set(&call.GetDevice(), static_cast<std::uint16_t>(*degrees + kZeroCelsius),
                           call.face.GetReporter());
  if (set.GetErrorCode() == Status::ReadyToRun) set.Execute();
  TellRemarks(set, call.face);
  return set.GetErrorCode();
}

constexpr std::string_view kDescriptions[] = {"Set the drives temperature threshold value."};
constexpr ArgumentDeclaration kArguments[] = {
    {"(value)",
     "(Required) Temperature threshold value in Degrees Celsius. Max allowed value is 75. Value "
     "must be given as a decimal integer literal.",
     kValueArgument}};
constexpr std::string_view kExamples[] = {"-drive_index 1 -set_temp_threshold 65"};
constexpr OptionDeclaration kOptions[] = {
    {.name = "-set_temp_threshold",
     .kind = OptionKind::Text,
     .category = OptionCategory::Feature,
     .descriptions = kDescriptions,
     .arguments = kArguments,
     .examples = kExamples,
     .run = &RunTempThreshold},
};

}  // namespace

extern constexpr FeatureRecord TemperatureThresholdRecord = {
    .name = "TemperatureThreshold",
    .group = HelpGroup::Change,
    .needsDrive = true,
    .isSequence = true,
    .options = kOptions,
};

}  // namespace Morvu
