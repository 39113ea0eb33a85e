// "-metrics": its text, what is asked for it, and that it wakes no drive.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>

#include "TestFleet.h"
#include "frame/Files.h"
#include "support/CommandLine.h"

namespace Morvu::Testing {
namespace {

using Simulator::Fault;
using Simulator::Kind;
using testing::Each;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;

constexpr std::uint8_t kCheckPowerMode = 0xE5;

struct Metrics : testing::Test {
  Simulator::SimulatedDrive Add(const std::string& serial, Kind kind = Kind::Ata) {
    return fleet.Add({.kind = kind, .model = "MORVU SSDSC2BB480G4", .serial = serial});
  }
  Simulator::TestFleet fleet;
};

TEST_F(Metrics, ASleepingDriveIsAskedWhetherItSleepsAndNothingElse) {
  auto sleeper = Add("SLEEPER");
  auto other = Add("OTHER");
  sleeper.State().ata.powerMode = Simulator::PowerMode::Standby;
  const auto text = RunToolLine({"-metrics"}).output;
  EXPECT_THAT(sleeper.Opcodes(), ElementsAre(kCheckPowerMode));
  EXPECT_EQ(sleeper.State().ata.wakeUps, 0);
  EXPECT_THAT(text, HasSubstr("morvu_drive_asleep{device=\"/dev/sg0\",serial=\"SLEEPER\"} 1\n"));
  EXPECT_THAT(text, HasSubstr("morvu_drive_up{device=\"/dev/sg0\",serial=\"SLEEPER\"} 0\n"));
  EXPECT_THAT(text, Not(HasSubstr("celsius{device=\"/dev/sg0\"")));
  EXPECT_THAT(text, HasSubstr("celsius{device=\"/dev/sg1\",serial=\"OTHER\"} 28\n"));
  // A drive that is awake is not read from, so that it may fall asleep.
  EXPECT_EQ(other.Opcodes().front(), kCheckPowerMode);
  EXPECT_THAT(other.Opcodes(), Each(Not(testing::AnyOf(0xC8, 0x25))));
  // Everything else wakes it.
  EXPECT_EQ(RunToolLine({"-health"}).code, 0);
  EXPECT_EQ(sleeper.State().ata.wakeUps, 1);
}

// Behind a RAID controller too, where the kernel does not know who the drive is; and a volume,
// which is no drive, is never a silent one.
TEST_F(Metrics, BehindAControllerADriveIsLetSleepAndAVolumeIsNotMissed) {
  for (const bool passesThrough : {true, false}) {
    const auto controller = fleet.AddController(passesThrough);
    auto sleeper =
        fleet.Add({.model = "MORVU SSDSC2BB480G4", .serial = "SLEEPER", .controller = controller});
    const auto name = "LSI_" + std::to_string(controller) + "_0";
    const auto disk = fleet.AddVolume({name});
    sleeper.State().ata.powerMode = Simulator::PowerMode::Standby;
    const auto text = RunToolLine({"-lsi", "-metrics"}).output;
    EXPECT_EQ(sleeper.State().ata.wakeUps, 0);
    EXPECT_THAT(text, HasSubstr("asleep{device=\"" + name + "\",serial=\"SLEEPER\"} 1\n"));
    EXPECT_THAT(text, HasSubstr("info{device=\"" + disk + "\""));
    EXPECT_THAT(text, Not(HasSubstr("up{device=\"" + disk + "\"")));
  }
}

TEST_F(Metrics, ADriveWhoseRestIsNotKnownIsLeftAlone) {
  auto drive = fleet.Add({.serial = "MUTE", .senseFormat = Simulator::SenseFormat::None});
  const auto text = RunToolLine({"-metrics"}).output;
  EXPECT_THAT(drive.Opcodes(), ElementsAre(kCheckPowerMode));
  EXPECT_THAT(text, HasSubstr("morvu_drive_up{device=\"/dev/sg0\",serial=\"MUTE\"} 0\n"));
  EXPECT_THAT(text, HasSubstr("morvu_drive_asleep{device=\"/dev/sg0\",serial=\"MUTE\"} 0\n"));
  // One without power management refuses the question, and is awake.
  auto old = Add("OLD");
  old.Inject(Fault::AtaError().OnOpcode(kCheckPowerMode));
  EXPECT_THAT(RunToolLine({"-metrics"}).output, HasSubstr("serial=\"OLD\"} 28\n"));
}

TEST_F(Metrics, ValuesStandInBaseUnitsAndWhatIsNotKnownIsNoSeries) {
  auto nvme = Add("N", Kind::Nvme);
  nvme.State().nvme.health[3] = 87;
  nvme.State().nvme.health[5] = 130;
  nvme.State().nvme.health[160] = 2;
  std::strcpy(nvme.State().nvme.slots[1], "FW02");
  nvme.State().nvme.nextSlot = 2;
  auto sata = Add("S");
  sata.State().ata.smartEnabled = 0;
  const auto text = RunToolLine({"-metrics"}).output;
  for (const auto* line :
       {"life_remaining_ratio{N} 0", "wear_ratio{N} 1.3", "spare_ratio{N} 0.87",
        "spare_threshold_ratio{N} 0.1", "temperature_celsius{N} 28", "media_errors_total{N} 2",
        "power_on_seconds_total{N} 4442400", "unsafe_shutdowns_total{N} 7", "failing{N} 0"}) {
    const std::string name = "device=\"/dev/nvme0n1\",serial=\"N\"";
    auto wanted = "morvu_drive_" + std::string(line) + "\n";
    wanted.replace(wanted.find("{N}") + 1, 1, name);
    EXPECT_THAT(text, HasSubstr(wanted));
  }
  EXPECT_THAT(text, HasSubstr("serial=\"N\",firmware=\"FW02\"} 1\n"));
  EXPECT_THAT(text, HasSubstr("# TYPE morvu_drive_media_errors_total counter\n"));
  for (const auto* name : {"failing", "temperature_celsius", "power_on_seconds_total"}) {
    EXPECT_THAT(text, Not(HasSubstr("morvu_drive_" + std::string(name) + "{device=\"/dev/sg0\"")));
  }
}

// The text begins with its first line, ends with one, and holds no byte that breaks a label.
TEST_F(Metrics, NothingElseIsPrintedWhateverADriveCallsItself) {
  fleet.Add({.model = "A\"B\\C", .serial = "S\xFF\x01 <c:RED>x</c>", .firmware = "\xC3("});
  const auto outcome = RunToolLine({"-metrics"});
  EXPECT_EQ(outcome.code, 0);
  EXPECT_EQ(outcome.output.find("# HELP morvu_drive_info "), 0U);
  EXPECT_EQ(outcome.output.back(), '\n');
  EXPECT_THAT(outcome.output, HasSubstr("model=\"A\\\"B\\\\C\""));
  EXPECT_THAT(outcome.output,
              Each(testing::AnyOf('\n', testing::AllOf(testing::Ge(' '), testing::Le('~')))));
}

TEST_F(Metrics, AFileIsWholeAndForAllToRead) {
  const auto folder = std::filesystem::path(fleet.Folder()) / "out";
  std::filesystem::create_directory(folder);
  const auto path = (folder / "morvussd.prom").string();
  const auto mask = umask(077);
  // A machine without drives has a file too, as one that it had before must not stay.
  EXPECT_EQ(RunToolLine({"-metrics", path}).code, 0);
  EXPECT_THAT(ReadFileText(path), HasSubstr("morvu_drives 0\n"));
  Add("S");
  std::ofstream(path) << "old";
  chmod(path.c_str(), 0600);
  const auto outcome = RunToolLine({"-metrics", path});
  umask(mask);
  EXPECT_EQ(outcome.output, "");
  struct stat told {};
  ASSERT_EQ(stat(path.c_str(), &told), 0);
  EXPECT_EQ(told.st_mode & 07777, 0644U);
  EXPECT_THAT(ReadFileText(path), HasSubstr("morvu_drives 1\n"));
  const auto chosen = RunToolLine({"-drive_serial", "S", "-metrics"}).output;
  EXPECT_THAT(chosen, HasSubstr("morvu_drive_up{"));
  EXPECT_THAT(chosen, Not(HasSubstr("morvu_drives")));
  // Nothing is left beside it, and one that cannot be written is an end of its own.
  EXPECT_EQ(std::distance(std::filesystem::directory_iterator(folder), {}), 1);
  const auto failed = RunToolLine({"-metrics", "/nowhere/morvussd.prom"});
  EXPECT_EQ(failed.code, 122);
  EXPECT_THAT(failed.output, HasSubstr("No such file"));
  Simulator::TestFleet::OnFileTransfer([](const auto& transfer) {
    return transfer.kind == Simulator::FileTransfer::Kind::Sync ? (errno = EIO, -1)
                                                                : transfer.proceed();
  });
  EXPECT_EQ(RunToolLine({"-metrics", path}).code, 122);
  Simulator::TestFleet::OnFileTransfer({});
  EXPECT_EQ(std::distance(std::filesystem::directory_iterator(folder), {}), 1);
}

}  // namespace
}  // namespace Morvu::Testing
