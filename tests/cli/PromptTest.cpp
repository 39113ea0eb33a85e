// What the prompt tells beside the features: words for the help, files that cannot be written,
// what was not read, what a drive's own text may do, and what the process lacks.
#include <errno.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <linux/capability.h>

#include <ctime>
#include <filesystem>
#include <fstream>

#include "TestFleet.h"
#include "cli/AccessRights.h"
#include "devices/discovery/AdapterManager.h"
#include "frame/Files.h"
#include "frame/status/Files.h"
#include "support/CommandLine.h"

namespace Morvu::Testing {
namespace {

using Simulator::Fault;
using Simulator::TestFleet;
using ::testing::AllOf;
using ::testing::ContainsRegex;
using ::testing::HasSubstr;
using ::testing::Not;

Simulator::DriveSpec PromptSpec() { return {.model = "MORVU SSDSC2BB480G4", .serial = "SATA1"}; }

TEST(Prompt, ShowsTheHelpForWhatHandsType) {
  for (const auto& rest : std::vector<std::vector<std::string>>{{}, {"drive_index"}}) {
    const auto run = [&](const char* word) {
      std::vector<std::string> words = {word};
      words.insert(words.end(), rest.begin(), rest.end());
      return RunToolLine(words);
    };
    const auto told = run("-help");
    EXPECT_THAT(told.output, HasSubstr("-drive_index"));
    for (const auto* word : {"help", "--help", "-h"}) {
      EXPECT_EQ(run(word).code, 0) << word;
      EXPECT_EQ(run(word).output, told.output) << word;
    }
  }
}

// A run that takes hours must not keep back what came before it.
TEST(Prompt, WritesWhatIsThereBeforeAFeatureBegins) {
  TestFleet fleet;
  auto drive = fleet.Add(PromptSpec());
  // What is out, and whether SMART was read by then, behind the verdict of the information.
  class Snapshots : public std::stringbuf {
   public:
    explicit Snapshots(const Simulator::SimulatedDrive& drive) : drive_(drive) {}
    std::vector<std::pair<std::string, bool>> taken;

   private:
    int sync() override {
      taken.emplace_back(str(), std::ranges::count(drive_.Opcodes(), 0xB0) > 1);
      return 0;
    }
    Simulator::SimulatedDrive drive_;
  };
  Snapshots written(drive);
  std::ostream out(&written);
  std::istringstream in;
  EXPECT_EQ(RunToolLine({"-drive_index", "0", "-smart"}, CLIStreams{in, out}).code, 0);
  ASSERT_FALSE(written.taken.empty());
  EXPECT_THAT(written.taken.front().first, HasSubstr("Drive Information"));
  EXPECT_FALSE(written.taken.front().second);
}

// ---- Files ----

class PromptFiles : public ::testing::Test {
 protected:
  PromptFiles() : before_(std::filesystem::current_path()) {
    fleet_.Add(PromptSpec());
    std::filesystem::create_directory(fleet_.Folder() + "/work");
    std::filesystem::current_path(fleet_.Folder() + "/work");
  }
  ~PromptFiles() override { std::filesystem::current_path(before_); }

  TestFleet fleet_;
  std::filesystem::path before_;
};

TEST_F(PromptFiles, TellWhyTheyCannotBeWritten) {
  const std::pair<const char*, const char*> kPaths[] = {
      {"missing/file", "Reason: No such file or directory."},
      {"/dev/sda", "Reason: It is a device."},
      {"/", "Reason: Is a directory."},
      {"/dev/full", "Reason: No space left on device."},
  };
  for (const auto& [path, reason] : kPaths) {
    for (const auto* option : {"-smart", "-drive_list"}) {
      const auto outcome = RunToolLine({option, path});
      EXPECT_EQ(outcome.code, Status::FileNotWritten) << option << ' ' << path;
      EXPECT_THAT(outcome.output, AllOf(HasSubstr("Failed to save data to: "), HasSubstr(reason),
                                        Not(HasSubstr("Completed successfully"))))
          << option;
    }
  }
  for (const auto* path : {"missing/log", "/dev/sda", "/"}) {
    const auto outcome = RunToolLine({"-log", path});
    EXPECT_EQ(outcome.code, Status::FileNotWritten) << path;
    EXPECT_THAT(outcome.output, HasSubstr("Reason: ")) << path;
  }
}

// Whatever the second in which it starts.
TEST_F(PromptFiles, LogsOfOneSecondAreTwo) {
  constexpr int kSeconds = 120;
  const auto now = std::time(nullptr);
  std::vector<std::string> others;
  for (int second = 0; second < kSeconds; ++second) {
    const auto time = now + second;
    std::tm local{};
    localtime_r(&time, &local);
    char name[64] = "";
    std::strftime(name, sizeof name, "LOG_%Y-%m-%d_%H-%M-%S.txt", &local);
    others.emplace_back(name);
    std::ofstream(others.back()) << "another's\n";
  }
  EXPECT_EQ(RunToolLine({"-log"}).code, 0);
  for (const auto& name : others) EXPECT_EQ(ReadFileText(name), "another's\n");
  std::size_t files = 0;
  for (const auto& file : std::filesystem::directory_iterator(".")) {
    ++files;
    if (std::ranges::count(others, file.path().filename().string()) > 0) continue;
    EXPECT_THAT(ReadFileText(file.path().string()), HasSubstr("runCLI"));
  }
  EXPECT_EQ(files, others.size() + 1);
}

// ---- Drives ----

TEST(PromptDrives, ShowsWhatWasNotReadAsUnknown) {
  TestFleet fleet;
  fleet.Add(PromptSpec()).Inject(Fault::Fail().OnOpcode(0xEC));
  const auto output = RunToolLine({"-drive_path", "/dev/sg0"}).output;
  for (const auto* label : {"Current MAX LBA:", "Drive Status:", "Current Capacity:", "SMART:",
                            "DIPM:", "Write Cache:"}) {
    EXPECT_THAT(output, ContainsRegex(std::string(label) + " +\\| Unknown")) << output;
  }
  EXPECT_THAT(output, Not(HasSubstr("Healthy")));
}

TEST(PromptDrives, NamesTheDriveOfATableAmongSeveral) {
  TestFleet fleet;
  auto spec = PromptSpec();
  fleet.Add(spec);
  EXPECT_THAT(RunToolLine({"-smart"}).output, Not(HasSubstr("serial number SATA1")));
  spec.serial = "SATA2";
  fleet.Add(spec);
  EXPECT_THAT(RunToolLine({"-smart"}).output,
              HasSubstr("Drive /dev/sg0: MORVU SSDSC2BB480G4, serial number SATA1\n"));
}

// A model that would break the row, colour the terminal and ring its bell.
TEST(PromptDrives, LetNoTextOfADriveSteerTheTerminal) {
  TestFleet fleet;
  auto spec = PromptSpec();
  spec.model = "A,B \"C\" <C:RED>D</c>\x1b[31m\a TRANS_E";
  fleet.Add(spec);
  const auto file = fleet.Folder() + "/list.csv";
  EXPECT_EQ(RunToolLine({"-drive_list", file}).code, 0);
  EXPECT_THAT(ReadFileText(file),
              HasSubstr("0,\"A,B \"\"C\"\" ?C:RED>D?/c> [31m  TRANS?E\",SATA1,"));

  std::istringstream in;
  std::ostringstream out;
  EXPECT_EQ(RunToolLine({"-drive_list"}, CLIStreams{in, out, true}).code, 0);
  EXPECT_THAT(out.str(), HasSubstr("| A,B \"C\" ?C:RED>D?/c> [31m TRANS?E "));
}

// ---- Rights ----

TEST(AccessRights, TellsTheCapabilityThatADriveWithoutAnAnswerMayLack) {
  constexpr std::uint64_t kRaw = std::uint64_t{1} << CAP_SYS_RAWIO;
  constexpr std::uint64_t kAdmin = std::uint64_t{1} << CAP_SYS_ADMIN;
  TestFleet fleet;
  auto drive = fleet.Add(PromptSpec());
  const auto describe = [](std::uint64_t capabilities) {
    DeviceManagement::AdapterManager manager;
    DeviceManagement::ScanOptions options;
    options.identify = true;
    manager.Scan(options);
    EXPECT_EQ(manager.GetDrives().size(), 1U);
    return DescribeMissingRights(manager.GetDrives(), capabilities);
  };
  EXPECT_EQ(describe(0), "");  // it answers
  drive.Inject(Fault::IoctlError(EPERM));
  EXPECT_THAT(describe(0), HasSubstr("need CAP_SYS_RAWIO and CAP_SYS_ADMIN."));
  EXPECT_THAT(describe(kAdmin), HasSubstr("need CAP_SYS_RAWIO."));
  EXPECT_THAT(describe(kRaw), HasSubstr("need CAP_SYS_ADMIN."));
  EXPECT_EQ(describe(kRaw | kAdmin), "");
}

}  // namespace
}  // namespace Morvu::Testing
