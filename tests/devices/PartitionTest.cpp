#include <gtest/gtest.h>

#include <filesystem>

#include "TestFleet.h"
#include "devices/model/Partition.h"
#include "frame/Platform.h"

namespace Morvu::DeviceManagement {
namespace {

using Simulator::TestFleet;

class PartitionTest : public testing::Test {
 protected:
  PartitionTest() : drive_(fleet_.Add({})) {}

  std::string Add(std::uint64_t bytes, std::string_view mountPoint = {},
                  std::string_view type = "ext4") {
    return drive_.AddPartition(bytes, mountPoint, type);
  }
  // How many of the fleet's partitions are mounted.
  static std::size_t CountMounted() {
    std::vector<std::string> lines;
    RunCommand("mount", lines);
    return lines.size();
  }
  bool HasTestFolder() const {
    return std::filesystem::exists(fleet_.Folder() + std::string(kTestFolder));
  }

  TestFleet fleet_;
  Simulator::SimulatedDrive drive_;
};

TEST_F(PartitionTest, TellsTheValuesOfAMountedPartition) {
  const Partition partition(Add(8'192'000'000'000, "/data", "xfs"));
  EXPECT_EQ("xfs", partition.GetType());
  EXPECT_EQ(8'192'000'000'000, partition.GetSize());
  EXPECT_EQ(2'048'000'000'000, partition.GetUsedSpace());
  EXPECT_EQ(6'144'000'000'000, partition.GetFreeSpace());
  EXPECT_EQ(75, partition.GetFreePercentage());
  EXPECT_EQ(1u, CountMounted());
}

TEST_F(PartitionTest, MountsForTheReadAlone) {
  const Partition partition(Add(1 << 20));
  EXPECT_EQ("ext4", partition.GetType());
  EXPECT_EQ(1 << 20, partition.GetSize());
  EXPECT_EQ(75, partition.GetFreePercentage());
  EXPECT_EQ(0u, CountMounted());
  EXPECT_FALSE(HasTestFolder());
}

TEST_F(PartitionTest, WhatCannotBeMountedIsUnknown) {
  const auto swap = Add(1 << 20, {}, "");
  for (const auto& name : {swap, std::string("/dev/sda9"), std::string(" "), std::string(),
                           std::string("/dev/sda1;reboot"), std::string("-a")}) {
    const Partition partition(name);
    EXPECT_EQ("", partition.GetType()) << name;
    EXPECT_EQ(-1, partition.GetSize()) << name;
    EXPECT_EQ(-1, partition.GetUsedSpace()) << name;
    EXPECT_EQ(-1, partition.GetFreePercentage()) << name;
  }
  EXPECT_FALSE(HasTestFolder());
}

// "/dev/sda1" is at the front of "/dev/sda10".
TEST_F(PartitionTest, IsNotTakenForAnother) {
  const auto first = Add(1 << 20);
  for (int i = 2; i <= 10; ++i) Add(i << 20, "/data" + std::to_string(i));
  EXPECT_EQ(1 << 20, Partition(first).GetSize());
  EXPECT_EQ(10 << 20, Partition("/dev/sda10").GetSize());
}

TEST_F(PartitionTest, AFolderTakesOneMountAtATime) {
  const auto first = Add(1 << 20), second = Add(2 << 20);
  {
    PartitionMount mount(first);
    ASSERT_TRUE(mount.IsMounted());
    {
      PartitionMount other(second);
      EXPECT_FALSE(other.IsMounted());
      EXPECT_FALSE(other.Mount());
      EXPECT_EQ(-1, Partition(second).GetSize());
    }
    EXPECT_TRUE(mount.IsMounted());
    EXPECT_TRUE(mount.IsListed());
    EXPECT_EQ((1 << 20) * 3 / 4, mount.GetFreeBytes());
    EXPECT_EQ(1 << 20, Partition(first).GetSize());
    EXPECT_TRUE(mount.IsMounted());
  }
  EXPECT_EQ(0u, CountMounted());
  EXPECT_TRUE(PartitionMount(second).IsMounted());
}

TEST_F(PartitionTest, ARefusedMountLeavesNothing) {
  { EXPECT_FALSE(PartitionMount("/dev/sda9").IsMounted()); }
  EXPECT_FALSE(HasTestFolder());
}

}  // namespace
}  // namespace Morvu::DeviceManagement
