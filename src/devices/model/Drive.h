#pragma once

#include <memory>
#include <string>
#include <vector>

#include "devices/model/Device.h"

namespace Morvu::DeviceManagement {

// A storage drive, addressed by its "Index".
class Drive : public Device {
 public:
  Drive();

  void CopyFrom(const Device& other) override;
  std::unique_ptr<Device> Clone() const override;
  std::string ToText() const override;
  Drive* AsDrive() override { return this; }

  // The member drives of a logical drive.
  std::vector<std::unique_ptr<Device>>& GetChildren() { return children_; }
  const std::vector<std::unique_ptr<Device>>& GetChildren() const { return children_; }

 protected:
  bool AskConnection() override;

 private:
  std::vector<std::unique_ptr<Device>> children_;
};

// Whether a scan found the drive held by somebody, and asked it nothing.
bool IsHeldDrive(const Device& drive);

// Whether a device can be told from all others, wherever its node goes: it has a serial
// number or a World Wide Name.
bool HasIdentity(const Device& device);

// Whether two devices are one drive: of the same serial number and, as the
// namespaces of a controller share theirs, of the same logical unit. Drives without
// a serial number are told apart by their World Wide Names, else by their nodes.
bool IsSameDrive(const Device& left, const Device& right);

}  // namespace Morvu::DeviceManagement
