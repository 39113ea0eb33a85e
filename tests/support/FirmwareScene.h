// A drive, an image for it, and a firmware update by one of its faces.
#pragma once

#include <string>
#include <utility>
#include <vector>

#include "devices/discovery/AdapterManager.h"
#include "operations/firmware/FirmwareUpdate.h"
#include "support/CommandLine.h"
#include "support/FirmwareModules.h"
#include "support/MethodCalls.h"
#include "support/Scene.h"

namespace Morvu::Testing {

inline constexpr std::string_view kOldRevision = "OLD1";
inline constexpr std::string_view kNewRevision = "NEW2";

inline Simulator::DriveSpec SataSpec() {
  return {.model = "MORVU SSDSC2BB480G4", .serial = "BTWL1234", .firmware = "OLD1"};
}
inline Simulator::DriveSpec DunmereSpec() {
  return {.model = "MORVU SSDSA2DM200G3", .serial = "CVDM1234", .firmware = "OLD1"};
}
inline Simulator::DriveSpec NvmeSpec() {
  return {.kind = Simulator::Kind::Nvme,
          .model = "MORVU SSDPEDMD400G4",
          .serial = "CVFT1234",
          .firmware = "OLD1"};
}
inline Simulator::DriveSpec SasSpec() {
  return {.kind = Simulator::Kind::Scsi,
          .model = "SSD400SAS",
          .serial = "SAS01234",
          .firmware = "OLD1"};
}

class FirmwareScene : public DriveScene {
 public:
  explicit FirmwareScene(const Simulator::DriveSpec& spec, std::size_t imageSize = 140'000)
      : DriveScene(spec), image(MakeSimulatedImage(std::string(kNewRevision), imageSize)) {
    EXPECT_TRUE(SaveBinary(ImagePath(), image, false));
    drive.WriteMedium(0, medium);
  }

  std::string ImagePath() const { return fleet.Folder() + "/image.bin"; }

  void Prepare() override {
    DriveScene::Prepare();
    if (device() != nullptr && shape) shape(*device());
  }

  StatusCode Run(ProgressReporter& reporter) override {
    FirmwareUpdate update(device(), false, ImagePath(), reporter);
    if (update.GetErrorCode() == Status::ReadyToRun) update.Execute();
    return update.GetErrorCode();
  }

  // The revision that the drive runs, or is to run after its next reset.
  std::string GetRevision() {
    const auto& state = drive.State();
    if (state.kind == Simulator::Kind::Nvme && state.nvme.nextSlot != 0) {
      return state.nvme.slots[state.nvme.nextSlot - 1];
    }
    return state.firmware;
  }
  bool IsMediumUntouched() { return drive.ReadMedium(0, medium.size()) == medium; }

  ByteVector image;
  ByteVector medium = ByteVector(4096, 0xA5);
  std::function<void(DeviceManagement::Device&)> shape;  // after the scan
};

// Clones of all drives of the machine, as a request that names none of them has them.
inline DeviceManagement::SelectedDevices ScanAndClone() {
  DeviceManagement::ScanOptions options;
  options.identify = true;
  DeviceManagement::AdapterManager manager(options);
  manager.Scan(options);
  DeviceManagement::SelectedDevices selected;
  for (const auto* found : manager.GetDrives()) selected.devices.push_back(found->Clone());
  return selected;
}

// Several drives of one machine.
class DrivesScene {
 public:
  explicit DrivesScene(const std::vector<Simulator::DriveSpec>& specs) {
    for (const auto& spec : specs) drives.push_back(fleet.Add(spec));
  }

  static DeviceManagement::SelectedDevices Select() { return ScanAndClone(); }
  std::string SaveImage(const std::string& revision, std::size_t size) const {
    const auto path = fleet.Folder() + "/" + revision + ".bin";
    EXPECT_TRUE(SaveBinary(path, MakeSimulatedImage(revision, size), false));
    return path;
  }

  Simulator::TestFleet fleet;
  std::vector<Simulator::SimulatedDrive> drives;
};

// The same by the drive method.
class MethodScene : public FirmwareScene {
 public:
  using FirmwareScene::FirmwareScene;

  StatusCode Run(ProgressReporter& reporter) override {
    JobContext context;
    context.reporter = &reporter;
    DeviceManagement::SelectedDevices devices;
    devices.devices.push_back(device()->Clone());
    return CallMethod(context, "FirmwareUpdate", {{"file", ImagePath()}}, devices);
  }
};

// The same by the command line, its scan included.
class CommandLineScene : public FirmwareScene {
 public:
  using FirmwareScene::FirmwareScene;

  void Prepare() override {}
  StatusCode Run(ProgressReporter&) override {
    return RunLine(
        {"-drive_serial", drive.State().serial, "-firmware_update", ImagePath(), "-force"});
  }

  StatusCode RunLine(const std::vector<std::string>& words, const std::string& answers = "") {
    auto outcome = RunToolLine(words, answers);
    output = std::move(outcome.output);
    sideResult = outcome.sideResult;
    return outcome.code;
  }

  std::string output;
  StatusCode sideResult = Status::NotRun;
};

}  // namespace Morvu::Testing
