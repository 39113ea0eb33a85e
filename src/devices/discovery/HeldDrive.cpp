#include "devices/discovery/HeldDrive.h"

#include "devices/identification/ProductDetection.h"
#include "devices/model/Drive.h"
#include "devices/properties/BasicProperties.h"
#include "devices/properties/IdentityProperties.h"
#include "devices/properties/ScanProperties.h"
#include "devices/system/SystemNodes.h"
#include "frame/Logger.h"
#include "frame/status/Drives.h"

namespace Morvu::DeviceManagement {

void DescribeUnasked(Device& drive, const SystemFacts& facts) {
  const auto path = drive.GetString(Properties::DevicePath);
  if (ParseNvmeNode(path)) {
    const auto told = facts.ReadController(path);
    drive.AddProperty(Properties::ModelNumber, told.model);
    drive.AddProperty(Properties::Firmware, told.revision);
  }
  drive.AddProperty(Properties::SerialNumber, facts.FindSerialNumber(path));
  if (const auto name = facts.FindWorldWideName(path)) drive.AddProperty(Properties::WWID, name);
  ProductDetection(drive.GetProperties()).Merge(drive.GetProperties());
}

void DescribeHeldDrive(Device& drive, const SystemFacts& facts) {
  MORVU_LOG(
      kLogInfo, "DescribeHeldDrive",
      "Another works on the drive, it is not asked: " + drive.GetString(Properties::DevicePath));
  DescribeUnasked(drive, facts);
  drive.AddProperty(Properties::DriverCommunicationError, Status::DriveHeld.Value());
}

void TakeKnown(Device& held, const Device& known) {
  const auto partitions = held.GetPartitions();
  held.CopyFrom(known);
  held.GetPartitions() = partitions;
}

}  // namespace Morvu::DeviceManagement
