// A scene of an operation's test: a fleet with one drive, and the drive as a job has it.
#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "TestFleet.h"
#include "devices/AdapterManager.h"
#include "frame/StatusCode.h"
#include "messaging/ProgressReporter.h"

namespace Morvu::Testing {

//   struct EraseScene : DriveScene {
//     EraseScene() : DriveScene({.model = "MORVU SSDSC2BB480G4"}) {
//       drive.State().ata.security.frozen = 0;                      shape the drive
//     }
//     StatusCode Run(const ProgressReporter* reporter) override {   and run the operation
//       SecureErase erase(device(), reporter);
//       if (erase.GetErrorCode() == Status::ReadyToRun) erase.Execute();
//       return erase.GetErrorCode();
//     }
//   };
//
// One scene at a time may live: it stands for the machine.
class DriveScene {
 public:
  explicit DriveScene(const Simulator::DriveSpec& spec) : drive(fleet.Add(spec)) {}
  virtual ~DriveScene() = default;
  DriveScene(const DriveScene&) = delete;
  DriveScene& operator=(const DriveScene&) = delete;

  // What stands before the run and is no part of it. Here: the scan that finds the
  // drive, identified, and the clone of it that a job works on.
  virtual void Prepare();
  // One run of the operation, and its status. `reporter` may be null.
  virtual StatusCode Run(const ProgressReporter* reporter) = 0;

  // The drive of the scan; null before Prepare, and in scenes that prepare otherwise.
  DeviceManagement::Device* device() const { return device_.get(); }

  Simulator::TestFleet fleet;
  Simulator::SimulatedDrive drive;

 private:
  std::unique_ptr<DeviceManagement::AdapterManager> manager_;
  std::unique_ptr<DeviceManagement::Device> device_;
};

inline void DriveScene::Prepare() {
  DeviceManagement::ScanOptions options;
  options.identify = true;
  manager_ = std::make_unique<DeviceManagement::AdapterManager>(options);
  manager_->Scan(options);
  const std::string serial = drive.State().serial;
  for (const auto* found : manager_->GetDrives()) {
    if (found->GetString(DeviceManagement::Properties::SerialNumber) != serial) continue;
    device_ = found->Clone();
    return;
  }
  FAIL() << "the scan did not find " << drive.Node();
}

}  // namespace Morvu::Testing
