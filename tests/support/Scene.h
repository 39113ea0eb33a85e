// A scene of an operation's test: a fleet with one drive, and the drive as a job has it.
#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "devices/discovery/AdapterManager.h"
#include "devices/properties/BasicProperties.h"
#include "messaging/ProgressReporter.h"
#include "support/SceneBase.h"

namespace Morvu::Testing {

//   struct EraseScene : DriveScene {
//     EraseScene() : DriveScene({.model = "MORVU SSDSC2BB480G4"}) {
//       drive.State().ata.security.frozen = 0;                      shape the drive
//     }
//     StatusCode Run(ProgressReporter& reporter) override {   and run the operation
//       SecureErase erase(device(), reporter);
//       if (erase.GetErrorCode() == Status::ReadyToRun) erase.Execute();
//       return erase.GetErrorCode();
//     }
//   };
class DriveScene : public Scene {
 public:
  using Scene::Scene;

  // The scan that finds the drive, identified, and the clone of it that a job works on.
  void Prepare() override;
  std::uint32_t GetTimeout() const override {
    return device_ ? static_cast<std::uint32_t>(device_->GetTimeout().count()) : 0;
  }

  // The drive of the scan; null before Prepare, and in scenes that prepare otherwise.
  DeviceManagement::Device* device() const { return device_.get(); }

 private:
  std::unique_ptr<DeviceManagement::AdapterManager> manager_;
  std::unique_ptr<DeviceManagement::Device> device_;
};

inline void DriveScene::Prepare() {
  DeviceManagement::ScanOptions options;
  options.identify = true;
  options.scanLsi = !drive.Node().starts_with('/');
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
