#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "TestFleet.h"
#include "devices/AdapterManager.h"
#include "devices/Drive.h"

namespace Morvu::DeviceManagement {
namespace {

using Simulator::Kind;
using Simulator::TestFleet;
using testing::ElementsAre;
using testing::IsEmpty;

std::vector<std::string> PathsOf(const std::vector<Device*>& drives) {
  std::vector<std::string> paths;
  for (const auto* drive : drives) paths.push_back(drive->GetString(Properties::DevicePath));
  return paths;
}

std::vector<std::string> ScanPaths(const ScanOptions& options = {}) {
  AdapterManager manager;
  manager.Scan(options);
  return PathsOf(manager.GetDrives());
}

TEST(DiscoveryTest, FindsWhatAMixedHostHas) {
  TestFleet fleet;
  fleet.Add({.model = "MORVU SSDSC2BB480G4"});
  fleet.Add({.kind = Kind::Nvme, .namespaces = 2});
  fleet.Add({.kind = Kind::Scsi, .model = "SSD400SAS"});

  AdapterManager manager;
  manager.Scan({});

  const auto& drives = manager.GetDrives();
  ASSERT_THAT(PathsOf(drives),
              ElementsAre("/dev/nvme0n1", "/dev/nvme0n2", "/dev/sg0", "/dev/sg1"));
  EXPECT_TRUE(drives[0]->HasCommandSet(Protocol::Nvme));
  EXPECT_EQ(1u, drives[1]->GetUInt(Properties::Lun));
  EXPECT_TRUE(drives[2]->HasCommandSet(Protocol::Ata));
  EXPECT_TRUE(drives[3]->HasCommandSet(Protocol::Scsi));
  for (std::size_t i = 0; i < drives.size(); ++i) {
    EXPECT_EQ(i, drives[i]->GetUInt(Properties::Index));
    EXPECT_TRUE(drives[i]->TestConnection());
  }
}

TEST(DiscoveryTest, AnEmptyHostHasNoDrive) {
  TestFleet fleet;
  EXPECT_THAT(ScanPaths(), IsEmpty());
}

}  // namespace
}  // namespace Morvu::DeviceManagement
