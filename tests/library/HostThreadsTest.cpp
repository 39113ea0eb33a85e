// Hosts whose threads end where a library does not expect it: canceled, by pthread_exit in
// a callback, or because main returned.
#include <gtest/gtest.h>
#include <pthread.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <future>
#include <thread>

#include "Host.h"
#include "TestFleet.h"

namespace MorvuHost {
namespace {

constexpr auto kLongEnough = std::chrono::seconds(60);

// Runs `body` on a plain thread. Whether the thread was canceled.
bool RunOnThread(const std::function<void()>& body) {
  pthread_t thread{};
  const auto start = [](void* argument) -> void* {
    (*static_cast<const std::function<void()>*>(argument))();
    return nullptr;
  };
  EXPECT_EQ(0, pthread_create(&thread, nullptr, start, const_cast<std::function<void()>*>(&body)));
  void* result = nullptr;
  pthread_join(thread, &result);
  return result == PTHREAD_CANCELED;
}

// The library must let itself be unloaded; one that waits for ever ends the test here.
void ExpectThatUnloadReturns() {
  auto unload = std::async(std::launch::async, [] { Library().Unload(); });
  if (unload.wait_for(kLongEnough) == std::future_status::ready) return;
  std::fputs("Unload does not return\n", stderr);
  std::_Exit(1);
}

TEST(HostThreads, AreCanceledBehindTheCallAndNotInIt) {
  Host host;
  const auto path = (std::filesystem::temp_directory_path() /
                     ("morvu_canceled_" + std::to_string(getpid()) + ".log"))
                        .string();
  std::atomic<bool> hasReturned = false;
  const bool isCanceled = RunOnThread([&] {
    pthread_cancel(pthread_self());
    // Opens a file, where a thread may be canceled.
    EXPECT_EQ(
        0, Library().EnableLogger(path.data(), static_cast<std::uint32_t>(path.size()), 5, true));
    host.Send(kListJobs, true);
    hasReturned = true;
    pthread_testcancel();
  });
  EXPECT_TRUE(hasReturned);
  EXPECT_TRUE(isCanceled);
  Library().DisableLogger();
  std::filesystem::remove(path);
  ExpectThatUnloadReturns();
}

std::atomic<bool> exits = false;
void ExitOnce(std::uint64_t) {
  if (exits.exchange(false)) pthread_exit(nullptr);
}

class ExitingCallback : public ::testing::Test {
 protected:
  ExitingCallback() { Library().RegisterEvent(&ExitOnce); }
  ~ExitingCallback() override { Library().UnregisterEvent(&ExitOnce); }
};

TEST_F(ExitingCallback, EndsTheHostsOwnThread) {
  Host host;
  exits = true;
  std::atomic<bool> hasReturned = false;
  RunOnThread([&] {
    host.Send(kListJobs, true);
    hasReturned = true;
  });
  EXPECT_FALSE(hasReturned);
  EXPECT_FALSE(exits);
  EXPECT_FALSE(host.Call(kListJobs).IsEmpty());
  ExpectThatUnloadReturns();
}

TEST_F(ExitingCallback, EndsAJobsThread) {
  Host host;
  exits = true;
  EXPECT_FALSE(host.Await(host.Send(kListJobs)).IsEmpty());
  EXPECT_FALSE(host.Call(kListJobs).IsEmpty());
  ExpectThatUnloadReturns();
}

TEST_F(ExitingCallback, LeavesNoJobThatRunsForEver) {
  Simulator::TestFleet fleet;
  fleet.Add({.model = "MORVU SSDSC2BB480G4", .serial = "SATA1"});
  Host host;
  host.Call(kScan);
  exits = true;
  const auto job = host.Send(kScan);
  host.Await(job);
  const auto end = std::chrono::steady_clock::now() + kLongEnough;
  std::string listed;
  do {
    listed = host.Call(kListJobs).Text();
  } while (listed.find(">4<") != listed.npos && std::chrono::steady_clock::now() < end);
  EXPECT_EQ(listed.npos, listed.find(">4<")) << listed;  // "JobState" of a job that runs
  ExpectThatUnloadReturns();
}

// ---- main returns ----

// Runs behind the library's own last steps in a process that ends: jobs go on here.
std::atomic<bool> lingers = false;
struct Lingering {
  ~Lingering() {
    if (lingers) std::this_thread::sleep_for(std::chrono::milliseconds(300));
  }
} lingering;

void ReturnFromMainWithJobs(const std::string& log) {
  Library().Load();
  Library().EnableLogger(log.data(), static_cast<std::uint32_t>(log.size()), 5, true);
  const std::string_view notify =
      "<Message subject='Notification'><Property name='scan'>True</Property></Message>";
  const std::string_view list = "<Message cimClass='MorvuSSD' scan='True' includeMethods='True'/>";
  for (int i = 0; i < 10; ++i) {
    for (const auto request : {notify, list, kListJobs}) {
      std::uint64_t job = 0;
      Library().SendXMLMessage(request.data(), static_cast<std::uint32_t>(request.size()), &job,
                               false);
    }
  }
  lingers = true;
  std::exit(0);
}

TEST(HostsEnd, MayComeWhileJobsRun) {
  Simulator::TestFleet fleet;
  for (int i = 0; i < 4; ++i) {
    fleet.Add({.model = "MORVU SSDSC2BB480G4", .serial = "SATA" + std::to_string(i)});
  }
  const auto log = fleet.Folder() + "/log";
  for (int i = 0; i < 3; ++i) {
    const pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0) ReturnFromMainWithJobs(log);
    int status = 0;
    ASSERT_EQ(child, waitpid(child, &status, 0));
    EXPECT_TRUE(WIFEXITED(status)) << "signal " << WTERMSIG(status);
    EXPECT_EQ(0, WEXITSTATUS(status));
  }
}

}  // namespace
}  // namespace MorvuHost
