#include <sys/resource.h>

#include <boost/property_tree/ptree.hpp>
#include <cerrno>

#include "devices/Scan.h"
#include "devices/commands/CommandPath.h"
#include "devices/commands/CommandSet_NVME.h"
#include "devices/identification/DeviceIdentification.h"
#include "devices/properties/BasicProperties.h"
#include "devices/properties/ScanProperties.h"

namespace Morvu::Testing {
namespace {

using DeviceManagement::CommandPath;
using DeviceManagement::Drive;
using Simulator::Fault;
using Simulator::Kind;
using Simulator::TestFleet;
using testing::ElementsAre;
using testing::HasSubstr;

// Answers without a node behind it.
class AnsweringPath : public CommandPath {
 public:
  explicit AnsweringPath(std::string path)
      : CommandPath(std::move(path), "None", "None", std::chrono::seconds(5)) {}
  bool TestDevice() override { return true; }
  std::unique_ptr<CommandPath> Clone() const override { return nullptr; }

 protected:
  DeviceManagement::Outcome SendOpcodeCore(const DeviceManagement::Command&) override { return {}; }
};

TEST(DriveTest, AnUnknownDriveIsHealthyAndHasNoSize) {
  Drive drive;
  UpdateProperties(drive);
  EXPECT_EQ("Healthy", drive.GetString(Properties::DeviceStatus));
  EXPECT_TRUE(drive.GetProperties().Has(Properties::PhysicalSize));
  EXPECT_EQ(0u, drive.GetUInt(Properties::PhysicalSize));
  EXPECT_EQ(-1, drive.GetProperties().GetSigned(Properties::Index));
  EXPECT_FALSE(drive.TestConnection());
}

TEST(DriveTest, TellsTheDrivesOwnErrorAsItsStatus) {
  TestFleet fleet;
  auto simulated = fleet.Add({.kind = Kind::Nvme});
  const std::string_view error = "ASSERT_1";
  std::ranges::copy(error, simulated.State().nvme.controller + 3076);
  Scanned manager({.identify = true});
  EXPECT_EQ(error, manager.GetDrives().at(0)->GetString(Properties::DeviceStatus));
}

TEST(DriveTest, ACloneHasItsOwnOpenPathAndContent) {
  TestFleet fleet;
  fleet.Add({.serial = "SATA1"});
  fleet.Add({.kind = Kind::Nvme, .serial = "NVME1", .namespaces = 2});
  Scanned manager({.identify = true});

  for (auto* drive : manager.GetDrives()) {
    drive->SetTimeout(std::chrono::seconds(77));
    const auto clone = drive->Clone();
    EXPECT_TRUE(clone->GetPath().IsOpen());
    EXPECT_NE(drive->GetPath().GetHandle(), clone->GetPath().GetHandle());
    EXPECT_EQ(drive->GetPath().GetDevicePath(), clone->GetPath().GetDevicePath());
    EXPECT_NE(std::chrono::seconds(77), clone->GetTimeout());
    for (const auto protocol : {Protocol::Ata, Protocol::Nvme}) {
      ASSERT_EQ(drive->HasCommandSet(protocol), clone->HasCommandSet(protocol));
      if (!drive->HasCommandSet(protocol)) continue;
      EXPECT_NE(&drive->GetCommandSet(protocol)->GetPath(),
                &clone->GetCommandSet(protocol)->GetPath());
    }
    clone->AddProperty(Properties::SerialNumber, "CHANGED");
    EXPECT_NE("CHANGED", drive->GetString(Properties::SerialNumber));
    EXPECT_TRUE(clone->TestConnection());
  }
  // Commands go to the controller, reads of data to the namespace.
  const auto clone = FindDrive(manager, "/dev/nvme0n2")->Clone();
  EXPECT_EQ("/dev/nvme0n2", clone->GetPath().GetDevicePath());
  EXPECT_EQ("/dev/nvme0", clone->GetCommandSet(Protocol::Nvme)->GetPath().GetDevicePath());
}

// What a device tells of its last command is what went to the controller, not to the
// namespace's node.
TEST(DriveTest, TellsTheLastCommandOfAnNvmeDriveToo) {
  TestFleet fleet;
  auto simulated = fleet.Add({.kind = Kind::Nvme, .serial = "NVME1"});
  Scanned manager({.identify = true});
  const auto drive = FindDrive(manager, "/dev/nvme0n1")->Clone();
  auto* nvme = drive->GetCommandSetAs<DeviceManagement::CommandSet_NVME>(Protocol::Nvme);
  ASSERT_NE(nullptr, nvme);
  EXPECT_EQ(0, nvme->nvmeGetFeatures(0x04, 0, 0, {}));
  EXPECT_TRUE(drive->GetSentAsText().starts_with("10~"));
  EXPECT_EQ(0x57, drive->GetReceivedBuffer()[0]);
  simulated.Inject(Simulator::Fault::IoctlError(EIO));
  EXPECT_EQ(-EIO, nvme->nvmeGetFeatures(0x04, 0, 0, {}));
  EXPECT_EQ(-EIO, drive->GetLastOsError());
}

// A RAID driver lets ATA commands through and no NOP.
TEST(DriveTest, AMemberOfAnArrayIsTestedByItsIdentify) {
  TestFleet fleet;
  auto simulated = fleet.Add({});
  fleet.Add({.kind = Kind::Scsi});
  Scanned manager({.identify = true});
  auto& drive = *FindDrive(manager, "/dev/sg0");
  auto& scsi = *FindDrive(manager, "/dev/sg1");
  for (auto* member : {&drive, &scsi}) member->AddProperty(Properties::RAIDMember, true);

  simulated.ClearJournal();
  EXPECT_TRUE(drive.TestConnection());
  EXPECT_THAT(simulated.Opcodes(), ElementsAre(0xEC));
  EXPECT_FALSE(scsi.TestConnection());
  simulated.Inject(Fault::AtaError().OnOpcode(0xEC));
  EXPECT_FALSE(drive.TestConnection());
}

// ---- Whether a drive is in use ----

TEST(CheckPartitionsTest, AsksAboutThisDriveAlone) {
  TestFleet fleet;
  for (int i = 0; i <= 27; ++i) fleet.Add({});
  auto nvme = fleet.Add({.kind = Kind::Nvme, .namespaces = 11});
  for (const char* node : {"/dev/sg1", "/dev/sg11", "/dev/sg27", "/dev/nvme0n11"}) {
    fleet.Drive(node).AddPartition(1 << 20);
  }
  Scanned manager;
  const auto check = [&](std::string_view node) {
    return FindDrive(manager, node)->CheckPartitions();
  };
  for (const char* node : {"/dev/sg1", "/dev/sg11", "/dev/sg27", "/dev/nvme0n11"}) {
    EXPECT_EQ(13, check(node)) << node;
  }
  for (const char* node : {"/dev/sg0", "/dev/sg10", "/dev/sg2", "/dev/nvme0n1", "/dev/nvme0n10"}) {
    EXPECT_EQ(14, check(node)) << node;
  }
  fleet.Drive("/dev/sg1").Inject(Fault::Vanish());
  EXPECT_EQ(4, check("/dev/sg1"));
}

TEST(CheckPartitionsTest, NothingButANodesNameReachesTheShell) {
  TestFleet fleet;
  const auto trace = fleet.Folder() + "/trace";
  // Of what is no drive's node nothing can be known; a name of two characters is told to be
  // without partitions.
  for (const auto& [path, code] : {std::pair(std::string("/x/s"), 14),
                                   {"/dev/sg0$(touch " + trace + ")", 128},
                                   {"/dev/nvme0n1;touch " + trace, 128},
                                   {"/dev/sg0", 128},
                                   {std::string(), 14}}) {
    Drive drive;
    drive.SetPath(std::make_unique<AnsweringPath>(path));
    EXPECT_EQ(code, drive.CheckPartitions()) << path;
  }
  EXPECT_FALSE(std::filesystem::exists(trace));
}

// Takes all descriptors that are free, as a host in trouble has none.
class NoDescriptors {
 public:
  NoDescriptors() {
    getrlimit(RLIMIT_NOFILE, &old_);
    auto none = old_;
    none.rlim_cur = 0;
    setrlimit(RLIMIT_NOFILE, &none);
  }
  ~NoDescriptors() { setrlimit(RLIMIT_NOFILE, &old_); }

 private:
  rlimit old_{};
};

TEST(CheckPartitionsTest, WhatCannotBeAskedIsNotNone) {
  TestFleet fleet;
  fleet.Add({});
  fleet.Add({.kind = Kind::Nvme});
  Scanned manager;
  for (const char* node : {"/dev/sg0", "/dev/nvme0n1"}) {
    auto& drive = *FindDrive(manager, node);
    EXPECT_EQ(14, drive.CheckPartitions());
    const NoDescriptors none;
    EXPECT_EQ(128, drive.CheckPartitions());
    EXPECT_FALSE(drive.ArePartitionsKnown());
  }
  std::filesystem::rename(fleet.Folder() + "/sys/class/block", fleet.Folder() + "/sys/gone");
  EXPECT_EQ(128, FindDrive(manager, "/dev/sg0")->CheckPartitions());
  EXPECT_EQ(128, FindDrive(manager, "/dev/nvme0n1")->CheckPartitions());
}

// The way a language's `ls` quotes names, or a PATH without its tools, changed answers once.
TEST(CheckPartitionsTest, TheEnvironmentChangesNoAnswer) {
  TestFleet fleet;
  fleet.Add({}).AddPartition(1 << 20);
  AdapterManager manager;
  const std::string path = getenv("PATH");
  setenv("QUOTING_STYLE", "c", 1);
  setenv("PATH", "/nowhere", 1);
  manager.Scan({.findLogical = true});
  const auto listed = manager.GetDrives().size();
  const auto code = listed == 0 ? 0 : manager.GetDrives()[0]->CheckPartitions();
  unsetenv("QUOTING_STYLE");
  setenv("PATH", path.c_str(), 1);
  EXPECT_EQ(1u, listed);
  EXPECT_EQ(13, code);
}

// ---- Output ----

class DriveOutputTest : public testing::Test {
 protected:
  DriveOutputTest() {
    auto simulated = fleet_.Add({.kind = Kind::Nvme,
                                 .model = "MORVU SSDPE2MD400G4",
                                 .serial = "CVFT1",
                                 .firmware = "8DV10131",
                                 .sectors = 1000});
    simulated.AddPartition(8'192'000, "/data", "xfs");
    fleet_.SetRoot("/dev/nvme0n1p1");
    manager_.Scan({.identify = true, .findLogical = true});
  }
  TestFleet fleet_;
  AdapterManager manager_;
};

TEST_F(DriveOutputTest, ToText) {
  const auto text = manager_.GetDrives().at(0)->ToText();
  EXPECT_THAT(text, HasSubstr("Device Path"));
  EXPECT_THAT(text, HasSubstr("/dev/nvme0n1p1*"));
  EXPECT_THAT(text, HasSubstr("6.14 MB / 8.19 MB"));
  EXPECT_THAT(manager_.ToText(), HasSubstr("CVFT1"));
  EXPECT_THAT(manager_.GetDrives()[0]->GetParent()->ToText(), HasSubstr("MORVU SSDPE2MD400G4"));
}

TEST_F(DriveOutputTest, ToXml) {
  boost::property_tree::ptree tree;
  manager_.ToXml(tree);

  const auto& adapter = tree.get_child("adapters.adapter");
  EXPECT_EQ("nvme", adapter.get<std::string>("type"));
  const auto& drive = adapter.get_child("drives.drive");
  const std::pair<const char*, const char*> expected[] = {
      {"model", "MORVU SSDPE2MD400G4"},
      {"serial", "CVFT1"},
      {"firmware", "8DV10131"},
      {"generation", "Caldrome"},
      {"command_path", "NVMe"},
      {"device_path", "/dev/nvme0n1"},
      {"driver_version", "0.0"},
      {"adapter_name", "0"},
      {"adapter_path", "/dev/nvme0"},
      {"adapter_port", "0"},
      {"morvu", "yes"},
      {"raid_member", "no"},
      {"ahci_mode", "yes"},
      {"life_supported", "yes"},
      {"index", "0"},
      {"raid_member_count", "0"},
      {"physical_size", "512000"},
      {"maximum_lba", "999"},
      {"lun", "0"},
      {"Partition.Path", "/dev/nvme0n1p1"},
      {"Partition.Type", "xfs"},
      {"Partition.LogicalSize", "8192000"},
      {"Partition.UsedSpace", "2048000"},
      {"Partition.FreeSpace", "6144000"},
      {"Partition.FreePercentage", "75"},
      {"Partition.<xmlattr>.direction", "io"},
  };
  for (const auto& [key, value] : expected) {
    EXPECT_EQ(value, drive.get<std::string>(key, "absent")) << key;
  }
  EXPECT_EQ(36u, drive.size()) << "35 keys and the partition";
  EXPECT_EQ("model", drive.front().first);
}

}  // namespace
}  // namespace Morvu::Testing
