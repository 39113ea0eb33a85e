#include <time.h>

#include "Commands.h"
#include "gtest/gtest.h"

namespace Simulator {
namespace {

void Wait(time_t seconds, long milliseconds = 0) {
  const timespec time{seconds, milliseconds * 1'000'000};
  EXPECT_EQ(0, nanosleep(&time, nullptr));
}

// Milliseconds of the real clock that pass meanwhile.
template <typename Work>
std::uint64_t Elapsed(Work work) {
  const auto now = [] {
    timespec time{};
    clock_gettime(CLOCK_MONOTONIC, &time);
    return static_cast<std::uint64_t>(time.tv_sec) * 1000 +
           static_cast<std::uint64_t>(time.tv_nsec) / 1'000'000;
  };
  const auto start = now();
  work();
  return now() - start;
}

std::uint8_t SelfTestStatus(const Handle& handle) {
  return PioIn(handle, {.command = 0xB0, .features = 0xD0, .count = 1, .lba = 0xC24F00}).data[363];
}

using Clock = OneDrive;

TEST_F(Clock, AWaitPassesForTheDrivesAlone) {
  Attach();
  drive.State().ata.selfTest.extendedMs = 3600 * 1000;
  NonData(handle, {.command = 0xB0, .features = 0xD4, .lba = 0xC24F02});
  const auto took = Elapsed([&] {
    EXPECT_EQ(0xF9, SelfTestStatus(handle));
    Wait(1750);
    EXPECT_EQ(0xF5, SelfTestStatus(handle));
    Wait(1850);
    EXPECT_EQ(0x00, SelfTestStatus(handle));
  });
  EXPECT_LT(took, 60'000u);
}

TEST_F(Clock, APollersRestAndWaitsInRealTimeAreSlept) {
  const auto before = fleet.Now();
  EXPECT_GE(Elapsed([] { Wait(0, 20); }), 20u);
  fleet.SkipWaits(false);
  EXPECT_GE(Elapsed([] { Wait(0, 120); }), 120u);
  EXPECT_LT(fleet.Now() - before, 60'000u);
  const timespec invalid{0, -1};
  fleet.SkipWaits(true);
  EXPECT_EQ(-1, nanosleep(&invalid, nullptr));
  EXPECT_EQ(EINVAL, errno);
}

}  // namespace
}  // namespace Simulator
