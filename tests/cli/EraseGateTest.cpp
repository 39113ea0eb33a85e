// Lines with an option that destroys data, or works on one drive: what is doubtful about them,
// and that nothing reaches the drive then.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "frame/status/Files.h"
#include "support/EraseScene.h"

namespace Morvu {
namespace {

using namespace EraseTesting;
using ::testing::HasSubstr;

// Two drives, both full of data; "B" is the second one's serial number.
class EraseGate : public ::testing::Test {
 protected:
  EraseGate() {
    auto spec = SataSpec();
    for (const auto* serial : {"A", "B"}) {
      spec.serial = serial;
      auto drive = fleet.Add(spec);
      drive.WriteMedium(0, content);
      drives.push_back(drive);
    }
  }

  bool AreUntouched() {
    return std::ranges::all_of(
        drives, [&](auto& drive) { return drive.ReadMedium(0, content.size()) == content; });
  }

  static void SetSerial(Simulator::SimulatedDrive& drive, std::string_view serial) {
    auto& text = drive.State().serial;
    std::ranges::fill(text, '\0');
    std::ranges::copy(serial, text);
  }

  Simulator::TestFleet fleet;
  std::vector<Simulator::SimulatedDrive> drives;
  const Bytes content = Bytes(4096, 0xA5);
};

struct Refused {
  std::vector<std::string> words;
  StatusCode code;
  std::string_view reason;
};
void PrintTo(const Refused& line, std::ostream* out) {
  for (const auto& word : line.words) *out << word << ' ';
}

class RefusedErase : public EraseGate, public ::testing::WithParamInterface<Refused> {};

TEST_P(RefusedErase, ErasesNothing) {
  const auto outcome = RunLine(GetParam().words, "y\n");
  EXPECT_EQ(outcome.code, GetParam().code);
  EXPECT_TRUE(AreUntouched());
  for (auto& drive : drives) EXPECT_EQ(drive.State().ata.selfTest.running, 0);
  EXPECT_THAT(outcome.output, HasSubstr(GetParam().reason));
}

constexpr std::string_view kDoubtful = "is not";
constexpr std::string_view kAlone = "must be the only";
constexpr std::string_view kSelect = "select the drive with";
constexpr std::string_view kSeveral = "more than one";
constexpr std::string_view kInvalid = "Invalid arguments";

const Refused kRefused[] = {
    // A second feature, wherever it stands.
    {{"-drive_serial", "A", "-secure_erase", "-force", "-smart"}, 73, kAlone},
    {{"-drive_serial", "A", "-smart", "-secure_erase", "-force"}, 73, kAlone},
    {{"-drive_serial", "A", "-format", "-sanitize", "block", "-force"}, 73, kAlone},
    {{"-drive_serial", "A", "-standby_immediate", "-format", "-force"}, 73, kAlone},
    // Two drives, by two options or by one that stands twice.
    {{"-drive_index", "0", "-drive_serial", "B", "-secure_erase", "-force"}, 73, kSeveral},
    {{"-drive_serial", "A", "-secure_erase", "-force", "-drive_serial", "B"}, 73, kDoubtful},
    {{"-drive_index", "0", "1", "-secure_erase", "-force"}, 73, kInvalid},
    // None.
    {{"-secure_erase", "-force"}, 73, kSelect},
    {{"-sanitize", "block", "-force"}, 73, kSelect},
    {{"-self_test", "short"}, 73, kSelect},
    {{"-standby_immediate"}, 73, kSelect},
    {{"-set_temp_threshold", "40"}, 73, ""},
    {{"-drive_serial", "A", "-self_test"}, 73, ""},
    {{"-drive_serial", "A", "-self_test", "short", "offline", "now"}, 73, ""},
    {{"-drive_serial", "A", "-self_test", "short", "slow"}, 73, ""},
    {{"-drive_serial", "A", "-self_test", "long"}, 168, ""},
    {{"-format", "-force"}, 73, kSelect},
    // Words that were not understood.
    {{"-drive_serial", "A", "-secure_erase", "now", "-force"}, 73, kDoubtful},
    {{"-drive_serial", "A", "-sanitize", "block", "crypto", "-force"}, 73, kDoubtful},
    {{"-drive_serial", "A", "-sanitize", "-force"}, 73, kDoubtful},
    {{"-drive_serial", "A", "-format", "-1", "-force"}, 73, kDoubtful},
    {{"-drive_serial", "A", "-format", "-force", "now"}, 73, kDoubtful},
    {{"-drive_serial", "A", "-format", "-froce", "-force"}, 73, kDoubtful},
    {{"-drive_serial", "A", "B", "-secure_erase", "-force"}, 73, kDoubtful},
    {{"-drive_serial", "A", "-format", "0", "-format", "1", "-force"}, 73, kDoubtful},
    {{"-drive_serial", "A", "-format", "2", "-force"}, 73, "Supported values are: 0, and 1"},
    {{"-drive_serial", "A", "-format", "x", "-force"}, 73, kInvalid},
    {{"-drive_serial", "A", "-format", "256", "-force"}, 73, kInvalid},
    {{"-drive_serial", "A", "-format", "0", "y", "-force"}, 73, kInvalid},
    {{"-drive_serial", "A", "-sanitize", "all", "-force"}, 291, ""},
    {{"-drive_serial", "A", "-format", "0", "0", "0", "0", "0", "0", "-force"}, 73, "Too many"},
};
INSTANTIATE_TEST_SUITE_P(Lines, RefusedErase, ::testing::ValuesIn(kRefused));

// One drive may be named twice over.
TEST_F(EraseGate, LetsTwoSelectionsOfOneDrivePass) {
  EXPECT_EQ(RunLine({"-drive_index", "0", "-drive_serial", "A", "-secure_erase", "-force"}).code,
            0);
  EXPECT_EQ(drives[0].ReadMedium(0, content.size()), Bytes(content.size()));
  EXPECT_EQ(drives[1].ReadMedium(0, content.size()), content);
}

TEST_F(EraseGate, RefusesASerialNumberThatTwoDrivesBear) {
  SetSerial(drives[1], "A");
  const auto outcome = RunLine({"-drive_serial", "A", "-secure_erase", "-force"});
  EXPECT_EQ(outcome.code, 73);
  EXPECT_TRUE(AreUntouched());
  EXPECT_THAT(outcome.output, HasSubstr("several drives"));
  EXPECT_EQ(RunLine({"-drive_path", drives[1].Node(), "-secure_erase", "-force"}).code, 0);
  EXPECT_EQ(drives[0].ReadMedium(0, content.size()), content);
}

// An empty serial number is nobody's, also where a drive tells none.
TEST_F(EraseGate, AnEmptySelectionSelectsNoDrive) {
  SetSerial(drives[0], "");
  for (const std::string option : {"-drive_serial", "-drive_path", "-drive_letter"}) {
    const auto outcome = RunLine({option, "", "-secure_erase", "-force"});
    EXPECT_THAT(outcome.output, HasSubstr("Drive could not be found")) << option;
    EXPECT_TRUE(AreUntouched()) << option;
  }
}

// Another drive may stand at its node by now.
TEST_F(EraseGate, RefusesADriveWithoutAName) {
  drives[0].TakeNames();
  const auto outcome = RunLine({"-drive_path", drives[0].Node(), "-secure_erase", "-force"});
  EXPECT_EQ(outcome.code, 73);
  EXPECT_THAT(outcome.output, HasSubstr("neither a serial number"));
  EXPECT_TRUE(AreUntouched());
}

// Nobody would read what becomes of the drive.
TEST_F(EraseGate, ErasesNothingWhenItsOutputCannotBeWritten) {
  ToolConfig config{};
  config.scanOptions.identify = true;
  const char* words[] = {"tool", "-drive_serial", "A", "-secure_erase", "-force"};
  std::istringstream in;
  std::ostream out(nullptr);
  EXPECT_EQ(QRKCLI(GetFeatures(), config, {in, out}).runCLI(std::size(words), words),
            Status::FileNotWritten);
  EXPECT_TRUE(AreUntouched());
}

}  // namespace
}  // namespace Morvu
