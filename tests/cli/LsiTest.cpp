// Drives behind an LSI RAID controller at the prompt.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "TestFleet.h"
#include "frame/Files.h"
#include "frame/status/General.h"
#include "support/CommandLine.h"

namespace Morvu {
namespace {

using ::testing::HasSubstr;
using ::testing::Not;
using Testing::RunToolLine;
using Words = std::vector<std::string>;

class LsiLine : public ::testing::Test {
 protected:
  LsiLine() {
    fleet.AddController();
    for (const char* serial : {"BTWL1", "BTWL2", "BTWL3"}) {
      fleet.Add(
          {.model = "MORVU SSDSC2BB480G4", .serial = serial, .sectors = 2048, .controller = 0});
    }
    disk = fleet.AddVolume({"LSI_0_0", "LSI_0_1"});
    fleet.Drive(disk).AddPartition(1 << 20, "/data");
  }

  Simulator::TestFleet fleet;
  std::string disk;
};

TEST_F(LsiLine, SelectsAndRefuses) {
  const struct {
    Words words;
    int code;
  } kLines[] = {
      {{"-drive_path", "LSI_0_2", "-secure_erase"}, 203},  // not asked for
      {{"-lsi", "-drive_path", "LSI_0_0", "-secure_erase"}, 255},
      {{"-lsi", "-drive_serial", "BTWL2", "-secure_erase"}, 255},
      {{"-lsi", "-drive_path", disk, "-secure_erase"}, 97},
      {{"-lsi", "-drive_path", "LSI_0_9", "-secure_erase"}, 203},
      {{"-lsi", "-drive_serial", "BTWL1", "-smart"}, 0},
      {{"-lsi", "-drive_path", "LSI_0_2", "-secure_erase"}, 0},
  };
  const std::vector<std::uint8_t> content(512, 0xA5);
  for (const char* name : {"LSI_0_0", "LSI_0_1", "LSI_0_2"})
    fleet.Drive(name).WriteMedium(0, content);
  for (const auto& line : kLines) {
    const auto outcome = RunToolLine(line.words, "y\n");
    EXPECT_EQ(outcome.code, line.code) << ::testing::PrintToString(line.words) << outcome.output;
  }
  EXPECT_EQ(fleet.Drive("LSI_0_0").ReadMedium(0, 512), content);
  EXPECT_EQ(fleet.Drive("LSI_0_1").ReadMedium(0, 512), content);
  EXPECT_EQ(fleet.Drive("LSI_0_2").ReadMedium(0, 512), std::vector<std::uint8_t>(512));
}

// No alert for a drive that does not answer may come of a volume.
TEST_F(LsiLine, AVolumeIsNoDriveThatIsSilent) {
  const auto text = RunToolLine({"-lsi", "-metrics"}).output;
  EXPECT_THAT(text, HasSubstr("morvu_drive_info{device=\"" + disk + "\""));
  EXPECT_THAT(text, Not(HasSubstr("morvu_drive_up{device=\"" + disk + "\"")));
  EXPECT_THAT(text, HasSubstr("morvu_drive_up{device=\"LSI_0_0\",serial=\"BTWL1\"} 1"));
  EXPECT_EQ(RunToolLine({"-lsi", "-health"}).sideResult, 0);
}

TEST_F(LsiLine, TellsWhoseDataAreOnAMemberBeforeItTakesFirmware) {
  const auto image = fleet.Folder() + "/image.bin";
  ASSERT_TRUE(SaveBinary(image, std::vector<std::uint8_t>(140 * 512, 0x5A), false));
  const auto update = [&](const char* name, const char* answer) {
    return RunToolLine({"-lsi", "-drive_path", name, "-firmware_update", image}, answer);
  };
  const auto declined = update("LSI_0_0", "n\n");
  EXPECT_EQ(declined.code, Status::CanceledByUser);
  EXPECT_THAT(declined.output, HasSubstr("member of a RAID volume"));
  EXPECT_THAT(declined.output, HasSubstr("/data"));
  EXPECT_EQ(update("LSI_0_2", "n\n").output.find("RAID volume"), std::string::npos);
  EXPECT_EQ(update("LSI_0_0", "y\n").code, Status::Completed);
  EXPECT_STRNE(fleet.Drive("LSI_0_0").State().firmware, "SIM10001");
}

}  // namespace
}  // namespace Morvu
