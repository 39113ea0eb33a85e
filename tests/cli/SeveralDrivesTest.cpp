// "-drives": one feature on several drives, by one scan, side by side.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>

#include "ExitStatus.h"
#include "TestFleet.h"
#include "frame/Files.h"
#include "messaging/drive_class/Features.h"
#include "support/CommandLine.h"
#include "support/SimulatedImage.h"

namespace Morvu::Testing {
namespace {

using Simulator::Fault;
using Simulator::Kind;
using Simulator::SimulatedDrive;
using testing::ContainsRegex;
using testing::HasSubstr;
using testing::Not;

constexpr std::string_view kModel = "MORVU SSDSC2BB480G4";

struct Rack : testing::Test {
  SimulatedDrive Add(const std::string& serial, Kind kind = Kind::Ata, std::uint32_t count = 1) {
    const auto model = kind == Kind::Nvme ? "MORVU SSDPEDMD400G4" : std::string(kModel);
    return fleet.Add({.kind = kind,
                      .model = model,
                      .serial = serial,
                      .firmware = "FW000001",
                      .namespaces = count});
  }
  std::string MakeImage() {
    const auto path = (std::filesystem::path(fleet.Folder()) / "image.bin").string();
    const auto image = MakeSimulatedImage("FW000002", 64 * 1024);
    EXPECT_TRUE(SaveBinary(path, image, false));
    return path;
  }
  Simulator::TestFleet fleet;
};

// The journal without what a scan asks.
std::size_t CountSince(const SimulatedDrive& drive, std::size_t before) {
  return drive.Journal().size() - before;
}

TEST_F(Rack, EachDriveTellsItsOwnInTheOrderOfTheList) {
  auto slow = Add("SLOW");
  Add("QUICK");
  Add("LAST", Kind::Nvme);
  slow.Inject(Fault::Delay(50));
  const auto outcome = RunToolLine({"-drives", "all", "-smart", "-quiet"});
  EXPECT_EQ(outcome.code, 0);
  EXPECT_EQ(outcome.sideResult, 0);
  EXPECT_THAT(
      outcome.output,
      ContainsRegex("serial number LAST(.|\n)*own verdict(.|\n)*serial number SLOW(.|\n)*own "
                    "verdict(.|\n)*serial number QUICK(.|\n)*own verdict"));
  EXPECT_THAT(outcome.output, HasSubstr("3 drives: 3 ended well, 0 did not."));
  EXPECT_THAT(outcome.output, Not(HasSubstr("Completed successfully")));
}

TEST_F(Rack, TheExitStatusTellsTheWorst) {
  Add("GOOD");
  auto bad = Add("BAD");
  fleet.Add({.model = "SOME OTHER DRIVE", .serial = "OTHER"});
  bad.Inject(Fault::Fail().OnOpcode(0xB0).OnFeature(0xD0));
  const auto failed = RunToolLine({"-drives", "GOOD", "BAD", "-smart"});
  EXPECT_EQ(failed.code, 23);
  EXPECT_THAT(failed.output, HasSubstr("2 drives: 1 ended well, 1 did not."));
  bad.ClearFaults();
  // A warning of one is the run's.
  bad.State().ata.smartFailing = 1;
  EXPECT_EQ(RunToolLine({"-drives", "GOOD", "BAD", "-smart"}).sideResult, 909);
  // A drive that the feature is not made for counts when it was named.
  EXPECT_EQ(RunToolLine({"-drives", "all", "-get_log", "2"}).code, 118);
  const auto named =
      RunToolLine({"-drives", "GOOD", "OTHER", "-firmware_update", MakeImage(), "-force"});
  EXPECT_EQ(named.code, 45);
  EXPECT_EQ(RunToolLine({"-drives", "all", "-firmware_update", MakeImage(), "-force"}).code, 0);
}

TEST_F(Rack, EightDrivesTakeTheirFirmwareAtOnce) {
  std::vector<SimulatedDrive> drives;
  std::vector<std::string> line = {"-drives"};
  for (int i = 0; i < 8; ++i) {
    line.push_back("S" + std::to_string(i));
    drives.push_back(Add(line.back()));
    drives.back().Inject(Fault::Delay(5));
  }
  line.insert(line.end(), {"-firmware_update", MakeImage()});
  // Nothing is sent to any before a person has said yes.
  const auto declined = RunToolLine(line, "n\n");
  EXPECT_EQ(declined.code, 81);
  EXPECT_THAT(declined.output, HasSubstr("8 drives for"));
  for (auto& drive : drives) EXPECT_EQ(drive.State().ata.firmware.transfers, 0U);
  EXPECT_EQ(RunToolLine(line, "y\n").code, 0);
  for (auto& drive : drives) EXPECT_STREQ(drive.State().firmware, "FW000002");
}

// The namespaces of a controller are one run: its firmware is sent once.
TEST_F(Rack, AControllersFirmwareIsSentOnce) {
  auto drive = Add("TWO", Kind::Nvme, 2);
  const auto outcome = RunToolLine({"-drives", "all", "-firmware_update", MakeImage(), "-force"});
  EXPECT_EQ(outcome.code, 0) << outcome.output;
  constexpr std::uint8_t kCommit = 0x10;
  EXPECT_EQ(std::ranges::count(drive.Opcodes(), kCommit), 1);
  EXPECT_THAT(outcome.output, HasSubstr("2 drives: 2 ended well"));
}

// Members of a volume take their firmware one after another, and none does after one that did not.
TEST_F(Rack, AVolumeLosesOneMemberAtATime) {
  fleet.AddController();
  const auto add = [&](const char* serial) {
    return fleet.Add({.model = std::string(kModel), .serial = serial, .controller = 0});
  };
  std::vector<SimulatedDrive> members = {add("M1"), add("M2"), add("M3")};
  fleet.AddVolume({"LSI_0_0", "LSI_0_1", "LSI_0_2"}, false);
  const auto update = [&] {
    return RunToolLine(
        {"-lsi", "-drives", "M1", "M2", "M3", "-firmware_update", MakeImage(), "-force"});
  };
  auto outcome = update();
  EXPECT_EQ(outcome.code, 0) << outcome.output;
  EXPECT_THAT(outcome.output, HasSubstr("3 drives: 3 ended well"));

  constexpr std::uint8_t kDownload = 0x92;
  members[1].Inject(Fault::AtaError().OnOpcode(kDownload).Times(1));
  members[2].ClearJournal();
  outcome = update();
  EXPECT_THAT(outcome.output, HasSubstr("3 drives: 1 ended well, 2 did not."));
  EXPECT_EQ(std::ranges::count(members[2].Opcodes(), kDownload), 0);
}

// A line that is refused, its code, and words of the reason.
struct Refused {
  std::vector<std::string> words;
  int code;
  std::string_view reason;
};

TEST_F(Rack, ADoubtfulLineIsRefusedBeforeTheFeatureBegins) {
  auto one = Add("ONE");
  Add("TWIN");
  Add("TWIN");
  Add(" ");  // tells none
  std::vector<Refused> lines = {
      {{"", "-smart"}, 115, "no drive has the serial number"},
      {{"ONE", "NONE", "-smart"}, 115, "no drive has the serial number NONE"},
      {{"ONE", "TWIN", "-smart"}, 73, "several drives have the serial number TWIN"},
      {{"ONE", "ONE", "-smart"}, 73, "stands twice"},
      {{"-smart"}, 73, "names no drive"},
      {{"all", "-drive_index", "0", "-smart"}, 73, "another selection"},
      {{"all", "-smart", "-health"}, 73, "one feature"},
      {{"all", "-smart", "-bogus"}, 73, "not understood"},
      {{"ONE", "-smart", "-drives", "ONE"}, 73, "stands twice"},
      {{"all", "-format", "-bogus", "-help", "format"}, 0, "-format"},
  };
  // All that is not for several, by its record.
  for (const auto* feature : GetFeatures()) {
    if (feature->onSeveral != OnSeveral::Refused) continue;
    EXPECT_TRUE(feature->destroys || feature->needsDrive) << feature->name;
    for (const auto& option : feature->options) {
      if (option.category != OptionCategory::Feature) continue;
      lines.push_back({{"ONE", std::string(option.name), "-force"}, 73, "Nothing was done"});
    }
  }
  std::size_t scan = 0;
  for (const auto& line : lines) {
    auto words = line.words;
    words.insert(words.begin(), "-drives");
    const auto before = one.Journal().size();
    const auto outcome = RunToolLine(words);
    EXPECT_EQ(outcome.code, line.code) << outcome.output;
    EXPECT_THAT(outcome.output, HasSubstr(line.reason));
    // At most what the scan asks.
    if (scan == 0) scan = CountSince(one, before);
    EXPECT_LE(CountSince(one, before), scan) << line.words.front();
  }
}

TEST_F(Rack, EachDriveHasAFileOfItsOwn) {
  Add("A/../B");
  Add("C");
  const auto folder = std::filesystem::path(fleet.Folder()) / "out";
  std::filesystem::create_directory(folder);
  const auto path = (folder / "smart.csv").string();
  EXPECT_EQ(RunToolLine({"-drives", "all", "-smart", path}).code, 0);
  EXPECT_TRUE(std::filesystem::exists(folder / "smart_A____B.csv"));
  EXPECT_TRUE(std::filesystem::exists(folder / "smart_C.csv"));
  EXPECT_EQ(RunToolLine({"-drives", "all", "-smart", "/nowhere/x.csv"}).code, 122);
}

}  // namespace
}  // namespace Morvu::Testing
