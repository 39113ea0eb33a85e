// A drive that somebody works on, through the exported functions: nothing is sent to it, and
// hosts are told.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <string>
#include <thread>

#include "Host.h"
#include "TestFleet.h"

namespace MorvuHost {
namespace {

constexpr std::string_view kMethods = "<Message cimClass='MorvuSSD' includeMethods='True'/>";
constexpr int kSmartOpcode = 0xB0;

class HeldDrives : public ::testing::Test {
 protected:
  int CodeOf(const std::string& content) { return host_.Ask(Drive("SATA1") + content).ErrorCode(); }
  const Reply::Tree& Row(const Reply& reply, std::string_view serial) {
    for (const auto* row : reply.Listed()) {
      if (AttributeText(*row, "uniqueId") == serial) return *row;
    }
    ADD_FAILURE() << serial << " is not listed";
    static const Reply::Tree kNone;
    return kNone;
  }

  Simulator::TestFleet fleet_;
  Simulator::SimulatedDrive sata_ = fleet_.Add({.model = "MORVU SSDSC2BB480G4", .serial = "SATA1"});
  Simulator::SimulatedDrive other_ =
      fleet_.Add({.model = "MORVU SSDSC2BB480G4", .serial = "SATA2"});
  Host host_;
};

// The test goes on until it is canceled: it asks for its status, and sends nothing else.
TEST_F(HeldDrives, AJobsDriveIsAskedNothingByOthers) {
  sata_.State().ata.selfTest.extendedMs = 2'000'000'000;
  sata_.AddPartition(1 << 20, "/data");
  host_.Call(kScan);
  sata_.ClearJournal();
  const auto job = host_.Send(Host::Request(Drive("SATA1") + Method("DriveSelfTest")));
  const auto isAtWork = [&] { return std::ranges::count(sata_.Opcodes(), kSmartOpcode) > 0; };
  while (!isAtWork()) std::this_thread::sleep_for(std::chrono::milliseconds(1));
  const auto sent = sata_.Journal().size();
  const auto reads = sata_.State().rawReads;

  for (const auto request : {kScan, kMethods}) {
    const auto list = host_.Call(request);
    EXPECT_EQ(list.ErrorCode(), 0);
    ASSERT_EQ(list.Listed().size(), 2u);
    const auto& row = Row(list, "SATA1");
    EXPECT_EQ(AttributeText(row, "busy"), "True");
    EXPECT_EQ(AttributeText(row, "busyJob"), std::to_string(job));
    EXPECT_EQ(PropertyText(row, "ModelNumber"), "MORVU SSDSC2BB480G4");
    EXPECT_EQ(AttributeText(Row(list, "SATA2"), "busy"), "");
  }
  for (const auto* method : {"SecureErase", "Delete", "DriveSelfTest", "StandbyImmediate",
                             "FirmwareUpdate", "SmartParser"}) {
    EXPECT_EQ(CodeOf(Method(method)), 180) << method;
  }
  EXPECT_EQ(CodeOf(Method("Sanitize", Parameter("SanitizeType", "block"))), 180);
  EXPECT_EQ(CodeOf("<Property direction='io' name='PhyConfig'>0</Property>"), 180);
  const auto smart = host_.Call("<Message subject='SMARTAttribute'/>");
  EXPECT_EQ(smart.ErrorCode(), 0);  // of the other drive

  const auto journal = sata_.Journal();
  for (auto at = sent; at < journal.size(); ++at) EXPECT_EQ(journal[at].Opcode(), kSmartOpcode);
  EXPECT_EQ(sata_.State().rawReads, reads);
  host_.Cancel(job);
  host_.AwaitEnd(job);
  EXPECT_EQ(AttributeText(Row(host_.Call(kScan), "SATA1"), "busy"), "");
}

// A host that starts while another program has the drive.
TEST_F(HeldDrives, AFreshHostListsADriveOfAnotherProgram) {
  const int file = open((fleet_.Folder() + "/dev/sda").c_str(), O_RDONLY | O_CLOEXEC);
  ASSERT_EQ(flock(file, LOCK_EX | LOCK_NB), 0);
  const auto list = host_.Call(kScan);
  const auto& row = Row(list, "SATA1");
  EXPECT_EQ(AttributeText(row, "busy"), "True");
  EXPECT_EQ(AttributeText(row, "busyJob"), "");
  EXPECT_EQ(PropertyText(row, "DriverCommunicationError"), "180");
  EXPECT_EQ(CodeOf(Method("SecureErase")), 180);
  EXPECT_TRUE(sata_.Journal().empty());
  close(file);
  EXPECT_EQ(AttributeText(Row(host_.Call(kScan), "SATA1"), "busy"), "");
}

}  // namespace
}  // namespace MorvuHost
