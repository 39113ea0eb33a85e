// The operations at the prompt, under faults: whatever fails, what the line ends with is
// true, and the drive's data are gone only where a command that takes them was carried out.
#include <algorithm>
#include <memory>
#include <string>
#include <vector>

#include "gtest/gtest.h"
#include "support/EraseScene.h"
#include "support/Sweep.h"

namespace Morvu {
namespace {

using namespace EraseTesting;
using Simulator::Fault;
using Testing::SweepFaults;
using Testing::SweptRun;

constexpr int kSecurityErase = 0xF4;
constexpr int kSanitize = 0xB4;
constexpr int kDisablePassword = 0xF6;
constexpr int kBlockErase = 0x12;  // sanitize's Features register

struct SweptLine {
  std::string name;
  std::vector<std::string> words;
  bool erases;
};

void PrintTo(const SweptLine& line, std::ostream* out) { *out << line.name; }

const SweptLine kLines[] = {
    {"SanitizeBlock", {"-sanitize", "block"}, true},
    {"FormatSata", {"-format"}, true},
    {"SelfTestWatched", {"-self_test", "short", "captiveOffline"}, false},
    {"SelfTestStarted", {"-self_test", "short"}, false},
    {"Standby", {"-standby_immediate"}, false},
};

bool TookData(const std::vector<Simulator::JournalEntry>& commands) {
  return std::ranges::any_of(commands, [](const auto& command) {
    const bool isErase =
        command.Opcode() == kSecurityErase ||
        (command.Opcode() == kSanitize && (command.Features() & 0xFF) == kBlockErase);
    return isErase && command.Succeeded();
  });
}

class LineSweep : public ::testing::TestWithParam<SweptLine> {
 protected:
  void Sweep(const Fault& fault, bool vanishes) {
    const auto& line = GetParam();
    const auto make = [&] { return std::make_unique<LineScene>(SataSpec(), line.words); };
    SweepFaults<LineScene>(make, fault, [&](LineScene& scene, const SweptRun& run) {
      const bool tookData = TookData(run.commands);
      SCOPED_TRACE(scene.outcome.output);
      if (!tookData) {
        EXPECT_TRUE(scene.IsUntouched());
      }
      if (run.code == 0 && line.erases) {
        EXPECT_TRUE(tookData);
        EXPECT_TRUE(scene.IsErased());
      }
      const auto told = CLIParser::WrapText(GetStatusText(run.code));
      EXPECT_NE(scene.outcome.output.find(told), std::string::npos);
      // A drive that is gone cannot be rid of the password.
      const bool mayStay = vanishes || run.Met().Opcode() == kDisablePassword;
      EXPECT_FALSE(scene.drive.State().ata.security.enabled && !mayStay);
    });
  }
};

TEST_P(LineSweep, EachCommandFails) { Sweep(Fault::Fail().Times(1), false); }

TEST_P(LineSweep, TheDriveVanishes) { Sweep(Fault::Vanish(), true); }

INSTANTIATE_TEST_SUITE_P(Operations, LineSweep, ::testing::ValuesIn(kLines),
                         [](const auto& test) { return test.param.name; });

}  // namespace
}  // namespace Morvu
