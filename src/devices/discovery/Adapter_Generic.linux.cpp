#include "devices/discovery/Adapter_Generic.h"

#include <algorithm>

#include "devices/commands/CommandPath_ATA_SCSI.h"
#include "devices/commands/CommandPath_NVME.h"
#include "devices/commands/CommandSet_ATA.h"
#include "devices/discovery/DriveRest.h"
#include "devices/discovery/HeldDrive.h"
#include "devices/discovery/SideBySide.h"
#include "devices/identification/DeviceIdentification.h"
#include "devices/model/Drive.h"
#include "devices/model/DriveHold.h"
#include "devices/properties/BasicProperties.h"
#include "devices/properties/IdentityProperties.h"
#include "devices/system/SystemFacts.h"
#include "frame/Logger.h"

namespace Morvu::DeviceManagement {
namespace {

constexpr std::string_view kDiskType = "0";  // SPC-4, table 155: direct access block device

bool IsDisk(const std::string& name, const GenericDevice& device) {
  MORVU_LOG(kLogInfo, "FindPhysical", "Checking device: " + device.type);
  const bool isDisk = device.type == kDiskType;
  MORVU_LOG(kLogInfo, "FindPhysical",
            isDisk ? "Device is a disk drive" : "Device is not a disk drive: " + name);
  return isDisk;
}

bool IsOnWantedBus(const std::string& name, bool scanUsb, const SystemFacts& facts) {
  const auto isUsb = facts.IsUsb(name);
  if (!isUsb) {
    MORVU_LOG(kLogWarning, "FindPhysical", "Failed to check for USB status");
    return false;
  }
  const bool wanted = scanUsb || !*isUsb;
  MORVU_LOG(kLogInfo, "FindPhysical",
            wanted ? "Device is either not USB or USB scanning is enabled"
                   : "Not adding. Device is a USB drive and USB scanning is not enabled");
  return wanted;
}

std::unique_ptr<Device> MakeGenericDrive(const GenericCandidate& candidate) {
  MORVU_LOG(kLogInfo, "FindPhysical", "Model: " + candidate.device.model);
  MORVU_LOG(kLogInfo, "FindPhysical", "Firmware: " + candidate.device.revision);
  MORVU_LOG(kLogInfo, "FindPhysical", "Found " + candidate.path);
  MORVU_LOG(kLogInfo, "FindPhysical", "Creating Drive object");
  auto drive = std::make_unique<Drive>();
  drive->AddProperty(Properties::DevicePath, candidate.path);
  drive->AddProperty(Properties::Firmware, candidate.device.revision);
  drive->AddProperty(Properties::ModelNumber, candidate.device.model);
  return drive;
}

// Many SAS drives leave the field of INQUIRY for their serial number blank; the kernel has
// it from the page that is made for it.
void CompleteIdentity(Device& drive, const SystemFacts& facts) {
  if (!drive.HasCommandSet(Protocol::Scsi)) return;
  const auto path = drive.GetString(Properties::DevicePath);
  if (drive.GetString(Properties::SerialNumber).empty()) {
    const auto serial = facts.FindSerialNumber(path);
    if (!serial.empty()) drive.AddProperty(Properties::SerialNumber, serial);
  }
  const auto name = facts.FindWorldWideName(path);
  if (name != 0) drive.AddProperty(Properties::WWID, name);
}

// The first command: a drive behind the SATA layer is known by the vendor that the layer gives it
// (SAT-3, 8.1.2).
Rest AskForGenericRest(const Device& drive, const GenericDevice& shown) {
  constexpr std::string_view kSataVendor = "ATA";
  if (shown.vendor != kSataVendor) return Rest::Awake;
  CommandPath_ATA_SCSI path(drive.GetString(Properties::DevicePath));
  CommandSet_ATA ata(drive.GetProperties(), path);
  return AskForRest(ata);
}

void AskGenericDrive(Device& drive, const GenericDevice& shown, const ScanOptions& options,
                     const SystemFacts& facts) {
  const DriveHold hold(drive.GetString(Properties::DevicePath), facts, DriveHold::Kind::Moment);
  if (!hold.IsTaken()) {
    drive.SetPath(CreateBasePath(drive.GetProperties(), true));
    return DescribeHeldDrive(drive, facts);
  }
  if (options.letsSleep) {
    drive.SetOptions(options);
    if (const auto rest = AskForGenericRest(drive, shown); rest != Rest::Awake) {
      drive.SetPath(CreateBasePath(drive.GetProperties(), true));
      drive.SetAsleep(rest == Rest::Asleep);
      return DescribeUnasked(drive, facts);
    }
  }
  // A drive that does not answer stays in the list, and the user learns of it.
  drive.Initialize();
  if (!options.identify) return;
  UpdateProperties(drive);
  CompleteIdentity(drive, facts);
}

// False for a namespace that is to be left out.
bool AskNamespaceDrive(Device& drive, const ScanOptions& options, const SystemFacts& facts) {
  const auto path = drive.GetString(Properties::DevicePath);
  const DriveHold hold(path, facts, DriveHold::Kind::Moment);
  if (!hold.IsTaken()) {
    DescribeHeldDrive(drive, facts);
    return true;
  }
  if (!drive.Initialize()) {
    MORVU_LOG(kLogWarning, "FindPhysical", "Drive didnt detect a drive path " + path);
    return false;
  }
  MORVU_LOG(kLogInfo, "FindPhysical",
            "Drive " + path + " has command set " + drive.GetPath().GetProtocol());
  if (options.identify) UpdateProperties(drive);
  return true;
}

// The namespaces that no controller's adapter takes.
std::vector<NvmeSpace> FindSpaces(const ScanOptions& options, const SystemFacts& facts) {
  MORVU_LOG(kLogInfo, "FindPhysical", "Scanning NVME Drives");
  std::vector<NvmeSpace> spaces;
  for (const auto& space : facts.GetNvmeSpaces().value_or(spaces)) {
    const bool isTaken = options.scanNvme && !space.controllers.empty();
    if (!isTaken && options.Wants(space.path)) spaces.push_back(space);
  }
  return spaces;
}

}  // namespace

std::vector<GenericCandidate> FindGenericCandidates(const ScanOptions& options,
                                                    const SystemFacts& facts) {
  MORVU_LOG(kLogInfo, "FindPhysical", "Looking for physical drives");
  std::vector<GenericCandidate> candidates;
  for (const auto& name : facts.GetGenericNodes().value_or(std::vector<std::string>())) {
    auto path = "/dev/" + name;
    if (!options.Wants(path)) continue;
    auto device = facts.ReadGenericDevice(name);
    if (IsDisk(name, device) && IsOnWantedBus(name, options.scanUsb, facts)) {
      candidates.push_back({std::move(path), std::move(device)});
    }
  }
  return candidates;
}

std::unique_ptr<Device> MakeNamespaceDrive(const NvmeSpace& space) {
  MORVU_LOG(kLogInfo, "FindPhysical", "Looking at nvme drive path " + space.path);
  if (!space.identifier) {
    MORVU_LOG(kLogError, "FindPhysical", "The namespace's identifier is not known: " + space.path);
    return nullptr;
  }
  auto path = std::make_unique<CommandPath_NVME>(space.path);
  if (!path->IsOpen()) return nullptr;
  auto drive = std::make_unique<Drive>();
  drive->AddProperty(Properties::DevicePath, space.path);
  drive->AddProperty(Properties::Firmware, "");
  drive->AddProperty(Properties::ModelNumber, "");
  // Logical units count from 0, namespaces from 1.
  drive->AddProperty(Properties::Lun, *space.identifier - 1);
  drive->SetPath(std::move(path));
  return drive;
}

void Adapter_Generic_Linux::ScanDrives(const ScanOptions& options, const SystemFacts& facts) {
  MORVU_LOG(kLogInfo, "ScanDrives", "Scanning for drives");
  Devices found;
  const auto candidates = FindGenericCandidates(options, facts);
  for (const auto& candidate : candidates) found.push_back(MakeGenericDrive(candidate));
  const auto generic = found.size();
  for (const auto& space : FindSpaces(options, facts)) {
    if (auto drive = MakeNamespaceDrive(space)) found.push_back(std::move(drive));
  }
  AskSideBySide(found.size(), [&](std::size_t i) {
    if (i < generic) {
      AskGenericDrive(*found[i], candidates[i].device, options, facts);
    } else if (!AskNamespaceDrive(*found[i], options, facts)) {
      found[i].reset();
    }
  });
  std::erase(found, nullptr);
  SyncDrives(std::move(found), options);
}

std::unique_ptr<Device> Adapter_Generic_Linux::Clone() const {
  auto clone = std::make_unique<Adapter_Generic_Linux>();
  clone->CopyFrom(*this);
  return clone;
}

}  // namespace Morvu::DeviceManagement
