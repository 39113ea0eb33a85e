#pragma once

#include <array>
#include <string>
#include <vector>

#include "devices/commands/CommandPath_LSI.h"
#include "devices/model/Drive.h"

namespace Morvu::DeviceManagement {

// Where the adapter has a drive, as its library tells it.
struct LsiLocation {
  std::uint32_t enclosure = 0;
  std::uint32_t slot = 0;
  std::uint32_t connector = 0;
  std::uint64_t sasAddress = 0;
};

// A drive behind an LSI RAID controller. The operating system has no node of it: its
// "DevicePath" is a name that the controller's and its own number make.
class Drive_LSI final : public Drive {
 public:
  Drive_LSI(LsiDrive drive, const LsiLocation& location);

  // Makes the path of the first transport by which the drive answers.
  bool Initialize() override;
  std::unique_ptr<Device> Clone() const override;
  void CopyFrom(const Device& other) override;
  // A volume of which the system has no disk is there by a name that is no node.
  std::vector<std::string> GetVolumeNodes() const override { return volumeNodes_; }

  const LsiDrive& GetDrive() const { return drive_; }
  std::uint16_t GetDeviceId() const { return drive_.device; }
  const LsiLocation& GetLocation() const { return location_; }
  // Of the volumes that this drive is a member of.
  void SetVolumeNodes(std::vector<std::string> nodes) { volumeNodes_ = std::move(nodes); }

 private:
  LsiDrive drive_;
  LsiLocation location_;
  std::vector<std::string> volumeNodes_;
};

}  // namespace Morvu::DeviceManagement
