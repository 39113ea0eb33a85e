#include "devices/discovery/HeldDrive.h"

#include "devices/identification/ProductDetection.h"
#include "devices/model/Drive.h"
#include "devices/model/Drive_LSI.h"
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
  // A disk that became a volume, or is one no more, is not what was known.
  if (held.GetBool(Properties::RAID) != known.GetBool(Properties::RAID)) return;
  const auto partitions = held.GetPartitions();
  const bool isMember = held.GetBool(Properties::RAIDMember);
  const auto volumeNodes = held.GetVolumeNodes();
  held.CopyFrom(known);
  held.GetPartitions() = partitions;
  if (auto* drive = dynamic_cast<Drive_LSI*>(&held)) {
    drive->AddProperty(Properties::RAIDMember, isMember);
    drive->SetVolumeNodes(volumeNodes);
  }
}

}  // namespace Morvu::DeviceManagement
