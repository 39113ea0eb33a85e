#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <fstream>

#include "Commands.h"
#include "gtest/gtest.h"

// What the compiler puts in the place of calls when a program is fortified.
extern "C" {
int __openat_2(int folder, const char* path, int flags);
int __openat64_2(int folder, const char* path, int flags);
ssize_t __read_chk(int descriptor, void* data, size_t size, size_t room);
ssize_t __pread_chk(int descriptor, void* data, size_t size, off_t offset, size_t room);
ssize_t __pread64_chk(int descriptor, void* data, size_t size, off64_t offset, size_t room);
ssize_t __readlink_chk(const char* path, char* buffer, size_t size, size_t room);
char* __realpath_chk(const char* path, char* resolved, size_t room);
}

namespace Simulator {
namespace {

TEST(Files, AFortifiedProgramMeetsTheFleetToo) {
  TestFleet fleet;
  fleet.Add({}).WriteMedium(0, {'m', 'e', 'd', 'i', 'u', 'm'});
  for (auto* const opens : {&__openat_2, &__openat64_2}) {
    const int disk = opens(AT_FDCWD, "/dev/sda", O_RDONLY);
    char text[7] = {};
    EXPECT_EQ(6, __read_chk(disk, text, 6, sizeof text));
    EXPECT_STREQ("medium", text);
    EXPECT_EQ(2, __pread_chk(disk, text, 2, 4, sizeof text));
    EXPECT_EQ(2, __pread64_chk(disk, text + 2, 2, 0, 4));
    EXPECT_STREQ("ummeum", text);
    EXPECT_DEATH(__read_chk(disk, text, 8, sizeof text), "");
    close(disk);
  }
  char path[4096] = {};
  EXPECT_GT(__readlink_chk("/sys/class/scsi_generic/sg0", path, sizeof path - 1, sizeof path), 0);
  EXPECT_STREQ("/dev/sda", __realpath_chk("/dev/sda", path, sizeof path));
}

TEST(Files, ShellPipelinesSeeAMachineWithTheseDrives) {
  TestFleet fleet;
  auto disk = fleet.Add({});
  fleet.Add({.usb = true});
  fleet.Add({.kind = Kind::Nvme});
  fleet.Add({.kind = Kind::Scsi, .deviceType = 5});
  EXPECT_EQ("/dev/sda1", disk.AddPartition(1 << 20, "/data"));
  fleet.Drive("/dev/nvme0n1").AddPartition();
  fleet.SetRoot("/dev/mapper/vg0-root");

  EXPECT_EQ("sg0\nsg1\nsg2\n", Output("ls -l /dev/sg* | grep -E -o \"sg[[:digit:]]+\""));
  EXPECT_EQ("/dev/nvme0\n/dev/nvme0n1\n/dev/nvme0n1p1\n", Output("ls /dev/n*"));
  EXPECT_EQ("nvme0n1p1\n", Output("ls -l /dev/nvme0n1* | grep -o \"nvme0n1p.*\""));
  EXPECT_NE(std::string::npos, Output("ls -l /sys/class/scsi_generic/ | grep -E sg1$").find("usb"));
  EXPECT_EQ(std::string::npos, Output("ls -l /sys/class/scsi_generic/ | grep -E sg0$").find("usb"));

  EXPECT_EQ("/dev/sda1\n", Output("df -T | grep -o /dev/sda1"));
  EXPECT_EQ("ext4\n", Output("df -T -B 1 | grep /dev/sda1 | awk '{print $2}'"));
  EXPECT_EQ("2048\n", Output("df -T -B 512 | grep /dev/sda1 | awk '{print ($4+$5)}'"));
  EXPECT_EQ("/dev/mapper/vg0-root on / type ext4 (rw,relatime)\n",
            Output("mount | grep \" on / \""));
  EXPECT_EQ("", Output("cat /dev/null"));

  std::ifstream type("/sys/class/scsi_generic/sg2/device/type");
  std::string text;
  std::getline(type, text);
  EXPECT_EQ("5", text);
}

TEST(Files, MountAndVolumeGroupsFollowTheTables) {
  TestFleet fleet;
  auto disk = fleet.Add({});
  const auto partition = disk.AddPartition(1 << 20);
  const auto volume = disk.AddPartition(1 << 20, "", "LVM2_member", "vg0");
  EXPECT_EQ("", Output("df -T | grep -o " + partition));
  EXPECT_NE(0, system(("mount " + partition + " /mnt/MorvuTestFolder 2>/dev/null").c_str()));
  EXPECT_EQ(0, system("mkdir /mnt/MorvuTestFolder"));
  EXPECT_EQ(0, system(("mount " + partition + " /mnt/MorvuTestFolder").c_str()));
  EXPECT_EQ(partition + " on /mnt/MorvuTestFolder type ext4 (rw,relatime)\n",
            Output("mount | grep " + partition));
  EXPECT_EQ(0, system("umount -l /mnt/MorvuTestFolder 2>/dev/null"));
  EXPECT_EQ("", Output("df -T | grep -o " + partition));
  EXPECT_NE(0, system("mount /dev/sda9 /mnt/x 2>/dev/null"));
  EXPECT_EQ("  VG Name               vg0\n",
            Output("pvdisplay " + volume + " 2>/dev/null | grep \"VG Name\""));
}

TEST(Files, FilesOfAMountedPartitionStayInTheFleet) {
  TestFleet fleet;
  auto disk = fleet.Add({});
  const auto partition = disk.AddPartition(1 << 20);
  EXPECT_EQ(0, system("mkdir '/mnt/MorvuTestFolder' 2>/dev/null"));
  EXPECT_EQ(0, system(("mount " + partition + " /mnt/MorvuTestFolder > /dev/null 2>&1").c_str()));
  EXPECT_EQ(partition + " on /mnt/MorvuTestFolder type ext4 (rw,relatime)\n",
            Output("mount | grep " + partition + " | grep /mnt/MorvuTestFolder"));
  std::ofstream("/mnt/MorvuTestFolder/a.bin") << "data";
  struct stat file {};
  EXPECT_EQ(0, stat("/mnt/MorvuTestFolder/a.bin", &file));
  EXPECT_EQ(4, file.st_size);
  EXPECT_EQ(0, system("find /mnt/MorvuTestFolder -maxdepth 1 -name 'a*' -delete"));
  EXPECT_NE(0, stat("/mnt/MorvuTestFolder/a.bin", &file));
  EXPECT_EQ(0, system("umount -l /mnt/MorvuTestFolder 2>/dev/null"));
  EXPECT_EQ(0, system("rmdir /mnt/MorvuTestFolder"));
}

TEST(Files, NodesLookLikeDevicesAndReadLikeTheMedium) {
  TestFleet fleet;
  auto drive = fleet.Add({.sectors = std::uint64_t{16} << 21});  // beyond 32 bits
  drive.WriteMedium(4096, Bytes(512, 9));
  struct stat node {};
  ASSERT_EQ(0, stat(drive.Node().c_str(), &node));
  EXPECT_TRUE(S_ISCHR(node.st_mode));
  EXPECT_NE(0, stat("/dev/sg7", &node));
  const int direct = open("/dev/sda", O_RDONLY | O_DIRECT);
  ASSERT_GE(direct, 0);
  alignas(4096) std::array<std::uint8_t, 4096> block;
  EXPECT_EQ(4096, pread(direct, block.data(), block.size(), 4096));
  EXPECT_EQ(9, block[0]);
  EXPECT_EQ(-1, pread(direct, block.data(), 100, 4096));  // not whole blocks
  close(direct);
}

}  // namespace
}  // namespace Simulator
