// The sweep itself: an operation that loses something is caught.
#include <fcntl.h>
#include <gtest/gtest-spi.h>
#include <unistd.h>

#include <array>

#include "devices/commands/CommandPath_ATA_SCSI.h"
#include "devices/commands/CommandSet_ATA.h"
#include "devices/properties/BasicProperties.h"
#include "devices/properties/PropertyList.h"
#include "support/Sweep.h"

namespace Morvu {
namespace {

using namespace Testing;
using DeviceManagement::CommandPath_ATA_SCSI;
using DeviceManagement::CommandSet_ATA;
using Simulator::Fault;

// Reads the SMART data, asks, checks the power mode, asks, and sends a standby.
struct ThreeCommands : DriveScene {
  ThreeCommands() : DriveScene({}) {}
  void Prepare() override {
    path = std::make_unique<CommandPath_ATA_SCSI>(drive.Node());
    properties.Add(DeviceProperty(DeviceManagement::Properties::SectorSize, 512));
  }
  StatusCode Run(ProgressReporter& reporter) override {
    const auto canceled = [&] { return reporter.IsCancelRequested(); };
    CommandSet_ATA ata(properties, *path);
    std::array<std::uint8_t, 512> data{};
    if (ata.ataSmartReadData(data) != 0) return 23;
    if (canceled()) return 2;
    if (ata.ataCheckPowerMode() != 0) return 24;
    if (canceled()) return 2;
    reporter.SetPercent(100);
    if (ata.ataStandbyImmediate() != 0) return 25;
    return 0;
  }
  DeviceManagement::PropertyList properties;
  std::unique_ptr<CommandPath_ATA_SCSI> path;
};

TEST(Sweep, MeetsEachCommandInTurn) {
  std::vector<StatusCode> codes;
  std::vector<int> opcodes;
  SweepFaults<ThreeCommands>(Fault::Fail().Times(1), [&](ThreeCommands&, const SweptRun& run) {
    codes.push_back(run.code);
    opcodes.push_back(run.Met().AtaOpcode());
    EXPECT_EQ(run.commands.size(), run.index);
  });
  EXPECT_EQ(codes, (std::vector<StatusCode>{23, 24, 25}));
  EXPECT_EQ(opcodes, (std::vector<int>{0xB0, 0xE5, 0xE0}));
}

TEST(Sweep, CancelsAtEachQuestion) {
  std::size_t runs = 0;
  SweepCancels<ThreeCommands>([&](ThreeCommands&, const SweptRun& run) {
    ++runs;
    EXPECT_EQ(run.code, 2);
    EXPECT_EQ(run.commands.size(), runs);
    EXPECT_TRUE(run.percents.empty());
  });
  EXPECT_EQ(runs, 2U);
}

struct LosesDescriptor : ThreeCommands {
  StatusCode Run(ProgressReporter& reporter) override {
    const auto code = ThreeCommands::Run(reporter);
    if (code == 25) lost = open("/dev/null", O_RDONLY | O_CLOEXEC);
    return code;
  }
  ~LosesDescriptor() override {
    if (lost >= 0) close(lost);
  }
  int lost = -1;
};

TEST(Sweep, FindsADescriptorThatOneWayOutLeavesOpen) {
  EXPECT_NONFATAL_FAILURE(
      SweepFaults<LosesDescriptor>(Fault::Fail(), [](LosesDescriptor&, const SweptRun&) {}),
      "a descriptor was left open");
}

}  // namespace
}  // namespace Morvu
