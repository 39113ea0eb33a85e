#include <aio.h>
#include <signal.h>
#include <sys/wait.h>

#include <atomic>
#include <cerrno>
#include <thread>

#include "Commands.h"
#include "gtest/gtest.h"

namespace Simulator {
namespace {

Bytes Tail(const Bytes& bytes, std::size_t size) { return Bytes(bytes.end() - size, bytes.end()); }

using Faults = OneDrive;

TEST_F(Faults, MeetTheCommandThatTheyAreSetFor) {
  Attach();
  drive.Inject(Fault::AtaError(0x51, 0x40).OnOpcode(0xE5).OnCommand(2));
  EXPECT_EQ(0x50, NonData(handle, {0xE5}).AtaStatus());
  EXPECT_EQ(0x50, NonData(handle, {0xE0}).AtaStatus());
  EXPECT_EQ(0x40, NonData(handle, {0xE5}).AtaError());
  EXPECT_EQ(0x50, NonData(handle, {0xE5}).AtaStatus());

  drive.Inject(Fault::Fail().OnCommand(2));
  EXPECT_EQ(0x50, NonData(handle, {0xE5}).AtaStatus());
  EXPECT_EQ(0x51, NonData(handle, {0xE5}).AtaStatus());
  drive.Inject(Fault::Fail().OnCommand(1));
  EXPECT_EQ(8, Send(handle, {0, 0, 0, 0, 0, 0}, SG_DXFER_NONE, {}).status);

  drive.Inject(Fault::HostError(0x07).OnCommand(1));
  EXPECT_EQ(7, NonData(handle, {0xE5}).host);
  drive.Inject(Fault::IoctlError(EIO).OnCommand(1));
  EXPECT_EQ(-1, NonData(handle, {0xE5}).result);
  drive.Inject(Fault::Hang().OnCommand(1));
  EXPECT_EQ(0x40, NonData(handle, {0xE5}).AtaStatus());  // as a SATA layer ends a time-out
  drive.Inject(Fault::ShortData(100).OnCommand(1));
  EXPECT_EQ(Bytes(412), Tail(PioIn(handle, {0xEC, 0, 1}).data, 412));
  drive.Inject(Fault::GarbageData(Garbage::Ones).OnCommand(1));
  EXPECT_EQ(Bytes(512, 0xFF), PioIn(handle, {0xEC, 0, 1}).data);

  drive.Inject(Fault::Vanish().OnCommand(2));
  EXPECT_EQ(0, NonData(handle, {0xE5}).result);
  EXPECT_EQ(-1, NonData(handle, {0xE5}).result);
  EXPECT_EQ(-1, open(drive.Node().c_str(), O_RDWR));
  EXPECT_EQ(ENODEV, errno);
  drive.ClearFaults();
  EXPECT_EQ(0, NonData(handle, {0xE5}).result);
}

std::atomic<int> taken = 0;

// What a signal does to a wait, with and without SA_RESTART, and to a thread that blocks it.
TEST_F(Faults, SignalsEndOrRepeatTheWaitForAGenericNode) {
  Attach();
  struct sigaction action {
  }, before{};
  action.sa_handler = [](int) { ++taken; };
  const auto send = [&](int flags) {
    action.sa_flags = flags;
    sigaction(SIGUSR1, &action, nullptr);
    drive.ClearJournal();
    drive.Inject(Fault::Signal(SIGUSR1).Times(1));
    const auto answer = NonData(handle, {0xE5});
    return std::pair(answer.result, drive.Journal().size());
  };
  sigaction(SIGUSR1, nullptr, &before);
  EXPECT_EQ(std::pair(-1, std::size_t{1}), send(0));
  EXPECT_EQ(EINTR, errno);
  EXPECT_EQ(std::pair(0, std::size_t{2}), send(SA_RESTART));
  EXPECT_EQ(2, taken);
  sigset_t mask, old;
  sigemptyset(&mask);
  sigaddset(&mask, SIGUSR1);
  pthread_sigmask(SIG_BLOCK, &mask, &old);
  EXPECT_EQ(std::pair(0, std::size_t{1}), send(0));
  EXPECT_EQ(2, taken);
  pthread_sigmask(SIG_SETMASK, &old, nullptr);
  EXPECT_EQ(3, taken);
  sigaction(SIGUSR1, &before, nullptr);
}

TEST_F(Faults, StateAndJournalOutliveAKilledProcess) {
  auto drive = fleet.Add({});
  drive.Inject(Fault::KillAfter().OnOpcode(0xF1));
  const pid_t child = fork();
  if (child == 0) {
    const Handle handle(drive.Node());
    PioOut(handle, {0xF1}, Bytes(512));
    _exit(0);
  }
  int status = 0;
  waitpid(child, &status, 0);
  EXPECT_TRUE(WIFSIGNALED(status));
  EXPECT_EQ(1, drive.State().ata.security.enabled);
  EXPECT_EQ(0xF1, drive.Journal().back().AtaOpcode());
  const Handle handle(drive.Node());
  drive.ClearFaults();
  EXPECT_EQ(0x50, NonData(handle, {0xE5}).AtaStatus());  // the lock is free
}

TEST_F(Faults, BadSectorsMeetEveryWayOfReading) {
  Attach({.sectors = 1000});
  drive.AddBadSectors(500, 2);
  EXPECT_EQ(0x40, PioIn(handle, {0x24, 0, 8, 494, true}, 8).AtaError());
  EXPECT_EQ(0x50, PioIn(handle, {0x24, 0, 6, 494, true}, 6).AtaStatus());
  EXPECT_EQ(0x40, NonData(handle, {0x42, 0, 1, 501, true}).AtaError());
  Bytes data(1024);
  aiocb64 block{};
  const Handle disk("/dev/sda");
  block.aio_fildes = disk.Get();
  block.aio_buf = data.data();
  block.aio_nbytes = data.size();
  block.aio_offset = 499 * 512;
  EXPECT_EQ(0, aio_read64(&block));
  EXPECT_EQ(ENODATA, aio_error64(&block));
  EXPECT_EQ(-1, aio_return64(&block));
  block.aio_offset = 498 * 512;
  EXPECT_EQ(0, aio_read64(&block));
  EXPECT_EQ(1024, aio_return64(&block));
  EXPECT_EQ(1u, drive.State().rawReads);
  const auto last = drive.Journal().back();
  EXPECT_TRUE(last.IsRaw());
  EXPECT_EQ(498u * 512, last.RawOffset());
}

// What is no disk has no bytes: a generic node takes what is written for a command.
TEST_F(Faults, ACharacterNodeTransfersNoBytes) {
  auto sata = fleet.Add({.sectors = 1000});
  fleet.Add({.kind = Simulator::Kind::Nvme});
  Bytes data(42);
  data[36] = 0x1B;  // START STOP UNIT behind a header of zeros
  const Handle generic(sata.Node());
  EXPECT_EQ(-1, pread(generic.Get(), data.data(), data.size(), 0));
  EXPECT_EQ(ESPIPE, errno);
  aiocb64 block{};
  block.aio_fildes = generic.Get();
  block.aio_buf = data.data();
  block.aio_nbytes = data.size();
  EXPECT_EQ(0, aio_read64(&block));
  EXPECT_EQ(EAGAIN, aio_error64(&block));
  EXPECT_EQ(0, aio_write64(&block));
  EXPECT_EQ(42, aio_return64(&block));
  EXPECT_EQ(Simulator::PowerMode::Standby, sata.State().ata.powerMode);
  const Handle controller("/dev/nvme0");
  EXPECT_EQ(-1, pread(controller.Get(), data.data(), data.size(), 0));
  EXPECT_EQ(EINVAL, errno);
}

TEST_F(Faults, ARefusedReadMayHandBackAnEarlierCommandsData) {
  Attach({.sectors = 1000});
  drive.State().staleData = 1;
  const auto identify = PioIn(handle, {0xEC, 0, 1});
  const auto refused = PioIn(handle, {0x24, 0, 1, 1000, true});
  EXPECT_EQ(0x51, refused.AtaStatus());
  EXPECT_EQ(identify.data, refused.data);
  drive.Inject(Fault::AtaError().OnOpcode(0x24));
  EXPECT_EQ(identify.data, PioIn(handle, {0x24, 0, 1, 0, true}).data);
}

// Each thread and each process sends its share; none is lost, none is done twice.
TEST_F(Faults, ThreadsAndProcessesShareADrive) {
  auto drive = fleet.Add({});
  constexpr int kEach = 300;
  const auto work = [&] {
    const Handle handle(drive.Node());
    for (int i = 0; i < kEach; ++i) NonData(handle, {0xE5});
  };
  const pid_t child = fork();
  if (child == 0) {
    work();
    _exit(0);
  }
  std::vector<std::thread> threads;
  for (int i = 0; i < 3; ++i) threads.emplace_back(work);
  for (auto& thread : threads) thread.join();
  waitpid(child, nullptr, 0);
  EXPECT_EQ(4u * kEach, drive.State().commands);
  EXPECT_EQ(4u * kEach, drive.Journal().size());
}

}  // namespace
}  // namespace Simulator
