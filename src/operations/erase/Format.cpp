#include "operations/erase/Format.h"

#include <charconv>
#include <limits>
#include <optional>

#include "cli/HeldSignals.h"
#include "frame/Logger.h"
#include "frame/Text.h"
#include "frame/status/Drives.h"
#include "frame/status/Requests.h"
#include "operations/Operation.h"

namespace Morvu {

using DeviceManagement::Device;
using DeviceManagement::SelectedDevices;
using XmlMessaging::Object;
namespace Protocol = DeviceManagement::Protocol;

namespace {

// clang-format off
constexpr Refusal<Format> kRefusals[] = {
    {OfDevice<Refuse::NotConnected>,       Status::NoCommunication},
    {OfDevice<Refuse::RaidVolume>,         Status::RaidVolume},
    {OfDevice<Refuse::NotMorvu>,           Status::NotAMorvuDrive},
    {OfDevice<Refuse::RaidMember>,         Status::RaidMemberRefused},
    {OfDevice<Refuse::StorageSpaceMember>, Status::StorageSpaceMember},
    {OfDevice<Refuse::DeviceFault>,        Status::DeviceFault},
    {OfDevice<Refuse::FailureReported>,    Status::DisableLogical},
};
// clang-format on

constexpr EraseTexts kTexts = {
    .unable = "Unable to format the selected drive.",
    .warning = "WARNING! You have selected to format the drive!",
    .prompt = "Proceed with the format?",
};

constexpr std::string_view kOptionName = "-format";
constexpr std::string_view kDescriptions[] = {
    "Format the selected drive. The tool will prompt prior to issuing the format.",
    "WARNING! FORMAT WILL ERASE ALL DATA ON THE DRIVE!",
};
// clang-format off
constexpr ArgumentDeclaration kArguments[] = {
    {"[SES]",  "(Optional) Secure Erase Setting. Supported values are:"},
    {"[SES]",  "0 = No Secure Erase{ NVMe: Default } / Standard Secure Erase{ ATA: Default }"},
    {"[SES]",  "1 = User Data Erase {NVMe} / Enhanced Secure Erase {ATA}"},
    {"[SES]",  "2 = Crypto Erase {NVMe Only}"},
    {"[PI]",   "(Optional) Protection Information {NVMe Only. Selected drive may not support all options}. Supported values are:"},
    {"[PI]",   "0 = Protection Information not enabled {Default }"},
    {"[PI]",   "1 = Protection Information Type 1 enabled"},
    {"[PI]",   "2 = Protection Information Type 2 enabled"},
    {"[PI]",   "3 = Protection Information Type 3 enabled"},
    {"[LBAF]", "(Optional) LBA Format {NVMe Only. Selected drive may not support all options.} See identify controller information for supported values. Default = 0"},
    {"[PIL]",  "(Optional) Protection Information Location {NVMe Only}. Supported values are:"},
    {"[PIL]",  "0 = Protection information is transferred as the last 8 bytes of metadata when protection information is enabled. {Default}"},
    {"[PIL]",  "1 = Protection information is transferred as the first 8 bytes of metadata when protection information is enabled."},
    {"[MS]",   "(Optional) Metadata Settings {NVMe Only}. Supported values are:"},
    {"[MS]",   "0 = Metadata is transferred as part of a separate contiguous buffer. {Default}"},
    {"[MS]",   "1 = Metadata is transferred as part of an extended data LBA."},
};
// clang-format on
constexpr std::string_view kExamples[] = {
    "-drive_index 1 -format",
    "-drive_index 1 -format 1 2 0",
};
constexpr OptionDeclaration kOption = {
    .name = kOptionName,
    .kind = OptionKind::Texts,
    .category = OptionCategory::Feature,
    .descriptions = kDescriptions,
    .arguments = kArguments,
    .examples = kExamples,
};

// The settings where the host gives them: by the method's parameters, and by place on
// the command line.
struct SettingRow {
  std::string_view parameter;
  std::uint8_t FormatSettings::*setting;
  bool nvmeOnly;
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

// A setting as it was typed. One that is too large for any drive reads as the largest,
// so that the check of the settings says so; none for what is no number: a slip must
// not format a drive in another way than it was meant.
std::optional<std::uint8_t> ParseSetting(std::string_view text) {
  if (text.empty() || !IsDecimal(text)) return std::nullopt;
  constexpr auto kLargest = std::numeric_limits<std::uint8_t>::max();
  std::uint8_t value = 0;
  const auto parsed = std::from_chars(text.data(), text.data() + text.size(), value);
  return parsed.ec == std::errc() ? value : kLargest;
}

std::optional<FormatSettings> ParseMethod(const Object& method) {
  FormatSettings settings;
  for (const auto& row : kSettings) {
    const auto value = ParseSetting(GetTextParameter(method, row.parameter, "0"));
    if (!value) return std::nullopt;
    settings.*row.setting = *value;
  }
  return settings;
}

std::optional<FormatSettings> ParseArguments(const std::vector<std::string>& arguments,
                                             bool isNvme) {
  if (arguments.size() > std::size(kSettings)) return std::nullopt;
  FormatSettings settings;
  for (std::size_t i = 0; i < arguments.size(); ++i) {
    const auto value = ParseSetting(arguments[i]);
    if (!value) return std::nullopt;
    const auto& row = kSettings[i];
    if (isNvme || !row.nvmeOnly) settings.*row.setting = *value;
  }
  return settings;
}

}  // namespace

Format::Format(Device* device, const FormatSettings& settings, bool force,
               const ProgressReporter* reporter)
    : Function(device, reporter), force_(force), settings_(settings) {
  Format::Initialize();
}

void Format::Initialize() {
  auto code = FirstRefusal<Format>(kRefusals, *this);
  if (code == Status::ReadyToRun) {
    sender_ = MakeSender();
    code = sender_ == nullptr ? Status::NotSupportedByDrive : sender_->GetErrorCode();
  }
  EndInitialize(code);
}

std::unique_ptr<SendFormat> Format::MakeSender() {
  if (ata_ != nullptr) {
    return std::make_unique<SendFormat_ATA>(device_, settings_.secureErase, force_, GetReporter());
  }
  if (nvme_ != nullptr) {
    return std::make_unique<SendFormat_NVMe>(device_, settings_, force_, GetReporter());
  }
  return nullptr;
}

void Format::SetForce(bool force) {
  force_ = force;
  if (sender_ != nullptr) sender_->SetForce(force);
}

void Format::SetEnhanced(bool enhanced) {
  if (sender_ != nullptr) sender_->SetEnhanced(enhanced);
}

std::int32_t Format::Execute() {
  if (!BeginExecute()) return false;
  const bool mayErase = MayErase(*device_, force_);
  if (mayErase && sender_ == nullptr) {
    MORVU_LOG(kLogError, "Execute", "Format - invalid send format.");
  }
  if (!mayErase || sender_ == nullptr) {
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

StatusCode Format::Runner(Device& device, const FormatSettings& settings, QRKCLI* cli,
                          const JobContext& context, bool force) {
  const auto errors = CheckFormatSettings(device, settings);
  if (cli != nullptr) {
    for (const auto& error : errors) cli->PrintLine(error);
  }
  if (!errors.empty()) return Status::InvalidArguments;

  HeldSignals signals;
  const auto* reporter = cli != nullptr ? signals.GetReporter() : context.reporter;
  Format format(&device, settings, false, reporter);
  const auto answer = ConfirmErase(format.GetErrorCode(), cli, force, kTexts);
  if (answer != Status::ReadyToRun) return answer;
  format.SetForce(true);
  if (settings.secureErase == 1) format.SetEnhanced(true);
  if (cli != nullptr) {
    cli->PrintLine("Formatting the drive...");
    signals.Hold();
  }
  format.Execute();
  return format.GetErrorCode();
}

// ---- The drive methods ----

std::unique_ptr<Object> Format::Describe(Device*) { return DescribeMethod("Format"); }

StatusCode Format::Run(JobContext& context, const Object& method, SelectedDevices& devices) {
  auto* device = BeginMethod(context, devices);
  if (device == nullptr) return Status::NoDeviceSelected;
  if (!device->HasCommandSet(Protocol::Nvme)) return Status::NotSupportedByDrive;
  const auto settings = ParseMethod(method);
  if (!settings) return Status::InvalidArguments;
  return Runner(*device, *settings, nullptr, context, GetBoolParameter(method, "force"));
}

std::unique_ptr<Object> Format::DescribeDelete(Device* device) {
  if (device == nullptr) return DescribeMethod("Delete");
  return DescribeMethod("Delete", Format(device, {}, false, nullptr).GetErrorCode(),
                        {Status::RaidVolume, Status::NotSupportedByDrive, Status::NotAMorvuDrive});
}

StatusCode Format::RunDelete(JobContext& context, const Object& method, SelectedDevices& devices) {
  auto* device = BeginMethod(context, devices);
  if (device == nullptr) return Status::NoDeviceSelected;
  const bool isNvme = device->HasCommandSet(Protocol::Nvme);
  const bool isPlain = GetTextParameter(method, "Crypto") == BoolText(false);
  auto settings = isNvme ? GetCurrentLayout(*device) : FormatSettings();
  // The setting without the drive's crypto or enhanced erase is one lower.
  settings.secureErase = static_cast<std::uint8_t>((isNvme ? 2 : 1) - (isPlain ? 1 : 0));
  return Runner(*device, settings, nullptr, context, GetBoolParameter(method, "force"));
}

// ---- The command line ----

CLICommand Format::GetFeatureDefinition() { return CLICommand(kOption); }

StatusCode Format::RunCLI(QRKCLI& cli, SelectedDrives devices) {
  const bool isAsked = BeginRunCLI(cli, kOptionName);
  auto* device = GetPickedDrive(cli, devices);
  if (!isAsked || device == nullptr) return cli.Finish(Status::InvalidArguments);
  const auto settings =
      ParseArguments(cli.GetArguments(kOptionName), device->HasCommandSet(Protocol::Nvme));
  if (!settings) return cli.Finish(Status::InvalidArguments);
  return cli.Finish(Runner(*device, *settings, &cli, JobContext(), cli.HasOption("-force")));
}

}  // namespace Morvu
