// The notification service, on jobs of a manager without drives.
#include <gmock/gmock.h>

#include <chrono>
#include <condition_variable>
#include <filesystem>
#include <future>
#include <mutex>
#include <thread>

#include "devices/model/Drive.h"
#include "devices/properties/BasicProperties.h"
#include "devices/properties/ScanProperties.h"
#include "devices/properties/SecurityProperties.h"
#include "messaging/XmlMessaging.h"
#include "messaging/jobs/JobManager.h"
#include "messaging/jobs/NotificationService.h"
#include "operations/firmware/FirmwareModules.h"

namespace Morvu {
namespace {

using ::testing::ElementsAre;
using XmlMessaging::Message;
namespace Properties = DeviceManagement::Properties;

std::atomic<int> passes = 0;
std::string passSubject;
void CountPass(JobContext& context, DeviceManagement::SelectedDevices&) {
  passSubject = context.subject;
  ++passes;
}
constexpr DrivePass::ListStep kAllDrives[] = {&CountPass};
constexpr DrivePass kPass{{}, kAllDrives};

std::unique_ptr<Message> Handle(JobContext& context) { return HandleNotification(context, kPass); }

std::size_t CountThreads() {
  const std::filesystem::directory_iterator tasks("/proc/self/task");
  return static_cast<std::size_t>(std::distance(begin(tasks), end(tasks)));
}

class Notifications : public ::testing::Test {
 protected:
  Notifications() : manager_(Environment()) { passes = 0; }

  JobEnvironment Environment() {
    JobEnvironment environment;
    environment.post = [this](std::unique_ptr<Message> message, JobId id, bool keepAll, auto&&) {
      EXPECT_TRUE(keepAll);
      std::lock_guard lock(mutex_);
      posted_.push_back(std::move(message));
      postedBy_ = id;
      changed_.notify_all();
    };
    return environment;
  }

  JobId Ask(std::string_view content, bool synchronous = true) {
    auto request =
        Message::Parse("<Message subject='Notification'>" + std::string(content) + "</Message>");
    const auto created = manager_.CreateJob(std::move(request), &Handle, synchronous);
    EXPECT_EQ(Status::Completed, created.status);
    return created.id;
  }

  void Post(std::uint32_t number) {
    manager_.PostNotification({0,
                               DeviceProperty(Properties::Index, static_cast<std::int32_t>(number)),
                               "MorvuSSD.SN", 1});
  }

  // Posts until one arrives: the service starts on a thread of its own.
  JobId StartService() {
    const auto id = Ask("", false);
    std::unique_lock lock(mutex_);
    while (posted_.empty()) {
      lock.unlock();
      Post(0);
      lock.lock();
      changed_.wait_for(lock, std::chrono::milliseconds(1));
    }
    return id;
  }

  std::mutex mutex_;
  std::condition_variable changed_;
  std::vector<std::unique_ptr<Message>> posted_;
  JobId postedBy_ = 0;
  JobManager manager_;
};

TEST_F(Notifications, ReachTheHostUnderTheServicesJobInOrder) {
  const auto id = StartService();
  std::size_t before = 0;
  {
    std::lock_guard lock(mutex_);
    before = posted_.size();
  }
  for (std::uint32_t i = 1; i <= 50; ++i) Post(i);
  Ask("<Property name='Enabled'>False</Property>");
  manager_.Stop();  // waits for the service's job: what was queued has gone out
  EXPECT_EQ(id, postedBy_);
  std::vector<std::string> values;
  for (auto i = before; i < posted_.size(); ++i) {
    const auto& value = posted_[i]->properties.at(0)->GetAttribute("value");
    if (value != "0") values.push_back(value);
  }
  ASSERT_EQ(50u, values.size());
  for (std::size_t i = 0; i < 50; ++i) EXPECT_EQ(std::to_string(i + 1), values[i]);

  const auto& last = *posted_.back();
  EXPECT_EQ("MorvuSSD.SN", last.GetAttribute("ObjectPath"));
  EXPECT_EQ("0", last.GetAttribute("NotificationType"));
  EXPECT_EQ("1", last.GetAttribute("NotificationStatus"));
  EXPECT_EQ(std::to_string(id), last.GetAttribute("identifier"));
  EXPECT_EQ("sint32", last.properties.at(0)->GetAttribute("type"));
  EXPECT_EQ("Morvu Job", last.objects.at(0)->GetAttribute("name"));
}

// However many drives a pass asks modules about, each file is verified once.
std::vector<std::shared_ptr<FirmwareModules>> seenModules;
void SeeModules(JobContext&, DeviceManagement::SelectedDevices&) {
  seenModules.push_back(FirmwareModules::OfRequest());
}

TEST_F(Notifications, OfAPassAskTheSameModules) {
  constexpr DrivePass::ListStep kTwice[] = {&SeeModules, &SeeModules};
  seenModules.clear();
  JobContext context;
  RunDrivePass(context, {{}, kTwice});
  ASSERT_EQ(seenModules.size(), 2U);
  EXPECT_EQ(seenModules[0], seenModules[1]);
  EXPECT_NE(FirmwareModules::OfRequest(), seenModules[0]);
  seenModules.clear();
}

TEST_F(Notifications, AreLostWithoutAService) {
  Post(1);
  StartService();
  std::lock_guard lock(mutex_);
  for (const auto& message : posted_) {
    EXPECT_EQ("0", message->properties.at(0)->GetAttribute("value"));
  }
}

TEST_F(Notifications, RunThePassWhenAsked) {
  Ask("<Property name='Enabled'>False</Property><Property name='scan'>True</Property>");
  EXPECT_EQ(1, passes);
  EXPECT_EQ("MorvuSSD", passSubject);
  StartService();
  Ask("<Property name='scan'>True</Property>");
  EXPECT_EQ(2, passes);
  Ask("<Property name='scan'>False</Property>");
  EXPECT_EQ(2, passes);
}

// The first start's thread may come later than the scan's.
TEST_F(Notifications, ScanBehindAStartWhoseThreadHasYetToBegin) {
  for (int i = 1; i <= 50; ++i) {
    Ask("", false);
    Ask("<Property name='scan'>True</Property>");  // would not return, were it the service
    EXPECT_EQ(i, passes);
    Ask("<Property name='Enabled'>False</Property>");
  }
}

TEST_F(Notifications, AreStoppedRightBehindTheirStart) {
  const auto before = CountThreads();
  for (int i = 0; i < 60; ++i) {
    Ask("", false);
    Ask("<Property name='Enabled'>False</Property>");
  }
  // The threads of the starts end; one that became a service would stay.
  const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(60);
  while (CountThreads() > before && std::chrono::steady_clock::now() < end) {
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  EXPECT_EQ(before, CountThreads());
}

class Canceled : public SilentReporter {
 public:
  bool IsCancelRequested() override { return true; }
};

TEST(Services, DoNotBeginInACanceledJob) {
  Canceled reporter;
  JobContext context;
  context.reporter = &reporter;
  auto run = std::async(std::launch::async, [&] { NotificationService::RunService(context); });
  const auto status = run.wait_for(std::chrono::seconds(20));
  if (status != std::future_status::ready) NotificationService::StopService();
  EXPECT_EQ(std::future_status::ready, status);
}

TEST(DrivePasses, TellLockedFrozenAndOpalDrives) {
  struct : NoJobServices {
    void PostNotification(const Notification& fact) override {
      told.push_back(fact.objectPath + " " + std::to_string(fact.type) +
                     std::to_string(fact.status) + " " + fact.value.GetName() + "=" +
                     fact.value.ToText());
    }
    std::vector<std::string> told;
  } services;
  const auto& told = services.told;
  DeviceManagement::Drive drive;
  drive.AddProperty(Properties::SerialNumber, "SN");
  drive.AddProperty(Properties::SecurityFrozen, false);
  drive.AddProperty(Properties::OpalState, "No Opal");
  JobContext context;
  context.subject = "MorvuSSD";
  context.services = &services;
  NotifySecurity(context, drive);
  EXPECT_TRUE(told.empty());
  drive.AddProperty(Properties::SecurityFrozen, true);
  drive.AddProperty(Properties::SecurityLocked, true);
  drive.AddProperty(Properties::OpalState, "Activated");
  NotifySecurity(context, drive);
  EXPECT_THAT(
      told, ElementsAre("MorvuSSD.SN 01 SecurityFrozen=True", "MorvuSSD.SN 01 SecurityLocked=True",
                        "MorvuSSD.SN 01 OpalState=Activated"));
}

}  // namespace
}  // namespace Morvu
