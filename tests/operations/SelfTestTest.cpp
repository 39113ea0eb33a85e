// Self test and standby.
#include <algorithm>

#include "frame/status/Commands.h"
#include "frame/status/Health.h"
#include "frame/status/Testing.h"
#include "operations/testing/DriveSelfTest.h"
#include "operations/testing/StandbyImmediate.h"
#include "support/EraseScene.h"
#include "support/Sweep.h"

namespace Morvu {
namespace {

using namespace EraseTesting;
using namespace Testing;
using Simulator::Fault;

const Simulator::JournalEntry& FindStart(const std::vector<Simulator::JournalEntry>& commands) {
  const auto found = std::ranges::find_if(commands, [](const auto& command) {
    return command.Opcode() == kSmart && (command.Features() & 0xFF) == kExecute;
  });
  static const Simulator::JournalEntry kNone{};
  EXPECT_NE(found, commands.end()) << "no self-test was started";
  return found == commands.end() ? kNone : *found;
}

// A self-test of thirty seconds by the method.
struct MethodTest : MethodScene {
  explicit MethodTest(MethodParameters parameters = {{"SelfTest", "short"}})
      : MethodScene(SataSpec(), "DriveSelfTest", std::move(parameters)) {
    auto& state = drive.State().ata.selfTest;
    state.shortMs = state.extendedMs = state.conveyanceMs = 30'000;
  }
  bool IsRunning() { return drive.State().ata.selfTest.running != 0; }
};

TEST(DriveSelfTest, TheMethodWaitsForTheEndAndFollowsTheDrive) {
  const std::pair<MethodParameters, int> kTests[] = {{{{"SelfTest", "short"}}, 1},
                                                     {{{"SelfTest", "extended"}}, 2},
                                                     {{{"SelfTest", "conveyance"}}, 3},
                                                     {{}, 2}};
  for (const auto& [parameters, subcommand] : kTests) {
    SCOPED_TRACE(subcommand);
    MethodTest scene(parameters);
    const auto run = RunScene(scene, nullptr, 0);
    EXPECT_EQ(run.code, 0);
    const auto& start = FindStart(run.commands);
    EXPECT_EQ(start.Lba(), 0xC24F00u | static_cast<unsigned>(subcommand));
    EXPECT_EQ(start.timeoutMs, 1'800'000u);
    EXPECT_TRUE(std::ranges::is_sorted(run.percents));
    EXPECT_EQ(run.percents.front(), 10);
    EXPECT_EQ(run.percents.back(), 100);
    EXPECT_GE(run.questions, 30u);
    EXPECT_FALSE(scene.IsRunning());
  }
}

// The byte that the drive tells, and what is made of it.
struct StatusCase {
  int byte;
  const char* line;
  bool isOver;
  int percent;
};

class SelfTestStatus : public ::testing::TestWithParam<StatusCase> {};

TEST_P(SelfTestStatus, IsReported) {
  MethodTest scene;
  scene.drive.State().ata.selfTest.status = static_cast<std::uint8_t>(GetParam().byte);
  scene.Prepare();
  DriveSelfTest test(scene.device(), 0, SelfTestMode::Offline, NoReporter());
  ResultTable table;
  EXPECT_EQ(test.ReportSelfTestStatus(table), GetParam().isOver);
  EXPECT_EQ(test.GetPercent(), GetParam().percent);
  EXPECT_EQ(test.GetErrorCode(), 0);
  // A verdict against the drive, and nothing else, is a warning.
  const int state = GetParam().byte >> 4;
  EXPECT_EQ(test.GetRemarks().empty(), state < 3 || state > 8);
  EXPECT_NE(table.ToText().find(GetParam().line), std::string::npos) << table.ToText();
  if (!GetParam().isOver) {
    const auto progress = "Progress = " + std::to_string(GetParam().percent) + "%";
    EXPECT_NE(table.ToText().find(progress), std::string::npos) << table.ToText();
  }
}

const StatusCase kStatuses[] = {
    {0x00, "completed without error.", true, 100},
    {0x13, "aborted by the host.", true, 70},
    {0x25, "interrupted by the host", true, 50},
    {0x30, "fatal error", true, 100},
    {0x40, "", true, 100},
    {0x50, "", true, 100},
    {0x60, "", true, 100},
    {0x70, "read element of the test failed.", true, 100},
    {0x80, "handling damage.", true, 100},
    {0x90, "Reserved status.", true, 100},
    {0xE0, "Reserved status.", true, 100},
    {0xF3, "in progress.", false, 70},
    {0xFE, "in progress.", false, 0},  // no drive has 140 percent left
    {0xFF, "Unable to read self-test status.", true, 0},
};
INSTANTIATE_TEST_SUITE_P(Bytes, SelfTestStatus, ::testing::ValuesIn(kStatuses));

TEST(DriveSelfTest, TellsAFailedTest) {
  MethodTest scene;
  scene.drive.State().ata.selfTest.nextResult = 7;
  scene.Prepare();
  EXPECT_EQ(scene.Run(NoReporter()), Status::SelfTestFailed);
}

// The result of the last test by message, and a warning where the drive failed it.
TEST(DriveSelfTest, MethodTellsTheStatus) {
  MethodTest scene;
  scene.Prepare();
  const auto ask = [&](std::uint8_t status, StatusCode code) {
    scene.drive.State().ata.selfTest.status = status;
    XmlMessaging::Message reply;
    EXPECT_EQ(CallMethod(*scene.device(), "DriveSelfTest", {{"SelfTest", "status"}}, NoReporter(),
                         &reply),
              code);
    std::string told;
    for (const auto& property : reply.properties) {
      told += property->GetAttribute("name") + "=" + property->value + "\n";
    }
    return told;
  };
  EXPECT_EQ(ask(0x00, Status::Completed),
            "SelfTestStatus=Previous self-test routine completed without error.\n");
  EXPECT_EQ(ask(0x70, Status::Completed),
            "Warning=The drive failed its self-test.\n"
            "SelfTestStatus=The previous self-test completed having the read element of the test "
            "failed.\n");
  EXPECT_FALSE(scene.IsRunning());
  scene.drive.Inject(Fault::AtaError().OnOpcode(0xB0));
  EXPECT_EQ(ask(0x00, Status::SmartDataFailed), "");
}

// What a method call or a line names, and what comes of it.
TEST(DriveSelfTest, RefusesWhatItDoesNotKnow) {
  MethodTest scene;
  scene.Prepare();
  auto& device = *scene.device();
  MessageFace face(NoReporter(), false);
  const auto run = [&](std::string_view test, std::string_view mode) {
    return DriveSelfTest::Runner(device, test, mode, face);
  };
  EXPECT_EQ(CallMethod(device, "DriveSelfTest", {{"SelfTest", ""}}), Status::InvalidSelfTest);
  EXPECT_EQ(run("long", "offline"), Status::InvalidSelfTest);
  EXPECT_EQ(run("long", "slow"), Status::InvalidArguments);
  EXPECT_EQ(run("Short", ""), Status::InvalidSelfTest);
  EXPECT_FALSE(scene.IsRunning());
}

// A SATA layer does not say that a sector came short; what is missing is no good result.
TEST(DriveSelfTest, ShortOrFalseDataAreNoResult) {
  for (auto fault : {Fault::ShortData(0), Fault::ShortData(300),
                     Fault::GarbageData(Simulator::Garbage::Random)}) {
    MethodScene scene(SataSpec(), "DriveSelfTest", {{"SelfTest", "short"}});
    scene.Prepare();
    scene.drive.Inject(fault.OnOpcode(0xB0).OnFeature(0xD0));
    DriveSelfTest test(scene.device(), 0, SelfTestMode::Offline, NoReporter());
    ResultTable table;
    EXPECT_TRUE(test.ReportSelfTestStatus(table));
    EXPECT_NE(table.ToText().find("Unable to read self-test status."), std::string::npos);
  }
}

TEST(DriveSelfTest, ACancelEndsTheWaitingNotTheTest) {
  std::size_t runs = 0;
  SweepCancels<MethodTest>([&](MethodTest& scene, const SweptRun& run) {
    ++runs;
    EXPECT_EQ(run.code, Status::Canceled);
    EXPECT_TRUE(scene.IsRunning());
    EXPECT_TRUE(scene.IsUntouched());
  });
  EXPECT_GE(runs, 30u);
}

struct BriefTest : MethodTest {
  BriefTest() { drive.State().ata.selfTest.shortMs = 2500; }
};

TEST(DriveSelfTest, EachCommandFails) {
  SweepFaults<BriefTest>(Fault::Fail().Times(1), [](BriefTest& scene, const SweptRun& run) {
    const bool isStart = (run.Met().Features() & 0xFF) == kExecute;
    const bool isLast = run.index == run.good.size();
    if (run.Met().Opcode() != kSmart) {
      EXPECT_EQ(run.code, 0);
    } else if (isStart) {
      EXPECT_EQ(run.code, Status::SmartExecuteOfflineFailed);
    } else if (isLast) {
      EXPECT_EQ(run.code, Status::SmartDataFailed);
    } else {
      // The watching ends with a status that cannot be read; the next one tells.
      const bool wasOver = run.index + 1 == run.good.size();
      EXPECT_EQ(run.code, wasOver ? 0 : Status::SelfTestFailed);
    }
    EXPECT_TRUE(scene.IsUntouched());
  });
}

TEST(DriveSelfTest, TheLineStartsATestAndAsksForItsStatus) {
  LineScene scene(SataSpec(), {"-self_test", "extended"}, "");
  scene.drive.State().ata.selfTest.extendedMs = 1000'000;
  EXPECT_EQ(scene.Run(), 0);
  EXPECT_EQ(scene.drive.State().ata.selfTest.running, 1);
  scene.fleet.AdvanceClock(std::chrono::seconds(350));
  const auto status = RunLine({"-drive_serial", "BTWL1234", "-self_test", "status"});
  EXPECT_EQ(status.code, 0);
  EXPECT_NE(status.output.find("Progress = 40%"), std::string::npos) << status.output;

  const auto captive = RunLine({"-drive_serial", "BTWL1234", "-self_test", "short", "captive"});
  EXPECT_EQ(captive.code, 0);
  EXPECT_EQ(scene.drive.State().ata.selfTest.type, 0x81);
  EXPECT_EQ(scene.drive.State().ata.selfTest.running, 0);
  scene.drive.State().ata.selfTest.nextResult = 4;
  EXPECT_EQ(RunLine({"-drive_serial", "BTWL1234", "-self_test", "short", "captive"}).code, 120);
}

// ---- Standby ----

struct MethodStandby : MethodScene {
  MethodStandby() : MethodScene(SataSpec(), "StandbyImmediate") {}
};

TEST(StandbyImmediate, SendsTheDriveToStandbyAndChecks) {
  MethodStandby scene;
  const auto run = RunScene(scene, nullptr, 0);
  EXPECT_EQ(run.code, 0);
  EXPECT_EQ(GetOpcodes(run.commands), (std::vector{kStandby, kCheckPower}));
  EXPECT_EQ(FindCommand(run.commands, kStandby).timeoutMs, 20'000u);
  EXPECT_EQ(FindCommand(run.commands, kCheckPower).timeoutMs, 5'000u);
  EXPECT_EQ(scene.drive.State().ata.powerMode, Simulator::PowerMode::Standby);
}

// However the adapter hands on the registers.
TEST(StandbyImmediate, SeesADriveThatStaysAwake) {
  using Simulator::SenseFormat;
  for (const auto format :
       {SenseFormat::Descriptor, SenseFormat::FixedSat3, SenseFormat::FixedOldKernel}) {
    for (const bool awake : {false, true}) {
      MethodStandby scene;
      scene.drive.State().senseFormat = format;
      scene.drive.State().ata.standbyStaysActive = awake ? 1 : 0;
      scene.Prepare();
      EXPECT_EQ(scene.Run(NoReporter()), awake ? Status::StandbyFailed : 0)
          << static_cast<int>(format);
    }
  }
}

}  // namespace
}  // namespace Morvu
