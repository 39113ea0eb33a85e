#include "cli/QRKCLI.h"

#include <algorithm>
#include <set>

#include "cli/AccessRights.h"
#include "cli/DriveInformation.h"
#include "cli/DriveReport.h"
#include "cli/DriveRuns.h"
#include "cli/EraseGate.h"
#include "cli/JsonDocument.h"
#include "cli/Prompt.h"
#include "cli/Report.h"
#include "cli/SavedFile.h"
#include "cli/ScanSelection.h"
#include "cli/ToolOptions.h"
#include "devices/discovery/AdapterManager.h"
#include "devices/model/Drive.h"
#include "frame/Logger.h"
#include "frame/Text.h"
#include "frame/status/Files.h"
#include "frame/status/Firmware.h"
#include "frame/status/Selection.h"

namespace Morvu {
namespace {

constexpr std::size_t kBannerWidth = 76;

std::string JoinArguments(int argc, const char* const* argv) {
  std::string text;
  for (int i = 1; i < argc; ++i) {
    if (i > 1) text += ' ';
    if (argv[i] != nullptr) text += argv[i];
  }
  return text;
}

}  // namespace

bool IsGoodEnd(StatusCode code) {
  return code == Status::Completed || code == Status::FirmwareCurrent;
}

QRKCLI::QRKCLI(std::span<const FeatureRecord* const> features, const ToolConfig& toolConfig,
               const CLIStreams& streams)
    : CLIParser(streams, toolConfig.toolName),
      toolConfig_(toolConfig),
      adapterManager_(std::make_unique<DeviceManagement::AdapterManager>(toolConfig.scanOptions)) {
  for (const auto& option : GetToolOptions()) {
    if (!option.isTold) continue;
    auto parameter = std::make_unique<CLIParameter>(option.declaration);
    for (const auto alias : option.aliases) parameter->AddAlias(alias);
    AddParameter(std::move(parameter));
  }
  for (const auto* feature : features) {
    const auto* option = feature->options.data();
    for (auto& parameter : GetFeatureDefinition(*feature).TakeParameters()) {
      handlers_[parameter.get()] = {feature, option++};
      AddParameter(std::move(parameter));
    }
  }
}

QRKCLI::~QRKCLI() {
  if (isLogging_) DisableLog();
}

StatusCode QRKCLI::runCLI(int argc, const char* const* argv) {
  // Before the line is read: what is wrong with it belongs into the report.
  const auto wantsReport = [](const char* word) { return word != nullptr && word == kJsonOption; };
  if (argc > 1 && std::any_of(argv + 1, argv + argc, wantsReport)) {
    report_ = std::make_unique<Report>();
  }
  const auto code = CarryOut(argc, argv);
  if (report_ != nullptr) {
    report_->code = code;
    PrintReport();
  }
  return code;
}

void QRKCLI::PrintReport() {
  if (report_ == nullptr || isReportPrinted_) return;
  isReportPrinted_ = true;
  if (report_->drives.empty()) {
    const bool selects = std::ranges::any_of(GetParameters(), [](const auto& parameter) {
      return parameter->IsGiven() && parameter->GetCategory() == OptionCategory::DriveSelection;
    });
    const auto& drives = selects ? devices_ : adapterManager_->GetDrives();
    AddDrives(*report_, drives, toolConfig_.driveProperties, DriveDetail::List);
  }
  GetOutput() << ToJson(*report_, toolConfig_) << std::flush;
}

StatusCode QRKCLI::CarryOut(int argc, const char* const* argv) {
  // Before the line is read: the banner comes first.
  for (int i = 1; i < argc; ++i) {
    const auto* parameter = argv[i] == nullptr ? nullptr : FindParameter(argv[i]);
    const auto handler = handlers_.find(parameter);
    isForPrograms_ |= handler != handlers_.end() && handler->second.option->isForPrograms;
    isQuiet_ |= isForPrograms_ || (parameter != nullptr && parameter->GetName() == "-quiet");
  }
  if (!isQuiet_) PrintBanner();
  parseResult_ = ParseArguments(argc, argv);

  // The log begins before anything worth logging happens.
  if (auto* log = FindParameter("-log"); log != nullptr && log->IsGiven()) {
    const auto result = Handle(*log);
    if (result != Status::ReadyToRun) return Finish(result);
    log->SetGiven(false);
  }
  MORVU_LOG(kLogInfo, "runCLI", GetToolName() + " " + JoinArguments(argc, argv));

  if (const auto reason = FindSeveralRefusal(); !reason.empty()) {
    PrintLine(WrapText(reason));
    return Finish(Status::InvalidArguments);
  }
  Scan();
  if (const auto result = HandleOptions(); result != Status::ReadyToRun) return Finish(result);
  if (devices_.empty()) devices_ = adapterManager_->GetDrives();
  const auto features = FindGivenFeatures();
  if (features.empty()) return RunWithoutFeature(argc);
  for (const auto* feature : features) {
    if (!handlers_.at(feature).feature->destroys || devices_.empty()) continue;
    if (const auto code = CheckErase(features.size()); code != Status::ReadyToRun) {
      return Finish(code);
    }
  }
  return RunFeature(*features.front());
}

void QRKCLI::Print(std::string_view text) {
  if (report_ == nullptr) return CLIParser::Print(text);
  report_->AddLine(text);
}

void QRKCLI::PrintLine(std::string_view text) {
  if (report_ == nullptr) return CLIParser::PrintLine(text);
  report_->AddLine(text);
}

bool QRKCLI::Confirm(std::string_view text, std::string_view prompt, bool reading) {
  if (report_ == nullptr) return CLIParser::Confirm(text, prompt, reading);
  report_->AddLine(text);
  report_->AddLine(kNoQuestion);
  return false;
}

void QRKCLI::TellFault(StatusCode code, std::string_view text, std::string_view subject) {
  if (report_ == nullptr) return CLIParser::TellFault(code, text, subject);
  report_->faults.push_back({code, std::string(text).append(subject), FindMeant(code, subject)});
}

void QRKCLI::Warn(std::string_view text) {
  hasWarned_ = true;
  if (report_ != nullptr) return report_->warnings.Add(text);
  PrintLine(WrapText("<c:YELLOW>WARNING!</c> " + std::string(text)));
}

StatusCode QRKCLI::GetSideResult() const {
  if (findings_ != 0) {
    return StatusCode::FromValue(kFindings + static_cast<std::int32_t>(findings_));
  }
  if (hasWarned_) return kWarned;
  return badOutcome_ == Status::Completed ? parseResult_ : badOutcome_;
}

void QRKCLI::NoteOutcome(StatusCode outcome) {
  if (badOutcome_ == Status::Completed && !IsGoodEnd(outcome)) badOutcome_ = outcome;
}

StatusCode QRKCLI::Finish(StatusCode code) {
  if (report_ != nullptr) return code;
  if (isQuiet_ && code == Status::Completed) return code;
  const std::string_view colour = IsGoodEnd(code) ? "<c:LIGHTGREEN>" : "<c:LIGHTRED>";
  PrintLine(WrapText(std::string(colour) + GetStatusText(code) + "</c>"));
  return code;
}

bool QRKCLI::SaveTable(const ResultTable& table, const std::string& path) {
  Flush();  // the file may be where the output goes
  return PrintSaved(SaveTableAs(table, path));
}

bool QRKCLI::SaveBinary(ByteView bytes, const std::string& path) {
  Flush();
  return PrintSaved(SaveBinaryAs(bytes, path));
}

bool QRKCLI::PrintSaved(const SavedFile& file) {
  // Whoever saved it notes the file in the report.
  if (report_ == nullptr || !file.isSaved) PrintLine(file.told);
  return file.isSaved;
}

void QRKCLI::PrintBanner() {
  if (report_ != nullptr) return;
  PrintLine(std::string(kBannerWidth, '='));
  PrintLine(std::string(toolConfig_.productName) + " (" + GetToolName() + ")");
  PrintLine("Version " + std::string(toolConfig_.version));
  for (const auto line : toolConfig_.legalLines) PrintLine(line);
  PrintLine(std::string(kBannerWidth, '-'));
  PrintLine(toolConfig_.closingNote);
  PrintLine();
}

OptionScan QRKCLI::GetWantedScan() const {
  auto wanted = OptionScan::Any;
  for (const auto& parameter : GetParameters()) {
    if (parameter->IsGiven()) wanted = std::min(wanted, parameter->GetScan());
  }
  return wanted == OptionScan::Any ? OptionScan::Drives : wanted;
}

void QRKCLI::Scan() {
  const auto wanted = GetWantedScan();
  if (wanted == OptionScan::None) return;
  auto options = toolConfig_.scanOptions;
  options.findLogical = options.findLogical && wanted == OptionScan::Partitions;
  options.scanLsi = options.scanLsi || HasOption("-lsi");
  const bool destroys = std::ranges::any_of(FindGivenFeatures(), [&](const auto* feature) {
    return handlers_.at(feature).feature->destroys;
  });
  options.letsSleep = options.letsSleep || isForPrograms_;
  const ProgressLine::Run run(GetProgress(), "Looking for drives");
  ScanForSelection(*this, *adapterManager_, options, destroys);
  if (!isForPrograms_) Print(DescribeMissingRights(adapterManager_->GetDrives()));
}

StatusCode QRKCLI::HandleOptions() {
  for (const auto& parameter : GetParameters()) {
    if (!parameter->IsGiven() || parameter->GetCategory() == OptionCategory::Feature) continue;
    const auto result = Handle(*parameter);
    if (result != Status::ReadyToRun) return result;
    onlyModifiers_ = onlyModifiers_ && parameter->GetCategory() == OptionCategory::Modifier;
  }
  return Status::ReadyToRun;
}

std::vector<const CLIParameter*> QRKCLI::FindGivenFeatures() const {
  std::vector<const CLIParameter*> features;
  for (const auto& parameter : GetParameters()) {
    if (parameter->IsGiven() && parameter->GetCategory() == OptionCategory::Feature) {
      features.push_back(parameter.get());
    }
  }
  return features;
}

std::string_view QRKCLI::FindSeveralRefusal() const {
  // Help, which looks for no drive, is given whatever stands beside it.
  if (!HasOption(kSeveralDrives) || GetWantedScan() == OptionScan::None) return {};
  for (const auto& parameter : GetParameters()) {
    const bool isOther = parameter->IsGiven() && parameter->GetName() != kSeveralDrives &&
                         parameter->GetCategory() == OptionCategory::DriveSelection;
    if (isOther) return "Error: Nothing was done: -drives stands beside another selection.";
  }
  if (parseResult_ != Status::Completed || FindParameter(kSeveralDrives)->CountMentions() > 1) {
    return "Error: Nothing was done: an option stands twice, or a word of the command line is not "
           "understood.";
  }
  const auto features = FindGivenFeatures();
  if (features.size() > 1) {
    return "Error: Nothing was done: several drives take one feature at a time.";
  }
  for (const auto* feature : features) {
    if (handlers_.at(feature).feature->onSeveral != OnSeveral::Refused) continue;
    return "Error: Nothing was done: an option that erases a drive, changes its settings or starts "
           "a test of its own needs one drive: select it with -drive_serial.";
  }
  return {};
}

StatusCode QRKCLI::CheckErase(std::size_t features) {
  const bool standsTwice = std::ranges::any_of(
      GetParameters(), [](const auto& parameter) { return parameter->CountMentions() > 1; });
  const std::set<const Device*> picked(devices_.begin(), devices_.end());
  const auto reason =
      FindEraseRefusal({.isDoubtful = standsTwice || parseResult_ != Status::Completed,
                        .features = features,
                        .drives = drivePicked_ ? picked.size() : 0,
                        .isShared = isSelectionShared_,
                        .isNameless = !std::ranges::all_of(
                            picked, [](const Device* device) { return HasIdentity(*device); })});
  if (!reason.empty()) {
    PrintLine(WrapText(reason));
    return Status::InvalidArguments;
  }
  // Nothing is erased behind the back of somebody who cannot read what is told. Before a
  // document a line's end means nothing.
  if (report_ != nullptr) GetOutput() << '\n';
  return Flush() ? Status::ReadyToRun : Status::FileNotWritten;
}

StatusCode QRKCLI::RunFeature(const CLIParameter& parameter) {
  if (devices_.empty() && !isForPrograms_) return Finish(Status::NoDrivesFound);
  // Of several drives each tells its name.
  const bool isDescribed = drivePicked_ && !isQuiet_ && !HasOption(kSeveralDrives);
  if (isDescribed && report_ == nullptr) (void)PrintDriveInformation();
  const auto handler = handlers_.find(&parameter);
  if (handler == handlers_.end() || handler->second.option->run == nullptr) {
    return Finish(Status::InvalidArguments);
  }
  const auto& [feature, option] = handler->second;
  const bool isForEach = feature->onSeveral == OnSeveral::Each ||  // or the line was refused
                         feature->onSeveral == OnSeveral::AskFirst;
  if (HasOption(kSeveralDrives) && isForEach) {
    return RunOnDrives(*this, *feature, *option, devices_);
  }
  return RunCLI(*this, *feature, *option, devices_);
}

StatusCode QRKCLI::RunWithoutFeature(int argc) {
  if (drivePicked_) {
    for (const auto& warning : PrintDriveInformation()) Warn(warning);
    return Finish(Status::Completed);
  }
  const bool asksNothing = argc < 2 || (onlyModifiers_ && parseResult_ == Status::Completed);
  return asksNothing ? RunDefaultOption() : Finish(Status::InvalidArguments);
}

StatusCode QRKCLI::RunDefaultOption() {
  auto* parameter = FindParameter(toolConfig_.defaultOption);
  if (parameter == nullptr) return Finish(Status::InvalidArguments);
  parameter->SetGiven(true);
  if (parameter->GetCategory() == OptionCategory::Feature) return RunFeature(*parameter);
  return Finish(Handle(*parameter));
}

std::vector<std::string> QRKCLI::PrintDriveInformation() {
  std::vector<std::string> warnings;
  if (report_ != nullptr) {
    return AddDrives(*report_, devices_, toolConfig_.driveProperties, DriveDetail::Information);
  }
  PrintLine();
  Print(DescribeDrives(devices_, toolConfig_.driveInformationTitle, DriveDetail::Information,
                       warnings));
  Print("\n\n");
  return warnings;
}

}  // namespace Morvu
