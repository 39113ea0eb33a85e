// Drives behind an LSI RAID controller: what reaches them by the vendor's library, which of them
// are members of volumes, and a library that fails or lies.
#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <set>
#include <sstream>
#include <thread>

#include "AdapterCalls.h"
#include "Controllers.h"
#include "devices/Scan.h"
#include "devices/commands/CommandPath_LSI.h"
#include "devices/commands/CommandSet_ATA.h"
#include "devices/commands/CommandSet_SCSI.h"
#include "devices/discovery/Adapter_LSI.h"
#include "devices/model/DriveHold.h"
#include "devices/properties/AdapterProperties.h"
#include "devices/properties/DriverProperties.h"
#include "devices/properties/ScanProperties.h"
#include "devices/system/TaggedLibrary.h"
#include "frame/Files.h"
#include "frame/status/Commands.h"
#include "frame/status/Drives.h"
#include "frame/status/Partitions.h"

namespace Morvu::DeviceManagement {
namespace {

using Simulator::DriveSpec;
using Simulator::Fault;
using testing::ElementsAre;
using ByteVector = std::vector<std::uint8_t>;

const ScanOptions kScan{.identify = true, .findLogical = true, .scanLsi = true};

DriveSpec Sata(const std::string& serial, int controller = 0) {
  return {
      .model = "MORVU SSDSC2BB480G4", .serial = serial, .sectors = 4096, .controller = controller};
}
DriveSpec Sas(const std::string& serial, int controller = 0) {
  return {.kind = Simulator::Kind::Scsi,
          .model = "SSD400SAS",
          .serial = serial,
          .firmware = "A001",
          .sectors = 4096,
          .controller = controller};
}

// The library was written nothing it refuses, and is let go of at the end.
class LsiTest : public testing::Test {
 protected:
  ~LsiTest() override {
    scan_.reset();
    const auto now = Simulator::GetAdapterRecord();
    EXPECT_EQ(now.malformed, before_.malformed) << "calls that a strict library refuses";
    EXPECT_EQ(now.begun - before_.begun, now.ended - before_.ended) << "the library is still held";
    EXPECT_EQ(now.running, 0u);
  }

  std::string LibraryPath() const {
    return (std::filesystem::path(fleet.Folder()).parent_path() / Simulator::kAdapterLibrary)
        .string();
  }
  // The library as the machine has it is one of these bytes from now on.
  void PutLibrary(const ByteVector& bytes) const {
    std::filesystem::create_directories(fleet.Folder() + "/lib");
    const auto path = fleet.Folder() + "/lib/" + std::string(Simulator::kAdapterLibrary);
    ASSERT_TRUE(SaveBinary(path, bytes, false));
  }
  std::vector<std::string> List(ScanOptions options = kScan) {
    scan_ = std::make_unique<AdapterManager>(options);
    scan_->Scan(options);
    return Testing::PathsOf(scan_->GetDrives());
  }
  bool IsMember(const std::string& path) const {
    return Find(path)->GetBool(Properties::RAIDMember);
  }
  Device* Find(const std::string& path) const { return Testing::FindDrive(*scan_, path); }

  const Simulator::AdapterRecord before_ = Simulator::GetAdapterRecord();
  Simulator::TestFleet fleet;
  std::unique_ptr<AdapterManager> scan_;
};

TEST_F(LsiTest, OnlyTheVendorsTaggedLibraryIsLoadedAndOnce) {
  fleet.AddController();
  fleet.Add(Sata("BTWL1"));
  const auto good = ReadFileBytes(LibraryPath()).value();
  const auto retag = [&](ByteVector bytes, std::string_view from, std::string_view to) {
    bytes.erase(bytes.end() - kTrailerSize, bytes.end());
    const auto at = std::ranges::search(bytes, from).begin();
    EXPECT_NE(at, bytes.end());
    std::ranges::copy(to, at);
    const auto plain = fleet.Folder() + "/plain";
    EXPECT_TRUE(SaveBinary(plain, bytes, false) && SignLibrary(plain, plain + ".tagged"));
    return ReadFileBytes(plain + ".tagged").value();
  };
  const auto cut = [&](std::size_t size) { return ByteVector(good.begin(), good.begin() + size); };
  auto changed = good;
  changed[changed.size() / 2] ^= 1;
  const std::pair<const char*, ByteVector> kBad[] = {
      {"untagged", cut(good.size() - kTrailerSize)},
      {"a trailer alone", ByteVector(good.end() - kTrailerSize, good.end())},
      {"changed after tagging", changed},
      {"one byte", ByteVector(1)},
      {"no symbol", retag(good, "ProcessLibCommand", "ProcessLibCommanX")},
  };
  for (const auto& [name, bytes] : kBad) {
    PutLibrary(bytes);
    EXPECT_FALSE(LsiLibrary(LibraryPath()).IsLoaded()) << name;
    EXPECT_TRUE(List().empty()) << name;
  }
  EXPECT_FALSE(LsiLibrary("/nowhere/else.so").IsLoaded());
  EXPECT_EQ(Simulator::GetAdapterRecord().begun, before_.begun);

  PutLibrary(good);
  {
    const LsiLibrary first(LibraryPath());
    PutLibrary(changed);  // who holds it goes on with what was verified
    const LsiLibrary second(LibraryPath());
    EXPECT_TRUE(first.IsLoaded() && second.IsLoaded());
    EXPECT_EQ(Simulator::GetAdapterRecord().begun, before_.begun + 1);
  }
  EXPECT_EQ(Simulator::GetAdapterRecord().ended, before_.ended + 1);
  EXPECT_FALSE(LsiLibrary(LibraryPath()).IsLoaded());
}

// ---- Commands ----

struct PathCase {
  const char* name;
  bool passesThrough;
  const char* description;
};

void PrintTo(const PathCase& scene, std::ostream* out) { *out << scene.name; }

class LsiPath : public LsiTest, public testing::WithParamInterface<PathCase> {
 protected:
  void SetUp() override {
    fleet.AddController(GetParam().passesThrough);
    drive = fleet.Add(Sata("BTWL1"));
    List();
    device = Find("LSI_0_0")->Clone();
    ata = device->GetCommandSetAs<CommandSet_ATA>(Protocol::Ata);
    ASSERT_NE(ata, nullptr);
    drive.ClearJournal();
  }
  Simulator::JournalEntry TakeCommand() {
    const auto journal = drive.Journal();
    drive.ClearJournal();
    EXPECT_EQ(journal.size(), 1u);
    return journal.empty() ? Simulator::JournalEntry{} : journal.back();
  }

  void TearDown() override { device.reset(); }

  Simulator::SimulatedDrive drive;
  std::unique_ptr<Device> device;
  CommandSet_ATA* ata = nullptr;
};

TEST_P(LsiPath, CommandsReachTheDriveAsTheyAre) {
  EXPECT_EQ(device->GetPath().GetDescription(), GetParam().description);
  EXPECT_EQ(device->GetPath().GetProtocol(), "ATA");
  EXPECT_EQ(device->GetString(Properties::DriverManufacturer), "LSI API");

  ByteVector data(2 * 512);
  const ByteVector content(1024, 0xA5);
  drive.WriteMedium(3 * 512, content);
  EXPECT_EQ(ata->Send(AtaRow::ReadDmaExt, {.lba = 3, .count = 2}, data), Status::Completed);
  EXPECT_EQ(data, content);
  auto command = TakeCommand();
  EXPECT_EQ(command.AtaOpcode(), 0x25);
  EXPECT_EQ(command.Lba(), 3u);
  EXPECT_EQ(command.Count(), 2);

  // A command without data comes as a read of one block, and does the same.
  EXPECT_EQ(ata->Send(AtaRow::ReadNativeMaxAddressExt), Status::Completed);
  EXPECT_EQ(ata->GetAnswer().lba, 4095u);
  EXPECT_EQ(TakeCommand().direction, Simulator::Direction::FromDevice);

  const ByteVector log(512, 0x11);
  EXPECT_EQ(ata->Send(AtaRow::SmartWriteLog, {.lba = 0x80, .count = 1}, data), Status::Completed);
  EXPECT_EQ(TakeCommand().AtaOpcode(), 0xB0);

  // A refusal brings its registers and no data.
  data.assign(1024, 0x77);
  EXPECT_EQ(ata->Send(AtaRow::ReadDmaExt, {.lba = 4096, .count = 2}, data),
            Status::AtaCommandFailed);
  EXPECT_EQ(ata->GetAnswer().error & 0x10, 0x10);
  if (!GetParam().passesThrough) {
    EXPECT_EQ(data, ByteVector(1024, 0x77));
  }
}

// A call that did not end, a frame that is none of the drive's: never a success, and no data.
TEST_P(LsiPath, WhatIsNoAnswerIsAFailure) {
  for (const std::string fault : {"zero-frame", "wrong-frame", "fails-data", "fails", "ones"}) {
    const auto by = (GetParam().passesThrough ? "scsi-" : "ata-") + fault;
    if (!Simulator::IsLibraryFault(by)) continue;
    fleet.SetLibraryFaults({by});
    ByteVector data(512, 0x77);
    EXPECT_EQ(ata->Send(AtaRow::ReadDmaExt, {.count = 1}, data),
              by.starts_with("ata-") || by == "scsi-ones" ? Status::AtaCommandFailed
                                                          : Status::ScsiCommandFailed)
        << by;
    EXPECT_EQ(device->GetPath().GetOutcome().reached,
              by == "scsi-ones" ? Reached::Device : Reached::Transport)
        << by;
    // Of a CHECK CONDITION the data may be the drive's all the same.
    EXPECT_TRUE(by == "scsi-ones" || data == ByteVector(512, 0x77)) << by;
    EXPECT_EQ(ata->GetAnswer().known, 0) << by;
    EXPECT_FALSE(device->TestConnection()) << by;
  }
  fleet.SetLibraryFaults({});
  for (const auto& fault : {Fault::IoctlError(ENODEV), Fault::Hang(), Fault::HostError(1)}) {
    drive.Inject(fault);
    EXPECT_NE(ata->ataCheckPowerMode(), Status::Completed);
    EXPECT_EQ(device->GetPath().GetOutcome().reached, Reached::Transport);
    EXPECT_EQ(ata->GetAnswer().known, 0);
    drive.ClearFaults();
  }
  EXPECT_EQ(ata->ataCheckPowerMode(), Status::Completed);
}

INSTANTIATE_TEST_SUITE_P(Paths, LsiPath,
                         testing::Values(PathCase{"PassThrough", true, "LSI ATA over SCSI"},
                                         PathCase{"Frames", false, "LSI ATA"}),
                         [](const auto& scene) { return std::string(scene.param.name); });

TEST_F(LsiTest, ScsiCommandsReachTheDrive) {
  fleet.AddController();
  auto drive = fleet.Add(Sas("SAS1"));
  List();
  const auto device = Find("LSI_0_0")->Clone();
  EXPECT_EQ(device->GetString(Properties::SerialNumber), "SAS1");
  EXPECT_EQ(device->GetPath().GetDescription(), "LSI SCSI");
  auto* scsi = device->GetCommandSetAs<CommandSet_SCSI>(Protocol::Scsi);
  ASSERT_NE(scsi, nullptr);
  ByteVector data(512);
  drive.Inject(Fault::ScsiError(0x02, 0x05, 0x24, 0x00).Times(1));
  EXPECT_EQ(scsi->scsiInquiry(data, 255), Status::ScsiCommandFailed);
  EXPECT_EQ(device->GetPath().GetOutcome().sense.asc, 0x24);
  drive.Inject(Fault::ScsiError(0x08).Times(1));  // BUSY
  EXPECT_EQ(scsi->scsiInquiry(data, 255), Status::ScsiCommandFailed);
  EXPECT_EQ(scsi->scsiInquiry(data, 255), Status::Completed);

  // A CDB of 32 bytes has no room in the call.
  drive.ClearJournal();
  const ByteVector cdb(32, 0x7F);
  EXPECT_EQ(device->GetPath().SendOpcode({.record = cdb, .flags = kNoData}),
            Status::ScsiCommandFailed);
  EXPECT_TRUE(drive.Journal().empty());
}

// ---- Members and volumes ----

struct MembershipCase {
  std::vector<std::string> faults;
  bool isFirst, isSecond, isThird;  // of these two are a volume's
};

TEST_F(LsiTest, ADriveIsAMemberUnlessTheLibrarySaysThatItIsNot) {
  fleet.AddController();
  for (const char* serial : {"BTWL1", "BTWL2", "BTWL3"}) fleet.Add(Sata(serial));
  fleet.AddVolume({"LSI_0_0", "LSI_0_1"}, false);
  const MembershipCase kCases[] = {
      {{}, true, true, false},
      {{"few-volumes"}, true, true, false},  // one call names one of them, the other both
      {{"no-members"}, true, true, false},
      {{"members-fail"}, true, true, true},
      {{"members-fail", "few-volumes"}, true, true, true},
      {{"volumes-fail"}, true, true, true},
      {{"many-volumes"}, true, true, true},  // more is claimed than was told
      {{"many-members"}, true, true, true},
  };
  for (const auto& row : kCases) {
    fleet.SetLibraryFaults(row.faults);
    for (const bool findLogical : {true, false}) {
      List({.identify = true, .findLogical = findLogical, .scanLsi = true});
      SCOPED_TRACE(row.faults.empty() ? "no fault" : row.faults.front());
      EXPECT_EQ(IsMember("LSI_0_0"), row.isFirst);
      EXPECT_EQ(IsMember("LSI_0_1"), row.isSecond);
      EXPECT_EQ(IsMember("LSI_0_2"), row.isThird);
    }
  }
}

TEST_F(LsiTest, ADiskOfTheSystemBecomesTheVolumeOfItsMembers) {
  fleet.AddController();
  fleet.AddController();
  auto other = fleet.Add({.model = "MORVU SSDSC2BB480G4", .serial = "BTWL0"});
  for (const int controller : {0, 1}) {
    fleet.Add(Sata("BTWL1" + std::to_string(controller), controller));
    fleet.Add(Sata("BTWL2" + std::to_string(controller), controller));
  }
  auto hidden = Sata("BTWL9");
  hidden.isHidden = true;
  fleet.Add(hidden);
  const auto disk = fleet.AddVolume({"LSI_1_0", "LSI_1_1"});
  const auto partition = fleet.Drive(disk).AddPartition();

  EXPECT_THAT(List(), ElementsAre("LSI_0_0", "LSI_0_1", disk, "LSI_1_0", "LSI_1_1", other.Node()));
  auto* volume = Find(disk)->AsDrive();
  EXPECT_TRUE(volume->GetBool(Properties::RAID));
  EXPECT_TRUE(volume->GetBool(Properties::Morvu));
  EXPECT_FALSE(volume->GetBool(Properties::RAIDMember));
  EXPECT_EQ(volume->GetString(Properties::DriverManufacturer), "LSI API");
  ASSERT_EQ(volume->GetPartitions().size(), 1u);
  EXPECT_EQ(volume->GetPartitions().front().GetName(), partition);
  ASSERT_EQ(volume->GetChildren().size(), 2u);
  EXPECT_EQ(volume->GetChildren().front()->GetString(Properties::DevicePath), "LSI_1_0");
  EXPECT_EQ(volume->Clone()->AsDrive()->GetChildren().size(), 2u);
  const auto* adapter = dynamic_cast<const Adapter*>(volume->GetParent());
  EXPECT_EQ(adapter->GetType(), "lsi");
  EXPECT_EQ(adapter->GetIdentifier(), "1");
  EXPECT_EQ(adapter->GetProperties().GetSigned(Properties::PortNumber), 1);

  // A host sees the volume when it sees all members.
  auto filtered = kScan;
  filtered.morvuOnly = true;
  filtered.includeProducts = {volume->GetChildren().front()->GetString(Properties::Product)};
  EXPECT_EQ(List(filtered).size(), 6u);
  filtered.includeProducts = {"Another"};
  EXPECT_TRUE(List(filtered).empty());
  fleet.Drive("LSI_1_1").Inject(Fault::Vanish());  // who knows what it is?
  EXPECT_EQ(List({.identify = true, .morvuOnly = true, .scanLsi = true}).size(), 4u);
  fleet.Drive("LSI_1_1").ClearFaults();

  // Scans that keep objects, and then the adapters go.
  auto keeping = kScan;
  keeping.replaceObjects = false;
  EXPECT_EQ(List(keeping).size(), 6u);
  for (int i = 0; i < 2; ++i) {
    scan_->Scan(keeping);
    EXPECT_EQ(scan_->GetDrives().size(), 6u);
  }
  scan_->Scan({.identify = true});
  EXPECT_THAT(Testing::PathsOf(scan_->GetDrives()), ElementsAre(other.Node(), disk));
}

// Of a member the system knows nothing, of any other drive its node tells who uses it.
TEST_F(LsiTest, ADriveThatHasANodeBesidesStandsInTheListOnce) {
  fleet.AddController();
  auto member = Sata("BTWL1"), alone = Sata("BTWL2");
  fleet.Add(member);
  fleet.Add(alone);
  fleet.AddVolume({"LSI_0_0"}, false);
  member.controller = alone.controller = -1;
  fleet.Add(member);
  const auto node = fleet.Add(alone).Node();
  EXPECT_THAT(List(), ElementsAre("LSI_0_0", node));
  EXPECT_TRUE(IsMember("LSI_0_0"));
}

TEST_F(LsiTest, TheSystemHasNoPartitionsOfADriveWithoutANode) {
  fleet.AddController();
  fleet.Add(Sata("BTWL1"));
  List();
  auto* drive = Find("LSI_0_0");
  EXPECT_EQ(drive->CheckPartitions(), Status::NoPartition);
  EXPECT_TRUE(drive->ArePartitionsKnown());
}

// A job goes on while the host switches the adapter off and scans.
TEST_F(LsiTest, AnOpenPathKeepsTheLibrary) {
  fleet.AddController();
  fleet.Add(Sata("BTWL1"));
  List();
  auto device = Find("LSI_0_0")->Clone();
  scan_->Scan({.identify = true});
  scan_.reset();
  EXPECT_EQ(Simulator::GetAdapterRecord().ended, before_.ended);
  EXPECT_TRUE(device->TestConnection());
  device.reset();
  EXPECT_EQ(Simulator::GetAdapterRecord().ended, before_.ended + 1);
}

// ---- Holds ----

TEST_F(LsiTest, AMemberIsHeldWithItsVolume) {
  fleet.AddController();
  for (const char* serial : {"BTWL1", "BTWL2", "BTWL3"}) fleet.Add(Sata(serial));
  const auto disk = fleet.AddVolume({"LSI_0_0", "LSI_0_1"});
  List();
  const auto hold = [&](const std::string& path) {
    return DriveHold(*Find(path), DriveHold::Kind::Sequence).IsTaken();
  };
  {
    const DriveHold held(*Find("LSI_0_0"), DriveHold::Kind::Sequence, "7");
    EXPECT_FALSE(hold("LSI_0_0"));
    EXPECT_FALSE(hold("LSI_0_1"));
    EXPECT_FALSE(hold(disk));
    EXPECT_TRUE(hold("LSI_0_2"));
    // A scan asks it nothing, and keeps what it knew.
    auto drive = fleet.Drive("LSI_0_0");
    drive.ClearJournal();
    scan_->Scan(kScan);
    auto* kept = Find("LSI_0_0");
    EXPECT_TRUE(drive.Journal().empty());
    EXPECT_EQ(kept->GetString(Properties::SerialNumber), "BTWL1");
    EXPECT_TRUE(kept->GetBool(Properties::RAIDMember));
  }
  {
    // Made a member while it is worked on.
    const DriveHold held(*Find("LSI_0_2"), DriveHold::Kind::Sequence);
    const auto second = fleet.AddVolume({"LSI_0_2"});
    scan_->Scan(kScan);
    EXPECT_TRUE(IsMember("LSI_0_2"));
    EXPECT_THAT(Find("LSI_0_2")->GetVolumeNodes(), ElementsAre(second));
    EXPECT_EQ(Find("LSI_0_2")->GetString(Properties::SerialNumber), "BTWL3");
  }
  EXPECT_TRUE(hold("LSI_0_0"));
  {
    fleet.Add(Sata("BTWL4"));
    fleet.Add(Sata("BTWL5"));
    fleet.AddVolume({"LSI_0_3", "LSI_0_4"}, false);  // no disk of the system's
    List();
    const DriveHold held(*Find("LSI_0_3"), DriveHold::Kind::Sequence);
    EXPECT_TRUE(held.IsTaken());
    EXPECT_FALSE(hold("LSI_0_4"));
  }
  // Another process has it.
  const auto lock = fleet.Folder() + "/run/morvu-LSI_0_2.lock";
  const FileHandle file = OpenFile(lock, O_RDONLY);
  ASSERT_EQ(flock(file.Get(), LOCK_EX | LOCK_NB), 0);
  EXPECT_FALSE(hold("LSI_0_2"));
}

// The first drive answers when the test lets go of its state.
TEST_F(LsiTest, ACallThatTakesLongKeepsNoOtherDriveWaiting) {
  fleet.AddController();
  fleet.Add(Sata("BTWL1"));
  fleet.Add(Sata("BTWL2"));
  List();
  const auto device = Find("LSI_0_0")->Clone();
  const auto other = Find("LSI_0_1")->Clone();
  const FileHandle state = OpenFile(fleet.Folder() + "/drives/LSI_0_0.state", O_RDWR);
  struct flock64 range {};
  range.l_type = F_WRLCK;
  ASSERT_EQ(fcntl64(state.Get(), F_OFD_SETLK, &range), 0);
  StatusCode code = Status::NotRun;
  std::thread waiter(
      [&] { code = device->GetCommandSetAs<CommandSet_ATA>(Protocol::Ata)->ataCheckPowerMode(); });
  while (Simulator::GetAdapterRecord().running == 0) std::this_thread::yield();
  EXPECT_TRUE(other->TestConnection());
  EXPECT_TRUE(other->Clone()->GetPath().IsOpen());
  EXPECT_EQ(Simulator::GetAdapterRecord().running, 1u);
  range.l_type = F_UNLCK;
  ASSERT_EQ(fcntl64(state.Get(), F_OFD_SETLK, &range), 0);
  waiter.join();
  EXPECT_EQ(code, Status::Completed);
}

// ---- A library that lies ----

TEST_F(LsiTest, WhateverTheLibrarySaysNoMemberReadsAsFree) {
  fleet.AddController();
  fleet.Add(Sata("BTWL1"));
  fleet.Add(Sata("BTWL2"));
  fleet.Add(Sas("SAS3"));
  fleet.AddVolume({"LSI_0_0", "LSI_0_1"});
  std::istringstream names(Simulator::ListLibraryFaults());
  for (std::string name; std::getline(names >> std::ws, name, ',');) {
    SCOPED_TRACE(name);
    fleet.SetLibraryFaults({name});
    const auto paths = List();
    EXPECT_EQ(std::set(paths.begin(), paths.end()).size(), paths.size()) << "a drive twice";
    for (const auto* drive : scan_->GetDrives()) {
      const auto path = drive->GetString(Properties::DevicePath);
      if (path == "LSI_0_0" || path == "LSI_0_1") {
        EXPECT_TRUE(drive->GetBool(Properties::RAIDMember)) << path;
      }
    }
  }
  scan_.reset();
  // A drive that went between the list and its first command.
  fleet.SetLibraryFaults({});
  fleet.Drive("LSI_0_2").Inject(Fault::Vanish());
  EXPECT_EQ(List().size(), 3u);
}

TEST_F(LsiTest, ManyScansLeaveNothingBehind) {
  fleet.AddController();
  fleet.Add(Sata("BTWL1"));
  fleet.AddVolume({"LSI_0_0"});
  const auto countOpen = [] {
    return std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {});
  };
  List();
  scan_.reset();
  const auto open = countOpen();
  const auto begun = Simulator::GetAdapterRecord().begun;
  constexpr int kScans = MORVU_IS_EMULATED ? 100 : 1000;
  {
    AdapterManager often;
    for (int i = 0; i < kScans; ++i) {
      often.Scan({.replaceObjects = i % 2 == 0, .scanLsi = true});
      ASSERT_EQ(often.GetDrives().size(), 2u);
      if (i % 10 == 9) often.Scan({.scanLsi = false});  // the host switches it off
    }
  }
  const auto record = Simulator::GetAdapterRecord();
  EXPECT_EQ(record.begun - begun, kScans / 10);
  EXPECT_EQ(record.begun - before_.begun, record.ended - before_.ended);
  EXPECT_EQ(countOpen(), open);
}

}  // namespace
}  // namespace Morvu::DeviceManagement
