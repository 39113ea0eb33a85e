// What the tests of command paths and command sets share: a drive, a path to it, the
// properties of its device, and the command as it reached the node.
#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <vector>

#include "TestFleet.h"
#include "devices/commands/CommandPath_ATA_SCSI.h"
#include "devices/commands/CommandPath_NVME.h"
#include "devices/commands/CommandPath_SCSI.h"
#include "devices/commands/CommandSet_ATA.h"
#include "devices/commands/CommandSet_NVME.h"
#include "devices/commands/CommandSet_SCSI.h"
#include "devices/properties/BasicProperties.h"
#include "devices/properties/PropertyList.h"

namespace Morvu::DeviceManagement {

using Bytes = std::vector<std::uint8_t>;

// Room for the largest transfer: 65,536 sectors.
inline ByteSpan LargeBuffer() {
  static Bytes buffer(std::size_t{65536} * 512);
  return buffer;
}

template <typename Path, typename Set>
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
  Set set{properties, path};
};

struct AtaNode : NodeUnderTest<CommandPath_ATA_SCSI, CommandSet_ATA> {
  explicit AtaNode(const Simulator::DriveSpec& spec = {}) : NodeUnderTest(spec) {}
};
struct NvmeNode : NodeUnderTest<CommandPath_NVME, CommandSet_NVME> {
  explicit NvmeNode(const Simulator::DriveSpec& spec = {.kind = Simulator::Kind::Nvme})
      : NodeUnderTest(spec) {}
};
struct ScsiNode : NodeUnderTest<CommandPath_SCSI, CommandSet_SCSI> {
  explicit ScsiNode(const Simulator::DriveSpec& spec = {.kind = Simulator::Kind::Scsi})
      : NodeUnderTest(spec) {}
};

}  // namespace Morvu::DeviceManagement
