#include "devices/model/Drive_LSI.h"

#include "devices/properties/BasicProperties.h"
#include "devices/properties/DriverProperties.h"
#include "devices/properties/ProductProperties.h"

namespace Morvu::DeviceManagement {
namespace {

template <typename Path>
std::unique_ptr<CommandPath> NewPath(const LsiDrive& drive) {
  return std::make_unique<Path>(drive);
}

using MakePath = std::unique_ptr<CommandPath> (*)(const LsiDrive& drive);
// In the order in which a drive is tried: a SATA drive answers SCSI commands too.
constexpr MakePath kPaths[] = {
    &NewPath<CommandPath_LSI_ATA_SCSI>,
    &NewPath<CommandPath_LSI_ATA>,
    &NewPath<CommandPath_LSI_SCSI>,
};

}  // namespace

Drive_LSI::Drive_LSI(LsiDrive drive, const LsiLocation& location)
    : drive_(std::move(drive)), location_(location) {
  AddProperty(Properties::DevicePath, drive_.GetName());
  AddProperty(Properties::DriverManufacturer, "LSI API");
  AddProperty(Properties::LSI, true);
  SetPath(CreateBasePath(properties_, true));
}

bool Drive_LSI::Initialize() {
  for (const auto makePath : kPaths) {
    auto path = makePath(drive_);
    if (!path->IsOpen() || !path->TestDevice()) continue;
    SetPath(std::move(path));
    AddCommandSet(CreateCommandSet(properties_, *path_));
    return true;
  }
  return false;
}

void Drive_LSI::CopyFrom(const Device& other) {
  if (const auto* drive = dynamic_cast<const Drive_LSI*>(&other)) {
    drive_ = drive->drive_;
    location_ = drive->location_;
    volumeNodes_ = drive->volumeNodes_;
  }
  Drive::CopyFrom(other);
}

std::unique_ptr<Device> Drive_LSI::Clone() const {
  auto clone = std::make_unique<Drive_LSI>(drive_, location_);
  clone->CopyFrom(*this);
  return clone;
}

}  // namespace Morvu::DeviceManagement
