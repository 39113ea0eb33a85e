// Jobs on simulated drives: the road from a request to a command at a drive, and back.
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <thread>

#include "Host.h"
#include "TestFleet.h"
#include "support/HeldDrive.h"

namespace MorvuHost {
namespace {

using Simulator::Kind;

constexpr std::string_view kList = "<Message cimClass='MorvuSSD'/>";

class DriveJobs : public ::testing::Test {
 protected:
  static std::vector<std::string> Serials(const Reply& reply) {
    std::vector<std::string> serials;
    for (const auto* object : reply.Listed()) {
      serials.push_back(PropertyText(*object, "SerialNumber"));
    }
    return serials;
  }

  // Tries until it holds; a sweep comes every second.
  static bool Eventually(const auto& condition) {
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(120);
    while (!condition()) {
      if (std::chrono::steady_clock::now() > end) return false;
      std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    return true;
  }

  Simulator::TestFleet fleet_;
  Simulator::SimulatedDrive sata_ = fleet_.Add({.model = "MORVU SSDSC2BB480G4", .serial = "SATA1"});
  Simulator::SimulatedDrive nvme_ =
      fleet_.Add({.kind = Kind::Nvme, .model = "MORVU SSDPE2MD800G4", .serial = "NVME1"});
  Host host_;
};

// Neither a scan that waits for a drive nor a job that asks for a dead one.
TEST_F(DriveJobs, AreNotHeldUpByADriveThatDoesNotAnswer) {
  host_.Call(kScan);
  sata_.ClearJournal();
  Morvu::Testing::HeldDrive held(fleet_, "nvme0");
  const auto scan = host_.Send(kScan);
  const auto dead = host_.Send(Host::Request(Drive("NVME1")));
  // The scan is at work: it has asked the other drive.
  EXPECT_TRUE(Eventually([&] { return !sata_.Journal().empty(); }));
  const auto healthy = host_.Send(Host::Request(Drive("SATA1")));
  Reply reply;
  EXPECT_TRUE(Eventually([&] { return !(reply = host_.Receive(healthy)).IsEmpty(); }));
  EXPECT_EQ(std::vector<std::string>{"SATA1"}, Serials(reply));
  EXPECT_TRUE(host_.Receive(scan).IsEmpty());
  EXPECT_TRUE(host_.Receive(dead).IsEmpty());
  held.LetGo();
  EXPECT_FALSE(host_.Await(scan).IsEmpty());
  EXPECT_FALSE(host_.Await(dead).IsEmpty());
}

TEST_F(DriveJobs, ReadPartitionsWholeThoughManyDo) {
  sata_.AddPartition(4 << 20, {}, "xfs");
  host_.Call(kScan);
  std::vector<std::uint64_t> jobs;
  for (int i = 0; i < 6; ++i) jobs.push_back(host_.Send(Host::Request(Drive("SATA1"))));
  for (const auto job : jobs) {
    const auto text = host_.Await(job).Text();
    for (const char* value : {">4194304<", ">3145728<", ">1048576<", ">75<", ">xfs<"}) {
      EXPECT_NE(std::string::npos, text.find(value)) << value;
    }
  }
  for (const auto& event : fleet_.Events()) EXPECT_FALSE(event.starts_with("write")) << event;
}

TEST_F(DriveJobs, EndInOneReplyThatHoldsAll) {
  const auto job = host_.Send(kScan);
  // A message that tells the end is the reply.
  EXPECT_EQ(2u, host_.AwaitEnd(job).Listed().size());
  EXPECT_TRUE(host_.Receive(job).IsEmpty());
}

TEST_F(DriveJobs, AreSeenToEndWhenTheirReplyIsThere) {
  const auto state = [&](std::uint64_t job) {
    const auto list = host_.Call(kListJobs);
    for (const auto* object : list.Listed()) {
      if (PropertyText(*object, "InstanceID") == std::to_string(job)) {
        return PropertyText(*object, "JobState");
      }
    }
    return std::string();
  };
  host_.Call(kScan);
  for (int i = 0; i < 20; ++i) {
    const auto job = host_.Send(kList);
    ASSERT_TRUE(Eventually([&] { return state(job) == "7"; }));
    EXPECT_EQ("7", host_.Receive(job).Job("JobState"));
  }
}

TEST_F(DriveJobs, AreListedForFiveMinutes) {
  const auto job = host_.Send(kScan, true);
  EXPECT_EQ(std::vector<std::uint64_t>{job}, host_.ListedJobs());
  AdvanceTime(299);
  std::this_thread::sleep_for(std::chrono::milliseconds(10));
  EXPECT_EQ(std::vector<std::uint64_t>{job}, host_.ListedJobs());
  AdvanceTime(2);
  EXPECT_TRUE(Eventually([&] { return host_.ListedJobs().empty(); }));
  EXPECT_FALSE(host_.Receive(job).IsEmpty());  // its reply outlives it
}

TEST_F(DriveJobs, WorkOnTheirDrivesSideBySide) {
  host_.Call(kScan);
  std::vector<std::uint64_t> jobs;
  for (int i = 0; i < 32; ++i) jobs.push_back(host_.Send(kList));
  for (const auto job : jobs) {
    EXPECT_EQ((std::vector<std::string>{"NVME1", "SATA1"}), Serials(host_.AwaitEnd(job)));
  }
}

TEST_F(DriveJobs, EndWithUnload) {
  for (int i = 0; i < 8; ++i) host_.Send(kScan);
  Library().Unload();
  Library().Load();
  EXPECT_TRUE(host_.ListedJobs().empty());
  EXPECT_EQ(2u, host_.Call(kScan).Listed().size());
}

TEST_F(DriveJobs, NotifyOfWhatThePassFinds) {
  host_.Call(kScan);
  // What is so since then.
  sata_.State().ata.security.frozen = 1;
  sata_.State().ata.smartFailing = 1;
  nvme_.State().nvme.health[0] = 0x01;
  std::vector<std::uint8_t> temperatures(512);
  temperatures[0] = 41;
  nvme_.SetLog(0xC5, temperatures);
  auto [service, reply] = host_.StartNotifications();
  std::vector<std::string> told;
  const auto isTold = [&, job = service](std::string_view what) {
    if (reply.IsEmpty()) reply = host_.Receive(job);
    for (; !reply.IsEmpty(); reply = host_.Receive(job)) {
      told.push_back(reply.Attribute("ObjectPath") + " " + reply.Attribute("NotificationType") +
                     reply.Attribute("NotificationStatus") + " " + reply.Notified());
    }
    return std::ranges::find(told, what) != told.end();
  };
  for (const auto* what : {
           "MorvuSSD.SATA1 01 SecurityFrozen=True",
           "MorvuSSD.SATA1 01 DriveVerdict=FAILING: an attribute is beyond its threshold",
           "MorvuSSD.SATA1 10 SmartHealth=100",
           "MorvuSSD.SATA1 10 SmartLife=99",
           "MorvuSSD.SATA1 20 Temperature=28",
           "MorvuSSD.NVME1 01 DriveVerdict=FAILING: critical warning 0x01, available spare below "
           "its threshold",
           "MorvuSSD.NVME1 10 SmartHealth=100",
           "MorvuSSD.NVME1 10 SmartLife=100",
           "MorvuSSD.NVME1 20 Temperature=41",
       }) {
    EXPECT_TRUE(Eventually([&] { return isTold(what); })) << what;
  }
  host_.StopNotifications();
}

}  // namespace
}  // namespace MorvuHost
