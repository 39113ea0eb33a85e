// Jobs as a host sees them.
#include <gtest/gtest.h>

#include <mutex>
#include <thread>

#include "Host.h"
#include "TestFleet.h"

namespace MorvuHost {
namespace {

TEST(Jobs, AboutJobsAreNeverListed) {
  Host host;
  host.Call("<Message subject='supported functionality'/>");
  host.Call(kListJobs);
  EXPECT_TRUE(host.ListedJobs().empty());
}

TEST(Jobs, AnswerNothingToACancel) {
  Host host;
  for (const auto* request : {
           "<Message subject='MorvuJob' type='cancel'/>",
           "<Message subject='MorvuJob' type='cancel' identifier='12345'/>",
           "<Message subject='MorvuJob' type='cancel' identifier='NoSuchJob'/>",
       }) {
    EXPECT_TRUE(host.Call(request).IsEmpty()) << request;
  }
}

TEST(Jobs, AreRefusedWhenNoThreadCanBeStarted) {
  Host host;
  std::uint64_t job = 5;
  RefuseThreads(true);
  const auto status = Library().SendXMLMessage(
      kListJobs.data(), static_cast<std::uint32_t>(kListJobs.size()), &job, false);
  RefuseThreads(false);
  EXPECT_EQ(185, status);
  EXPECT_EQ(5u, job);
  EXPECT_FALSE(host.Call(kListJobs).IsEmpty());
}

// A thread that has ended counts until it is joined: when there is no other, that is done
// at once and not only when the manager comes round.
TEST(Jobs, GetTheThreadsOfThoseThatHaveEnded) {
  Host host;
  const auto running = CountThreads();
  for (int i = 0; i < 10; ++i) {
    LimitThreads(1);
    host.Await(host.Send(kListJobs));
    for (int k = 0; CountThreads() > running && k < 60'000; ++k) {
      std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    std::uint64_t job = 0;
    const auto status = Library().SendXMLMessage(
        kListJobs.data(), static_cast<std::uint32_t>(kListJobs.size()), &job, false);
    LimitThreads();
    ASSERT_EQ(0, status);
    host.Await(job);
  }
}

TEST(Jobs, WithoutThreadsTheLibraryDoesNotLoad) {
  RefuseThreads(true);
  EXPECT_EQ(185, Library().Load());
  RefuseThreads(false);
  Host host;
  EXPECT_FALSE(host.Call(kListJobs).IsEmpty());
}

TEST(Jobs, LoseNoReplyWhenManyThreadsSend) {
  constexpr int kThreads = 16, kJobsOfAThread = 63;
  Host host;
  std::mutex mutex;
  std::vector<std::uint64_t> jobs;
  std::vector<std::thread> threads;
  for (int i = 0; i < kThreads; ++i) {
    threads.emplace_back([&] {
      for (int k = 0; k < kJobsOfAThread; ++k) {
        const auto job = host.Send(kListJobs);
        std::lock_guard lock(mutex);
        jobs.push_back(job);
      }
    });
  }
  for (auto& thread : threads) thread.join();
  ASSERT_EQ(kThreads * kJobsOfAThread, static_cast<int>(jobs.size()));
  for (const auto job : jobs) EXPECT_EQ(0, host.Await(job).ErrorCode());
  for (const auto job : jobs) EXPECT_TRUE(host.Receive(job).IsEmpty());
}

// ---- Notifications ----

std::string Enabled(std::string_view value) {
  return "<Message subject='Notification'><Property name='Enabled'>" + std::string(value) +
         "</Property></Message>";
}

TEST(Notifications, HaveOneServiceThatCanBeStoppedAndStartedAgain) {
  Simulator::TestFleet fleet;
  fleet.Add({.model = "MORVU SSDSC2BB480G4"});
  Host host;
  host.Call(kScan);
  host.Call(Enabled("False"));
  for (int i = 0; i < 3; ++i) {
    const auto [service, told] = host.StartNotifications();
    EXPECT_NE("", told.Notified());
    EXPECT_EQ("4", told.Job("JobState"));
    EXPECT_EQ("74", told.Job("ErrorCode"));
    // Were there none, this would become the service, and not return.
    EXPECT_TRUE(host.Call("<Message cimMethod='Notification'/>").IsEmpty());
    host.StopNotifications();
  }
}

TEST(Notifications, DoNotHoldUpUnload) {
  Simulator::TestFleet fleet;
  fleet.Add({.model = "MORVU SSDSC2BB480G4"});
  Host host;
  host.Call(kScan);
  EXPECT_NE("", host.StartNotifications().second.Notified());
}

}  // namespace
}  // namespace MorvuHost
