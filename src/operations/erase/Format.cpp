#include "operations/erase/Format.h"

#include <optional>

#include "frame/Logger.h"
#include "frame/Text.h"
#include "frame/status/Drives.h"
#include "frame/status/Requests.h"
#include "messaging/features/JobContext.h"
#include "operations/Operation.h"
#include "operations/erase/EraseEnd.h"

namespace Morvu {

using DeviceManagement::Device;
namespace Protocol = DeviceManagement::Protocol;

namespace {

constexpr EraseTexts kTexts = {
    .unable = "Unable to format the selected drive.",
    .warning = "WARNING! You have selected to format the drive!",
    .prompt = "Proceed with the format?",
    .begin = "Formatting the drive...",
};

constexpr std::string_view kDescriptions[] = {
    "Format the selected drive. The tool will prompt prior to issuing the format.",
    "WARNING! FORMAT WILL ERASE ALL DATA ON THE DRIVE!",
};
// clang-format off
constexpr ArgumentDeclaration kArguments[] = {
    {"[SES]",  "(Optional) Secure Erase Setting. Supported values are:", "SecureEraseSetting"},
    {"[SES]",  "0 = No Secure Erase{ NVMe: Default } / Standard Secure Erase{ ATA: Default }"},
    {"[SES]",  "1 = User Data Erase {NVMe} / Enhanced Secure Erase {ATA}"},
    {"[SES]",  "2 = Crypto Erase {NVMe Only}"},
    {"[PI]",   "(Optional) Protection Information {NVMe Only. Selected drive may not support all options}. Supported values are:", "ProtectionInformation"},
    {"[PI]",   "0 = Protection Information not enabled {Default }"},
    {"[PI]",   "1 = Protection Information Type 1 enabled"},
    {"[PI]",   "2 = Protection Information Type 2 enabled"},
    {"[PI]",   "3 = Protection Information Type 3 enabled"},
    {"[LBAF]", "(Optional) LBA Format {NVMe Only. Selected drive may not support all options.} See identify controller information for supported values. Default = 0", "LBAFormat"},
    {"[PIL]",  "(Optional) Protection Information Location {NVMe Only}. Supported values are:", "ProtectionInformationLocation"},
    {"[PIL]",  "0 = Protection information is transferred as the last 8 bytes of metadata when protection information is enabled. {Default}"},
    {"[PIL]",  "1 = Protection information is transferred as the first 8 bytes of metadata when protection information is enabled."},
    {"[MS]",   "(Optional) Metadata Settings {NVMe Only}. Supported values are:", "MetadataSetting"},
    {"[MS]",   "0 = Metadata is transferred as part of a separate contiguous buffer. {Default}"},
    {"[MS]",   "1 = Metadata is transferred as part of an extended data LBA."},
};
// clang-format on
constexpr std::string_view kExamples[] = {
    "-drive_index 1 -format",
    "-drive_index 1 -format 1 2 0",
};
struct SettingRow {
  std::string_view argument;
  std::uint8_t FormatSettings::*setting;
  bool nvmeOnly;  // at the prompt other drives pass it over
};
// clang-format off
constexpr SettingRow kSettings[] = {
    {"SecureEraseSetting",            &FormatSettings::secureErase,            false},
    {"ProtectionInformation",         &FormatSettings::protectionInformation,  true},
    {"LBAFormat",                     &FormatSettings::lbaFormat,              true},
    {"ProtectionInformationLocation", &FormatSettings::protectionInfoLocation, true},
    {"MetadataSetting",               &FormatSettings::metadata,               false},
};
// clang-format on

// None when a text is no number, on a drive that passes it over too.
std::optional<FormatSettings> ParseSettings(const CallArguments& arguments, bool isNvme) {
  FormatSettings settings;
  for (const auto& row : kSettings) {
    const auto value = arguments.GetNumber<std::uint8_t>(row.argument);
    if (!value) return std::nullopt;
    if (isNvme || !row.nvmeOnly) settings.*row.setting = *value;
  }
  return settings;
}

}  // namespace

struct Format::Rules {
  // clang-format off
  static constexpr Refusal<Format> kTable[] = {
      {OfDevice<Refuse::NotConnected>,       Status::NoCommunication},
      {OfDevice<Refuse::RaidVolume>,         Status::RaidVolume},
      {OfDevice<Refuse::NotMorvu>,           Status::NotAMorvuDrive},
      {OfDevice<Refuse::RaidMember>,         Status::RaidMemberRefused},
      {OfDevice<Refuse::StorageSpaceMember>, Status::StorageSpaceMember},
      {OfDevice<Refuse::DeviceFault>,        Status::DeviceFault},
      {OfDevice<Refuse::FailureReported>,    Status::DisableLogical},
  };
  // clang-format on
};

Format::Format(Device* device, const FormatSettings& settings, ProgressReporter& reporter)
    : Erasure(device, nullptr, reporter), settings_(settings) {
  Format::Initialize();
}

void Format::Initialize() {
  auto code = FirstRefusal<Format>(Rules::kTable, *this);
  if (code == Status::ReadyToRun) {
    sender_ = MakeSender();
    code = sender_ == nullptr ? Status::NotSupportedByDrive : sender_->GetErrorCode();
  }
  EndInitialize(code);
}

std::unique_ptr<SendFormat> Format::MakeSender() {
  if (ata_ != nullptr) {
    return std::make_unique<SendFormat_ATA>(device_, settings_.secureErase, GetPermit(),
                                            GetReporter());
  }
  if (nvme_ != nullptr) {
    return std::make_unique<SendFormat_NVMe>(device_, settings_, GetPermit(), GetReporter());
  }
  return nullptr;
}

StatusCode Format::Refuse(StatusCode code) {
  return sender_ == nullptr ? code : sender_->Refuse(code);
}

std::optional<std::chrono::minutes> Format::GetDuration(
    const DeviceManagement::FreshIdentity& identity) const {
  return sender_ == nullptr ? std::nullopt : sender_->GetDuration(identity);
}

std::int32_t Format::Execute() {
  if (!BeginErase()) return false;
  if (sender_ == nullptr) {
    MORVU_LOG(kLogError, "Execute", "Format - invalid send format.");
    End(Status::NoCommunication);
    return false;
  }
  LogSettings();
  const auto result = sender_->Execute();
  TakeResult(*sender_);
  return result;
}

void Format::LogSettings() const {
  const auto log = [](std::string_view name, int value) {
    MORVU_LOG(kLogInfo, "Execute", std::string(name) + std::to_string(value));
  };
  log("Format - Secure Erase Setting = ", settings_.secureErase);
  log("Format - Protection Information = ", settings_.protectionInformation);
  log("Format - LBA Format = ", settings_.lbaFormat);
  log("Format - Protection Info Location = ", settings_.protectionInfoLocation);
  log("Format - Metadata settings = ", settings_.metadata);
}

StatusCode Format::Runner(Device& device, const FormatSettings& settings, Face& face,
                          std::string_view notes) {
  const auto errors = CheckFormatSettings(device, settings);
  for (const auto& error : errors) face.Say(error);
  if (!errors.empty()) return Status::InvalidArguments;

  Format format(&device, settings, face.GetReporter());
  auto texts = kTexts;
  auto warning = std::string(texts.warning);
  if (!notes.empty()) warning.append("\n").append(notes);
  texts.warning = warning;
  return RunErase(format, face, texts);
}

namespace {

bool SpeaksNvme(const FeatureCall& call) { return call.GetDevice().HasCommandSet(Protocol::Nvme); }

StatusCode RunFormat(const FeatureCall& call) {
  const auto settings = ParseSettings(call.arguments, SpeaksNvme(call));
  if (!settings) return Status::InvalidArguments;
  return Format::Runner(call.GetDevice(), *settings, call.face);
}

// The method is for drives with NVMe.
StatusCode RunFormatMethod(const FeatureCall& call, JobContext&) {
  return SpeaksNvme(call) ? RunFormat(call) : Status::NotSupportedByDrive;
}

// For any drive; one with NVMe keeps its layout.
StatusCode RunDelete(const FeatureCall& call, JobContext&) {
  const bool isNvme = SpeaksNvme(call);
  const bool isPlain = call.arguments.GetText("Crypto") == BoolText(false);
  auto settings = isNvme ? GetCurrentLayout(call.GetDevice()) : FormatSettings();
  // The setting without the drive's crypto or enhanced erase is one lower.
  settings.secureErase = static_cast<std::uint8_t>((isNvme ? 2 : 1) - (isPlain ? 1 : 0));
  return Format::Runner(call.GetDevice(), settings, call.face);
}

StatusCode AssessFormat(Device& device) { return Format(&device, {}, NoReporter()).GetErrorCode(); }

constexpr MethodParameter kDeleteParameters[] = {{"force", "boolean"}, {"Crypto", "boolean"}};
constexpr StatusCode kDeleteHiddenCodes[] = {Status::RaidVolume, Status::NotSupportedByDrive,
                                             Status::NotAMorvuDrive};
constexpr MethodParameter kParameters[] = {
    {"SecureEraseSetting", "uint8"}, {"ProtectionInformation", "uint8"},
    {"LBAFormat", "uint8"},          {"ProtectionInformationLocation", "uint8"},
    {"MetadataSetting", "uint8"},    {"force", "boolean"},
};
constexpr CimMethod kMethods[] = {
    {.name = "Delete",
     .displayName = "Format",
     .category = "advanced",
     .targetType = "device",
     .prompt = true,
     .cancelSupported = false,
     .parameters = kDeleteParameters,
     .hasStatus = true,
     .hiddenCodes = kDeleteHiddenCodes,
     .assess = &AssessFormat,
     .run = &RunDelete},
    {.name = "Format",
     .displayName = "Format",
     .targetType = "device",
     .prompt = true,
     .parameters = kParameters,
     .run = &RunFormatMethod},
};
constexpr OptionDeclaration kOptions[] = {
    {.name = "-format",
     .kind = OptionKind::Texts,
     .category = OptionCategory::Feature,
     .descriptions = kDescriptions,
     .arguments = kArguments,
     .examples = kExamples,
     .run = &RunFormat},
};

}  // namespace

extern constexpr FeatureRecord FormatRecord = {
    .name = "Format",
    .group = HelpGroup::Erase,
    .destroys = true,
    .needsDrive = true,
    .isSequence = true,
    .methods = kMethods,
    .options = kOptions,
};

}  // namespace Morvu
