#include "cli/DriveRuns.h"

#include <algorithm>
#include <atomic>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <variant>
#include <vector>

#include "cli/QRKCLI.h"
#include "cli/Report.h"
#include "cli/SavedFile.h"
#include "devices/discovery/SideBySide.h"
#include "devices/model/Device.h"
#include "devices/properties/BasicProperties.h"
#include "devices/system/SystemFacts.h"
#include "frame/Text.h"
#include "frame/status/Drives.h"
#include "frame/status/Files.h"
#include "messaging/ResultTable.h"

namespace Morvu {
namespace {

using DeviceManagement::Device;
namespace Properties = DeviceManagement::Properties;
namespace Protocol = DeviceManagement::Protocol;

using Drives = std::vector<Device*>;

// How bad an end is: a drive that the feature is not made for is less than one that it failed on.
int RankOf(StatusCode code) {
  constexpr StatusCode kNotForIt[] = {Status::NotAMorvuDrive, Status::RaidVolume,
                                      Status::NotSupportedByDrive};
  if (IsGoodEnd(code)) return 0;
  return std::ranges::count(kNotForIt, code) != 0 ? 1 : 2;
}

// How many parts of all are done, and whether a person asked to stop.
class Progress {
 public:
  Progress(QRKCLI& cli, std::size_t parts) : cli_(cli), percents_(parts) {}
  void Set(std::size_t part, std::int32_t percent) {
    percents_[part] = percent;
    std::int32_t sum = 0;
    for (const auto& each : percents_) sum += each;
    cli_.GetProgress().SetPercent(sum / static_cast<std::int32_t>(percents_.size()));
  }
  void HoldSignals() { signals_.Hold(); }
  bool IsStopRequested() const { return signals_.IsStopRequested(); }
  bool IsSignalPending() const { return signals_.IsOnePending(); }

 private:
  QRKCLI& cli_;
  HeldSignals signals_;
  std::vector<std::atomic<std::int32_t>> percents_;
};

// Keeps what one run tells until its turn comes.
class DriveRun : public Face {
 public:
  DriveRun(Progress& progress, std::size_t part, Drives drives, std::string name)
      : drives_(std::move(drives)), name_(std::move(name)), reporter_(progress, part) {}

  // Before it begins: what it tells goes to a run of the report for each drive.
  void ReportTo(Morvu::Report& report, std::string_view feature) {
    for (const auto* drive : drives_) reported_.push_back(&report.AddRun(drive, feature));
  }

  SelectedDrives GetDrives() const { return drives_; }
  StatusCode GetWorst() const { return worst_; }
  void Finish(StatusCode code) {
    if (isUnsaved_ && IsGoodEnd(code)) code = Status::FileNotWritten;
    if (!hasTold_ && reported_.empty()) Tell(code);
    for (auto* run : reported_) {
      if (!run->code) run->code = code;
    }
    if (RankOf(code) > RankOf(worst_)) worst_ = code;
    reporter_.SetPercent(100);
  }
  // The end of the drive whose turn it is, unless an outcome told it.
  void EndTurn(StatusCode code) {
    if (reported_.empty() || Reported().code) return;
    Reported().code = isUnsaved_ && IsGoodEnd(code) ? Status::FileNotWritten : code;
  }
  // Into the line's own output.
  void Print(QRKCLI& cli) const {
    if (!reported_.empty()) {
      const bool hasWarned = std::ranges::any_of(
          reported_, [](const auto* run) { return !run->warnings.Get().empty(); });
      if (hasWarned) cli.NoteWarning();
      return;
    }
    cli.PrintLine();
    for (const auto* drive : drives_) {
      cli.PrintLine("Drive " + Printable(drive->GetString(Properties::DevicePath)) + ": " +
                    Printable(drive->GetString(Properties::ModelNumber)) + ", serial number " +
                    Printable(drive->GetString(Properties::SerialNumber)));
    }
    for (const auto& entry : told_) {
      if (const auto* line = std::get_if<Line>(&entry)) cli.PrintLine(line->text);
      if (const auto* warning = std::get_if<Warning>(&entry)) cli.Warn(warning->text);
      if (const auto* end = std::get_if<StatusCode>(&entry)) (void)cli.Finish(*end);
    }
    cli.Flush();
  }

  void Say(std::string_view line = {}) override {
    if (!reported_.empty()) return Reported().lines.Add(line);
    told_.emplace_back(Line{std::string(line)});
  }
  void Warn(std::string_view text) override {
    if (!reported_.empty()) return Reported().warnings.Add(text);
    told_.emplace_back(Warning{std::string(text)});
  }
  void Show(const ResultTable& table) override {
    if (reported_.empty()) return Say(table.Render());
    Reported().tables.push_back(table);
  }
  void Report(std::string_view name, std::uint64_t value) override {
    if (!reported_.empty()) Reported().figures.emplace_back(name, value);
  }
  void Turn(const Device& drive) override {
    const auto place = std::ranges::find(drives_, &drive);
    if (place != drives_.end()) turn_ = static_cast<std::size_t>(place - drives_.begin());
  }
  void Tell(StatusCode outcome) override {
    hasTold_ = true;
    if (!reported_.empty()) Reported().code = outcome;
    if (RankOf(outcome) > RankOf(worst_)) worst_ = outcome;
    told_.emplace_back(outcome);
  }
  bool Save(const ResultTable& table, const std::string& path) override {
    return Keep(SaveTableAs(table, NameFile(path)), NameFile(path));
  }
  bool SaveBinary(ByteView bytes, const std::string& path) override {
    return Keep(SaveBinaryAs(bytes, NameFile(path)), NameFile(path));
  }
  // Whoever started the runs was asked for all of them.
  Answer Ask(std::string_view, std::string_view) override { return Answer::Yes; }
  bool IsForced() const override { return true; }
  void Begin(std::string_view line) override { Say(line); }
  ProgressReporter& GetReporter() override { return reporter_; }

 private:
  struct Line {
    std::string text;
  };
  struct Warning {
    std::string text;
  };
  class Reporter : public SilentReporter {
   public:
    Reporter(Progress& progress, std::size_t part) : progress_(progress), part_(part) {}
    void SetPercent(std::int32_t percent) override { progress_.Set(part_, percent); }
    bool IsCancelRequested() override { return progress_.IsStopRequested(); }

   private:
    Progress& progress_;
    std::size_t part_;
  };

  Morvu::Report::Run& Reported() { return *reported_[turn_]; }
  bool Keep(const SavedFile& file, const std::string& path) {
    if (file.isSaved && !reported_.empty()) {
      Reported().files.push_back(path);
    } else {
      Say(file.told);
    }
    isUnsaved_ = isUnsaved_ || !file.isSaved;
    return file.isSaved;
  }
  // "smart.csv" is "smart_SERIAL.csv" of a drive.
  std::string NameFile(const std::string& path) const {
    const auto name = path.rfind('/') + 1;  // 0 without a folder
    const auto dot = path.rfind('.');
    const auto end = dot == path.npos || dot <= name ? path.size() : dot;
    return path.substr(0, end) + "_" + name_ + path.substr(end);
  }

  Drives drives_;
  std::vector<Morvu::Report::Run*> reported_;  // one a drive; none without a report
  std::size_t turn_ = 0;                       // whose drive it is about
  std::string name_;                           // in the names of files
  Reporter reporter_;
  std::vector<std::variant<Line, Warning, StatusCode>> told_;
  bool hasTold_ = false;
  bool isUnsaved_ = false;
  StatusCode worst_ = Status::Completed;
};

// A drive's serial number as a part of a file's name, or its node's where others share it.
std::string NameInFiles(const Device& drive, const std::map<std::string, int>& serials) {
  auto name = drive.GetString(Properties::SerialNumber);
  if (name.empty() || serials.at(name) > 1) {
    const auto path = drive.GetString(Properties::DevicePath);
    name = path.substr(path.rfind('/') + 1);
  }
  for (auto& letter : name) {
    const bool isSafe = (letter >= '0' && letter <= '9') || (letter >= 'A' && letter <= 'Z') ||
                        (letter >= 'a' && letter <= 'z') || letter == '-';
    if (!isSafe) letter = '_';
  }
  return name;
}

// Drives that a sequence holds with each other belong to one run.
std::vector<Drives> GroupDrives(SelectedDrives devices, bool isSequence) {
  std::vector<Drives> groups;
  std::map<std::string, std::size_t> known;
  for (auto* device : devices) {
    const bool mayShare = isSequence && device->HasCommandSet(Protocol::Nvme);
    const auto subsystem =
        mayShare
            ? DeviceManagement::SystemFacts::FindSubsystem(device->GetCommandPath().GetDevicePath())
            : std::string();
    const auto [place, isNew] = known.emplace(subsystem, groups.size());
    if (isNew || subsystem.empty()) {
      groups.push_back({device});
    } else {
      groups[place->second].push_back(device);
    }
  }
  return groups;
}

using Lane = std::vector<std::size_t>;

// The groups whose runs go one after another: members of one volume, which a sequence holds with
// it.
std::vector<Lane> FindLanes(const std::vector<Drives>& groups, bool isSequence) {
  std::vector<Lane> lanes;
  std::map<std::string, std::size_t> known;
  for (std::size_t i = 0; i < groups.size(); ++i) {
    const auto volumes =
        isSequence ? groups[i].front()->GetVolumeNodes() : std::vector<std::string>();
    const auto joined =
        std::ranges::find_if(volumes, [&](const auto& volume) { return known.contains(volume); });
    const auto place = joined == volumes.end() ? lanes.size() : known.at(*joined);
    if (place == lanes.size()) lanes.emplace_back();
    lanes[place].push_back(i);
    for (const auto& volume : volumes) known.emplace(volume, place);
  }
  return lanes;
}

// Prints runs that have ended as soon as all before them have.
class Turns {
 public:
  Turns(QRKCLI& cli, std::size_t count) : cli_(cli), ended_(count) {}
  void End(const std::vector<std::unique_ptr<DriveRun>>& runs, std::size_t i) {
    const std::lock_guard lock(mutex_);
    ended_[i] = true;
    for (; next_ < runs.size() && ended_[next_]; ++next_) runs[next_]->Print(cli_);
  }

 private:
  QRKCLI& cli_;
  std::mutex mutex_;  // guards what follows, and the output
  std::vector<bool> ended_;
  std::size_t next_ = 0;
};

StatusCode RunGroup(const FeatureRecord& feature, const OptionDeclaration& option,
                    const CallArguments& arguments, DriveRun& run) {
  StatusCode code = Status::Completed;
  // A feature for one drive has each in its turn.
  const auto drives = run.GetDrives();
  const std::size_t share = feature.needsDrive ? 1 : drives.size();
  for (std::size_t i = 0; i < drives.size(); i += share) {
    if (run.GetReporter().IsCancelRequested()) return Status::Canceled;
    run.Turn(*drives[i]);
    const FeatureCall call{run, drives.subspan(i, share), true, arguments};
    const auto end = RunHeld(feature, call, [&] { return option.run(call); });
    if (share == 1) run.EndTurn(end);
    if (RankOf(end) >= RankOf(code)) code = end;
  }
  return code;
}

// Of all drives of a machine those that the feature is not made for count only where no other was.
StatusCode FindWorst(const std::vector<std::unique_ptr<DriveRun>>& runs, bool areAll) {
  StatusCode worst = Status::Completed;
  bool isAnyGood = false;
  for (const auto& run : runs) {
    isAnyGood = isAnyGood || IsGoodEnd(run->GetWorst());
    if (RankOf(run->GetWorst()) > RankOf(worst)) worst = run->GetWorst();
  }
  const bool isForgiven = areAll && isAnyGood && RankOf(worst) == 1;
  return isForgiven ? StatusCode(Status::Completed) : worst;
}

std::string Summarize(const std::vector<std::unique_ptr<DriveRun>>& runs) {
  std::size_t drives = 0, good = 0;
  for (const auto& run : runs) {
    drives += run->GetDrives().size();
    if (IsGoodEnd(run->GetWorst())) good += run->GetDrives().size();
  }
  return std::to_string(drives) + (drives == 1 ? " drive: " : " drives: ") + std::to_string(good) +
         " ended well, " + std::to_string(drives - good) + " did not.";
}

}  // namespace

StatusCode RunOnDrives(QRKCLI& cli, const FeatureRecord& feature, const OptionDeclaration& option,
                       SelectedDrives devices) {
  CallArguments arguments;
  if (const auto code = TakeArguments(cli, option, arguments); code != Status::ReadyToRun) {
    return cli.Finish(code);
  }
  if (feature.onSeveral == OnSeveral::AskFirst && !cli.HasOption("-force")) {
    std::string warning = "WARNING! You have selected " + std::to_string(devices.size()) +
                          " drives for " + std::string(option.name) + "!";
    for (const auto* device : devices) {
      warning += "\n" + Printable(device->GetString(Properties::DevicePath)) + ": " +
                 Printable(device->GetString(Properties::SerialNumber));
    }
    if (!cli.Confirm(warning, "Proceed on all of them?")) return cli.Finish(Status::CanceledByUser);
  }

  const auto groups = GroupDrives(devices, feature.isSequence);
  const auto lanes = FindLanes(groups, feature.isSequence);
  Progress progress(cli, groups.size());
  if (feature.onSeveral == OnSeveral::AskFirst) progress.HoldSignals();
  std::map<std::string, int> serials;
  for (const auto* device : devices) ++serials[device->GetString(Properties::SerialNumber)];
  std::vector<std::unique_ptr<DriveRun>> runs;
  for (const auto& group : groups) {
    runs.push_back(std::make_unique<DriveRun>(progress, runs.size(), group,
                                              NameInFiles(*group.front(), serials)));
    if (auto* report = cli.GetReport()) runs.back()->ReportTo(*report, option.name.substr(1));
  }
  Turns turns(cli, runs.size());
  ProgressLine::Run line(cli.GetProgress(), option.name.substr(1));
  Prompt prompt(cli);
  const auto result = RunAndRecord(cli, prompt, devices, [&] {
    DeviceManagement::AskSideBySide(lanes.size(), [&](std::size_t lane) {
      bool isVolumeWhole = true;
      for (const auto i : lanes[lane]) {
        auto& run = *runs[i];
        if (isVolumeWhole) {
          run.Finish(RunGroup(feature, option, arguments, run));
        } else {
          run.Say("Nothing was done: another member of its volume did not end well.");
          run.Finish(Status::NotRun);
        }
        isVolumeWhole = isVolumeWhole && RankOf(run.GetWorst()) < 2;
        turns.End(runs, i);
      }
    });
    cli.PrintLine();
    cli.PrintLine(Summarize(runs));
    return FindWorst(runs, cli.GetArgument(kSeveralDrives) == kAllDrives);
  });
  line.Stop();
  (void)cli.Finish(result);
  if (auto* report = cli.GetReport(); report != nullptr && progress.IsSignalPending()) {
    report->code = result;
    cli.PrintReport();
  }
  cli.Flush();  // a signal that was held may end the tool now
  return result;
}

}  // namespace Morvu
