#include "devices/Scan.h"
#include "devices/identification/DeviceIdentification.h"
#include "devices/model/Adapter.h"
#include "devices/properties/BasicProperties.h"
#include "devices/properties/ScanProperties.h"
#include "devices/properties/SettingProperties.h"
#include "support/HeldDrive.h"

namespace Morvu::Testing {
namespace {

using DeviceManagement::ScanDifference;
using Simulator::Fault;
using Simulator::Kind;
using Simulator::TestFleet;
using testing::ElementsAre;
using testing::IsEmpty;

const ScanOptions kIdentify{.identify = true, .findLogical = true};

std::vector<std::string> SerialsOf(const std::vector<std::unique_ptr<Device>>& drives) {
  std::vector<std::string> serials;
  for (const auto& drive : drives) serials.push_back(drive->GetString(Properties::SerialNumber));
  return serials;
}

std::vector<std::string> NamesOf(const std::vector<ScanDifference::PartitionChange>& changes) {
  std::vector<std::string> names;
  for (const auto& change : changes) {
    const auto path = change.drive->GetString(Properties::DevicePath);
    for (const auto& partition : change.partitions)
      names.push_back(path + " " + partition.GetName());
  }
  return names;
}

void ExpectNoChange(const ScanDifference& difference) {
  EXPECT_THAT(SerialsOf(difference.addedDrives), IsEmpty());
  EXPECT_THAT(SerialsOf(difference.removedDrives), IsEmpty());
  EXPECT_THAT(NamesOf(difference.addedPartitions), IsEmpty());
  EXPECT_THAT(NamesOf(difference.removedPartitions), IsEmpty());
}

class RescanTest : public testing::Test {
 protected:
  RescanTest()
      : sata_(fleet_.Add({.serial = "SATA1"})),
        nvme_(fleet_.Add({.kind = Kind::Nvme, .serial = "NVME1", .namespaces = 2})) {
    fleet_.Drive("/dev/nvme0n1").AddPartition(1 << 20, "/first");
    fleet_.Drive("/dev/nvme0n2").AddPartition(1 << 20, "/second");
    manager_.Scan(kIdentify);
  }

  ScanDifference Rescan() {
    ScanDifference difference;
    manager_.Rescan(kIdentify, difference);
    return difference;
  }

  TestFleet fleet_;
  Simulator::SimulatedDrive sata_, nvme_;
  AdapterManager manager_;
};

TEST_F(RescanTest, TellsDrivesThatCameAndWent) {
  Pull(fleet_, "sg0");
  fleet_.Add({.kind = Kind::Nvme, .serial = "NVME2"});
  const auto difference = Rescan();
  EXPECT_THAT(SerialsOf(difference.addedDrives), ElementsAre("NVME2"));
  EXPECT_THAT(SerialsOf(difference.removedDrives), ElementsAre("SATA1"));
}

// Two nodes, one drive: each node has the partitions under names of its own.
TEST_F(RescanTest, ADriveWithTwoPortsIsNoChange) {
  ExpectNoChange(Rescan());
  for (int i = 0; i < 2; ++i) {
    fleet_.Add({.kind = Kind::Scsi, .serial = "DUAL"}).AddPartition(1 << 20, "/dual");
  }
  manager_.Scan(kIdentify);
  ExpectNoChange(Rescan());
}

// The namespaces of a controller share its serial number.
TEST_F(RescanTest, TellsANamespaceThatWent) {
  Pull(fleet_, "nvme0n2");
  const auto difference = Rescan();
  ASSERT_EQ(1u, difference.removedDrives.size());
  EXPECT_EQ("/dev/nvme0n2", difference.removedDrives[0]->GetString(Properties::DevicePath));
  EXPECT_THAT(NamesOf(difference.removedPartitions), IsEmpty());
}

TEST_F(RescanTest, TellsPartitionsThatCameAndWent) {
  const auto added = sata_.AddPartition(1 << 20, "/new");
  EXPECT_THAT(NamesOf(Rescan().addedPartitions), ElementsAre("/dev/sg0 " + added));
  for (const char* folder : {"/sys/class/block/", "/dev/"}) {
    std::filesystem::remove(fleet_.Folder() + folder + added.substr(5));
  }
  EXPECT_THAT(NamesOf(Rescan().removedPartitions), ElementsAre("/dev/sg0 " + added));
}

TEST_F(RescanTest, AControllerTakesNoOtherOnesPlace) {
  fleet_.Add({.kind = Kind::Nvme, .serial = "NVME2"});
  manager_.Scan(kIdentify);
  Pull(fleet_, "nvme0");
  manager_.Scan(kIdentify);
  ASSERT_THAT(PathsOf(manager_.GetDrives()), ElementsAre("/dev/nvme1n1", "/dev/sg0"));
  EXPECT_EQ("/dev/nvme1", manager_.GetDrives()[0]->GetParent()->GetString(Properties::DevicePath));
}

// A job goes on with its clone while a scan drops the drive and its adapter.
TEST_F(RescanTest, ACloneOutlivesItsAdapter) {
  const auto clone = FindDrive(manager_, "/dev/nvme0n1")->Clone();
  Pull(fleet_, "nvme0");
  manager_.Scan(kIdentify);
  ASSERT_THAT(PathsOf(manager_.GetDrives()), ElementsAre("/dev/sg0"));

  const auto* adapter = dynamic_cast<DeviceManagement::Adapter*>(clone->GetParent());
  ASSERT_NE(nullptr, adapter);
  EXPECT_EQ("0", adapter->GetIdentifier());
  EXPECT_TRUE(clone->TestConnection());
  EXPECT_TRUE(UpdateProperties(*clone));
}

// ---- Objects that stay or go ----

TEST_F(RescanTest, ReplacesObjectsOrMergesIntoThem) {
  auto* const sata = FindDrive(manager_, "/dev/sg0");
  auto* const second = FindDrive(manager_, "/dev/nvme0n2");
  auto options = kIdentify;
  options.replaceObjects = false;
  sata->AddProperty(Properties::TempThreshold, 99);
  fleet_.Add({.serial = "SATA0"});

  manager_.Scan(options);

  EXPECT_EQ(sata, FindDrive(manager_, "/dev/sg0"));
  EXPECT_EQ(second, FindDrive(manager_, "/dev/nvme0n2"));
  EXPECT_FALSE(sata->GetProperties().Has(Properties::TempThreshold)) << "content of the new scan";
  EXPECT_TRUE(sata->TestConnection());
  EXPECT_EQ("/dev/nvme0", second->GetParent()->GetString(Properties::DevicePath));
  EXPECT_THAT(PathsOf(manager_.GetDrives()),
              ElementsAre("/dev/nvme0n1", "/dev/nvme0n2", "/dev/sg0", "/dev/sg1"));

  sata->AddProperty(Properties::TempThreshold, 99);
  manager_.Scan(kIdentify);
  EXPECT_FALSE(FindDrive(manager_, "/dev/sg0")->GetProperties().Has(Properties::TempThreshold));
}

// Each drive is identified once, also by a scan that merges.
TEST_F(RescanTest, MergingIdentifiesOnce) {
  auto options = kIdentify;
  options.replaceObjects = false;
  nvme_.ClearJournal();
  sata_.ClearJournal();
  manager_.Scan(options);
  constexpr std::uint8_t kNvmeIdentify = 0x06, kAtaIdentify = 0xEC;
  // The controller's test, then controller and namespace for each of two.
  EXPECT_EQ(5, std::ranges::count(nvme_.Opcodes(), kNvmeIdentify));
  int identifies = 0;
  for (const auto& entry : sata_.Journal()) identifies += entry.AtaOpcode() == kAtaIdentify;
  EXPECT_EQ(1, identifies);
}

TEST_F(RescanTest, MergingDropsADriveThatWent) {
  auto options = kIdentify;
  options.replaceObjects = false;
  Pull(fleet_, "sg0");
  manager_.Scan(options);
  EXPECT_THAT(PathsOf(manager_.GetDrives()), ElementsAre("/dev/nvme0n1", "/dev/nvme0n2"));
}

// ---- Faults in a scan ----

// While one drive does not answer, every other is asked and told.
TEST(SlowDrivesTest, HoldUpNoOther) {
  for (const char* slow : {"sg0", "nvme0"}) {
    TestFleet fleet;
    std::vector<Simulator::SimulatedDrive> drives;
    for (int i = 0; i < 5; ++i) {
      drives.push_back(fleet.Add({.kind = Kind::Ata, .serial = "S" + std::to_string(i)}));
      drives.push_back(fleet.Add({.kind = Kind::Nvme, .serial = "N" + std::to_string(i)}));
    }
    HeldDrive held(fleet, slow);
    AdapterManager manager;
    std::thread scan([&] { manager.Scan({.identify = true}); });
    const auto slowNode = "/dev/" + std::string(slow);
    for (auto& drive : drives) {
      if (drive.Node().starts_with(slowNode)) continue;
      EXPECT_TRUE(WaitUntil([&] { return drive.Journal().size() >= 3; })) << drive.Node();
    }
    held.LetGo();
    scan.join();
    EXPECT_EQ(drives.size(), manager.GetDrives().size());
  }
}

// A look at one drive waits for no other, by whatever it is chosen.
TEST(SlowDrivesTest, HoldUpNoLookAtAnother) {
  TestFleet fleet;
  fleet.Add({.serial = "SLOW"});
  fleet.Add({.serial = "WANTED"});
  const HeldDrive held(fleet, "sg0");
  Scanned manager({.identify = true, .onlyNodes = DeviceManagement::FindNodesBySerial("WANTED")});
  EXPECT_THAT(PathsOf(manager.GetDrives()), ElementsAre("/dev/sg1"));
}

struct FaultCase {
  const char* name;
  Fault fault;
};

class ScanFaultTest : public testing::TestWithParam<FaultCase> {};

// Whatever one drive does, at whichever of its commands, another is found.
TEST_P(ScanFaultTest, CostsTheDriveAndNotTheScan) {
  for (const auto kind : {Kind::Ata, Kind::Nvme, Kind::Scsi}) {
    TestFleet fleet;
    auto bad = fleet.Add({.kind = kind, .serial = "BAD"});
    fleet.Add({.kind = kind, .serial = "GOOD"});
    const auto findsGood = [] {
      Scanned manager({.identify = true});
      return std::ranges::any_of(manager.GetDrives(), [](const Device* drive) {
        return drive->GetString(Properties::SerialNumber) == "GOOD" &&
               drive->GetUInt(Properties::PhysicalSize) != 0;
      });
    };
    ASSERT_TRUE(findsGood());
    const auto commands = bad.Journal().size();
    ASSERT_GE(commands, 3u);

    for (std::uint32_t n = 1; n <= commands; ++n) {
      bad.ClearFaults();
      auto fault = GetParam().fault;
      bad.Inject(fault.OnCommand(n));
      EXPECT_TRUE(findsGood()) << "command " << n;
    }
  }
}

INSTANTIATE_TEST_SUITE_P(
    Faults, ScanFaultTest,
    testing::Values(FaultCase{"Fail", Fault::Fail()}, FaultCase{"Vanish", Fault::Vanish()},
                    FaultCase{"Hang", Fault::Hang()}, FaultCase{"Errno", Fault::IoctlError(5)},
                    FaultCase{"Short", Fault::ShortData(8)},
                    FaultCase{"Ones", Fault::GarbageData(Simulator::Garbage::Ones)},
                    FaultCase{"Random", Fault::GarbageData(Simulator::Garbage::Random)}),
    [](const auto& run) { return std::string(run.param.name); });

}  // namespace
}  // namespace Morvu::Testing
