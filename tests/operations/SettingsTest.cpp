// Settings by SCT and by NVMe features: what reaches the drive, what is refused before, what lasts.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "frame/Text.h"
#include "frame/status/Commands.h"
#include "frame/status/Drives.h"
#include "frame/status/Settings.h"
#include "operations/settings/SCT.h"
#include "operations/settings/SctSaves.h"
#include "operations/settings/SetFeature.h"
#include "support/SettingScene.h"

namespace Morvu {
namespace {

using EraseTesting::LogSpec;
using EraseTesting::NvmeSpec;
using EraseTesting::SataSpec;
using Simulator::Fault;
using Simulator::FeatureScope;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using Testing::LineOutcome;
using ::testing::Not;
using Testing::SettingScene;

constexpr std::uint8_t kSmart = 0xB0, kReadLog = 0xD5, kWriteLog = 0xD6, kReturnStatus = 0xDA;

using Words = std::vector<std::uint16_t>;

// The first five words of each key sector that reached the drive; the others are zero.
std::vector<Words> Keys(const SettingScene& scene) {
  std::vector<Words> keys;
  for (const auto& sent : scene.Commands(kSmart)) {
    if ((sent.Features() & 0xFF) != kWriteLog) continue;
    EXPECT_EQ(sent.Lba() & 0xFF, 0xE0U);
    EXPECT_EQ(sent.transferLength, 512U);
    Words words;
    for (std::size_t i = 0; i < 10; i += 2) words.push_back(ReadLittle16(sent.dataHead, i));
    for (std::size_t i = 10; i < sent.dataHead.size(); ++i) EXPECT_EQ(sent.dataHead[i], 0);
    keys.push_back(words);
  }
  return keys;
}

// ---- One setting on either face ----

struct SctRun {
  std::string name;    // of a property; or of an option, with its words behind
  std::string text{};  // empty: a get
  std::vector<Words> keys{};
};
void PrintTo(const SctRun& run, std::ostream* out) { *out << run.name << ' ' << run.text; }

StatusCode Carry(SettingScene& scene, const std::string& name, const std::string& text) {
  if (name.front() == '-') {
    std::vector<std::string> words = {name};
    if (!text.empty()) {
      for (const auto& word : Split(text, ' ')) words.push_back(word);
    }
    return scene.Line(words).code;
  }
  if (!text.empty()) return scene.Set(name, text);
  return scene.Get(name)->GetAttribute("status").empty() ? Status::Completed : Status::NotRun;
}

class SctRuns : public ::testing::TestWithParam<SctRun> {};

TEST_P(SctRuns, WriteTheirKeySectors) {
  SettingScene scene(LogSpec());
  scene.drive.ClearJournal();
  EXPECT_EQ(Carry(scene, GetParam().name, GetParam().text), Status::Completed);
  EXPECT_EQ(Keys(scene), GetParam().keys);
}

const Words kCominit = {0xC100, 0, 0, 0, 0};
// clang-format off
INSTANTIATE_TEST_SUITE_P(Sct, SctRuns, ::testing::Values(
    SctRun{"WriteCacheState",            "",            {{4, 2, 0x0001, 0, 0}}},
    SctRun{"WriteCacheState",            "3",           {{4, 1, 0x0001, 3, 1}}},
    SctRun{"-wc_state",                  "",            {{4, 2, 0x0001, 0, 0}, {4, 3, 0x0001, 0, 0}}},
    SctRun{"-wc_state",                  "1",           {{4, 1, 0x0001, 1, 1}}},
    SctRun{"-wc_state",                  "3 -volatile", {{4, 1, 0x0001, 3, 0}}},
    SctRun{"TempLoggingInterval",        "",            {{4, 2, 0x0003, 0, 0}}},
    SctRun{"TempLoggingInterval",        "65535",       {{4, 1, 0x0003, 65535, 1}}},
    SctRun{"-temp_logging_interval",     "1 -volatile", {{4, 1, 0x0003, 1, 0}}},
    SctRun{"PLITestTimeInterval",        "",            {{4, 2, 0xD000, 0, 0}}},
    SctRun{"PLITestTimeInterval",        "0",           {{4, 1, 0xD000, 0, 1}}},
    SctRun{"-pli_test_time_interval",    "6",           {{4, 1, 0xD000, 6, 1}}},
    SctRun{"PowerGovernorMode",          "",            {{4, 2, 0xD001, 0, 0}}},
    SctRun{"PowerGovernorMode",          "2",           {{4, 1, 0xD001, 2, 0}}},
    SctRun{"-pg_mode",                   "",            {{4, 2, 0xD001, 0, 0}}},
    SctRun{"-pg_mode",                   "1",           {{4, 1, 0xD001, 1, 0}}},
    SctRun{"PowerGovernorBurstPower",    "",            {{4, 2, 0xD003, 0, 0}}},
    SctRun{"-pg_burst",                  "",            {{4, 2, 0xD003, 0, 0}}},
    SctRun{"PowerGovernorAveragePower",  "",            {{4, 2, 0xD004, 0, 0}}},
    SctRun{"-pg_average",                "",            {{4, 2, 0xD004, 0, 0}}},
    SctRun{"PhysicalSectorSize",         "",            {{4, 2, 0xD801, 0, 0}}},
    SctRun{"PhysicalSectorSize",         "0",           {{4, 1, 0xD801, 0, 1}}},
    SctRun{"-physical_sector_size",      "1",           {{4, 1, 0xD801, 1, 1}}},
    SctRun{"ReadErrorRecoveryTimer",     "",            {{3, 2, 1, 0, 0}}},
    SctRun{"ReadErrorRecoveryTimer",     "70",          {{3, 1, 1, 70, 0}}},
    SctRun{"WriteErrorRecoveryTimer",    "65535",       {{3, 1, 2, 65535, 0}}},
    SctRun{"-error_recovery_control",    "",            {{3, 2, 1, 0, 0}, {3, 2, 2, 0, 0}}},
    SctRun{"-error_recovery_control",    "write_timer", {{3, 2, 2, 0, 0}}},
    SctRun{"-error_recovery_control",    "read_timer 5", {{3, 1, 1, 5, 0}}},
    SctRun{"PhyConfig",                  "",            {}},
    SctRun{"PhyConfig",                  "1",           {{0xC002, 1, 0, 0, 0}, kCominit}},
    SctRun{"-set_phy_config",            "2",           {{0xC002, 2, 0, 0, 0}, kCominit}},
    SctRun{"-set_phy_config",            "6 01 2 a B FF 0", {{0xC002, 6, 0x0201, 0x0B0A, 0x00FF}, kCominit}},
    SctRun{"PhySpeed",                   "3.0",         {{0xC004, 1, 0, 0, 0}, kCominit}},
    SctRun{"-set_phy_speed",             "1.5",         {{0xC004, 0, 0, 0, 0}, kCominit}},
    SctRun{"-set_phy_speed",             "6.0",         {{0xC004, 2, 0, 0, 0}, kCominit}},
    SctRun{"SSCEnabled",                 "true",        {{0xC003, 1, 0, 0, 0}, kCominit}},
    SctRun{"-disable_ssc",               "",            {{0xC003, 0, 0, 0, 0}, kCominit}}));
// clang-format on

// ---- What is refused before the drive is touched ----

struct SctRefusal {
  std::string name, text;
  StatusCode code;
};
void PrintTo(const SctRefusal& refusal, std::ostream* out) {
  *out << refusal.name << ' ' << refusal.text;
}
class SctRefusals : public ::testing::TestWithParam<SctRefusal> {};

TEST_P(SctRefusals, SendNothing) {
  SettingScene scene(LogSpec());
  scene.drive.ClearJournal();
  EXPECT_EQ(Carry(scene, GetParam().name, GetParam().text), GetParam().code);
  for (const auto& sent : scene.Commands(kSmart)) {
    EXPECT_EQ(sent.Features(), kReturnStatus) << "the verdict in the drive's information";
  }
}

// clang-format off
INSTANTIATE_TEST_SUITE_P(Sct, SctRefusals, ::testing::Values(
    SctRefusal{"WriteCacheState",         "0",             Status::InvalidWriteCacheState},
    SctRefusal{"WriteCacheState",         "4",             Status::InvalidWriteCacheState},
    SctRefusal{"WriteCacheState",         "65537",         Status::InvalidWriteCacheState},
    SctRefusal{"WriteCacheState",         "on",            Status::InvalidWriteCacheState},
    SctRefusal{"-wc_state",               "0",             Status::InvalidWriteCacheState},
    SctRefusal{"-wc_state",               "1 2",           Status::InvalidSctFeature},
    SctRefusal{"TempLoggingInterval",     "0",             Status::InvalidTemperatureInterval},
    SctRefusal{"-temp_logging_interval",  "65536",         Status::InvalidTemperatureInterval},
    SctRefusal{"PLITestTimeInterval",     "7",             Status::InvalidPliInterval},
    SctRefusal{"-pli_test_time_interval", "7",             Status::InvalidPliInterval},
    SctRefusal{"PowerGovernorMode",       "3",             Status::InvalidPowerMode},
    SctRefusal{"-pg_mode",                "3",             Status::InvalidPowerMode},
    SctRefusal{"-pg_mode",                "1 -volatile",   Status::InvalidSctFeature},
    SctRefusal{"PhysicalSectorSize",      "2",             Status::InvalidArguments},
    SctRefusal{"-physical_sector_size",   "4096",          Status::InvalidArguments},
    SctRefusal{"ReadErrorRecoveryTimer",  "65536",         Status::InvalidErrorRecovery},
    SctRefusal{"WriteErrorRecoveryTimer", "7s",            Status::InvalidErrorRecovery},
    SctRefusal{"-error_recovery_control", "both",          Status::InvalidErrorRecovery},
    SctRefusal{"-error_recovery_control", "read",          Status::InvalidErrorRecovery},
    SctRefusal{"-error_recovery_control", "read_timer x",  Status::InvalidErrorRecovery},
    SctRefusal{"-error_recovery_control", "read_timer 1 2", Status::InvalidErrorRecovery},
    SctRefusal{"PhyConfig",               "3",             Status::InvalidPhyConfig},
    SctRefusal{"PhyConfig",               "6",             Status::InvalidCustomPhy},
    SctRefusal{"-set_phy_config",         "",              Status::InvalidPhyConfig},
    SctRefusal{"-set_phy_config",         "3",             Status::InvalidPhyConfig},
    SctRefusal{"-set_phy_config",         "1 2",           Status::InvalidPhyConfig},
    SctRefusal{"-set_phy_config",         "6 1 2 3 4 5",   Status::InvalidCustomPhy},
    SctRefusal{"-set_phy_config",         "6 1 2 3 4 5 100", Status::InvalidCustomPhy},
    SctRefusal{"-set_phy_config",         "6 1 2 3 4 5 g", Status::InvalidCustomPhy},
    SctRefusal{"PhySpeed",                "12",            Status::InvalidPhySpeed},
    SctRefusal{"-set_phy_speed",          "",              Status::InvalidPhySpeed},
    SctRefusal{"-set_phy_speed",          "3 6",           Status::InvalidPhySpeed},
    SctRefusal{"SSCEnabled",              "1",             Status::InvalidArguments}));
// clang-format on

// ---- Values ----

TEST(Sct, TellsValuesOfSixteenBits) {
  SettingScene scene(LogSpec());
  auto& sct = scene.drive.State().ata.sct;
  sct.readTimer = 0x1234;
  sct.writeTimer = 0;
  EXPECT_EQ(scene.GetText("ReadErrorRecoveryTimer"), "4660");
  EXPECT_EQ(scene.GetText("WriteErrorRecoveryTimer"), "0");
  EXPECT_EQ(scene.GetText("WriteCacheState"), "1");
  EXPECT_EQ(scene.GetText("TempLoggingInterval"), "1");
  EXPECT_EQ(scene.GetText("PowerGovernorMode"), "0");
  EXPECT_EQ(scene.GetText("PowerGovernorBurstPower"), "25000 Milliwatts");
  EXPECT_EQ(scene.GetText("PowerGovernorAveragePower"), "20000 Milliwatts");
  EXPECT_EQ(scene.GetText("PhysicalSectorSize"), "4096");
  EXPECT_EQ(scene.Set("PhysicalSectorSize", "0"), Status::Completed);
  EXPECT_EQ(scene.GetText("PhysicalSectorSize"), "512");
  sct.features[7].state = 9;
  EXPECT_EQ(scene.GetText("PhysicalSectorSize"), "Unknown");
  EXPECT_THAT(scene.Line({"-physical_sector_size"}).output,
              HasSubstr("Physical Sector Size is unknown!"));
  EXPECT_THAT(scene.Line({"-pg_burst"}).output,
              HasSubstr("Power governor burst power = 25000 Milliwatts"));
}

// A get whose registers do not come back has no value; a set needs none.
TEST(Sct, TakesNoValueFromRegistersThatDidNotComeBack) {
  SettingScene scene(LogSpec());
  scene.drive.Inject(Fault::RawSense(0x00, {}).OnOpcode(kSmart).OnFeature(kWriteLog));
  EXPECT_EQ(scene.GetText("WriteCacheState"), "status 130");
  EXPECT_EQ(scene.Set("WriteCacheState", "3"), Status::Completed);
}

TEST(Sct, IsForTheProductsThatHaveIt) {
  auto spec = LogSpec();
  spec.model = "MORVU SSDSC2CF240F3";
  SettingScene other(spec);
  EXPECT_EQ(other.GetText("WriteCacheState"), "none");
  EXPECT_EQ(other.Set("WriteCacheState", "2"), Status::NotSupportedByDrive);
  EXPECT_EQ(other.GetText("PhyConfig"), "none");
}

TEST(Sct, IsNotForNvme) {
  SettingScene scene(NvmeSpec());
  scene.drive.ClearJournal();
  EXPECT_EQ(scene.GetText("WriteCacheState"), "none");
  EXPECT_EQ(scene.Set("PhyConfig", "1"), Status::NotSupportedByDrive);
  // But for the power governor, which is a feature there.
  EXPECT_EQ(scene.Set("PowerGovernorMode", "2"), Status::Completed);
  EXPECT_EQ(scene.drive.State().nvme.features[0xC6].value, 2U);
  EXPECT_EQ(scene.GetText("PowerGovernorMode"), "2");
  EXPECT_EQ(scene.Line({"-pg_mode", "1"}).code, Status::Completed);
  EXPECT_THAT(scene.Line({"-pg_mode"}).output, HasSubstr("1 (20W)"));
}

// ---- Refusals by the drive ----

TEST(Sct, TellsInWordsWhyADriveRefused) {
  SettingScene scene(LogSpec());
  scene.drive.State().ata.sct.refusedFeature = 0x0001;
  EXPECT_EQ(scene.Set("WriteCacheState", "2"), Status::SmartWriteLogFailed);
  const std::string words =
      "SCT status 0x000D (Invalid feature code in the feature control action)";
  EXPECT_EQ(scene.request->GetAttribute("detail"), words);
  EXPECT_EQ(scene.Get("WriteCacheState")->GetAttribute("detail"), words);
  const auto line = scene.Line({"-wc_state", "2"});
  EXPECT_EQ(line.code, Status::SmartWriteLogFailed);
  EXPECT_THAT(line.output, HasSubstr(words));
}

// A status that is another action's says nothing of this one.
TEST(Sct, TellsNoOtherActionsStatus) {
  SettingScene scene(LogSpec());
  scene.drive.State().ata.sct.refusedFeature = 0x0001;
  EXPECT_EQ(scene.Set("WriteCacheState", "2"), Status::SmartWriteLogFailed);
  scene.drive.Inject(Fault::HostError(1).OnOpcode(kSmart).OnFeature(kWriteLog));
  EXPECT_EQ(scene.Set("ReadErrorRecoveryTimer", "7"), Status::SmartWriteLogFailed);
  EXPECT_EQ(scene.request->GetAttribute("detail"), "");
}

TEST(Sct, EndsWithTheFirstFailureOfTwoReads) {
  SettingScene scene(LogSpec());
  const auto fails = [&](std::uint32_t n) {
    scene.drive.Inject(
        Fault::AtaError().OnOpcode(kSmart).OnFeature(kWriteLog).OnCommand(n).Times(1));
  };
  fails(2);  // the option flag
  const auto state = scene.Line({"-wc_state"});
  EXPECT_EQ(state.code, Status::SmartWriteLogFailed);
  EXPECT_THAT(state.output, Not(HasSubstr("Write Cache State")));
  fails(1);  // the first of two timers
  const auto timers = scene.Line({"-error_recovery_control"});
  EXPECT_EQ(timers.code, Status::SmartWriteLogFailed);
  EXPECT_THAT(timers.output, Not(HasSubstr("Error Read Recovery Timer")));
  EXPECT_THAT(timers.output, HasSubstr("Error Write Recovery Timer"));
}

// ---- What lasts ----

TEST(Sct, ShowsAtTheNextGetThatADriveForgot) {
  SettingScene scene(LogSpec());
  scene.drive.State().ata.sct.forgets = 1;
  EXPECT_EQ(scene.Set("WriteCacheState", "3"), Status::Completed);
  EXPECT_EQ(scene.GetText("WriteCacheState"), "1");
}

// ---- PHY settings ----

TEST(Sct, TellsThatAPhySettingNeedsAPowerCycle) {
  SettingScene scene(LogSpec());
  EXPECT_EQ(scene.GetText("PhyConfig"), "0 (Default Enterprise Settings)");
  EXPECT_EQ(scene.Set("PhyConfig", "1"), Status::Completed);
  EXPECT_EQ(scene.request->GetAttribute("powercycle"), "True");
  EXPECT_EQ(scene.request->GetAttribute("shows"), "1 (Client Settings)");
  EXPECT_EQ(scene.request->GetAttribute("remainingSaves"), "1000");

  scene.drive.State().ata.sct.phyWaits = 1;
  const auto line = scene.Line({"-set_phy_config", "2"});
  EXPECT_THAT(line.output, HasSubstr("Successfully set drive's PHY Config to 2\n"
                                     "Please power cycle the drive.\n"
                                     "The drive shows now: 1 (Client Settings)"));
  scene.drive.PowerCycle();
  EXPECT_EQ(scene.drive.State().ata.identify[138], 2);
}

TEST(Sct, WaitsForALinkThatIsAway) {
  SettingScene scene(LogSpec());
  scene.drive.State().ata.sct.linkAwayMs = 5000;
  EXPECT_THAT(scene.Line({"-set_phy_speed", "3"}).output,
              HasSubstr("Successfully set drive's PHY Speed to 3\nPlease power cycle the drive.\n"
                        "The drive shows now: 3.0 Gbs"));
  scene.drive.State().ata.sct.linkAwayMs = 60000;
  EXPECT_THAT(scene.Line({"-enable_ssc"}).output,
              HasSubstr("Enable SSC succeeded.\nPower cycle the drive for changes to take effect.\n"
                        "The drive does not answer yet."));
}

// Who answers behind the reset may be another drive.
TEST(Sct, ShowsNothingOfAnotherDrive) {
  SettingScene scene(LogSpec());
  scene.drive.Inject(Fault::GarbageData(Simulator::Garbage::Random).OnOpcode(0xEC));
  EXPECT_EQ(scene.Set("PhyConfig", "1"), Status::Completed);
  EXPECT_EQ(scene.request->GetAttribute("shows"), "");
  EXPECT_EQ(scene.request->GetAttribute("powercycle"), "True");
}

TEST(Sct, ForgivesACominitThatFails) {
  SettingScene scene(LogSpec());
  scene.drive.State().ata.sct.refusedAction = 0xC100;
  EXPECT_EQ(scene.Set("SSCEnabled", "false"), Status::Completed);
}

TEST(Sct, SaysThatAPhySettingFailed) {
  SettingScene scene(LogSpec());
  scene.drive.State().ata.sct.refusedAction = 0xC004;
  const auto line = scene.Line({"-set_phy_speed", "3"});
  EXPECT_EQ(line.code, Status::SmartWriteLogFailed);
  EXPECT_THAT(line.output, HasSubstr("Failed to set drive's PHY speed to 3\n"
                                     "SCT status 0x0010 (Invalid action code)"));
}

struct Clocking {
  std::string firmware;
  StatusCode code;
};
class ClockingProducts : public ::testing::TestWithParam<Clocking> {};

// A product outside the family, whose firmware decides, and whose action needs no COMINIT.
TEST_P(ClockingProducts, GoByTheirFirmware) {
  auto spec = LogSpec();
  spec.model = "MORVU SSDSC2CF240F3";
  spec.firmware = GetParam().firmware;
  SettingScene scene(spec);
  EXPECT_EQ(scene.Set("SSCEnabled", "true"), GetParam().code);
  if (GetParam().code == Status::Completed) {
    EXPECT_THAT(Keys(scene), ElementsAre(Words{0xC60E, 1, 0, 0, 0}));
    EXPECT_EQ(scene.request->GetAttribute("shows"), "True");
  } else {
    EXPECT_THAT(Keys(scene), IsEmpty());
    EXPECT_EQ(scene.GetText("SSCEnabled"), "none");
  }
}
INSTANTIATE_TEST_SUITE_P(Sct, ClockingProducts,
                         ::testing::Values(Clocking{"LCW1", Status::Completed},
                                           Clocking{"LCX", Status::Completed},
                                           Clocking{"LCV9", Status::NotSupportedByDrive},
                                           Clocking{"LC", Status::NotSupportedByDrive}));

// ---- Saves ----

struct SavesLeft {
  int count;  // -1: unreadable
  StatusCode code;
  std::string_view line;  // empty: none
};
void PrintTo(const SavesLeft& saves, std::ostream* out) { *out << saves.count; }
class RemainingSctSaves : public ::testing::TestWithParam<SavesLeft> {};

TEST_P(RemainingSctSaves, DecideWhetherASettingIsMade) {
  SettingScene scene(LogSpec());
  const auto spoil = [&] {
    scene.drive.State().ata.sct.savesLeft = static_cast<std::uint16_t>(GetParam().count);
    if (GetParam().count < 0) {
      scene.drive.Inject(Fault::AtaError().OnOpcode(kSmart).OnFeature(kReadLog));
    }
  };
  spoil();
  scene.drive.ClearJournal();
  const auto line = scene.Line({"-set_phy_config", "1"});
  EXPECT_EQ(line.code, GetParam().code);
  EXPECT_EQ(Keys(scene).empty(), GetParam().code != Status::Completed);
  const bool isWarned = line.output.find("SCT saves") != std::string::npos;
  EXPECT_EQ(isWarned, !GetParam().line.empty());
  EXPECT_THAT(line.output, HasSubstr(std::string(GetParam().line)));
  EXPECT_EQ(line.output.find("Canceling SCT command") != std::string::npos, GetParam().count == 0);

  spoil();
  EXPECT_EQ(scene.Set("PhyConfig", "1"), GetParam().code);
  EXPECT_EQ(scene.request->GetAttribute("remainingSaves"),
            GetParam().count < 0 ? "" : std::to_string(GetParam().count));
}

INSTANTIATE_TEST_SUITE_P(
    Sct, RemainingSctSaves,
    ::testing::Values(
        SavesLeft{51, Status::Completed, ""},
        SavesLeft{50, Status::Completed, "Warning: The number of SCT saves remaining = 50"},
        SavesLeft{1, Status::Completed, "Warning: The number of SCT saves remaining = 1"},
        SavesLeft{0, Status::CanceledByUser,
                  "Warning: The number of SCT saves remaining has reached 0."},
        SavesLeft{-1, Status::CanceledByUser,
                  "Error: Failed to read the remaining number of SCT saves."}));

TEST(Sct, MakesAVolatileSettingWithoutSaves) {
  SettingScene scene(LogSpec());
  scene.drive.State().ata.sct.savesLeft = 0;
  EXPECT_EQ(CheckRemainingSaves(*scene.device(), false).code, Status::ReadyToRun);
  EXPECT_EQ(scene.Set("WriteCacheState", "3"), Status::Completed);
}

struct CountingFirmware {
  std::string model, serial, firmware;
  std::int32_t saves;  // 100: not asked for
};
class SavesByFirmware : public ::testing::TestWithParam<CountingFirmware> {};

TEST_P(SavesByFirmware, AreCountedByNewerOnes) {
  auto spec = LogSpec();
  spec.model = GetParam().model;
  spec.serial = GetParam().serial;
  spec.firmware = GetParam().firmware;
  SettingScene scene(spec);
  scene.drive.State().ata.sct.savesLeft = 7;
  scene.drive.ClearJournal();
  EXPECT_EQ(GetRemainingSaves(*scene.device()), GetParam().saves);
  EXPECT_EQ(scene.Commands(kSmart).empty(), GetParam().saves == 100);
}

// clang-format off
INSTANTIATE_TEST_SUITE_P(Sct, SavesByFirmware, ::testing::Values(
    CountingFirmware{"MORVU SSDSC2BB480G4",  "BTWL1", "D2010310", 100},
    CountingFirmware{"MORVU SSDSC2BB480G4",  "BTWL1", "D2010311", 7},
    CountingFirmware{"MORVU SSDSC2BB480G4",  "BTWL1", "D20",      7},
    CountingFirmware{"MORVU SSDSC2BA200G3",  "BTWL1", "5DV10252", 100},
    CountingFirmware{"MORVU SSDSC2BA200G3",  "BTWL1", "5DV10253", 7},
    CountingFirmware{"MORVU SSDSC2BA200G3I", "BTWL1", "5DV10B00", 100},
    CountingFirmware{"MORVU SSDSC2BA200G3I", "BTWL1", "5DV10B01", 7},
    CountingFirmware{"MORVU SSDSC2BA100G3T", "BTWL1", "5DV10001", 7}));
// clang-format on

// A status sector that is none tells no count.
TEST(Sct, TakesNoCountFromASectorThatDidNotCome) {
  SettingScene scene(LogSpec());
  scene.drive.Inject(Fault::GarbageData(Simulator::Garbage::Ones).OnOpcode(kSmart));
  EXPECT_EQ(GetRemainingSaves(*scene.device()), -1);
}

// ---- Data tables ----

// The drive's registers say that there are so many sectors to read.
void AnswerSectors(SettingScene& scene, std::uint8_t count) {
  std::array<std::uint8_t, 22> sense = {0x72, 0x01, 0x00, 0x1D, 0, 0, 0, 14, 0x09, 0x0C};
  sense[13] = count;
  sense[21] = 0x50;
  scene.drive.State().ata.sct.tableIdentifier = 2;
  scene.drive.Inject(Fault::RawSense(0x02, sense).OnOpcode(kSmart).OnFeature(kWriteLog).Times(1));
}

TEST(SctDataTable, ReadsAsMuchAsThereIsRoomFor) {
  SettingScene scene(LogSpec());
  AnswerSectors(scene, 5);
  scene.drive.ClearJournal();
  SCT_Data_Tables table(scene.device(), 2, NoReporter());
  EXPECT_TRUE(table.Execute());
  EXPECT_EQ(table.GetTransferValue(), 5);
  EXPECT_EQ(table.GetData().size(), 512U);
  EXPECT_EQ(scene.Commands(kSmart).size(), 2U);
}

TEST(SctDataTable, MayBeEmptyOrFail) {
  SettingScene scene(LogSpec());
  AnswerSectors(scene, 0);
  SCT_Data_Tables empty(scene.device(), 2, NoReporter());
  EXPECT_TRUE(empty.Execute());
  EXPECT_EQ(empty.GetData().size(), 0U);

  scene.drive.Inject(Fault::AtaError().OnOpcode(kSmart).OnFeature(kReadLog));
  SCT_Data_Tables unread(scene.device(), 2, NoReporter());
  EXPECT_FALSE(unread.Execute());
  EXPECT_EQ(unread.GetErrorCode(), Status::SmartReadLogFailed);
  EXPECT_EQ(unread.GetData().size(), 0U);
}

// ---- Features of an NVMe drive ----

constexpr int kSetFeatures = 0x09;
constexpr int kTempThreshold = 4;

// Namespace 3 has the first node.
Simulator::DriveSpec ThirdNamespace() {
  auto spec = NvmeSpec();
  spec.nsids = {3};
  return spec;
}

TEST(SetFeature, NamesTheKernelsNamespace) {
  SettingScene scene(ThirdNamespace());
  EXPECT_EQ(scene.Set("TempThreshold", "75"), Status::Completed);
  const auto sent = scene.Commands(kSetFeatures);
  ASSERT_EQ(sent.size(), 1U);
  EXPECT_EQ(sent[0].NvmeNamespace(), 3U);
  EXPECT_EQ(sent[0].Cdw(10), 4U);
  EXPECT_EQ(sent[0].Cdw(11), 348U);
  EXPECT_EQ(sent[0].Cdw(12), 0U);
  EXPECT_EQ(scene.GetText("TempThreshold"), "75");
}

TEST(SetFeature, IsSentOnceMoreForTheController) {
  SettingScene scene(ThirdNamespace());
  scene.drive.State().nvme.features[kTempThreshold].scope = FeatureScope::Controller;
  EXPECT_EQ(scene.Set("TempThreshold", "0"), Status::Completed);
  EXPECT_EQ(scene.Commands(kSetFeatures).size(), 2U);
  EXPECT_EQ(scene.drive.State().nvme.features[kTempThreshold].value, 273U);
}

TEST(SetFeature, TellsTheStatusOfADriveThatRefuses) {
  SettingScene scene(NvmeSpec());
  scene.drive.State().nvme.features[kTempThreshold].changeable = 0;
  EXPECT_EQ(scene.Set("TempThreshold", "40"), Status::SetFeatureFailed);
  EXPECT_EQ(scene.request->GetAttribute("detail"), "NVMe status 0x10E (Feature Not Changeable)");
  const auto outcome = scene.Line({"-set_temp_threshold", "40"});
  EXPECT_EQ(outcome.code, Status::SetFeatureFailed);
  EXPECT_THAT(outcome.output, HasSubstr("NVMe status 0x10E (Feature Not Changeable)"));
}

// What the drive took and forgot is seen at the next get.
TEST(SetFeature, ShowsAtTheNextGetThatADriveForgot) {
  SettingScene scene(NvmeSpec());
  scene.drive.State().nvme.features[kTempThreshold].forgets = 1;
  EXPECT_EQ(scene.Set("TempThreshold", "40"), Status::Completed);
  EXPECT_EQ(scene.GetText("TempThreshold"), "70");
}

TEST(SetFeature, RefusesWhatIsNoNvmeDriveOfOurs) {
  SettingScene sata(SataSpec());
  EXPECT_EQ(sata.Set("TempThreshold", "40"), Status::NotSupportedByDrive);
  EXPECT_EQ(sata.Line({"-set_temp_threshold", "40"}).code, Status::NotSupportedByDrive);
}

TEST(SetFeature, RefusesAForeignDrive) {
  auto spec = NvmeSpec();
  spec.model = "OTHER 1";
  SettingScene scene(spec);
  EXPECT_EQ(scene.Set("TempThreshold", "40"), Status::NotAMorvuDrive);
  EXPECT_EQ(scene.GetText("TempThreshold"), "status 45");
}

struct Threshold {
  bool isLine;  // degrees; of a property whole ones
  std::string text;
  std::uint32_t kelvin;  // 0: refused
};
void PrintTo(const Threshold& threshold, std::ostream* out) { *out << threshold.text; }
class Thresholds : public ::testing::TestWithParam<Threshold> {};

TEST_P(Thresholds, ReachTheDriveInKelvinOrNotAtAll) {
  const auto& [isLine, text, kelvin] = GetParam();
  SettingScene scene(NvmeSpec());
  LineOutcome outcome;
  if (isLine) {
    outcome = scene.Line({"-set_temp_threshold", text});
  } else {
    outcome.code = scene.Set("TempThreshold", text);
  }
  const auto sent = scene.Commands(kSetFeatures);
  EXPECT_EQ(outcome.code, kelvin == 0 ? Status::InvalidArguments : Status::Completed);
  ASSERT_EQ(sent.size(), kelvin == 0 ? 0U : 1U);
  EXPECT_EQ(sent.empty() ? 0 : sent[0].Cdw(11), kelvin);
  const auto told =
      outcome.output.find("Invalid value for threshold. Value must be between 0 and 75.");
  EXPECT_EQ(told != std::string::npos, isLine && kelvin == 0);
}
// clang-format off
INSTANTIATE_TEST_SUITE_P(SetFeature, Thresholds, ::testing::Values(
    Threshold{false, "0", 273}, Threshold{false, "75", 348}, Threshold{false, "76", 0},
    Threshold{false, "65536", 0}, Threshold{false, "-1", 0}, Threshold{false, "1e9", 0},
    Threshold{false, "", 0}, Threshold{false, "4.5", 0}, Threshold{false, " 5", 0},
    Threshold{true, "0", 273}, Threshold{true, "75", 348}, Threshold{true, "74.9", 347},
    Threshold{true, "75.5", 0}, Threshold{true, "76", 0}, Threshold{true, "nan", 0},
    Threshold{true, "inf", 0}, Threshold{true, "0x40", 0}, Threshold{true, "", 0},
    Threshold{true, ".", 0}, Threshold{true, "1.2.3", 0}, Threshold{true, "1e1", 0}));
// clang-format on

}  // namespace
}  // namespace Morvu
