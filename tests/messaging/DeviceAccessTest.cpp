// The manager's device list, looked at while a scan makes it.
#include <gtest/gtest.h>

#include <condition_variable>
#include <future>
#include <thread>

#include "TestFleet.h"
#include "devices/model/DeviceList.h"
#include "frame/Logger.h"
#include "messaging/XmlMessaging.h"
#include "messaging/jobs/JobManager.h"

namespace Morvu {
namespace {

using DeviceManagement::SelectedDevices;
using XmlMessaging::Message;

// A log in which the first line of another thread waits until it may go on.
class HoldingLogger : public Logger {
 public:
  HoldingLogger() : Logger("") {
    SetLogLevel(kLogAll);
    SetCurrentLogger(this);
  }
  ~HoldingLogger() override { SetCurrentLogger(nullptr); }

  void Hold(std::thread::id thread) {
    std::lock_guard lock(mutex_);
    held_ = thread;
  }
  void AwaitHeld() {
    std::unique_lock lock(mutex_);
    changed_.wait(lock, [this] { return isHeld_; });
  }
  void Release() {
    std::lock_guard lock(mutex_);
    isReleased_ = true;
    changed_.notify_all();
  }

  void Write(const LogRecord&) override {
    std::unique_lock lock(mutex_);
    if (std::this_thread::get_id() != held_) return;
    isHeld_ = true;
    changed_.notify_all();
    changed_.wait(lock, [this] { return isReleased_; });
  }

 private:
  std::mutex mutex_;
  std::condition_variable changed_;
  std::thread::id held_;
  bool isHeld_ = false;
  bool isReleased_ = false;
};

TEST(DeviceAccess, KnowsWhatItKnewWhileAScanIsUnderWay) {
  Simulator::TestFleet fleet;
  fleet.Add({.model = "MORVU SSDSC2BB480G4", .serial = "SATA1"});
  fleet.Add({.model = "MORVU SSDSC2BB480G4", .serial = "SATA2"});
  JobManager manager({});
  const auto request = Message::Parse("<Message/>");
  const auto countSelected = [&] {
    SelectedDevices selected;
    manager.SelectDevices(selected, request.get());
    return selected.devices.size();
  };
  HoldingLogger log;
  auto scan = std::async(std::launch::async, [&] {
    log.Hold(std::this_thread::get_id());
    manager.Rescan(*request);
  });
  log.AwaitHeld();
  // Neither waits for the scan.
  EXPECT_EQ(0u, countSelected());
  manager.PostNotification({});
  log.Release();
  scan.wait();
  EXPECT_EQ(2u, countSelected());
}

// A scan replaces the drives that are being copied for a job.
TEST(DeviceAccess, SelectsWholeListsWhileScansFollowEachOther) {
  Simulator::TestFleet fleet;
  fleet.Add({.model = "MORVU SSDSC2BB480G4", .serial = "SATA1"});
  fleet.Add({.model = "MORVU SSDSC2BB480G4", .serial = "SATA2"});
  JobManager manager({});
  const auto request = Message::Parse("<Message/>");
  manager.Rescan(*request);
  auto scans = std::async(std::launch::async, [&] {
    for (int i = 0; i < 50; ++i) manager.Rescan(*request);
  });
  do {
    SelectedDevices selected;
    manager.SelectDevices(selected, request.get());
    ASSERT_EQ(2u, selected.devices.size());
  } while (scans.wait_for(std::chrono::seconds(0)) != std::future_status::ready);
}

}  // namespace
}  // namespace Morvu
