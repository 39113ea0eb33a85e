// A firmware update through the exported functions, on a simulated drive.
#include <gtest/gtest.h>

#include <fstream>
#include <string>

#include "Host.h"
#include "TestFleet.h"

namespace MorvuHost {
namespace {

std::string ImageBytes(std::string_view revision, std::size_t size) {
  std::string image = "MorvuSimFirmware" + std::string(revision);
  image.resize(24, ' ');
  for (int shift = 0; shift < 32; shift += 8) image += static_cast<char>(size >> shift & 0xFF);
  image.resize(size, 'F');
  return image;
}

TEST(FirmwareUpdate, ReportsItsProgressAndTheDrivesNewRevision) {
  Simulator::TestFleet fleet;
  auto drive = fleet.Add(
      {.model = "MORVU SSDSC2BB480G4", .serial = "BTWL402600K4480QGN", .firmware = "D2010370"});
  const auto path = fleet.Folder() + "/image.bin";
  std::ofstream(path, std::ios::binary) << ImageBytes("D2010380", 300'000);

  Host host;
  const std::string shown =
      "<Object name='cimProperties'><Property name='Firmware'/>"
      "<Property name='FirmwareUpdateAvailable'/></Object>";
  const auto before = host.Ask(shown, "scan='True'");
  ASSERT_EQ(before.Listed().size(), 1u);
  EXPECT_EQ(PropertyText(*before.Listed()[0], "Firmware"), "D2010370");
  EXPECT_EQ(PropertyText(*before.Listed()[0], "FirmwareUpdateAvailable"), "");

  const auto job = host.Send(Host::Request(Drive("BTWL402600K4480QGN") +
                                           Method("FirmwareUpdate", Parameter("file", path))));
  int percent = 0;
  auto reply = host.Await(job);
  for (; reply.Job("JobState") != "7"; reply = host.Await(job)) {
    EXPECT_GE(std::stoi(reply.Job("PercentComplete")), percent);
    percent = std::stoi(reply.Job("PercentComplete"));
  }
  EXPECT_EQ(reply.ErrorCode(), 0);
  EXPECT_EQ(reply.Job("PercentComplete"), "100");
  EXPECT_STREQ(drive.State().firmware, "D2010380");

  const auto after = host.Ask(shown, "scan='True'");
  EXPECT_EQ(PropertyText(*after.Listed()[0], "Firmware"), "D2010380");
}

TEST(FirmwareUpdate, ARefusedImageIsToldByTheJob) {
  Simulator::TestFleet fleet;
  auto drive = fleet.Add({.model = "MORVU SSDSC2BB480G4", .firmware = "D2010370"});
  drive.State().ata.firmware.refuseImages = 1;
  const auto path = fleet.Folder() + "/image.bin";
  std::ofstream(path, std::ios::binary) << ImageBytes("D2010380", 300'000);
  Host host;
  host.Call(kScan);
  const auto update = [&](const std::string& file) {
    return host.Ask(Method("FirmwareUpdate", file)).ErrorCode();
  };
  EXPECT_EQ(update(Parameter("file", path)), 19);
  EXPECT_EQ(update(Parameter("file", "/absent")), 10);
  EXPECT_EQ(update(""), 301);
  EXPECT_STREQ(drive.State().firmware, "D2010370");
}

}  // namespace
}  // namespace MorvuHost
