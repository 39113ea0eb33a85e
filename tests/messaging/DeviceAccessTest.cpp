// The manager's device list, looked at while a scan makes it.
#include <gtest/gtest.h>

#include <future>

#include "TestFleet.h"
#include "devices/model/DeviceList.h"
#include "messaging/XmlMessaging.h"
#include "messaging/jobs/JobManager.h"

namespace Morvu {
namespace {

using DeviceManagement::SelectedDevices;
using XmlMessaging::Message;

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
