// What a job says while it runs: every method through a real job, whose entry in the list is
// looked at all along by another thread, and at each of its messages.
#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "gtest/gtest.h"
#include "messaging/XmlMessaging.h"
#include "messaging/drive_class/Features.h"
#include "messaging/drive_class/MorvuSSD.h"
#include "messaging/jobs/JobManager.h"
#include "support/EraseScene.h"
#include "support/FirmwareModules.h"

namespace Morvu {
namespace {

using EraseTesting::LogSpec;
using EraseTesting::NvmeSpec;
using EraseTesting::SataSpec;
using Simulator::Fault;
using Testing::MethodParameters;
using XmlMessaging::Message;
using XmlMessaging::Object;

constexpr auto kPatience = std::chrono::minutes(3);
constexpr std::string_view kImage = "IMAGE";  // stands for the path of a firmware image

// ---- What is seen of a job ----

struct Sight {
  std::string state = "absent", code, percent;
  bool operator==(const Sight&) const = default;
};
void PrintTo(const Sight& sight, std::ostream* out) {
  *out << sight.state << '/' << sight.code << ' ' << sight.percent << '%';
}

Sight ReadSight(const Object& job) {
  return {Testing::GetText(job, "JobState"), Testing::GetText(job, "ErrorCode"),
          Testing::GetText(job, "PercentComplete")};
}

// One message of the job, and its entry in the list at that moment.
struct Told {
  Sight message;
  Sight before, after;  // the host could have it
  bool isReply = false;
};

std::atomic<int> theHour = 0;

// A manager whose only listed job is watched.
class WatchedJob {
 public:
  WatchedJob() : manager_(MakeEnvironment()) {}

  void Scan() { Run("<Message cimClass='MorvuSSD' scan='True'/>", true); }

  // Runs the request to its reply.
  void Run(const std::string& request, bool synchronous = false) {
    told.clear();
    glimpses.clear();
    hasReply_ = isWatched_ = false;
    std::thread watcher([this] { Watch(); });
    const auto created = manager_.CreateJob(Message::Parse(request), &HandleMorvuSSD, synchronous);
    EXPECT_EQ(created.status, Status::Completed);
    {
      std::unique_lock lock(mutex_);
      EXPECT_TRUE(changed_.wait_for(lock, kPatience,
                                    [this] { return !told.empty() && told.back().isReply; }));
    }
    isWatched_ = true;
    watcher.join();
    lastSight = Look();
    theHour += 1;  // the job has had its time
    while (Look().state != "absent") manager_.Sweep();
  }

  void Cancel() {
    const auto list = manager_.BuildJobList();
    for (const auto& job : list->objects) {
      manager_.CancelJob(std::stoull(job->properties.at(0)->value));
    }
  }

  std::vector<Told> told;
  std::vector<Sight> glimpses;  // by the watcher, without those that say the same again
  Sight lastSight;
  std::function<void(const Told&)> atMessage;

 private:
  JobEnvironment MakeEnvironment() {
    JobEnvironment environment;
    environment.post = [this](std::unique_ptr<Message> message, JobId, bool, const auto& there) {
      Told each;
      each.message = ReadSight(*message->objects.back());
      each.isReply = !message->GetAttribute("subject").empty();
      each.before = Look();
      if (each.isReply) hasReply_ = true;  // whoever sees the end may look for it
      there();
      each.after = Look();
      if (atMessage) atMessage(each);
      std::lock_guard lock(mutex_);
      told.push_back(std::move(each));
      changed_.notify_all();
    };
    environment.now = [] { return JobTime(std::chrono::hours(theHour)); };
    return environment;
  }

  Sight Look() const {
    const auto list = manager_.BuildJobList();
    return list->objects.empty() ? Sight() : ReadSight(*list->objects.back());
  }

  void Watch() {
    while (!isWatched_) {
      const auto sight = Look();
      if (sight.state == "absent") continue;
      if (sight.state == "7") {
        EXPECT_TRUE(hasReply_) << "its end is seen before its reply";
      }
      if (glimpses.empty() || !(glimpses.back() == sight)) glimpses.push_back(sight);
    }
  }

  std::mutex mutex_;
  std::condition_variable changed_;
  std::atomic<bool> hasReply_ = false, isWatched_ = false;
  JobManager manager_;
};

// The truth of a job that has ended.
void CheckTruth(const WatchedJob& job, std::string_view what) {
  SCOPED_TRACE(what);
  ASSERT_FALSE(job.told.empty());
  int percent = 0;
  for (const auto& each : job.told) {
    const bool isLast = &each == &job.told.back();
    EXPECT_EQ(each.isReply, isLast);
    EXPECT_EQ(each.before.state, "4");
    EXPECT_EQ(each.before.code, "74");
    EXPECT_EQ(each.message.state, isLast ? "7" : "4");
    EXPECT_EQ(each.after.state, each.message.state);
    EXPECT_EQ(each.after.code, each.message.code);
    if (!isLast) {
      EXPECT_EQ(each.message.code, "74");
    }
    EXPECT_GE(std::stoi(each.message.percent), percent) << "percent goes back";
    percent = std::stoi(each.message.percent);
  }
  EXPECT_EQ(percent, 100);
  EXPECT_EQ(job.lastSight, job.told.back().message);
  for (const auto& glimpse : job.glimpses) {
    EXPECT_TRUE(glimpse.code == "74" || glimpse == job.lastSight) << glimpse.code;
  }
}

// ---- Every method ----

struct JobScene {
  std::string_view name;
  std::string_view label{};
  Simulator::DriveSpec (*spec)() = &SataSpec;
  MethodParameters parameters{};
  std::size_t leastMessages = 1;  // of a good run, its reply among them
};
void PrintTo(const JobScene& scene, std::ostream* out) { *out << scene.name << scene.label; }

const JobScene kScenes[] = {
    {.name = "Delete", .label = "Sata", .leastMessages = 8},
    {.name = "Delete", .label = "Nvme", .spec = &NvmeSpec, .leastMessages = 3},
    {.name = "Format", .spec = &NvmeSpec, .leastMessages = 3},
    {.name = "SecureErase", .leastMessages = 8},
    {.name = "Sanitize", .parameters = {{"SanitizeType", "block"}}, .leastMessages = 2},
    {.name = "DriveSelfTest", .parameters = {{"SelfTest", "short"}}},
    {.name = "FirmwareUpdate", .parameters = {{"file", std::string(kImage)}}, .leastMessages = 5},
    {.name = "SmartParser", .label = "Nvme", .spec = &NvmeSpec},
    {.name = "NVMeLogParser", .spec = &NvmeSpec, .parameters = {{"LogID", "2"}}},
    {.name = "ReadEventLog", .spec = &LogSpec, .leastMessages = 90},
    {.name = "ReadNlog", .spec = &NvmeSpec, .leastMessages = 4},
};

std::vector<JobScene> ListJobScenes() {
  std::vector<JobScene> scenes(std::begin(kScenes), std::end(kScenes));
  for (const auto& method : GetDriveMethods()) {
    const auto name = method.method->name;
    if (std::ranges::find(kScenes, name, &JobScene::name) != std::end(kScenes)) continue;
    scenes.push_back({.name = name, .label = "Sata"});
    scenes.push_back({.name = name, .label = "Nvme", .spec = &NvmeSpec});
  }
  return scenes;
}

class JobTruth : public ::testing::TestWithParam<JobScene> {
 protected:
  static std::string MakeRequest(const JobScene& scene, const std::string& serial,
                                 const std::string& image) {
    auto request =
        "<Message cimClass='MorvuSSD'><Object cimClass='MorvuSSD'><Property key='True' "
        "name='SerialNumber'>" +
        serial + "</Property></Object><Object type='method' name='" + std::string(scene.name) +
        "'>";
    for (const auto& [name, text] : scene.parameters) {
      request += "<Property name='" + std::string(name) + "'>" + (text == kImage ? image : text) +
                 "</Property>";
    }
    return request + "</Object></Message>";
  }

  // Runs the scene on a fleet of its own, with a fault or without.
  static std::size_t RunOnce(const JobScene& scene, std::size_t failing, WatchedJob& job) {
    Simulator::TestFleet fleet;
    auto drive = fleet.Add(EraseTesting::EraseScene::Small(scene.spec()));
    const auto image = fleet.Folder() + "/image.bin";
    EXPECT_TRUE(SaveBinary(image, Testing::MakeSimulatedImage("NEW2", 140'000), false));
    job.Scan();
    drive.ClearJournal();
    if (failing != 0) {
      drive.Inject(Fault::Fail().OnCommand(static_cast<std::uint32_t>(failing)).Times(1));
    }
    job.Run(MakeRequest(scene, drive.State().serial, image));
    return drive.Journal().size();
  }
};

TEST_P(JobTruth, IsToldToTheEnd) {
  WatchedJob job;
  const auto commands = RunOnce(GetParam(), 0, job);
  CheckTruth(job, "good run");
  EXPECT_GE(job.told.size(), GetParam().leastMessages);
  // Whatever fails: a command in the middle, or the last.
  for (const auto failing : {commands / 2, commands}) {
    if (failing == 0) continue;
    RunOnce(GetParam(), failing, job);
    CheckTruth(job, "command " + std::to_string(failing) + " fails");
  }
}

INSTANTIATE_TEST_SUITE_P(Methods, JobTruth, ::testing::ValuesIn(ListJobScenes()),
                         [](const auto& test) {
                           return std::string(test.param.name) + std::string(test.param.label);
                         });

// ---- A drive that is still locked ----

// The erase is done at 90 percent; the password comes off behind it.
TEST(JobTruths, AnEraseIsNotOverWhileItsPasswordIsSet) {
  Simulator::TestFleet fleet;
  auto drive = fleet.Add(EraseTesting::EraseScene::Small(SataSpec()));
  WatchedJob job;
  job.Scan();
  int locked = 0;
  job.atMessage = [&](const Told& each) {
    if (drive.State().ata.security.enabled == 0) return;
    ++locked;
    EXPECT_EQ(each.after.state, "4");
    EXPECT_EQ(each.after.code, "74");
  };
  job.Run(
      "<Message cimClass='MorvuSSD'><Object cimClass='MorvuSSD'><Property key='True' "
      "name='SerialNumber'>BTWL1234</Property></Object>"
      "<Object type='method' name='SecureErase'/></Message>");
  EXPECT_GE(locked, 4);
  EXPECT_EQ(job.lastSight.code, "0");
}

// ---- Several images, several drives ----

class SeveralUpdates : public ::testing::Test {
 protected:
  // Drives that a module has images for, installed one after the other.
  void Prepare(std::size_t driveCount, std::size_t imageCount) {
    std::string names, settings;
    for (std::size_t i = 1; i <= imageCount; ++i) {
      const auto name = "NEW" + std::to_string(i);
      const auto file = modules_.AddFile(name, Testing::MakeSimulatedImage(name, 60'000));
      names += (names.empty() ? "" : "~") + name;
      settings += "binary." + name + "=" + file + "\n";
    }
    modules_.Add("m", "date=1\nmapping=" + Testing::MakeMapping("1", names) + "\n" + settings);
    for (std::size_t i = 0; i < driveCount; ++i) {
      drives_.push_back(fleet_.Add({.model = "MORVU SSDSC2BB480G4",
                                    .serial = "BTWL" + std::to_string(i),
                                    .firmware = "OLD"}));
    }
    job_.Scan();
  }

  void Run() {
    job_.Run("<Message cimClass='MorvuSSD'><Object name='FirmwareModulesDirectories'><Property>" +
             modules_.Path() + "</Property></Object>" +
             "<Object type='method' name='FirmwareUpdate'/></Message>");
    CheckTruth(job_, "update");
  }

  // Asks the job to end when a message tells this percent or more.
  void CancelAt(int percent) {
    job_.atMessage = [this, percent](const Told& each) {
      if (isCanceled_ || std::stoi(each.message.percent) < percent) return;
      isCanceled_ = true;
      job_.Cancel();
      for (auto& drive : drives_) drive.ClearJournal();
    };
  }

  std::vector<std::string> ListRevisions() {
    std::vector<std::string> revisions;
    for (auto& drive : drives_) revisions.emplace_back(drive.State().firmware);
    return revisions;
  }

  Simulator::TestFleet fleet_;
  Testing::ModuleFolder modules_;
  std::vector<Simulator::SimulatedDrive> drives_;
  WatchedJob job_;
  bool isCanceled_ = false;
};
using Revisions = std::vector<std::string>;

TEST_F(SeveralUpdates, AreToldToTheEndOfTheLast) {
  Prepare(2, 2);
  Run();
  EXPECT_EQ(job_.lastSight.code, "0");
  EXPECT_EQ(ListRevisions(), (Revisions{"NEW2", "NEW2"}));
  // Each image of each drive is a quarter of the whole, and is told of.
  std::vector<int> told(5);
  for (const auto& each : job_.told) ++told.at((std::stoul(each.message.percent) + 24) / 25);
  for (std::size_t quarter = 1; quarter <= 4; ++quarter) EXPECT_GE(told[quarter], 3) << quarter;
}

// What is done is done; nothing else begins. FirmwareDrives cancels at every other moment.
TEST_F(SeveralUpdates, AreToldToBeCanceledAndTheNextDrivesAreLeftAlone) {
  Prepare(3, 1);
  CancelAt(30);  // the first drive has its image
  Run();
  EXPECT_EQ(job_.lastSight.code, "2");
  EXPECT_EQ(ListRevisions(), (Revisions{"NEW1", "OLD", "OLD"}));
  for (const std::size_t next : {1, 2}) EXPECT_TRUE(drives_[next].Opcodes().empty()) << next;
}

}  // namespace
}  // namespace Morvu
