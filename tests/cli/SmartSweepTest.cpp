// "-smart" from the scan to the exit status, with each command of the whole run failed.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sstream>

#include "ExitStatus.h"
#include "Tool.h"
#include "frame/Text.h"
#include "messaging/drive_class/Features.h"
#include "support/Sweep.h"

namespace MorvuTool {
namespace {

using Morvu::Testing::DriveScene;
using Morvu::Testing::SweepFaults;
using Morvu::Testing::SweptRun;
using Simulator::Fault;
using Simulator::Kind;
using ::testing::AnyOf;
using ::testing::HasSubstr;

struct LineScene : DriveScene {
  using DriveScene::DriveScene;
  void Prepare() override {}
  Morvu::StatusCode Run(Morvu::ProgressReporter&) override {
    const char* argv[] = {"morvussd", "-smart"};
    std::istringstream in;
    std::ostringstream out;
    Morvu::QRKCLI cli(Morvu::GetFeatures(), GetToolConfig(), {in, out});
    const auto code = cli.runCLI(2, argv);
    exitStatus = ToExitStatus(code, cli.GetSideResult());
    printed = out.str();
    return code;
  }
  int exitStatus = -1;
  std::string printed;
};

struct AtaScene : LineScene {
  AtaScene() : LineScene({.model = "MORVU SSDSC2BB480G4"}) {}
};
struct NvmeScene : LineScene {
  NvmeScene() : LineScene({.kind = Kind::Nvme, .model = "MORVU SSDPE2MD800G4"}) {}
};

// What the tool told is what it ended with.
void CheckEnd(const LineScene& scene, const SweptRun& run) {
  EXPECT_EQ(scene.exitStatus, run.code);
  EXPECT_THAT(Morvu::ReplaceAll(scene.printed, "\n", " "),
              HasSubstr(Morvu::GetStatusText(run.code)));
  const bool hasTable = scene.printed.find("| ID | Description") != std::string::npos;
  EXPECT_EQ(hasTable, run.code == 0);
}

void CheckAta(const LineScene& scene, const SweptRun& run) {
  CheckEnd(scene, run);
  const auto& met = run.Met();
  if (met.AtaOpcode() == 0xB0 && met.Features() <= 0xD1) {
    EXPECT_EQ(run.code, met.Features() == 0xD0 ? 23 : 22);
  } else if (met.AtaOpcode() == 0xC8) {
    EXPECT_EQ(run.code, 0);
  } else {
    // Unknown to be ATA, or gone, a drive shows nothing; all else is of no account.
    EXPECT_THAT(run.code.Value(), AnyOf(0, 4, 72, 118));
  }
}

TEST(SmartLine, EndsWithTheCodeOfTheAtaCommandThatFailed) {
  SweepFaults<AtaScene>(Fault::Fail().Times(1), CheckAta);
}
TEST(SmartLine, EndsWithTheCodeOfTheAtaCommandThatTimedOut) {
  SweepFaults<AtaScene>(Fault::Hang().Times(1), CheckAta);
}
TEST(SmartLine, EndsWithTheCodeOfTheNvmeCommandThatFailed) {
  SweepFaults<NvmeScene>(Fault::Fail().Times(1), [](const LineScene& scene, const SweptRun& run) {
    CheckEnd(scene, run);
    const bool isLog = run.Met().Opcode() == 0x02 && (run.Met().Cdw(10) & 0xFF) == 0xCA;
    if (isLog) {
      EXPECT_EQ(run.code, 23);
    } else {
      EXPECT_THAT(run.code.Value(), AnyOf(0, 4, 72, 118));
    }
  });
}

}  // namespace
}  // namespace MorvuTool
