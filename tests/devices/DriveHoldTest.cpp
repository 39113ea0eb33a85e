// Who works on a drive: sequences keep all others off, in this process and in others.
#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <thread>

#include "devices/Scan.h"
#include "devices/model/DriveHold.h"
#include "devices/properties/IdentityProperties.h"
#include "devices/properties/ScanProperties.h"
#include "frame/status/Drives.h"

namespace Morvu::Testing {
namespace {

using DeviceManagement::DriveHold;
using Simulator::Kind;
using Simulator::SimulatedDrive;
using Simulator::TestFleet;
using testing::IsEmpty;
using HoldKind = DriveHold::Kind;

const ScanOptions kAsk{.identify = true, .findLogical = true};

// A lock as another process has it: flock knows open files, not processes.
class ForeignLock {
 public:
  ForeignLock(const TestFleet& fleet, const std::string& node, int operation)
      : file_(open((fleet.Folder() + node).c_str(), O_RDONLY | O_CLOEXEC)) {
    EXPECT_EQ(flock(file_, operation | LOCK_NB), 0);
  }
  ~ForeignLock() { LetGo(); }
  ForeignLock(const ForeignLock&) = delete;
  ForeignLock& operator=(const ForeignLock&) = delete;
  void LetGo() {
    if (file_ >= 0) close(file_);
    file_ = -1;
  }

 private:
  int file_;
};

class DriveHolds : public testing::Test {
 protected:
  DriveHolds()
      : sata_(fleet_.Add({.model = "MORVU SSDSC2BB480G4", .serial = "SATA1"})),
        other_(fleet_.Add({.model = "MORVU SSDSC2BB480G4", .serial = "SATA2"})),
        nvme_(fleet_.Add({.kind = Kind::Nvme,
                          .model = "MORVU SSDPE2MD800G4",
                          .serial = "NVME1",
                          .namespaces = 2})) {
    manager_.Scan(kAsk);
    for (auto* drive : {&sata_, &other_, &nvme_}) drive->ClearJournal();
  }

  Device& Find(std::string_view path) { return *FindDrive(manager_, path); }
  bool CanHold(std::string_view path, HoldKind kind) {
    return DriveHold(Find(path), kind).IsTaken();
  }

  TestFleet fleet_;
  SimulatedDrive sata_, other_, nvme_;
  AdapterManager manager_;
};

TEST_F(DriveHolds, ASequenceKeepsAllOthersOffItsDriveAlone) {
  {
    const DriveHold hold(Find("/dev/sg0"), HoldKind::Sequence, "4711");
    ASSERT_TRUE(hold.IsTaken());
    for (const auto kind : {HoldKind::Sequence, HoldKind::Moment}) {
      const DriveHold second(Find("/dev/sg0"), kind);
      EXPECT_EQ(second.GetStatus(), Status::DriveHeld);
      EXPECT_EQ(second.GetOtherHolder(), "4711");
    }
    EXPECT_TRUE(CanHold("/dev/sg1", HoldKind::Sequence));
  }
  EXPECT_TRUE(CanHold("/dev/sg0", HoldKind::Sequence));
}

TEST_F(DriveHolds, MomentsStandBesideEachOther) {
  const DriveHold first(Find("/dev/sg0"), HoldKind::Moment);
  EXPECT_TRUE(first.IsTaken());
  EXPECT_TRUE(CanHold("/dev/sg0", HoldKind::Moment));
}

TEST_F(DriveHolds, ASequenceWaitsForAMomentAndLetsNoNewOneBegin) {
  auto moment = std::make_unique<DriveHold>(Find("/dev/sg0"), HoldKind::Moment);
  bool isTaken = false;
  std::thread sequence([&] { isTaken = CanHold("/dev/sg0", HoldKind::Sequence); });
  while (CanHold("/dev/sg0", HoldKind::Moment)) std::this_thread::yield();
  moment.reset();
  sequence.join();
  EXPECT_TRUE(isTaken);
}

TEST_F(DriveHolds, AControllersHoldIsThatOfItsNamespaces) {
  const DriveHold hold(Find("/dev/nvme0n1"), HoldKind::Sequence);
  EXPECT_FALSE(CanHold("/dev/nvme0n2", HoldKind::Sequence));
  // To other processes each namespace's node is locked.
  for (const auto* node : {"/dev/nvme0n1", "/dev/nvme0n2"}) {
    const int file = open((fleet_.Folder() + node).c_str(), O_RDONLY | O_CLOEXEC);
    EXPECT_NE(flock(file, LOCK_SH | LOCK_NB), 0) << node;
    close(file);
  }
}

TEST_F(DriveHolds, AnOwnerOfAnotherProcessRefusesAtOnce) {
  const ForeignLock foreign(fleet_, "/dev/sda", LOCK_EX);
  const auto start = fleet_.Now();
  EXPECT_FALSE(CanHold("/dev/sg0", HoldKind::Sequence));
  EXPECT_FALSE(CanHold("/dev/sg0", HoldKind::Moment));
  EXPECT_LT(fleet_.Now() - start, 9000u);
}

// As udev has after each event of a disk.
TEST_F(DriveHolds, AReaderOfAnotherProcessIsWaitedForTenSeconds) {
  ForeignLock udev(fleet_, "/dev/sda", LOCK_SH);
  EXPECT_TRUE(CanHold("/dev/sg0", HoldKind::Moment));
  const auto start = fleet_.Now();
  EXPECT_FALSE(CanHold("/dev/sg0", HoldKind::Sequence));
  EXPECT_GE(fleet_.Now() - start, 10'000u);
  // The fleet's clock tells that it waits.
  const auto second = fleet_.Now();
  std::thread end([&] {
    while (fleet_.Now() < second + 300) std::this_thread::yield();
    udev.LetGo();
  });
  fleet_.SkipWaits(false);
  EXPECT_TRUE(CanHold("/dev/sg0", HoldKind::Sequence));
  end.join();
}

// ---- Scans ----

TEST_F(DriveHolds, AScanSendsAHeldDriveNothingAndKeepsWhatWasKnown) {
  const auto firmware = Find("/dev/sg0").GetString(Properties::Firmware);
  const DriveHold sata(Find("/dev/sg0"), HoldKind::Sequence);
  const DriveHold nvme(Find("/dev/nvme0n1"), HoldKind::Sequence);
  const auto before = PathsOf(manager_.GetDrives());
  sata_.AddPartition();
  manager_.Scan(kAsk);
  EXPECT_EQ(PathsOf(manager_.GetDrives()), before);
  EXPECT_THAT(sata_.Opcodes(), IsEmpty());
  EXPECT_THAT(nvme_.Opcodes(), IsEmpty());
  EXPECT_THAT(other_.Opcodes(), testing::Not(IsEmpty()));
  const auto& drive = Find("/dev/sg0");
  EXPECT_EQ(drive.GetString(Properties::ModelNumber), "MORVU SSDSC2BB480G4");
  EXPECT_EQ(drive.GetString(Properties::Firmware), firmware);
  EXPECT_TRUE(drive.HasCommandSet(Protocol::Ata));
  EXPECT_EQ(drive.GetUInt(Properties::DriverCommunicationError), 0u);
  EXPECT_EQ(drive.GetPartitions().size(), 1u);
  EXPECT_EQ(Find("/dev/nvme0n2").GetString(Properties::SerialNumber), "NVME1");
}

// What the kernel has read of the drives stands for what they would tell.
TEST_F(DriveHolds, AFreshScanKeepsTheRowOfAHeldDrive) {
  auto options = kAsk;
  options.morvuOnly = true;
  const auto free = ScanPaths(options);
  const ForeignLock sata(fleet_, "/dev/sda", LOCK_EX);
  const ForeignLock nvme(fleet_, "/dev/nvme0n1", LOCK_EX);
  for (auto* drive : {&sata_, &nvme_}) drive->ClearJournal();
  Scanned fresh(options);
  EXPECT_EQ(PathsOf(fresh.GetDrives()), free);
  EXPECT_THAT(sata_.Opcodes(), IsEmpty());
  EXPECT_THAT(nvme_.Opcodes(), IsEmpty());
  for (const auto& [path, serial] :
       {std::pair("/dev/sg0", "SATA1"), std::pair("/dev/nvme0n1", "NVME1"),
        std::pair("/dev/nvme0n2", "NVME1")}) {
    const auto& drive = *FindDrive(fresh, path);
    EXPECT_EQ(drive.GetString(Properties::SerialNumber), serial) << path;
    EXPECT_EQ(drive.GetUInt(Properties::DriverCommunicationError), 180u) << path;
  }
  EXPECT_EQ(FindDrive(fresh, "/dev/sg1")->GetUInt(Properties::DriverCommunicationError), 0u);
}

// A disk that another program has locked for itself is no drive of this maker's by that.
TEST_F(DriveHolds, AForeignHeldDiskStaysHidden) {
  auto options = kAsk;
  options.includeProducts = {"Vorsham"};
  auto foreign = fleet_.Add({.model = "ACME DISK", .serial = "X1"});
  const ForeignLock lock(fleet_, "/dev/sdc", LOCK_EX);
  Scanned fresh(options);
  for (const auto& path : PathsOf(fresh.GetDrives())) EXPECT_NE(path, foreign.Node());
}

}  // namespace
}  // namespace Morvu::Testing
