// Operations that users fear, through the exported functions: what the host is told, and
// what becomes of the drive.
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <string>
#include <thread>
#include <vector>

#include "Host.h"
#include "TestFleet.h"

namespace MorvuHost {
namespace {

constexpr std::string_view kSerial = "BTWL402600K4480QGN";
constexpr int kSmart = 0xB0, kSetPassword = 0xF1, kEraseUnit = 0xF4;

class Erases : public ::testing::Test {
 protected:
  Erases() {
    drive_ = fleet_.Add(
        {.model = "MORVU SSDSC2BB480G4", .serial = std::string(kSerial), .sectors = 256});
    for (std::size_t i = 0; i < content_.size(); ++i)
      content_[i] = static_cast<std::uint8_t>(i + 1);
    drive_.WriteMedium(0, content_);
  }

  static std::string Method(std::string_view name, std::string_view parameters = {}) {
    return "<Message cimClass='MorvuSSD'><Object cimClass='MorvuSSD'><Property name='SerialNumber' "
           "key='True'>" +
           std::string(kSerial) + "</Property></Object><Object type='method' name='" +
           std::string(name) + "'>" + std::string(parameters) + "</Object></Message>";
  }
  void Scan() { host_.Call("<Message cimClass='MorvuSSD' scan='True'/>"); }
  bool WasSent(int opcode) const {
    const auto opcodes = drive_.Opcodes();
    return std::ranges::find(opcodes, opcode) != opcodes.end();
  }

  Simulator::TestFleet fleet_;
  Simulator::SimulatedDrive drive_;
  std::vector<std::uint8_t> content_ = std::vector<std::uint8_t>(256 * 512);
  Host host_;
};

TEST_F(Erases, APartitionRefusesUnlessTheHostForces) {
  drive_.AddPartition();
  Scan();
  for (const auto* method : {"SecureErase", "Delete"}) {
    EXPECT_EQ(host_.Call(Method(method)).ErrorCode(), 13) << method;
    EXPECT_EQ(host_.Call(Method(method, "<Property name='force'>false</Property>")).ErrorCode(),
              13);
  }
  EXPECT_FALSE(WasSent(kSetPassword));
  EXPECT_EQ(drive_.ReadMedium(0, content_.size()), content_);

  const auto forced = Method("SecureErase", "<Property name='force'>True</Property>");
  EXPECT_EQ(host_.Call(forced).ErrorCode(), 0);
  EXPECT_TRUE(WasSent(kEraseUnit));
  EXPECT_FALSE(drive_.State().ata.security.enabled);
  EXPECT_EQ(drive_.ReadMedium(0, content_.size()), std::vector<std::uint8_t>(content_.size()));
}

TEST_F(Erases, RefuseADriveWithoutAName) {
  const auto call = [&](std::string method) {
    const auto key = std::string(kSerial) + '<';
    return host_.Call(method.replace(method.find(key), key.size(), "0<")).ErrorCode();
  };
  drive_.TakeNames();
  Scan();
  for (const auto* method : {"SecureErase", "Delete", "Sanitize"}) {
    EXPECT_EQ(call(Method(method)), 245) << method;
  }
  EXPECT_EQ(call(Method("StandbyImmediate")), 0);
  EXPECT_FALSE(WasSent(kSetPassword));
  EXPECT_EQ(drive_.ReadMedium(0, content_.size()), content_);
}

TEST_F(Erases, AMethodTakesOneDrive) {
  fleet_.Add({.model = "MORVU SSDSC2BB480G4", .serial = "BTWL2", .sectors = 256});
  Scan();
  for (const auto* method :
       {"SecureErase", "Delete", "Format", "DriveSelfTest", "StandbyImmediate"}) {
    const auto request = "<Message cimClass='MorvuSSD'><Object type='method' name='" +
                         std::string(method) + "'/></Message>";
    EXPECT_EQ(host_.Call(request).ErrorCode(), 245) << method;
  }
  EXPECT_FALSE(WasSent(kSetPassword));
}

TEST_F(Erases, ACancelByMessageEndsTheWaitForASelfTest) {
  drive_.State().ata.selfTest.extendedMs = 2'000'000'000;
  Scan();
  const auto job = host_.Send(Method("DriveSelfTest"));
  for (int i = 0; i < 10'000 && !WasSent(kSmart); ++i) {
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  ASSERT_TRUE(WasSent(kSmart));
  const auto cancel = host_.Send(
      "<Message subject='MorvuJob' type='cancel' identifier='" + std::to_string(job) + "'/>", true);
  EXPECT_TRUE(host_.Receive(cancel).IsEmpty());
  auto reply = host_.Await(job);
  while (reply.Job("JobState") != "7") reply = host_.Await(job);
  EXPECT_EQ(reply.ErrorCode(), 2);
  EXPECT_EQ(drive_.ReadMedium(0, content_.size()), content_);
}

}  // namespace
}  // namespace MorvuHost
