// Transfers by the disk, waited for and queued, on the nodes of a fleet.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <functional>
#include <thread>

#include "TestFleet.h"
#include "devices/commands/CommandPath_ATA_SCSI.h"
#include "devices/commands/CommandPath_NVME.h"
#include "devices/commands/CommandPath_SCSI.h"
#include "devices/queue/CommandQueue.h"
#include "frame/status/Commands.h"

namespace Morvu::DeviceManagement {
namespace {

using Simulator::Fault;
using Simulator::Kind;
using Simulator::TestFleet;

std::vector<std::uint8_t> Pattern(std::size_t size) {
  std::vector<std::uint8_t> bytes(size);
  for (std::size_t i = 0; i < size; ++i) bytes[i] = static_cast<std::uint8_t>(i * 7 + i / 512);
  return bytes;
}

TEST(Transfers, MoveBytesOfTheDiskAndNeverOfACharacterNode) {
  TestFleet fleet;
  auto sas = fleet.Add({.kind = Kind::Scsi, .serial = "SAS1", .sectors = 1000});
  auto nvme = fleet.Add({.kind = Kind::Nvme, .serial = "NVME1", .sectors = 1000});
  auto bare = fleet.Add({.kind = Kind::Nvme, .serial = "NVME2", .namespaces = 0});
  const auto pattern = Pattern(8192);
  sas.WriteMedium(0, pattern);
  CommandPath_SCSI path(sas.Node());
  std::vector<std::uint8_t> data(4096 + 1);
  const auto unaligned = ByteSpan(data).subspan(1);
  EXPECT_EQ(path.SendFile(512, kRead, unaligned), 0);
  EXPECT_TRUE(std::equal(unaligned.begin(), unaligned.end(), pattern.begin() + 512));
  EXPECT_EQ(path.SendFile(4096, kWrite, unaligned), 0);
  EXPECT_EQ(sas.ReadMedium(4096, 4096), std::vector(unaligned.begin(), unaligned.end()));
  for (const auto& entry : sas.Journal()) EXPECT_TRUE(entry.IsDirect()) << entry.Text();
  EXPECT_EQ(std::ranges::count(fleet.Events(), "change /dev/sda"), 1) << "the write's alone";

  CommandPath_NVME space("/dev/nvme0n1");
  EXPECT_EQ(space.SendFile(0, kRead, unaligned.first(512)), 0);
  CommandPath_NVME controller(bare.Node());
  EXPECT_EQ(controller.SendFile(0, kRead, unaligned), 118);
  EXPECT_TRUE(bare.Journal().empty());
  EXPECT_EQ(path.OpenDisk("ANOTHER"), 4);
  EXPECT_EQ(path.OpenDisk("SAS1"), 0);
  EXPECT_EQ(path.SendFile(0, kRead, {}), 141);
  EXPECT_EQ(path.Close(), 0);
  EXPECT_EQ(path.SendFile(0, kRead, unaligned), 4);
}

TEST(Transfers, KeepTheErrorOfTheDiskApartFromTheWayToIt) {
  struct Row {
    Fault fault;
    StatusCode code;
  };
  const Row kRows[] = {
      {Fault::NvmeStatus(0x281), 82},
      {Fault::IoctlError(EILSEQ), 82},
      {Fault::IoctlError(ENOLINK), -ENOLINK},
      {Fault::IoctlError(EREMOTEIO), -EREMOTEIO},
      {Fault::Hang(), -ETIMEDOUT},
      {Fault::Fail(), -EIO},
      {Fault::Vanish(), -ENODEV},
      {Fault::ShortData(512), 129},
  };
  for (const auto& row : kRows) {
    TestFleet fleet;
    auto drive = fleet.Add({.kind = Kind::Nvme, .sectors = 1000});
    CommandPath_NVME path("/dev/nvme0n1");
    EXPECT_EQ(path.OpenDisk({}), 0);
    std::array<std::uint8_t, 1024> data{};
    drive.Inject(row.fault);
    EXPECT_EQ(path.SendFile(0, kRead, data), row.code);
  }
}

struct Seen {
  std::atomic<int> cleaned = 0, completed = 0, failed = 0, wrong = 0;
  CommandPath* stops = nullptr;
  std::function<void()> goesOn{};  // from the completion
};
Seen* seen = nullptr;  // the running test's

TransferNotification Notify() {
  TransferNotification notification;
  notification.cleanUp = [](TransferNotification*) { ++seen->cleaned; };
  notification.completion = [](TransferNotification* told) {
    if (seen->cleaned <= seen->completed) ++seen->wrong;  // the clean-up comes first
    if (told->result != Status::Completed) ++seen->failed;
    const bool isGood = told->result == Status::Completed;
    // Of a read that failed nothing is shown, least of all what the slot read before.
    if (told->data[0] != (isGood ? told->reply[0] : 0)) ++seen->wrong;
    ++seen->completed;
    if (seen->goesOn) seen->goesOn();
    if (seen->stops != nullptr) seen->stops->StopWorkers();
  };
  return notification;
}

class CommandQueueTest : public ::testing::Test {
 protected:
  CommandQueueTest() : drive_(fleet_.Add({.kind = Kind::Scsi, .sectors = 1000})) {
    drive_.WriteMedium(0, Pattern(512'000));
    seen = &seen_;
  }
  StatusCode Queue(CommandPath& path, std::uint64_t lba) {
    auto notification = Notify();
    notification.reply[0] = Pattern(512 * (lba + 1))[512 * lba];
    return path.SendFile(lba * 512, kRead, data_, notification);
  }

  TestFleet fleet_;
  Simulator::SimulatedDrive drive_;
  Seen seen_;
  std::array<std::uint8_t, 512> data_{};
};

TEST_F(CommandQueueTest, SharesSlotsOutAndRefusesWithoutAny) {
  CommandQueue queue;
  EXPECT_TRUE(queue.CreateWorkers(10, 3));
  EXPECT_EQ(queue.GetSlots(), (std::vector<std::uint32_t>{4, 3, 3}));
  EXPECT_TRUE(queue.CreateWorkers(2, 3));
  EXPECT_EQ(queue.GetSlots(), (std::vector<std::uint32_t>{1, 1, 0}));
  CommandPath_SCSI path(drive_.Node());
  EXPECT_EQ(Queue(path, 1), 0);
  EXPECT_EQ(seen_.completed, 0) << "without workers nobody is called";
  EXPECT_EQ(drive_.Journal().size(), 1u);
  EXPECT_TRUE(path.CreateWorkers(0, 2));
  EXPECT_EQ(Queue(path, 1), 129);
  EXPECT_TRUE(path.WorkersIdle());
}

TEST_F(CommandQueueTest, CarriesOutMoreThanItHasSlotsAndStopsItsOwnAlone) {
  drive_.AddBadSectors(77);
  CommandPath_SCSI path(drive_.Node()), other(drive_.Node());
  EXPECT_TRUE(path.CreateWorkers(4, 2));
  EXPECT_TRUE(other.CreateWorkers(1, 1));
  for (std::uint64_t lba = 0; lba < 100; ++lba) EXPECT_EQ(Queue(path, lba), 0);
  EXPECT_EQ(Queue(other, 5), 0);
  path.StopWorkers();
  EXPECT_TRUE(path.WorkersIdle());
  EXPECT_EQ(Queue(other, 6), 0);
  other.StopWorkers();
  EXPECT_EQ(seen_.completed, 102);
  EXPECT_EQ(seen_.cleaned, 102);
  EXPECT_EQ(seen_.failed, 1);
  EXPECT_EQ(seen_.wrong, 0);
  EXPECT_EQ(drive_.Journal().size(), 102u);
}

TEST_F(CommandQueueTest, EndsWithTransfersInFlightAndByItsOwnCallback) {
  {
    CommandPath_SCSI path(drive_.Node());
    EXPECT_TRUE(path.CreateWorkers(8, 2));
    for (std::uint64_t lba = 0; lba < 20; ++lba) EXPECT_EQ(Queue(path, lba), 0);
  }
  EXPECT_EQ(seen_.completed, 20);
  CommandPath_SCSI path(drive_.Node());
  seen_.stops = &path;
  EXPECT_TRUE(path.CreateWorkers(2, 1));
  EXPECT_EQ(Queue(path, 1), 0);
  (void)Queue(path, 2);  // refused where the first one's callback was faster
  path.StopWorkers();
  EXPECT_TRUE(path.WorkersIdle());
  EXPECT_GE(seen_.completed, 21);
}

// Each end queues the next reads, with no slot free but the one that it stands in.
TEST_F(CommandQueueTest, ACallbackQueuesTheNextOne) {
  CommandPath_SCSI path(drive_.Node());
  EXPECT_TRUE(path.CreateWorkers(2, 2));
  seen_.goesOn = [&] {
    for (int i = 0; i < 2 && seen_.completed <= 10; ++i) EXPECT_EQ(Queue(path, 3), 0);
  };
  for (std::uint64_t lba = 0; lba < 2; ++lba) EXPECT_EQ(Queue(path, lba), 0);
  while (!path.WorkersIdle()) std::this_thread::yield();
  path.StopWorkers();
  EXPECT_GE(seen_.completed, 11);
  EXPECT_EQ(seen_.wrong, 0);
}

}  // namespace
}  // namespace Morvu::DeviceManagement
