#include <fstream>

#include "devices/Scan.h"
#include "devices/system/SystemFacts.h"

namespace Morvu::Testing {
namespace {

using DeviceManagement::SystemFacts;
using Simulator::Kind;
using Simulator::TestFleet;
using testing::ElementsAre;
using testing::IsEmpty;

TEST(SystemFactsTest, KnowsSerialNumbersWithoutAskingADrive) {
  TestFleet fleet;
  auto sata = fleet.Add({.serial = "BTWL1"});
  fleet.Add({.kind = Kind::Nvme, .serial = "CVFT1"});
  fleet.Add({.kind = Kind::Scsi, .serial = "", .wwn = 0x5000C50012345678});
  const auto facts = SystemFacts::Read();
  EXPECT_EQ("BTWL1", facts.FindSerialNumber("/dev/sg0"));
  EXPECT_EQ("CVFT1", facts.FindSerialNumber("/dev/nvme0"));
  EXPECT_EQ("CVFT1", facts.FindSerialNumber("/dev/nvme0n1"));
  EXPECT_EQ("", facts.FindSerialNumber("/dev/sg1"));
  EXPECT_EQ(0x5000C50012345678u, facts.FindWorldWideName("/dev/sg1"));
  EXPECT_EQ(0u, facts.FindWorldWideName("/dev/sg0")) << "a text of the vendor's is no number";
  EXPECT_THAT(sata.Journal(), IsEmpty());
}

// A page that tells more than there is, or what no serial number holds.
TEST(SystemFactsTest, TakesNoSerialNumberFromABrokenPage) {
  TestFleet fleet;
  fleet.Add({.serial = "BTWL1"});
  const auto page = fleet.Folder() + "/sys/class/scsi_generic/sg0/device/vpd_pg80";
  const std::string texts[] = {"",
                               {"\0\x80\0", 3},
                               {"\0\x80\xFF\xFF"
                                "AB",
                                6},
                               {"\0\x83\0\2AB", 6},
                               {"\0\x80\0\2\x01"
                                "B",
                                6}};
  const char* expected[] = {"", "", "AB", "", ""};
  for (std::size_t i = 0; i < std::size(texts); ++i) {
    std::ofstream(page, std::ios::binary | std::ios::trunc) << texts[i];
    EXPECT_EQ(expected[i], SystemFacts::Read().FindSerialNumber("/dev/sg0")) << i;
  }
}

TEST(SystemFactsTest, WhatCannotBeAskedHasNoAnswer) {
  TestFleet fleet;
  fleet.Add({});
  fleet.Add({.kind = Kind::Nvme, .namespaces = 0});
  std::filesystem::remove_all(fleet.Folder() + "/sys/class/block");
  const auto facts = SystemFacts::Read();
  EXPECT_FALSE(facts.GetNvmeSpaces());
  EXPECT_FALSE(facts.FindPartitions("/dev/sg0"));
  EXPECT_FALSE(facts.FindPartitions("/dev/nvme0"));
  // No namespaces are known; that is not the same as none, so the controller is no drive.
  EXPECT_THAT(ScanPaths(), IsEmpty());
}

TEST(SystemFactsTest, PathsLeadToTheNodesOfTheirDrives) {
  TestFleet fleet;
  fleet.Add({.deviceType = 5});
  fleet.Add({}).AddPartition();
  fleet.Add({.kind = Kind::Nvme, .namespaces = 2});
  fleet.Drive("/dev/nvme0n2").AddPartition();
  std::filesystem::create_directories(fleet.Folder() + "/dev/sd-links");
  std::filesystem::create_symlink("../sda", fleet.Folder() + "/dev/sd-links/by-id");
  const auto byPath = [](const char* path) { return DeviceManagement::FindNodesByPath(path); };
  EXPECT_THAT(byPath("/dev/sg1"), ElementsAre("/dev/sg1"));
  EXPECT_THAT(byPath("/dev/sda"), ElementsAre("/dev/sg1"));
  EXPECT_THAT(byPath("/dev/sd-links/by-id"), ElementsAre("/dev/sg1"));
  EXPECT_THAT(byPath("/dev/nvme0n2"), ElementsAre("/dev/nvme0n2"));
  EXPECT_THAT(byPath("/dev/nvme0"), ElementsAre("/dev/nvme0n1", "/dev/nvme0n2"));
  EXPECT_THAT(byPath("/dev/sda1"), IsEmpty()) << "a partition is no drive";
  EXPECT_THAT(byPath("/dev/sdz"), IsEmpty());
  EXPECT_THAT(DeviceManagement::FindNodesByPartition("sda1"), ElementsAre("/dev/sg1"));
  EXPECT_THAT(DeviceManagement::FindNodesByPartition("/dev/nvme0n2p1"),
              ElementsAre("/dev/nvme0n2"));
  EXPECT_THAT(DeviceManagement::FindNodesByPartition("sda"), IsEmpty());
}

}  // namespace
}  // namespace Morvu::Testing
