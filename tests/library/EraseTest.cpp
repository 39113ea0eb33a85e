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

  Reply Run(std::string_view method, std::string_view parameters = {}) {
    return host_.Ask(Drive(kSerial) + Method(method, parameters));
  }
  void Scan() { host_.Call(kScan); }
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
    EXPECT_EQ(Run(method).ErrorCode(), 13) << method;
    EXPECT_EQ(Run(method, Parameter("force", "false")).ErrorCode(), 13);
  }
  EXPECT_FALSE(WasSent(kSetPassword));
  EXPECT_EQ(drive_.ReadMedium(0, content_.size()), content_);

  EXPECT_EQ(Run("SecureErase", Parameter("force", "True")).ErrorCode(), 0);
  EXPECT_TRUE(WasSent(kEraseUnit));
  EXPECT_FALSE(drive_.State().ata.security.enabled);
  EXPECT_EQ(drive_.ReadMedium(0, content_.size()), std::vector<std::uint8_t>(content_.size()));
}

TEST_F(Erases, RefuseADriveWithoutAName) {
  const auto call = [&](std::string_view method) {
    return host_.Ask(Drive("0") + Method(method)).ErrorCode();
  };
  drive_.TakeNames();
  Scan();
  for (const auto* method : {"SecureErase", "Delete", "Sanitize"}) {
    EXPECT_EQ(call(method), 245) << method;
  }
  EXPECT_EQ(call("StandbyImmediate"), 0);
  EXPECT_FALSE(WasSent(kSetPassword));
  EXPECT_EQ(drive_.ReadMedium(0, content_.size()), content_);
}

TEST_F(Erases, AMethodTakesOneDrive) {
  fleet_.Add({.model = "MORVU SSDSC2BB480G4", .serial = "BTWL2", .sectors = 256});
  Scan();
  for (const auto* method :
       {"SecureErase", "Delete", "Format", "DriveSelfTest", "StandbyImmediate"}) {
    EXPECT_EQ(host_.Ask(Method(method)).ErrorCode(), 245) << method;
  }
  EXPECT_FALSE(WasSent(kSetPassword));
}

TEST_F(Erases, ACancelByMessageEndsTheWaitForASelfTest) {
  drive_.State().ata.selfTest.extendedMs = 2'000'000'000;
  Scan();
  const auto job = host_.Send(Host::Request(Drive(kSerial) + Method("DriveSelfTest")));
  for (int i = 0; i < 10'000 && !WasSent(kSmart); ++i) {
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  ASSERT_TRUE(WasSent(kSmart));
  host_.Cancel(job);
  EXPECT_EQ(host_.AwaitEnd(job).ErrorCode(), 2);
  EXPECT_EQ(drive_.ReadMedium(0, content_.size()), content_);
}

}  // namespace
}  // namespace MorvuHost
