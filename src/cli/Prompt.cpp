#include "cli/Prompt.h"

#include <algorithm>
#include <cerrno>
#include <functional>
#include <utility>
#include <vector>

#include "cli/EraseGate.h"
#include "cli/QRKCLI.h"
#include "cli/SavedFile.h"
#include "devices/model/RecordingScope.h"
#include "frame/Files.h"
#include "frame/Logger.h"
#include "frame/Text.h"
#include "frame/status/Files.h"
#include "messaging/ResultTable.h"

namespace Morvu {
namespace {

constexpr std::string_view kForce = "-force";
constexpr std::string_view kRecord = "-record", kWithPasswords = "-with_passwords";

// The names that a call knows an option's words by, in their order on the line.
std::vector<std::string_view> GetWordNames(const OptionDeclaration& option) {
  std::vector<std::string_view> names;
  for (const auto& row : option.arguments) {
    if (!row.argument.empty()) names.push_back(row.argument);
  }
  return names;
}

// Words that may not be left out. Of an option that takes one value only the parser has
// told that it is missing.
std::size_t CountRequired(const OptionDeclaration& option) {
  if (option.kind != OptionKind::Texts) return 0;
  return static_cast<std::size_t>(
      std::ranges::count_if(option.arguments, [](const ArgumentDeclaration& row) {
        return !row.argument.empty() && row.name.starts_with('(') && !row.mayLack;
      }));
}

// False, and a line says why, when the option has too many words or too few.
bool TakeWords(QRKCLI& cli, const OptionDeclaration& option, CallArguments& arguments) {
  const auto words = cli.GetArguments(option.name);
  const auto names = GetWordNames(option);
  if (words.size() > names.size() && option.restArgument.empty()) {
    cli.PrintLine("Error: Too many arguments given for " + std::string(option.name) +
                  ". See -help for proper usage.");
    return false;
  }
  const auto named = std::min(words.size(), names.size());
  for (std::size_t i = 0; i < named; ++i) arguments.Set(names[i], words[i]);
  if (words.size() > named) {
    arguments.Set(option.restArgument, Join(std::span(words).subspan(named), " "));
  }
  return words.size() >= CountRequired(option);
}

// A flag stands as "True", another modifier with its first value.
void TakeModifiers(const QRKCLI& cli, CallArguments& arguments) {
  for (const auto& parameter : cli.GetParameters()) {
    if (!parameter->IsGiven() || parameter->GetCategory() != OptionCategory::Modifier) continue;
    const bool isFlag = parameter->GetKind() == OptionKind::Flag;
    arguments.Set(parameter->GetName(),
                  isFlag ? BoolText(true) : cli.GetArgument(parameter->GetName()));
  }
}

}  // namespace

StatusCode TakeArguments(QRKCLI& cli, const OptionDeclaration& option, CallArguments& arguments) {
  if (!TakeWords(cli, option, arguments)) return option.wrongWords;
  TakeModifiers(cli, arguments);
  return Status::ReadyToRun;
}

// A recording that was wanted and cannot be made refuses the run.
StatusCode RunAndRecord(QRKCLI& cli, Face& face, SelectedDrives devices,
                        const std::function<StatusCode()>& run) {
  if (!cli.HasOption(kRecord)) return run();
  using DeviceManagement::RecordedData;
  const bool holdsAll = cli.HasOption(kWithPasswords);
  DeviceManagement::RecordingScope recording(
      devices, cli.GetArgument(kRecord),
      holdsAll ? RecordedData::All : RecordedData::WithoutSecrets);
  if (recording.GetStatus() != Status::Completed) {
    face.Say("Nothing was done: the file for the recording cannot be made.");
    return recording.GetStatus();
  }
  const auto code = run();
  const bool isWhole = recording.End();
  for (const auto& file : recording.GetFiles()) face.Say("The commands are recorded in " + file);
  if (holdsAll) face.Warn("Passwords and keys stand in the recording: show it to nobody else.");
  if (isWhole) return code;
  face.Warn("The recording could not be written to its end.");
  return code == Status::Completed ? Status::FileNotWritten : code;
}

Prompt::Prompt(QRKCLI& cli, std::string_view what, const DeviceManagement::Device* drive)
    : cli_(cli), run_(cli.GetProgress(), what) {
  auto* report = cli.GetReport();
  if (report != nullptr && !what.empty()) reported_ = &report->AddRun(drive, what);
}

void Prompt::PromptReporter::SetPercent(std::int32_t percent) {
  prompt_.cli_.GetProgress().SetPercent(percent);
}

void Prompt::PromptReporter::SetDetail(std::string_view detail) {
  prompt_.cli_.GetProgress().SetDetail(detail);
}

// Each line is there when it is told: a run may take hours.
void Prompt::Say(std::string_view line) {
  if (reported_ != nullptr) return reported_->lines.Add(line);
  cli_.PrintLine(line);
  cli_.Flush();
}

void Prompt::Warn(std::string_view text) {
  if (reported_ != nullptr) {
    reported_->warnings.Add(text);
    return cli_.NoteWarning();
  }
  cli_.Warn(text);
  cli_.Flush();
}

void Prompt::Show(const ResultTable& table) {
  if (reported_ == nullptr) return Say(table.Render());
  reported_->tables.push_back(table);
}

void Prompt::Report(std::string_view name, std::uint64_t value) {
  if (reported_ != nullptr) reported_->figures.emplace_back(name, value);
}

// The first drive's turn takes the run that there is.
void Prompt::Turn(const DeviceManagement::Device& drive) {
  if (reported_ == nullptr) return;
  if (std::exchange(isTurned_, true)) {
    reported_ = &cli_.GetReport()->AddRun(&drive, reported_->feature);
  }
  reported_->drive = &drive;
}

void Prompt::NoteFindings(std::uint32_t findings) {
  Report("Findings", findings);
  cli_.NoteFindings(findings);
}

void Prompt::Tell(StatusCode outcome) {
  hasToldOutcomes_ = true;
  if (reported_ != nullptr) reported_->code = outcome;
  (void)cli_.Finish(outcome);
  cli_.NoteOutcome(outcome);
}

bool Prompt::Save(const ResultTable& table, const std::string& path) {
  return NoteSaved(cli_.SaveTable(table, path), path);
}

bool Prompt::SaveBinary(ByteView bytes, const std::string& path) {
  return NoteSaved(cli_.SaveBinary(bytes, path), path);
}

bool Prompt::NoteSaved(bool isSaved, const std::string& path) {
  isUnsaved_ = isUnsaved_ || !isSaved;
  if (isSaved && reported_ != nullptr) reported_->files.push_back(path);
  return isSaved;
}

bool Prompt::Publish(std::string_view text, const std::string& path) {
  const bool isPublished = PublishFile(path, text);
  if (!isPublished) Say(SavedFile::Describe(path, errno).told);
  return NoteSaved(isPublished, path);
}

Answer Prompt::Ask(std::string_view warning, std::string_view question) {
  if (reported_ != nullptr) {
    reported_->lines.Add(warning);
    reported_->lines.Add(kNoQuestion);
    return Answer::No;
  }
  return cli_.Confirm(warning, question) ? Answer::Yes : Answer::No;
}

bool Prompt::IsForced() const { return cli_.HasOption(kForce); }

void Prompt::Begin(std::string_view line) {
  Say(line);
  signals_.Hold();
}

StatusCode Prompt::Finish(StatusCode code) {
  run_.Stop();
  if (isUnsaved_ && IsGoodEnd(code)) code = Status::FileNotWritten;
  if (!hasToldOutcomes_) (void)cli_.Finish(code);
  if (reported_ != nullptr) {
    if (!hasToldOutcomes_) reported_->code = code;
    if (!signals_.IsOnePending()) return code;
    cli_.GetReport()->code = code;
    cli_.PrintReport();
  }
  cli_.Flush();  // a signal that was held may end the tool now
  return code;
}

StatusCode RunCLI(QRKCLI& cli, const FeatureRecord& feature, const OptionDeclaration& option,
                  SelectedDrives devices) {
  Log(feature.name, "RunCLI", __LINE__, kLogInfo, "Start");
  if (feature.needsDrive) {
    if (!cli.IsDrivePicked()) {
      cli.PrintLine(CLIParser::WrapText(kSelectDrive));
      return cli.Finish(Status::InvalidArguments);
    }
    devices = devices.first(1);
  }
  CallArguments arguments;
  if (const auto code = TakeArguments(cli, option, arguments); code != Status::ReadyToRun) {
    return cli.Finish(code);
  }
  cli.Flush();
  Prompt prompt(cli, option.name.substr(1), devices.size() == 1 ? devices.front() : nullptr);
  const FeatureCall call{.face = prompt,
                         .devices = devices,
                         .areChosen = cli.IsDrivePicked(),
                         .arguments = arguments,
                         .begin = cli.GetBegin()};
  const auto run = [&] { return RunHeld(feature, call, [&] { return option.run(call); }); };
  return prompt.Finish(RunAndRecord(cli, prompt, devices, run));
}

}  // namespace Morvu
