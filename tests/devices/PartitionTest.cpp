#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <limits>
#include <thread>

#include "TestFleet.h"
#include "devices/model/Partition.h"
#include "devices/system/MountTable.h"
#include "frame/Platform.h"

namespace Morvu::DeviceManagement {
namespace {

using Simulator::TestFleet;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

class PartitionTest : public testing::Test {
 protected:
  PartitionTest() : drive_(fleet_.Add({})) {}

  std::string Add(std::uint64_t bytes, std::string_view mountPoint = {},
                  std::string_view type = "ext4") {
    return drive_.AddPartition(bytes, mountPoint, type);
  }
  // How many mounts the fleet's table shows.
  static std::size_t CountMounted() { return ReadMountTable().value().size(); }
  bool HasTestFolder() const {
    return std::filesystem::exists(fleet_.Folder() + std::string(kTestFolder));
  }

  TestFleet fleet_;
  Simulator::SimulatedDrive drive_;
};

TEST_F(PartitionTest, TellsTheValuesOfAMountedPartition) {
  const Partition partition(Add(8'192'000'000'000, "/data", "xfs"));
  const auto space = partition.ReadSpace();
  EXPECT_EQ("xfs", space.type);
  EXPECT_EQ(8'192'000'000'000, space.size);
  EXPECT_EQ(2'048'000'000'000, space.used);
  EXPECT_EQ(6'144'000'000'000, space.free);
  EXPECT_EQ(75, partition.GetFreePercentage());
  EXPECT_EQ(1u, CountMounted());
  EXPECT_THAT(fleet_.Events(), IsEmpty()) << "asked where it is";
}

TEST_F(PartitionTest, MountsNothingUntilAValueIsAsked) {
  const Partition partition(Add(1 << 20));
  EXPECT_THAT(fleet_.Events(), IsEmpty());
}

struct TypeCase {
  const char* type;
  const char* options;
};

class MountedTypeTest : public PartitionTest, public testing::WithParamInterface<TypeCase> {};

// By the type's own options, over a read-only loop device, and away again.
TEST_P(MountedTypeTest, IsReadInAMomentsMountThatWritesNothing) {
  const auto [type, options] = GetParam();
  const auto name = Add(1 << 20, {}, type);
  const auto space = Partition(name).ReadSpace();
  EXPECT_EQ(type, space.type);
  EXPECT_EQ(1 << 20, space.size);
  EXPECT_EQ(75, space.GetFreePercentage());
  EXPECT_THAT(fleet_.Events(),
              ElementsAre("mount " + name + " ro,nosuid,nodev,noexec,loop" + options));
  EXPECT_EQ(0u, CountMounted());
  EXPECT_FALSE(HasTestFolder());
}

TEST_P(MountedTypeTest, WritesNothingWithoutLoopDevicesToo) {
  std::filesystem::remove(fleet_.Folder() + "/dev/loop-control");
  const auto [type, options] = GetParam();
  const auto name = Add(1 << 20, {}, type);
  EXPECT_EQ(1 << 20, Partition(name).GetSize());
  EXPECT_THAT(fleet_.Events(), ElementsAre("mount " + name + " ro,nosuid,nodev,noexec" + options));
}

INSTANTIATE_TEST_SUITE_P(Types, MountedTypeTest,
                         testing::Values(TypeCase{"ext4", ",noload"},
                                         TypeCase{"xfs", ",norecovery,nouuid"},
                                         TypeCase{"btrfs", ",rescue=nologreplay"},
                                         TypeCase{"f2fs", ",norecovery"}, TypeCase{"vfat", ""},
                                         TypeCase{"ntfs", ""}),
                         [](const auto& run) { return std::string(run.param.type); });

TEST_F(PartitionTest, WhatMayNotBeMountedIsUnknown) {
  const auto unknown = Add(1 << 20, {}, "bcachefs"), swap = Add(1 << 20, {}, "");
  for (const auto& name : {unknown, swap, std::string("/dev/sda9"), std::string(" "), std::string(),
                           std::string("/dev/sda1;reboot"), std::string("-a")}) {
    const auto space = Partition(name).ReadSpace();
    EXPECT_EQ("", space.type) << name;
    EXPECT_EQ(-1, space.size) << name;
    EXPECT_EQ(-1, space.used) << name;
    EXPECT_EQ(-1, space.GetFreePercentage()) << name;
  }
  EXPECT_FALSE(HasTestFolder());
  EXPECT_THAT(fleet_.Events(), IsEmpty());
}

// "/dev/sda1" is at the front of "/dev/sda10".
TEST_F(PartitionTest, IsNotTakenForAnother) {
  const auto first = Add(1 << 20);
  for (int i = 2; i <= 10; ++i) Add(i << 20, "/data" + std::to_string(i));
  EXPECT_EQ(1 << 20, Partition(first).GetSize());
  EXPECT_EQ(10 << 20, Partition("/dev/sda10").GetSize());
}

// Each gets whole values, whoever comes first.
TEST_F(PartitionTest, ReadersTakeTurns) {
  constexpr int kReaders = 4;
  std::vector<std::string> names;
  for (int i = 1; i <= kReaders; ++i) names.push_back(Add(i << 20));
  std::vector<std::thread> threads;
  std::vector<PartitionSpace> spaces(kReaders);
  for (int i = 0; i < kReaders; ++i) {
    threads.emplace_back([&, i] { spaces[i] = Partition(names[i]).ReadSpace(); });
  }
  for (auto& thread : threads) thread.join();
  for (int i = 0; i < kReaders; ++i) {
    EXPECT_EQ((i + 1) << 20, spaces[i].size);
    EXPECT_EQ(((i + 1) << 20) / 4, spaces[i].used);
    EXPECT_EQ("ext4", spaces[i].type);
  }
  EXPECT_FALSE(HasTestFolder());
}

// What stands in the folder is another's.
TEST_F(PartitionTest, LeavesAnothersMountAlone) {
  const auto theirs = Add(1 << 20), ours = Add(2 << 20);
  const std::string folder(kTestFolder);
  RunSystem("mkdir " + folder);
  RunSystem("mount " + theirs + " " + folder);
  EXPECT_EQ(-1, Partition(ours).GetSize());
  EXPECT_FALSE(PartitionMount(ours).IsMounted());
  EXPECT_EQ(1u, CountMounted());
  EXPECT_EQ(1 << 20, Partition(theirs).GetSize());
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

TEST(PartitionSpaceTest, CutsPercentsToWholeOnes) {
  const auto percent = [](std::int64_t free, std::int64_t size) {
    PartitionSpace space;
    space.free = free;
    space.size = size;
    return space.GetFreePercentage();
  };
  EXPECT_EQ(29, percent(29, 100));  // 28 in a double's arithmetic
  EXPECT_EQ(57, percent(57, 100));
  EXPECT_EQ(0, percent(99, 10000));
  EXPECT_EQ(100, percent(5, 5));
  constexpr auto kMost = std::numeric_limits<std::int64_t>::max();
  EXPECT_EQ(49, percent(kMost / 2, kMost));
  EXPECT_EQ(-1, percent(0, 0));
  EXPECT_EQ(-1, percent(-1, 100));
}

// ---- The mount table ----

TEST(MountTableTest, TakesLinesApart) {
  const auto table = ParseMountTable(
      "22 1 8:1 / / rw,relatime shared:1 - ext4 /dev/root rw\n"
      "23 22 0:28 /home /mnt/two\\040words rw master:2 shared:3 - btrfs /dev/sdb1 rw,space_cache\n"
      "24 22 0:5 / /proc rw - proc proc rw\n");
  ASSERT_TRUE(table);
  ASSERT_EQ(3u, table->size());
  EXPECT_EQ("8:1", (*table)[0].deviceNumber);
  EXPECT_EQ("/dev/root on / type ext4 (rw,relatime)", ToText((*table)[0]));
  EXPECT_EQ("/mnt/two words", (*table)[1].point);
  EXPECT_EQ("btrfs", (*table)[1].type);
  EXPECT_EQ("/dev/sdb1", (*table)[1].source);
  EXPECT_EQ(&(*table)[1], FindMountOf(*table, "/dev/sdb1"));
  EXPECT_EQ(nullptr, FindMountOf(*table, "/dev/sdb"));
  EXPECT_FALSE(ParseMountTable("22 1 8:1 / / rw,relatime shared:1\n"));
  EXPECT_FALSE(ParseMountTable("rubbish\n"));
}

}  // namespace
}  // namespace Morvu::DeviceManagement
