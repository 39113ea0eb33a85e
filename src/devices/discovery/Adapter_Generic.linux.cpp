#include "devices/discovery/Adapter_Generic.h"

#include <sys/stat.h>

#include <algorithm>
#include <fstream>

#include "devices/discovery/OsPartition.h"
#include "devices/identification/DeviceIdentification.h"
#include "devices/model/Drive.h"
#include "devices/properties/BasicProperties.h"
#include "devices/system/SystemNodes.h"
#include "frame/Files.h"
#include "frame/Logger.h"
#include "frame/Text.h"

namespace Morvu::DeviceManagement {
namespace {

constexpr std::string_view kDiskType = "0";  // SPC-4, table 155: direct access block device

std::string ReadAttribute(const std::string& name, std::string_view attribute) {
  return Trim(
      ReadFileText("/sys/class/scsi_generic/" + name + "/device/" + std::string(attribute)));
}

bool IsDisk(const std::string& name) {
  const auto type = ReadAttribute(name, "type");
  MORVU_LOG(kLogInfo, "FindPhysical", "Checking device: " + type);
  const bool isDisk = type == kDiskType;
  MORVU_LOG(kLogInfo, "FindPhysical",
            isDisk ? "Device is a disk drive" : "Device is not a disk drive: " + name);
  return isDisk;
}

bool IsOnWantedBus(const std::string& name, bool scanUsb) {
  const auto lines = RunPipeline("ls -l /sys/class/scsi_generic/ | grep -E \"/" + name + "$\"");
  if (lines.size() != 1) {
    MORVU_LOG(kLogWarning, "FindPhysical", "Failed to check for USB status");
    return false;
  }
  const bool wanted = scanUsb || lines[0].find("usb") == std::string::npos;
  MORVU_LOG(kLogInfo, "FindPhysical",
            wanted ? "Device is either not USB or USB scanning is enabled"
                   : "Not adding. Device is a USB drive and USB scanning is not enabled");
  return wanted;
}

bool NodeExists(const std::string& path) {
  struct stat status {};
  const bool exists = stat(path.c_str(), &status) == 0;
  MORVU_LOG(kLogInfo, "FindPhysical", (exists ? "Found " : "Failed to find ") + path);
  return exists;
}

std::unique_ptr<Drive> MakeGenericDrive(const std::string& name) {
  const auto model = ReadAttribute(name, "model");
  const auto firmware = ReadAttribute(name, "rev");
  MORVU_LOG(kLogInfo, "FindPhysical", "Model: " + model);
  MORVU_LOG(kLogInfo, "FindPhysical", "Firmware: " + firmware);
  const auto path = "/dev/" + name;
  if (!NodeExists(path)) return nullptr;
  MORVU_LOG(kLogInfo, "FindPhysical", "Creating Drive object");
  auto drive = std::make_unique<Drive>();
  drive->AddProperty(Properties::DevicePath, path);
  drive->AddProperty(Properties::Firmware, firmware);
  drive->AddProperty(Properties::ModelNumber, model);
  // A drive that does not answer stays in the list, and the user learns of it.
  drive->Initialize();
  return drive;
}

std::unique_ptr<Drive> MakeNamespaceDrive(const std::string& path, std::uint32_t space) {
  MORVU_LOG(kLogInfo, "FindPhysical", "Looking at nvme drive path " + path);
  auto drive = std::make_unique<Drive>();
  drive->AddProperty(Properties::DevicePath, path);
  drive->AddProperty(Properties::Firmware, "");
  drive->AddProperty(Properties::ModelNumber, "");
  if (!drive->Initialize()) {
    MORVU_LOG(kLogWarning, "FindPhysical", "Drive didnt detect a drive path " + path);
    return nullptr;
  }
  // Logical units count from 0, namespaces from 1.
  drive->AddProperty(Properties::Lun, space - 1);
  MORVU_LOG(kLogInfo, "FindPhysical",
            "Drive " + path + " has command set " + drive->GetPath().GetProtocol());
  return drive;
}

void FindPartitions(Device& drive) {
  const auto path = drive.GetString(Properties::DevicePath);
  if (ParseNvmeNode(path)) {
    MORVU_LOG(kLogInfo, "FindLogicalDrives", "Checking " + path + " for partitions");
  }
  for (const auto& name : ListPartitions(path)) {
    MORVU_LOG(kLogInfo, "FindLogicalDrives", "Found a partition: " + name);
    MORVU_LOG(kLogInfo, "FindLogicalDrives", "Adding new Partition object for the partition");
    drive.GetPartitions().emplace_back("/dev/" + name);
  }
}

}  // namespace

void Adapter_Generic_Linux::ScanDrives(const ScanOptions& options, Adapter_Generic_Linux*) {
  MORVU_LOG(kLogInfo, "ScanDrives", "Scanning for drives");
  Devices found;
  FindGenericDrives(options, found);
  FindNvmeDrives(found);
  if (options.findLogical) {
    MORVU_LOG(kLogInfo, "FindLogicalDrives", "Looking for logical drives");
    for (auto& drive : found) FindPartitions(*drive);
    MarkOsPartitions(found);
  }
  // Which drive is which shows in its identify data only.
  if (!options.replaceObjects && options.identify) {
    for (auto& drive : found) UpdateProperties(*drive);
  }
  SyncDrives(std::move(found), options);
}

void Adapter_Generic_Linux::FindGenericDrives(const ScanOptions& options, Devices& found) {
  MORVU_LOG(kLogInfo, "FindPhysical", "Looking for physical drives");
  for (const auto& name : ListGenericNodes()) {
    if (!IsDisk(name) || !IsOnWantedBus(name, options.scanUsb)) continue;
    if (auto drive = MakeGenericDrive(name)) found.push_back(std::move(drive));
  }
}

void Adapter_Generic_Linux::FindNvmeDrives(Devices& found) {
  MORVU_LOG(kLogInfo, "FindPhysical", "Scanning NVME Drives");
  for (const auto& path : ListNvmeNodes()) {
    const auto node = ParseNvmeNode(path);
    if (!node || !node->space || !std::ifstream(path).is_open()) continue;
    if (auto drive = MakeNamespaceDrive(path, *node->space)) found.push_back(std::move(drive));
  }
}

std::unique_ptr<Device> Adapter_Generic_Linux::Clone() const {
  auto clone = std::make_unique<Adapter_Generic_Linux>();
  clone->CopyFrom(*this);
  return clone;
}

}  // namespace Morvu::DeviceManagement
