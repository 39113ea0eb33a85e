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
  const auto before = host.Call("<Message subject='MorvuSSD' scan='True'>" + shown + "</Message>");
  ASSERT_EQ(before.Listed().size(), 1u);
  EXPECT_EQ(PropertyText(*before.Listed()[0], "Firmware"), "D2010370");
  EXPECT_EQ(PropertyText(*before.Listed()[0], "FirmwareUpdateAvailable"), "");

  const auto job = host.Send(
      "<Message subject='MorvuSSD'><Object cimClass='MorvuSSD'>"
      "<Property name='SerialNumber' key='True'>BTWL402600K4480QGN</Property></Object>"
      "<Object type='method' name='FirmwareUpdate'><Property name='file'>" +
      path + "</Property></Object></Message>");
  int percent = 0;
  auto reply = host.Await(job);
  for (; reply.Job("JobState") != "7"; reply = host.Await(job)) {
    EXPECT_GE(std::stoi(reply.Job("PercentComplete")), percent);
    percent = std::stoi(reply.Job("PercentComplete"));
  }
  EXPECT_EQ(reply.ErrorCode(), 0);
  EXPECT_EQ(reply.Job("PercentComplete"), "100");
  EXPECT_STREQ(drive.State().firmware, "D2010380");

  const auto after = host.Call("<Message subject='MorvuSSD' scan='True'>" + shown + "</Message>");
  EXPECT_EQ(PropertyText(*after.Listed()[0], "Firmware"), "D2010380");
}

TEST(FirmwareUpdate, ARefusedImageIsToldByTheJob) {
  Simulator::TestFleet fleet;
  auto drive = fleet.Add({.model = "MORVU SSDSC2BB480G4", .firmware = "D2010370"});
  drive.State().ata.firmware.refuseImages = 1;
  const auto path = fleet.Folder() + "/image.bin";
  std::ofstream(path, std::ios::binary) << ImageBytes("D2010380", 300'000);
  Host host;
  host.Call("<Message subject='MorvuSSD' scan='True'/>");
  const auto update = [&](const std::string& file) {
    return host
        .Call("<Message subject='MorvuSSD'><Object type='method' name='FirmwareUpdate'>" + file +
              "</Object></Message>")
        .ErrorCode();
  };
  EXPECT_EQ(update("<Property name='file'>" + path + "</Property>"), 19);
  EXPECT_EQ(update("<Property name='file'>/absent</Property>"), 10);
  EXPECT_EQ(update(""), 301);
  EXPECT_STREQ(drive.State().firmware, "D2010370");
}

}  // namespace
}  // namespace MorvuHost
