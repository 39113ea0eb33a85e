// What the tests of command paths and command sets share: a drive, a path to it, the
// properties of its device, and the command as it reached the node.
#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <vector>

#include "TestFleet.h"
#include "devices/commands/CommandPath.h"
#include "devices/properties/BasicProperties.h"
#include "devices/properties/PropertyList.h"

namespace Morvu::DeviceManagement {

using Bytes = std::vector<std::uint8_t>;

// Room for the largest transfer: 65,536 sectors.
inline ByteSpan LargeBuffer() {
  static Bytes buffer(std::size_t{65536} * 512);
  return buffer;
}

template <typename Path>
struct NodeUnderTest {
  explicit NodeUnderTest(const Simulator::DriveSpec& spec)
      : drive(fleet.Add(spec)), path(drive.Node()) {
    properties.Add(DeviceProperty(Properties::SectorSize, 512u));
  }

  // The only command since the last call.
  Simulator::JournalEntry TakeCommand() {
    const auto journal = drive.Journal();
    drive.ClearJournal();
    EXPECT_EQ(1u, journal.size());
    return journal.empty() ? Simulator::JournalEntry{} : journal.back();
  }

  Simulator::TestFleet fleet;
  Simulator::SimulatedDrive drive;
  PropertyList properties;
  Path path;
};

}  // namespace Morvu::DeviceManagement
