#include "devices/Scan.h"
#include "devices/properties/AdapterProperties.h"
#include "devices/properties/BasicProperties.h"
#include "devices/properties/ProductProperties.h"
#include "devices/properties/ScanProperties.h"
#include "frame/Files.h"
#include "frame/Logger.h"

namespace Morvu::Testing {
namespace {

using Simulator::Fault;
using Simulator::Kind;
using Simulator::TestFleet;
using testing::ElementsAre;
using testing::IsEmpty;

using DeviceManagement::HasIdentity;
using DeviceManagement::IsSameDrive;

constexpr const char* kSataModel = "MORVU SSDSC2BB480G4";

TEST(DiscoveryTest, FindsWhatAMixedHostHas) {
  TestFleet fleet;
  fleet.Add({.model = kSataModel, .serial = "BTWL1"});
  fleet.Add({.kind = Kind::Nvme, .serial = "CVFT1", .namespaces = 2});
  fleet.Add({.kind = Kind::Scsi, .model = "SSD400SAS", .serial = "SAS1"});

  Scanned manager({.identify = true});

  const auto& drives = manager.GetDrives();
  ASSERT_THAT(PathsOf(drives), ElementsAre("/dev/nvme0n1", "/dev/nvme0n2", "/dev/sg0", "/dev/sg1"));
  constexpr std::string_view kSets[] = {Protocol::Nvme, Protocol::Nvme, Protocol::Ata,
                                        Protocol::Scsi};
  constexpr std::string_view kSerials[] = {"CVFT1", "CVFT1", "BTWL1", "SAS1"};
  for (std::size_t i = 0; i < drives.size(); ++i) {
    EXPECT_EQ(i, drives[i]->GetUInt(Properties::Index));
    EXPECT_TRUE(drives[i]->HasCommandSet(kSets[i])) << i;
    EXPECT_EQ(kSerials[i], drives[i]->GetString(Properties::SerialNumber));
    EXPECT_EQ("No Opal", drives[i]->GetString(Properties::OpalState));
    EXPECT_EQ("Healthy", drives[i]->GetString(Properties::DeviceStatus));
    EXPECT_TRUE(drives[i]->TestConnection());
  }
}

TEST(DiscoveryTest, OffersWhatTheOptionsAskFor) {
  TestFleet fleet;
  EXPECT_THAT(ScanPaths(), IsEmpty());
  fleet.Add({.model = kSataModel});
  fleet.Add({.model = kSataModel, .usb = true});
  fleet.Add({.deviceType = 5});
  fleet.Add({.kind = Kind::Nvme});

  EXPECT_THAT(ScanPaths(), ElementsAre("/dev/nvme0n1", "/dev/sg0"));
  EXPECT_THAT(ScanPaths({.scanUsb = true}), ElementsAre("/dev/nvme0n1", "/dev/sg0", "/dev/sg1"));
  EXPECT_THAT(ScanPaths({.scanGeneric = false}), ElementsAre("/dev/nvme0n1"));
  // Without its adapter a namespace is the generic adapter's.
  EXPECT_THAT(ScanPaths({.scanNvme = false}), ElementsAre("/dev/nvme0n1", "/dev/sg0"));
}

// Node paths are ordered by their bytes.
TEST(DiscoveryTest, EachNamespaceGoesToItsOwnController) {
  TestFleet fleet;
  for (int i = 0; i <= 10; ++i) fleet.Add({.kind = Kind::Nvme});

  Scanned manager;

  ASSERT_EQ(11u, manager.GetDrives().size());
  for (const auto* drive : manager.GetDrives()) {
    const auto path = drive->GetString(Properties::DevicePath);
    ASSERT_NE(nullptr, drive->GetParent()) << path;
    EXPECT_EQ(path, drive->GetParent()->GetString(Properties::DevicePath) + "n1");
  }
  EXPECT_EQ("/dev/nvme10n1", PathsOf(manager.GetDrives())[2]);
  EXPECT_EQ("/dev/nvme2n1", PathsOf(manager.GetDrives())[3]);
}

TEST(DiscoveryTest, AControllerWithoutNamespacesIsADriveItself) {
  TestFleet fleet;
  fleet.Add({.kind = Kind::Nvme, .serial = "CVFT1", .namespaces = 0});

  Scanned manager({.identify = true});

  ASSERT_THAT(PathsOf(manager.GetDrives()), ElementsAre("/dev/nvme0"));
  auto& drive = *manager.GetDrives()[0];
  EXPECT_EQ("1", drive.GetString(Properties::PNPString));
  EXPECT_EQ("CVFT1", drive.GetString(Properties::SerialNumber));
  EXPECT_EQ(0u, drive.GetUInt(Properties::PhysicalSize));
  EXPECT_TRUE(drive.TestConnection());
}

TEST(DiscoveryTest, AControllerThatFailsItsTestIsNoAdapter) {
  TestFleet fleet;
  fleet.Add({.kind = Kind::Nvme, .namespaces = 0, .refusesIdentify = true});
  fleet.Add({.kind = Kind::Nvme});
  EXPECT_THAT(ScanPaths(), ElementsAre("/dev/nvme1n1"));
}

TEST(DiscoveryTest, AsksForANamespaceByItsIdentifierWhateverItsNode) {
  TestFleet fleet;
  auto drive = fleet.Add({.kind = Kind::Nvme, .nsids = {2, 3}});
  drive.State().nvme.namespaces[2].bytes = 512 * 4096;
  Scanned manager({.identify = true});
  const auto* second = FindDrive(manager, "/dev/nvme0n2");
  ASSERT_NE(nullptr, second);
  EXPECT_EQ(2u, second->GetUInt(Properties::Lun));
  EXPECT_EQ(4095u, second->GetUInt(Properties::MaximumLBA));
  EXPECT_EQ(512u * 4096, second->GetUInt(Properties::PhysicalSize));
}

// Two controllers, one drive: whichever of them answers has it.
TEST(DiscoveryTest, ADriveWithTwoControllersIsListedOnce) {
  TestFleet fleet;
  fleet.Add({.kind = Kind::Nvme, .serial = "SHARED", .namespaces = 2, .controllers = 2});
  fleet.Add({.kind = Kind::Nvme, .serial = "EMPTY", .namespaces = 0, .controllers = 2});
  fleet.Add({.kind = Kind::Nvme, .serial = "OTHER", .subsystem = 0x20});
  const std::vector<std::string> expected = {"/dev/nvme0n1", "/dev/nvme0n2", "/dev/nvme2",
                                             "/dev/nvme32n1"};
  EXPECT_EQ(expected, ScanPaths());
  Scanned manager({.identify = true});
  EXPECT_EQ("/dev/nvme4", FindDrive(manager, "/dev/nvme32n1")
                              ->GetCommandSet(Protocol::Nvme)
                              ->GetPath()
                              .GetDevicePath());

  std::filesystem::remove(fleet.Folder() + "/dev/nvme0");  // its controller is being reset
  EXPECT_EQ(expected, ScanPaths());
}

TEST(DiscoveryTest, ANamespaceOfUnknownIdentifierIsLeftOut) {
  TestFleet fleet;
  fleet.Add({.kind = Kind::Nvme, .namespaces = 2});
  std::filesystem::remove(fleet.Folder() + "/sys/class/block/nvme0n1/nsid");
  EXPECT_THAT(ScanPaths(), ElementsAre("/dev/nvme0n2"));
}

TEST(DiscoveryTest, ASasDriveIsKnownByWhatTheKernelRead) {
  TestFleet fleet;
  fleet.Add({.kind = Kind::Scsi, .serial = "LONGSERIALNUMBER1", .inquirySerial = false});
  fleet.Add({.kind = Kind::Scsi, .serial = "", .wwn = 0x5000C500AAAA0001});
  fleet.Add({.kind = Kind::Scsi, .serial = "", .wwn = 0x5000C500AAAA0002});
  fleet.Add({.kind = Kind::Scsi, .serial = ""});
  Scanned manager({.identify = true});
  const auto drives = manager.GetDrives();
  ASSERT_EQ(4u, drives.size());
  EXPECT_EQ("LONGSERIALNUMBER1", drives[0]->GetString(Properties::SerialNumber));
  EXPECT_FALSE(IsSameDrive(*drives[1], *drives[2]));
  EXPECT_FALSE(IsSameDrive(*drives[0], *drives[3]));
  EXPECT_TRUE(HasIdentity(*drives[0]));
  EXPECT_TRUE(HasIdentity(*drives[1]));
  EXPECT_FALSE(HasIdentity(*drives[3]));
}

// A list leaves every disk and udev in peace.
TEST(DiscoveryTest, AScanWritesNothingAndOpensNothingForWriting) {
  TestFleet fleet;
  fleet.Add({}).AddPartition(1 << 20, {}, "xfs");
  fleet.Add({.kind = Kind::Scsi});
  fleet.Add({.kind = Kind::Nvme, .namespaces = 2}).AddPartition(1 << 20);
  {
    Scanned manager({.identify = true, .findLogical = true});
    ASSERT_EQ(4u, manager.GetDrives().size());
    for (const auto* drive : manager.GetDrives()) EXPECT_TRUE(drive->Clone()->TestConnection());
  }
  EXPECT_THAT(fleet.Events(), IsEmpty());
}

// Of the drives that a scan is not for, not one is asked, nor waited for.
TEST(DiscoveryTest, AsksOnlyTheNodesThatAreWanted) {
  TestFleet fleet;
  std::vector<Simulator::SimulatedDrive> others = {fleet.Add({}), fleet.Add({.kind = Kind::Nvme}),
                                                   fleet.Add({.kind = Kind::Scsi})};
  fleet.Add({.serial = "WANTED"});
  fleet.Add({.kind = Kind::Nvme, .serial = "SPACE", .namespaces = 2});
  Scanned manager({.identify = true, .onlyNodes = {"/dev/sg2"}});
  ASSERT_THAT(PathsOf(manager.GetDrives()), ElementsAre("/dev/sg2"));
  EXPECT_EQ("WANTED", manager.GetDrives()[0]->GetString(Properties::SerialNumber));
  EXPECT_EQ(5u, manager.GetDrives()[0]->GetUInt(Properties::Index));
  manager.Scan({.identify = true, .onlyNodes = {"/dev/nvme1n2"}});
  ASSERT_THAT(PathsOf(manager.GetDrives()), ElementsAre("/dev/nvme1n2"));
  EXPECT_EQ(2u, manager.GetDrives()[0]->GetUInt(Properties::Index));
  for (const auto& drive : others) EXPECT_THAT(drive.Journal(), IsEmpty()) << drive.Node();
  manager.Scan({.identify = true});
  EXPECT_EQ("/dev/sg2", manager.GetDrives()[5]->GetString(Properties::DevicePath));
  EXPECT_EQ("/dev/nvme1n2", manager.GetDrives()[2]->GetString(Properties::DevicePath));
}

TEST(DiscoveryTest, TellsTheLogWhatTheKernelShows) {
  TestFleet fleet;
  fleet.Add({}).AddPartition();
  fleet.Drive("/dev/sg0").AddPartition();
  fleet.Add({.kind = Kind::Nvme});
  const auto path = fleet.Folder() + "/log";
  ASSERT_EQ(0, EnableLog(path, kLogAll, false));
  AdapterManager().Scan({.findLogical = true});
  DisableLog();
  const auto log = ReadFileText(path);
  for (const char* line :
       {"Partitions found: sda1", "Partitions found: sda2", "Drive 0 = /dev/nvme0",
        "Namespace 0 = /dev/nvme0n1", "Passthrough 0 = /dev/nvme0",
        "Drive /dev/nvme0n1 matches to adapter /dev/nvme0", "Checking device: 0"}) {
    EXPECT_THAT(log, testing::HasSubstr(line));
  }
}

TEST(DiscoveryTest, PublishesWhatPassesTheFilter) {
  TestFleet fleet;
  fleet.Add({.model = kSataModel});
  fleet.Add({.model = "VM0080MHYA"});
  fleet.Add({.model = "ANOTHER MAKER'S SSD"});
  const ScanOptions identify{.identify = true};
  Scanned manager(identify);
  const auto product = FindDrive(manager, "/dev/sg0")->GetString(Properties::Product);
  ASSERT_FALSE(product.empty());

  auto options = identify;
  options.morvuOnly = true;
  EXPECT_THAT(ScanPaths(options), ElementsAre("/dev/sg0", "/dev/sg1"));
  options.includeProducts = {product};
  EXPECT_THAT(ScanPaths(options), ElementsAre("/dev/sg0"));
  options = identify;
  options.excludeProducts = {product.substr(1)};
  EXPECT_THAT(ScanPaths(options), ElementsAre("/dev/sg1", "/dev/sg2"));

  manager.Scan(options);
  EXPECT_EQ(0u, manager.GetDrives()[0]->GetUInt(Properties::Index));
}

// The installed driver lets no command of the product's kind through.
TEST(DiscoveryTest, MarksADriveBehindAnUnreachableDriver) {
  TestFleet fleet;
  auto ata = fleet.Add({.kind = Kind::Scsi, .model = "VM0080MHYA"});
  auto scsi = fleet.Add({.kind = Kind::Scsi, .model = "SSD400SAS"});
  fleet.Add({.kind = Kind::Scsi, .model = "VO0400KMVCD"});
  for (auto* drive : {&ata, &scsi}) drive->Inject(Fault::HostError(1));

  Scanned manager({.identify = true, .includeProducts = {"none of these"}});

  std::vector<std::uint64_t> errors;
  for (const auto* drive : manager.GetDrives()) {
    errors.push_back(drive->GetUInt(Properties::DriverCommunicationError));
    EXPECT_FALSE(drive->HasCommandSet(Protocol::Ata));
  }
  EXPECT_THAT(errors, ElementsAre(286, 287, 288));
}

// The system tells 16 characters of its model.
TEST(DiscoveryTest, MarksASataDriveThatAnswersNothing) {
  TestFleet fleet;
  auto silent = fleet.Add({.model = kSataModel});
  silent.Inject(Fault::HostError(1).Times(0));
  Scanned manager({.identify = true, .includeProducts = {"none of these"}});
  ASSERT_EQ(1u, manager.GetDrives().size());
  const auto& drive = *manager.GetDrives()[0];
  EXPECT_EQ(286u, drive.GetUInt(Properties::DriverCommunicationError));
  EXPECT_EQ(16u, drive.GetString(Properties::ModelNumber).size());
  EXPECT_EQ("ATA", drive.GetString(Properties::ProductProtocol));
}

// ---- Partitions ----

std::vector<std::string> PartitionsOf(const Device& drive) {
  std::vector<std::string> names;
  for (const auto& partition : drive.GetPartitions()) {
    names.push_back(partition.GetName() + (partition.IsOsPartition() ? "*" : ""));
  }
  return names;
}

constexpr std::uint64_t kPartitionSize = 1 << 20;

TEST(DiscoveryTest, FindsThePartitionsOfEachDrive) {
  TestFleet fleet;
  for (int i = 0; i <= 27; ++i) fleet.Add({});
  auto nvme = fleet.Add({.kind = Kind::Nvme, .namespaces = 11});
  for (const char* node :
       {"/dev/sg1", "/dev/sg1", "/dev/sg10", "/dev/sg27", "/dev/nvme0n1", "/dev/nvme0n11"}) {
    fleet.Drive(node).AddPartition(kPartitionSize, "/data");
  }

  Scanned manager({.findLogical = true});

  EXPECT_THAT(PartitionsOf(*FindDrive(manager, "/dev/sg0")), IsEmpty());
  EXPECT_THAT(PartitionsOf(*FindDrive(manager, "/dev/sg1")), ElementsAre("/dev/sdb1", "/dev/sdb2"));
  EXPECT_THAT(PartitionsOf(*FindDrive(manager, "/dev/sg10")), ElementsAre("/dev/sdk1"));
  EXPECT_THAT(PartitionsOf(*FindDrive(manager, "/dev/sg27")), ElementsAre("/dev/sdab1"));
  EXPECT_THAT(PartitionsOf(*FindDrive(manager, "/dev/nvme0n1")), ElementsAre("/dev/nvme0n1p1"));
  EXPECT_THAT(PartitionsOf(*FindDrive(manager, "/dev/nvme0n11")), ElementsAre("/dev/nvme0n11p1"));
  EXPECT_EQ("ext4", FindDrive(manager, "/dev/sg10")->GetPartitions()[0].GetType());

  const auto& list = manager.GetDeviceList();
  EXPECT_EQ(FindDrive(manager, "/dev/sg27"), list.Find("", "/dev/sdab1"));
  EXPECT_EQ(nullptr, list.Find("", "/dev/sdab2"));
}

struct RootCase {
  const char* root;
  std::vector<std::string> marked;
};

class RootTest : public testing::TestWithParam<RootCase> {};

// sda has ten partitions; sda2 carries the volume group my-vg, and sdb1 none of a group.
TEST_P(RootTest, MarksThePartitionOfTheOperatingSystem) {
  TestFleet fleet;
  auto first = fleet.Add({});
  auto second = fleet.Add({});
  auto third = fleet.Add({.kind = Kind::Nvme});
  first.AddPartition(kPartitionSize, "/boot");
  first.AddPartition(kPartitionSize, {}, "LVM2_member", "my-vg");
  for (int i = 3; i <= 10; ++i) first.AddPartition(kPartitionSize, "/data");
  second.AddPartition(kPartitionSize, {}, "LVM2_member", "my");
  third.AddPartition(kPartitionSize, "/more");
  fleet.SetRoot(GetParam().root);

  Scanned manager({.findLogical = true});

  std::vector<std::string> marked;
  for (const auto* drive : manager.GetDrives()) {
    for (const auto& partition : drive->GetPartitions()) {
      if (partition.IsOsPartition()) marked.push_back(partition.GetName());
    }
  }
  EXPECT_EQ(GetParam().marked, marked);
}

INSTANTIATE_TEST_SUITE_P(
    Roots, RootTest,
    testing::Values(RootCase{"/dev/sda10", {"/dev/sda1", "/dev/sda10"}},
                    RootCase{"/dev/nvme0n1p1", {"/dev/nvme0n1p1", "/dev/sda1"}},
                    RootCase{"/dev/mapper/my--vg-root", {"/dev/sda1", "/dev/sda2"}},
                    RootCase{"/dev/my-vg/root", {"/dev/sda1", "/dev/sda2"}},
                    RootCase{"overlay", {"/dev/sda1"}}));

}  // namespace
}  // namespace Morvu::Testing
