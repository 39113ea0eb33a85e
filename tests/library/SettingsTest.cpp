// Settings through the exported functions: what a listing asks the drives, and what a host is
// told of a write.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <map>

#include "Host.h"
#include "TestFleet.h"

namespace MorvuHost {
namespace {

using Simulator::Fault;
using Simulator::Kind;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Pair;

constexpr int kNop = 0x00, kReadMaxExt = 0x27, kSmart = 0xB0, kGetFeatures = 0x0A;

class Settings : public ::testing::Test {
 protected:
  Settings() {
    sata_ = fleet_.Add({.model = "MORVU SSDSC2BB480G4", .serial = "BTWL1", .firmware = "D2010370"});
    nvme_ = fleet_.Add({.kind = Kind::Nvme, .model = "MORVU SSDPE2MD800G4", .serial = "CVFT1"});
    host_.Call(kScan);
    sata_.ClearJournal();
    nvme_.ClearJournal();
  }

  Reply Read(const std::string& serial, const std::string& property) {
    return host_.Ask(Drive(serial) + "<Object name='cimProperties'><Property name='" + property +
                     "'/></Object>");
  }
  Reply Write(const std::string& serial, const std::string& property, const std::string& text) {
    return host_.Ask(Drive(serial) + "<Property direction='io' name='" + property + "'>" + text +
                     "</Property>");
  }

  // How often each SCT setting was asked for, by the first three words of the key sector;
  // beside them stand connection tests and reads of the native maximum, and nothing else.
  static std::map<std::string, int> SctKeys(const Simulator::SimulatedDrive& drive) {
    std::map<std::string, int> keys;
    for (const auto& sent : drive.Journal()) {
      if (sent.Opcode() == kNop || sent.Opcode() == kReadMaxExt) continue;
      EXPECT_EQ(sent.Opcode(), kSmart) << sent.Text();
      const auto word = [&](std::size_t at) {
        return std::to_string(sent.dataHead[at] | sent.dataHead[at + 1] << 8);
      };
      if (sent.dataHead.size() >= 6) ++keys[word(0) + "." + word(2) + "." + word(4)];
    }
    return keys;
  }
  static std::ptrdiff_t CountCommands(const Simulator::SimulatedDrive& drive, int opcode) {
    const auto opcodes = drive.Opcodes();
    return std::count(opcodes.begin(), opcodes.end(), opcode);
  }
  static std::map<int, int> FeatureIds(const Simulator::SimulatedDrive& drive) {
    std::map<int, int> ids;
    for (const auto& sent : drive.Journal()) {
      if (sent.Opcode() == kGetFeatures) ++ids[static_cast<int>(sent.Cdw(10) & 0xFF)];
    }
    return ids;
  }

  Simulator::TestFleet fleet_;
  Simulator::SimulatedDrive sata_, nvme_;
  Host host_;
};

TEST_F(Settings, AreAskedForByTheirOwnCommandsAlone) {
  EXPECT_EQ(PropertyText(*Read("BTWL1", "WriteCacheState").Listed().front(), "WriteCacheState"),
            "1");
  EXPECT_THAT(SctKeys(sata_), ElementsAre(Pair("4.2.1", 1)));
  EXPECT_EQ(PropertyText(*Read("CVFT1", "TempThreshold").Listed().front(), "TempThreshold"), "70");
  EXPECT_THAT(FeatureIds(nvme_), ElementsAre(Pair(4, 1)));

  sata_.ClearJournal();
  Read("BTWL1", "PhyConfig");  // known from the scan
  Read("BTWL1", "Firmware");
  Read("BTWL1", "SystemTrimEnabled");
  EXPECT_THAT(SctKeys(sata_), IsEmpty());
  EXPECT_EQ(CountCommands(sata_, kReadMaxExt), 0);
  Read("BTWL1", "NativeMaxLBA");
  EXPECT_EQ(CountCommands(sata_, kReadMaxExt), 1);
}

// Nine gets of a SATA drive, nine of an NVMe drive, and the native maximum of both, each once,
// behind one test of the connection: nothing is set.
TEST_F(Settings, OfAPlainListAreAskedForOnce) {
  EXPECT_EQ(host_.Ask("").Listed().size(), 2U);
  EXPECT_THAT(SctKeys(sata_),
              ElementsAre(Pair("3.2.1", 1), Pair("3.2.2", 1), Pair("4.2.1", 1), Pair("4.2.3", 1),
                          Pair("4.2.53248", 1), Pair("4.2.53249", 1), Pair("4.2.53251", 1),
                          Pair("4.2.53252", 1), Pair("4.2.55297", 1)));
  EXPECT_EQ(CountCommands(sata_, kReadMaxExt), 1);
  EXPECT_EQ(CountCommands(sata_, kNop), 1);
  EXPECT_THAT(FeatureIds(nvme_),
              ElementsAre(Pair(1, 1), Pair(2, 1), Pair(4, 1), Pair(5, 1), Pair(7, 1), Pair(8, 1),
                          Pair(10, 1), Pair(11, 1), Pair(0xC2, 1), Pair(0xC6, 1)));
}

// A command that does not come through ends what was known of the connection.
TEST_F(Settings, OfADriveThatGoesDuringAListAreFailuresOfTheConnection) {
  sata_.Inject(Fault::Vanish().OnOpcode(kReadMaxExt));
  const auto reply = host_.Ask("");
  const auto text = reply.Text();
  const auto at = text.find("name=\"WriteCacheState\"");
  ASSERT_NE(at, text.npos);
  EXPECT_THAT(text.substr(at, 200), HasSubstr("status=\"4\""));
}

TEST_F(Settings, TellWhetherTheSystemPassesTrimOn) {
  const auto limit = fleet_.Folder() + "/sys/class/block/sda/queue/discard_max_bytes";
  const auto trim = [&] {
    return PropertyText(*Read("BTWL1", "SystemTrimEnabled").Listed().front(), "SystemTrimEnabled");
  };
  EXPECT_EQ(trim(), "True");
  std::ofstream(limit, std::ios::trunc) << "0\n";
  EXPECT_EQ(trim(), "False");
  std::filesystem::remove(limit);
  EXPECT_EQ(trim(), "");
}

TEST_F(Settings, TellWhatALoweredMaximumLeft) {
  const auto reply = Write("BTWL1", "MaximumLBA", "50%");
  EXPECT_EQ(reply.ErrorCode(), 0);
  EXPECT_EQ(reply.Attribute("powercycle"), "True");
  EXPECT_EQ(reply.Attribute("shows"), std::to_string(sata_.State().ata.maxLba));
  sata_.AddPartition();
  sata_.PowerCycle();
  host_.Call(kScan);
  EXPECT_EQ(Write("BTWL1", "MaximumLBA", "native").ErrorCode(), 13);
}

TEST_F(Settings, TellOfAPowerCycleAndTheSavesThatAreLeft) {
  sata_.State().ata.sct.savesLeft = 51;
  const auto reply = Write("BTWL1", "PhyConfig", "2");
  EXPECT_EQ(reply.ErrorCode(), 0);
  EXPECT_EQ(reply.Attribute("powercycle"), "True");
  EXPECT_EQ(reply.Attribute("remainingSaves"), "51");
  EXPECT_EQ(reply.Attribute("shows"), "2 (Alternate Enterprise Settings)");
  EXPECT_EQ(reply.Attribute("detail"), "");
}

TEST_F(Settings, TellWhyADriveRefused) {
  sata_.State().ata.sct.refusedFeature = 0xD801;
  const auto write = Write("BTWL1", "PhysicalSectorSize", "0");
  EXPECT_EQ(write.ErrorCode(), 116);
  EXPECT_THAT(write.Attribute("detail"), HasSubstr("SCT status 0x000D"));
  EXPECT_EQ(write.Attribute("powercycle"), "");
  nvme_.State().nvme.features[4].changeable = 0;
  const auto threshold = Write("CVFT1", "TempThreshold", "20");
  EXPECT_EQ(threshold.ErrorCode(), 108);
  EXPECT_EQ(threshold.Attribute("detail"), "NVMe status 0x10E (Feature Not Changeable)");
}

// What the host itself wrote into the answers' attributes is none.
TEST_F(Settings, TellNothingThatTheHostSaid) {
  const auto reply = host_.Ask(Drive("BTWL1") +
                               "<Property direction='io' name='WriteCacheState' powercycle='True' "
                               "status='4' detail='y'>2</Property>");
  EXPECT_EQ(reply.ErrorCode(), 0);
  for (const auto* name : {"powercycle", "status", "detail"}) {
    EXPECT_EQ(reply.Attribute(name), "") << name;
  }
}

}  // namespace
}  // namespace MorvuHost
