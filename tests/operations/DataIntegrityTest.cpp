// Data integrity on a partition of a simulated drive: what the files go through, and what is left.
#include <fcntl.h>
#include <gmock/gmock.h>

#include <filesystem>
#include <fstream>

#include "devices/properties/AdapterProperties.h"
#include "devices/properties/BasicProperties.h"
#include "devices/system/MountTable.h"
#include "frame/Platform.h"
#include "support/EraseScene.h"
#include "support/Sweep.h"

namespace Morvu {
namespace {

using namespace EraseTesting;
using namespace Testing;
using Simulator::FileTransfer;
using Simulator::TestFleet;
using testing::Contains;
using testing::HasSubstr;
namespace Properties = DeviceManagement::Properties;

constexpr std::uint64_t kGiB = 1 << 30, kMiB = 1 << 20;

// A partition of the fleet whose file system has this much room.
constexpr std::uint64_t WithRoom(std::uint64_t free) { return (free + 1536) / 1536 * 2048; }

struct PartitionScene : EraseScene {
  explicit PartitionScene(std::string_view type = "ext4", std::uint64_t free = kGiB + 3 * kMiB)
      : EraseScene(SataSpec()),
        partition(drive.AddPartition(WithRoom(free), {}, type)),
        folder(fleet.Folder() + std::string(kTestFolder)) {}
  StatusCode Run(ProgressReporter& reporter) override { return Call({partition}, reporter); }

  StatusCode Call(const std::vector<std::string>& names, ProgressReporter& reporter = NoReporter(),
                  const char* full = "False") {
    return EraseTesting::CallMethod(*device(), "DataIntegrity", {{"full", full}}, reporter, &reply,
                                    names);
  }
  // Nothing is mounted, and neither a file nor the folder is there.
  bool IsClean() const { return !std::filesystem::exists(folder); }

  std::string partition;
  std::string folder;
  XmlMessaging::Message reply;
};

bool IsDirect(const FileTransfer& transfer) {
  return (fcntl(transfer.descriptor, F_GETFL) & O_DIRECT) != 0;
}

TEST(DataIntegrity, WritesReadsFromTheMediumAndLeavesNothing) {
  for (const std::string_view type : {"ext4", "xfs", "vfat", "ntfs"}) {
    SCOPED_TRACE(type);
    PartitionScene scene(type);
    const bool isDirectType = type != "ntfs";
    bool areDirect = true;
    std::uint64_t written = 0;
    TestFleet::OnFileTransfer([&](const FileTransfer& transfer) {
      if (transfer.kind == FileTransfer::Kind::Read) areDirect &= IsDirect(transfer);
      if (transfer.kind == FileTransfer::Kind::Write) written += transfer.size;
      return transfer.proceed();
    });
    const auto run = RunScene(scene, nullptr, 0);
    EXPECT_EQ(run.code, 0);
    EXPECT_EQ(areDirect, isDirectType);
    EXPECT_EQ(GetText(scene.reply, "BytesTested"), std::to_string(written));
    EXPECT_GE(written, 3 * kMiB);
    EXPECT_TRUE(std::ranges::is_sorted(run.percents));
    EXPECT_EQ(run.percents.back(), 100);
    const auto events = scene.fleet.Events();
    EXPECT_THAT(events, Contains("mount " + scene.partition + " nosuid,nodev,noexec"));
    EXPECT_EQ(std::ranges::count(events, "flush " + scene.partition) != 0, !isDirectType);
    EXPECT_TRUE(scene.IsClean());
  }
}

TEST(DataIntegrity, TellsWhatTheMediumDidToTheData) {
  using Kind = FileTransfer::Kind;
  struct Row {
    const char* name;
    Kind kind;
    std::function<ssize_t(const FileTransfer&)> act;
    int code;
  };
  const auto fails = [](int error) {
    return [error](const FileTransfer&) -> ssize_t {
      errno = error;
      return -1;
    };
  };
  const auto changes = [](const FileTransfer& transfer) {
    const auto moved = transfer.proceed();
    if (IsDirect(transfer)) static_cast<std::uint8_t*>(transfer.data)[moved - 1] ^= 1;
    return moved;
  };
  // The data of another place of the file: the same ground, another stamp.
  const auto aliases = [](const FileTransfer& transfer) -> ssize_t {
    const auto other = transfer.offset == 0 ? kMiB : 0;
    return pread64(transfer.descriptor, transfer.data, transfer.size, static_cast<off64_t>(other));
  };
  const auto shortens = [](const FileTransfer& transfer) -> ssize_t {
    return pread64(transfer.descriptor, transfer.data, std::min<std::size_t>(transfer.size, 8192),
                   static_cast<off64_t>(transfer.offset));
  };
  const auto loses = [](const FileTransfer& transfer) -> ssize_t {
    return static_cast<ssize_t>(transfer.size);
  };
  const auto cuts = [](const FileTransfer& transfer) -> ssize_t {
    return ftruncate(transfer.descriptor, 4096);
  };
  const Row kRows[] = {
      {"the disk is full", Kind::Write, fails(ENOSPC), 8},
      {"it is read-only by now", Kind::Write, fails(EROFS), 8},
      {"a write is lost", Kind::Write, loses, 11},
      {"fsync fails", Kind::Sync, fails(EIO), 8},
      {"another cuts the file", Kind::Sync, cuts, 11},
      {"a read fails", Kind::Read, fails(EIO), 10},
      {"the drive is gone", Kind::Read, fails(ENODEV), 10},
      {"a bit differs on the medium", Kind::Read, changes, 11},
      {"reads come from another place", Kind::Read, aliases, 11},
      {"reads are short", Kind::Read, shortens, 0},
  };
  for (const auto& row : kRows) {
    SCOPED_TRACE(row.name);
    PartitionScene scene;
    scene.Prepare();
    bool isInside = false;
    TestFleet::OnFileTransfer([&](const FileTransfer& transfer) {
      if (transfer.kind != row.kind || isInside) return transfer.proceed();
      isInside = true;
      const auto result = row.act(transfer);
      isInside = false;
      return result;
    });
    EXPECT_EQ(scene.Run(NoReporter()), row.code);
    EXPECT_TRUE(scene.IsClean());
  }
}

TEST(DataIntegrity, RefusesBeforeAnythingIsMounted) {
  PartitionScene scene;
  scene.drive.AddPartition(kMiB);
  scene.Prepare();
  using Shape = void (*)(DeviceManagement::Device&);
  const std::pair<int, Shape> kRows[] = {
      {97, [](auto& d) { d.AddProperty(Properties::RAID, true); }},
      {45, [](auto& d) { d.AddProperty(Properties::Morvu, false); }},
      {255, [](auto& d) { d.AddProperty(Properties::RAIDMember, true); }},
      {152, [](auto& d) { d.AddProperty(Properties::StorageSpaceMember, true); }},
  };
  auto& properties = scene.device()->GetProperties();
  for (const auto& [code, shape] : kRows) {
    const auto before = properties;
    shape(*scene.device());
    EXPECT_EQ(scene.Run(NoReporter()), code);
    properties = before;
  }
  const std::vector<std::string> none, two = {scene.partition, scene.partition};
  EXPECT_EQ(scene.Call(none), 245);
  EXPECT_EQ(scene.Call(two), 245);
  EXPECT_EQ(scene.Call({"_"}), 83);
  EXPECT_EQ(scene.Call({scene.partition + "0"}), 245);
  EXPECT_EQ(scene.Call({"/dev/sdb1"}), 245);
  EXPECT_THAT(scene.fleet.Events(), testing::IsEmpty());
  EXPECT_TRUE(scene.IsClean());

  LineScene wrong(SataSpec(), {"-data_integrity", "quick"});
  EXPECT_EQ(wrong.Run(), 73);
  LineScene none2(SataSpec(), {"-data_integrity"});
  EXPECT_EQ(none2.Run(), 14);
}

TEST(DataIntegrity, NeedsMoreThanAGiB) {
  PartitionScene full("ext4", kGiB + 512);
  full.Prepare();
  EXPECT_EQ(full.Run(NoReporter()), 8) << "of which no whole stamp could be written";
  EXPECT_TRUE(full.IsClean());
}

// What a person reads.
TEST(DataIntegrity, TellsEachPartitionAtThePrompt) {
  LineScene scene(SataSpec(), {"-data_integrity", "full"});
  scene.drive.AddPartition(WithRoom(kGiB + 3 * kMiB));
  scene.drive.AddPartition(kMiB);
  EXPECT_EQ(scene.Run(), 8);
  EXPECT_THAT(scene.outcome.output, HasSubstr("/dev/sda1"));
  EXPECT_THAT(scene.outcome.output, HasSubstr("bytes in 1 files."));
  EXPECT_THAT(scene.outcome.output, HasSubstr("Partition Result: "));
}

TEST(DataIntegrity, NeverWritesToTheFolderOfAnotherFileSystem) {
  // The mount fails, or is gone when the files are to be written.
  PartitionScene scene("unknown");
  std::filesystem::create_directories(scene.folder);
  scene.Prepare();
  std::ofstream(scene.fleet.Folder() + "/bin/mount") << "#!/bin/sh\nexit 0\n";
  bool hasWritten = false;
  TestFleet::OnFileTransfer([&](const FileTransfer& transfer) {
    hasWritten = true;
    return transfer.proceed();
  });
  EXPECT_EQ(scene.Run(NoReporter()), 4);
  EXPECT_FALSE(hasWritten);
}

TEST(DataIntegrity, ASecondRunAndAnEraseAreRefusedMeanwhile) {
  PartitionScene scene;
  scene.Prepare();
  bool hasLooked = false;
  TestFleet::OnFileTransfer([&](const FileTransfer& transfer) {
    if (!hasLooked) {
      hasLooked = true;
      EXPECT_EQ(scene.Run(NoReporter()), 180);
      EXPECT_EQ(CallMethod(*scene.device(), "SecureErase", {{"force", "True"}}), 180);
      EXPECT_EQ(CallMethod(*scene.device(), "ReadScan", {{"full", "True"}}), 0);
    }
    return transfer.proceed();
  });
  EXPECT_EQ(scene.Run(NoReporter()), 0);
  EXPECT_TRUE(hasLooked);
  EXPECT_TRUE(scene.IsUntouched());
  EXPECT_TRUE(scene.IsClean());
}

// The mount and the files that a killed run has left, and a link that somebody has planted.
TEST(DataIntegrity, CleansUpBehindAKilledRun) {
  PartitionScene scene;
  scene.Prepare();
  const std::string name = "/--=={Morvu_Integrity_File_";
  const auto target = scene.fleet.Folder() + "/target";
  std::ofstream(target) << "precious";
  RunSystem("mkdir " + std::string(kTestFolder));
  RunSystem("mount -o nosuid,nodev,noexec " + scene.partition + " " + std::string(kTestFolder));
  std::ofstream(scene.folder + name + "7}==--.bin") << "x";
  std::filesystem::resize_file(scene.folder + name + "7}==--.bin", kGiB);
  std::filesystem::create_symlink(target, scene.folder + name + "0}==--.bin");
  std::ofstream(scene.folder + "/other") << "x";

  EXPECT_EQ(scene.Run(NoReporter()), 0);
  std::string text;
  std::getline(std::ifstream(target) >> std::ws, text);
  EXPECT_EQ(text, "precious");
  EXPECT_TRUE(std::filesystem::exists(scene.folder + "/other"));
  EXPECT_FALSE(std::filesystem::exists(scene.folder + name + "7}==--.bin"));
  EXPECT_TRUE(DeviceManagement::ReadMountTable().value().empty());
}

TEST(DataIntegrity, ACancelLeavesNothing) {
  SweepCancels<PartitionScene>([](PartitionScene& scene, const SweptRun& run) {
    EXPECT_EQ(run.code, 2);
    EXPECT_TRUE(scene.IsClean());
  });
}

TEST(DataIntegrity, ItsDescriptionMountsAndSendsNothing) {
  PartitionScene scene;
  scene.Prepare();
  scene.drive.ClearJournal();
  const auto described = DescribeMethod("DataIntegrity", scene.device());
  EXPECT_NE(described, nullptr);
  EXPECT_TRUE(scene.drive.Journal().empty());
  EXPECT_THAT(scene.fleet.Events(), testing::IsEmpty());
}

}  // namespace
}  // namespace Morvu
