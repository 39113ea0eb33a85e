// Sweeps: an operation is run once for each of its commands, and that command goes
// wrong; or once for each time it asks whether it is to stop, and is told so.
//
//   SweepFaults<EraseScene>(Fault::Fail().Times(1), [](EraseScene& scene, const SweptRun& run) {
//     EXPECT_EQ(run.code, run.Met().AtaOpcode() == 0xF3 ? 33 : 34);
//     EXPECT_FALSE(scene.drive.State().ata.security.enabled);
//   });
//   SweepCancels<EraseScene>([](EraseScene& scene, const SweptRun& run) { ... });
//
// After every run, whatever its end, no descriptor and no thread is left behind, no signal
// is held back or waits, and the time-out of the scene's device is what it was.
#pragma once

#include <gtest/gtest.h>

#include <chrono>
#include <csignal>
#include <cstddef>
#include <filesystem>
#include <functional>
#include <memory>
#include <set>
#include <string>
#include <system_error>
#include <thread>
#include <type_traits>
#include <vector>

#include "messaging/ProgressReporter.h"
#include "support/SceneBase.h"

namespace Morvu::Testing {

// One run of a sweep.
struct SweptRun {
  std::size_t index = 0;  // of the command or question that was met, from 1; 0: the good run
  StatusCode code = 5;    // not run
  std::vector<std::int32_t> percents;             // as reported
  std::vector<Simulator::JournalEntry> commands;  // what reached the drive
  std::vector<Simulator::JournalEntry> good;      // and in the good run
  std::size_t questions = 0;                      // how often it asked whether to stop

  // The command of the good run that the fault met in this one.
  const Simulator::JournalEntry& Met() const { return good.at(index - 1); }
};

// Reports to a run's record, and requests cancel from the n-th question on; never for 0.
class RecordingReporter : public SilentReporter {
 public:
  explicit RecordingReporter(std::size_t cancelAt = 0) : cancelAt_(cancelAt) {}

  void SetPercent(std::int32_t percent) override { percents.push_back(percent); }
  bool IsCancelRequested() override {
    ++questions;
    return cancelAt_ != 0 && questions >= cancelAt_;
  }

  std::vector<std::int32_t> percents;
  std::size_t questions = 0;

 private:
  std::size_t cancelAt_;
};

// What a run must leave as it was.
class LeakCheck {
 public:
  explicit LeakCheck(const Scene& scene)
      : scene_(scene),
        timeout_(scene.GetTimeout()),
        files_(ListFiles()),
        threads_(CountThreads()),
        heldSignals_(ListHeldSignals()) {}

  void Verify() const {
    EXPECT_EQ(scene_.GetTimeout(), timeout_) << "the time-out was not put back";
    EXPECT_EQ(ListFiles(), files_) << "a descriptor was left open";
    EXPECT_EQ(ListHeldSignals(), heldSignals_) << "signals were not given back";
    sigset_t pending;
    sigpending(&pending);
    EXPECT_TRUE(sigisemptyset(&pending)) << "a signal was left waiting";
    // A thread that was joined may still be seen for a moment.
    for (int i = 0; i < 1000 && CountThreads() > threads_; ++i) {
      std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    EXPECT_LE(CountThreads(), threads_) << "a thread was left";
  }

 private:
  // What the open descriptors lead to, without what the simulator keeps for itself.
  std::multiset<std::string> ListFiles() const {
    std::multiset<std::string> files;
    const auto own = scene_.fleet.Folder() + "/drives/";
    for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
      std::error_code gone;
      const auto target = std::filesystem::read_symlink(entry.path(), gone).string();
      // The descriptor of this very listing is closed again by now.
      if (gone || target.starts_with(own) || target.ends_with("/fd")) continue;
      files.insert(target);
    }
    return files;
  }

  static std::set<int> ListHeldSignals() {
    sigset_t mask;
    pthread_sigmask(SIG_SETMASK, nullptr, &mask);
    std::set<int> held;
    for (int signal = 1; signal < NSIG; ++signal) {
      if (sigismember(&mask, signal) == 1) held.insert(signal);
    }
    return held;
  }

  static std::ptrdiff_t CountThreads() {
    return std::distance(std::filesystem::directory_iterator("/proc/self/task"), {});
  }

  const Scene& scene_;
  std::uint32_t timeout_;
  std::multiset<std::string> files_;
  std::ptrdiff_t threads_;
  std::set<int> heldSignals_;
};

// Runs a fresh scene; `fault` is null for a good run.
template <typename AScene>
SweptRun RunScene(AScene& scene, const Simulator::Fault* fault, std::size_t cancelAt) {
  scene.Prepare();
  if (::testing::Test::HasFatalFailure()) return {};
  scene.drive.ClearJournal();
  if (fault != nullptr) scene.drive.Inject(*fault);
  // The simulator opens the medium with its first use and keeps it open.
  if (std::filesystem::exists(scene.drive.MediumPath())) scene.drive.ReadMedium(0, 1);
  RecordingReporter reporter(cancelAt);
  const LeakCheck leaks(scene);
  SweptRun run;
  run.code = scene.Run(reporter);
  leaks.Verify();
  run.percents = std::move(reporter.percents);
  run.questions = reporter.questions;
  run.commands = scene.drive.Journal();
  scene.drive.ClearFaults();
  return run;
}

// The command's line in the journal, without what the drive answered.
inline std::string DescribeCommand(const Simulator::JournalEntry& entry) {
  const auto text = entry.Text();
  return text.substr(0, text.find(" -> "));
}

// The first points and the last ones, where there are more than a test has time for.
inline std::vector<std::size_t> ChooseSweepPoints(std::size_t count) {
  constexpr std::size_t kEnd = 64;
  std::vector<std::size_t> points;
  for (std::size_t i = 1; i <= count; ++i) {
    if (i <= kEnd || i + kEnd > count) points.push_back(i);
  }
  return points;
}

template <typename AScene>
using SceneMaker = std::function<std::unique_ptr<AScene>()>;
// Looks at one run and at the drive behind it. Its scene ends after the call.
template <typename AScene>
using SweepChecker = std::function<void(AScene&, const SweptRun&)>;

// The good run: it must end with `goodCode`.
template <typename AScene>
SweptRun RunGoodScene(const SceneMaker<AScene>& make, StatusCode goodCode) {
  auto scene = make();
  auto run = RunScene(*scene, nullptr, 0);
  EXPECT_EQ(run.code, goodCode) << "the good run";
  run.good = run.commands;
  return run;
}

// Meets each command of the good run in turn with `fault`. Fault::Fail().Times(1) fails
// that command alone, Fault::Fail() all from there on, Vanish() takes the drive away.
template <typename AScene>
void SweepFaults(const std::type_identity_t<SceneMaker<AScene>>& make, Simulator::Fault fault,
                 const std::type_identity_t<SweepChecker<AScene>>& check, StatusCode goodCode = 0) {
  const auto times = fault.Slot().times;
  const auto good = RunGoodScene<AScene>(make, goodCode);
  ASSERT_FALSE(good.commands.empty()) << "the good run sent no command";
  for (const auto n : ChooseSweepPoints(good.commands.size())) {
    SCOPED_TRACE("command " + std::to_string(n) + ": " + good.commands[n - 1].Text());
    auto scene = make();
    fault.OnCommand(static_cast<std::uint32_t>(n)).Times(times);
    auto run = RunScene(*scene, &fault, 0);
    run.index = n;
    run.good = good.commands;
    // Up to the fault both runs are one: the command that it met is the one that it names.
    for (std::size_t i = 0; i + 1 < n; ++i) {
      ASSERT_LT(i, run.commands.size());
      ASSERT_EQ(DescribeCommand(run.commands[i]), DescribeCommand(good.commands[i]));
    }
    check(*scene, run);
    if (::testing::Test::HasFatalFailure()) return;
  }
}

template <typename AScene>
void SweepFaults(const Simulator::Fault& fault,
                 const std::type_identity_t<SweepChecker<AScene>>& check, StatusCode goodCode = 0) {
  SweepFaults<AScene>([] { return std::make_unique<AScene>(); }, fault, check, goodCode);
}

// Requests cancel at each question of the good run in turn, and from there on.
template <typename AScene>
void SweepCancels(const std::type_identity_t<SceneMaker<AScene>>& make,
                  const std::type_identity_t<SweepChecker<AScene>>& check,
                  StatusCode goodCode = 0) {
  const auto good = RunGoodScene<AScene>(make, goodCode);
  ASSERT_GT(good.questions, 0U) << "the good run never asks whether to stop";
  for (const auto n : ChooseSweepPoints(good.questions)) {
    SCOPED_TRACE("canceled at question " + std::to_string(n));
    auto scene = make();
    auto run = RunScene(*scene, nullptr, n);
    run.index = n;
    run.good = good.commands;
    check(*scene, run);
    if (::testing::Test::HasFatalFailure()) return;
  }
}

template <typename AScene>
void SweepCancels(const std::type_identity_t<SweepChecker<AScene>>& check,
                  StatusCode goodCode = 0) {
  SweepCancels<AScene>([] { return std::make_unique<AScene>(); }, check, goodCode);
}

}  // namespace Morvu::Testing
