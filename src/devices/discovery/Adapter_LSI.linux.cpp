#include "devices/discovery/Adapter_LSI.h"

#include <dlfcn.h>

#include <algorithm>
#include <iterator>

#include "devices/commands/CommandSet_ATA.h"
#include "devices/discovery/DriveRest.h"
#include "devices/discovery/SideBySide.h"
#include "devices/identification/DeviceIdentification.h"
#include "devices/model/DriveHold.h"
#include "devices/properties/AdapterProperties.h"
#include "devices/properties/BasicProperties.h"
#include "devices/properties/DriverProperties.h"
#include "devices/properties/ProductProperties.h"
#include "devices/properties/ScanProperties.h"
#include "devices/system/KernelFiles.h"
#include "devices/system/SystemNodes.h"
#include "frame/Logger.h"
#include "frame/Platform.h"
#include "frame/Text.h"
#include "frame/status/Drives.h"

namespace Morvu::DeviceManagement {
namespace {

constexpr std::string_view kDriverName = "LSI";

// What a volume takes over from its controller.
constexpr const PropertyEntry* kControllerProperties[] = {
    &Properties::ControllerCompatibleIDs,
    &Properties::ControllerDescription,
    &Properties::ControllerID,
    &Properties::ControllerIDEMode,
    &Properties::ControllerManufacturer,
    &Properties::ControllerService,
    &Properties::DriverDescription,
    &Properties::DriverMajorVersion,
    &Properties::DriverManufacturer,
    &Properties::DriverMinorVersion,
};

// The folder of the object that this code is in: a program's own, or the shared library's.
std::string GetOwnDirectory() {
  Dl_info self{};
  if (dladdr(reinterpret_cast<const void*>(&GetOwnDirectory), &self) == 0) return {};
  const std::string path = self.dli_fname == nullptr ? "" : self.dli_fname;
  const auto slash = path.rfind('/');
  return slash == path.npos ? std::string() : path.substr(0, slash + 1);
}

std::vector<std::string> ListCandidates(const ScanOptions& options) {
  auto paths = options.lsiLibraryPaths;
  for (const auto& folder : {GetExecutableDirectory(), GetOwnDirectory()}) {
    auto path = folder + std::string(kLsiLibraryName);
    if (folder.empty() || std::ranges::count(paths, path) > 0) continue;
    paths.push_back(std::move(path));
  }
  return paths;
}

// The path goes into a block of its own length, and ends at its NUL.
bool MayBeAsked(const std::string& path) {
  constexpr std::size_t kLongest = 0xFFFF;
  return path.size() <= kLongest && path.find('\0') == path.npos;
}

LsiLocation ReadLocation(ByteView record) {
  const auto field = [&](std::size_t i) {
    return static_cast<std::uint32_t>(LibBlock::GetIn(record, DriveRecord::Location[i]));
  };
  return {field(0), field(1), field(2), std::uint64_t{field(4)} << 32 | field(3)};
}

std::uint16_t Get16(ByteView record, const BlockField& field) {
  return static_cast<std::uint16_t>(LibBlock::GetIn(record, field));
}

// More is claimed than there was room for.
bool IsCutShort(const LibBlock& block, const BlockList& list) {
  return block.Get(kListCount) > block.GetRecords(list).size();
}

std::string JoinNumbers(const std::set<std::uint16_t>& numbers) {
  std::string text;
  for (const auto number : numbers) text += (text.empty() ? "" : ", ") + std::to_string(number);
  return text;
}

// False for a drive that is to be left out.
bool AskDrive(Drive_LSI& drive, const ScanOptions& options, const SystemFacts& facts) {
  const DriveHold hold(drive, facts, DriveHold::Kind::Moment);
  if (!hold.IsTaken()) {
    // The system knows nothing of it; what an earlier scan knew stays.
    MORVU_LOG(
        kLogInfo, "FindPhysical",
        "Another works on the drive, it is not asked: " + drive.GetString(Properties::DevicePath));
    drive.AddProperty(Properties::DriverCommunicationError, Status::DriveHeld.Value());
    return true;
  }
  if (!drive.Initialize()) {
    MORVU_LOG(kLogWarning, "FindPhysical", "Throwing out drive. Unable to talk to it");
    return false;
  }
  MORVU_LOG(kLogInfo, "FindPhysical",
            "Setup drive communication. Physical: " + std::to_string(drive.GetDeviceId()));
  const auto& location = drive.GetLocation();
  MORVU_LOG(kLogDebug, "FindPhysical",
            "Enclosure " + std::to_string(location.enclosure) + ", slot " +
                std::to_string(location.slot) + ", connector " +
                std::to_string(location.connector) + ", SAS address " +
                ToHexNumber(location.sasAddress, 16));
  // Who it is nobody else can tell, and IDENTIFY DEVICE wakes no drive.
  drive.SetOptions(options);
  auto* ata = drive.GetCommandSetAs<CommandSet_ATA>(Protocol::Ata);
  const auto rest = options.letsSleep && ata != nullptr ? AskForRest(*ata) : Rest::Awake;
  drive.SetAsleep(rest == Rest::Asleep);
  if (options.identify) UpdateProperties(drive);
  if (rest == Rest::Unknown) drive.SetPath(CreateBasePath(drive.GetProperties(), true));
  return true;
}

}  // namespace

bool Adapter_LSI::Volumes::IsMember(std::uint16_t device) const {
  return !isWhole || std::ranges::any_of(members, [&](const auto& volume) {
    return volume.second.contains(device);
  });
}

std::vector<std::string> Adapter_LSI::Volumes::FindNodes(const LsiDrive& drive) const {
  std::vector<std::string> nodes;
  for (const auto& [volume, devices] : members) {
    if (!devices.contains(drive.device)) continue;
    const auto number = genericNumbers.find(volume);
    nodes.push_back(number != genericNumbers.end() ? "/dev/sg" + std::to_string(number->second)
                                                   : drive.GetVolumeName(volume));
  }
  return nodes;
}

Adapter_LSI::Adapter_LSI(std::string libraryPath, std::uint32_t controllerId)
    : Adapter("lsi"), controllerId_(controllerId) {
  MORVU_LOG(kLogInfo, "Adapter_LSI", "Entering");
  MORVU_LOG(kLogInfo, "Adapter_LSI", "Library Path = " + libraryPath);
  AddProperty(Properties::DevicePath, libraryPath);
  AddProperty(Properties::DriverManufacturer, "LSI API");
  AddProperty(Properties::DriverDescription, std::string(kDriverName));
  library_ = LsiLibrary(std::move(libraryPath));
}

// A file that is verified and loaded in one: what is found is what runs.
void Adapter_LSI::FindAdapters(AdapterList& list, const ScanOptions& options,
                               const SystemFacts& facts) {
  MORVU_LOG(kLogInfo, "FindAdapters", "Start");
  for (const auto& path : ListCandidates(options)) {
    const Adapter_LSI any(path, 0);
    if (!any.IsLoaded()) continue;
    AdapterList found;
    for (const auto id : any.ListControllers()) {
      found.push_back(any.CreateAdapter(path, id));
      found.back()->AddProperty(Properties::PortNumber,
                                static_cast<std::int32_t>(found.size() - 1));
    }
    AskSideBySide(found.size(), [&](std::size_t i) { found[i]->ScanDrives(options, facts); });
    std::ranges::move(found, std::back_inserter(list));
    return;
  }
}

std::shared_ptr<Adapter_LSI> Adapter_LSI::CreateAdapter(const std::string& path,
                                                        std::uint32_t controllerId) const {
  return std::make_shared<Adapter_LSI>(path, controllerId);
}

std::unique_ptr<Drive_LSI> Adapter_LSI::CreateDrive(const LsiLocation& location,
                                                    std::uint16_t deviceId) const {
  return std::make_unique<Drive_LSI>(LsiDrive{library_.GetPath(), controllerId_, deviceId},
                                     location);
}

std::vector<std::uint32_t> Adapter_LSI::ListControllers() const {
  const auto& path = library_.GetPath();
  std::vector<std::uint32_t> ids;
  if (!MayBeAsked(path)) return ids;
  LibBlock block(LibCalls::Controllers, path.size());
  std::ranges::copy(path, block.From(ControllerBlock::Path).begin());
  if (!library_.Call(LibCalls::Controllers, {}, block)) {
    MORVU_LOG(kLogError, "ListControllers", "Failed to get controller list");
    return ids;
  }
  for (const auto record : block.GetRecords(ControllerBlock::List)) {
    const auto id = static_cast<std::uint32_t>(LibBlock::GetIn(record, ControllerBlock::Id));
    if (std::ranges::count(ids, id) == 0) {
      ids.push_back(id);
    } else {
      MORVU_LOG(kLogWarning, "ListControllers",
                "Controller " + std::to_string(id) + " is told twice");
    }
  }
  return ids;
}

void Adapter_LSI::ScanDrives(const ScanOptions& options, const SystemFacts& facts) {
  MORVU_LOG(kLogInfo, "ScanDrives", "Scanning for drives");
  volumes_ = FindVolumes();
  SyncDrives(FindPhysical(options, facts), options);
}

std::vector<std::unique_ptr<Drive_LSI>> Adapter_LSI::ListPhysical() const {
  std::vector<std::unique_ptr<Drive_LSI>> drives;
  MORVU_LOG(kLogInfo, "FindPhysical", "Looking for physical drives");
  LibBlock block(LibCalls::Drives);
  if (!library_.Call(LibCalls::Drives, {.controller = controllerId_}, block)) {
    MORVU_LOG(kLogError, "FindPhysical", "Failed to get physical drive list");
    return drives;
  }
  MORVU_LOG(kLogInfo, "FindPhysical", "Retrieved list of physical drives");
  std::set<std::uint16_t> seen;
  for (const auto record : block.GetRecords(DriveRecord::List)) {
    const auto device = Get16(record, DriveRecord::Device);
    if ((Get16(record, DriveRecord::Marks) & DriveRecord::kHidden) != 0) continue;
    if (!seen.insert(device).second) {
      MORVU_LOG(kLogWarning, "FindPhysical", "Drive " + std::to_string(device) + " is told twice");
      continue;
    }
    drives.push_back(CreateDrive(ReadLocation(record), device));
  }
  return drives;
}

Adapter::Devices Adapter_LSI::FindPhysical(const ScanOptions& options, const SystemFacts& facts) {
  auto drives = ListPhysical();
  AskSideBySide(drives.size(), [&](std::size_t i) {
    auto& drive = *drives[i];
    drive.AddProperty(Properties::RAIDMember, volumes_.IsMember(drive.GetDeviceId()));
    drive.SetVolumeNodes(volumes_.FindNodes(drive.GetDrive()));
    if (!AskDrive(drive, options, facts)) drives[i].reset();
  });
  std::erase(drives, nullptr);
  return {std::make_move_iterator(drives.begin()), std::make_move_iterator(drives.end())};
}

// ---- Volumes ----

// Asked in every scan: what is not known of a drive's volumes keeps it from being erased.
Adapter_LSI::Volumes Adapter_LSI::FindVolumes() const {
  Volumes volumes;
  MORVU_LOG(kLogInfo, "FindLogical", "Looking for logical drives");
  if (!GetLogicalPhysicalMapping(volumes)) {
    volumes.isWhole = false;
    MORVU_LOG(kLogError, "FindLogical", "Failed to get logical drive list");
    return volumes;
  }
  MORVU_LOG(kLogInfo, "FindLogical",
            "Retrieved list of logical drives: " + std::to_string(volumes.members.size()));
  if (volumes.members.empty()) {
    MORVU_LOG(kLogInfo, "FindLogical", "No logical drives found. Stopping logical scan");
    return volumes;
  }
  if (!GetLogicalOSPhysicalMapping(volumes)) volumes.isWhole = false;
  for (const auto& [volume, members] : volumes.members) {
    MORVU_LOG(kLogInfo, "FindLogical",
              "Logical index: " + std::to_string(volume) + ". Physical: " + JoinNumbers(members));
  }
  return volumes;
}

bool Adapter_LSI::GetLogicalPhysicalMapping(Volumes& volumes) const {
  LibBlock block(LibCalls::VolumesOfDrives);
  if (!library_.Call(LibCalls::VolumesOfDrives, {.controller = controllerId_}, block)) {
    MORVU_LOG(kLogError, "GetLogicalPhysicalMapping",
              "Failed to get physical to logical distribution");
    return false;
  }
  MORVU_LOG(kLogInfo, "GetLogicalPhysicalMapping", "Retrieved physical to logical distribution");
  if (IsCutShort(block, DriveVolumesRecord::List)) volumes.isWhole = false;
  std::set<std::uint16_t> seen;
  for (const auto record : block.GetRecords(DriveVolumesRecord::List)) {
    const auto device = Get16(record, DriveVolumesRecord::Device);
    // A second record adds what it names: who is a member by either is one.
    if (!seen.insert(device).second) {
      MORVU_LOG(kLogWarning, "GetLogicalPhysicalMapping",
                "The volumes of drive " + std::to_string(device) + " are told twice");
    }
    const auto told = Get16(record, DriveVolumesRecord::Count);
    const auto count = std::min(told, DriveVolumesRecord::kMostVolumes);
    if (told > count) volumes.isWhole = false;
    for (std::uint16_t i = 0; i < count; ++i) {
      const auto volume = ReadLittle16(record, DriveVolumesRecord::Volumes + 2u * i);
      volumes.members[volume].insert(device);
    }
  }
  return true;
}

// False when a volume could not be asked about.
bool Adapter_LSI::GetLogicalOSPhysicalMapping(Volumes& volumes) const {
  bool isWhole = true;
  for (auto& [volume, members] : volumes.members) {
    LibBlock block(LibCalls::Members);
    if (!library_.Call(LibCalls::Members, {.controller = controllerId_, .volume = volume}, block)) {
      MORVU_LOG(kLogError, "GetLogicalOSPhysicalMapping",
                "Unable to get logical to OS physical distribution");
      isWhole = false;
      continue;
    }
    MORVU_LOG(kLogInfo, "GetLogicalOSPhysicalMapping",
              "Retrieved logical to OS physical distribution");
    if (IsCutShort(block, MembersBlock::List)) isWhole = false;
    for (const auto record : block.GetRecords(MembersBlock::List)) {
      members.insert(Get16(record, MembersBlock::Device));
    }
    const auto number = static_cast<std::uint32_t>(block.Get(MembersBlock::GenericNumber));
    if (number == MembersBlock::kNoDisk) continue;
    volumes.genericNumbers[volume] = number;
    MORVU_LOG(kLogInfo, "GetLogicalOSPhysicalMapping",
              "Logical index: " + std::to_string(volume) +
                  ". OS physical drive #: " + std::to_string(number));
  }
  return isWhole;
}

bool Adapter_LSI::MayBeMember(const Device& drive) const {
  const auto* member = dynamic_cast<const Drive_LSI*>(&drive);
  return member != nullptr && FindVolumes().IsMember(member->GetDeviceId());
}

void Adapter_LSI::TakeDisks(Adapter& generic, const ScanOptions& options,
                            const SystemFacts& facts) {
  DropTwice(generic);
  if (!volumes_.members.empty()) FindLogical(generic, facts);
  SyncDrives(std::move(drives_), options);
}

// By a node the system knows who uses a drive; of a member it knows nothing.
void Adapter_LSI::DropTwice(Adapter& generic) {
  for (auto& drive : drives_) {
    const auto other = std::ranges::find_if(generic.GetDrives(), [&](const auto& disk) {
      return HasIdentity(*drive) && IsSameDrive(*drive, *disk) &&
             drive->GetString(Properties::ModelNumber) == disk->GetString(Properties::ModelNumber);
    });
    if (other == generic.GetDrives().end()) continue;
    MORVU_LOG(kLogInfo, "DropTwice",
              drive->GetString(Properties::DevicePath) + " and " +
                  (*other)->GetString(Properties::DevicePath) + " are one drive");
    if (drive->GetBool(Properties::RAIDMember)) {
      generic.GetDrives().erase(other);
    } else {
      drive.reset();
    }
  }
  std::erase(drives_, nullptr);
}

void Adapter_LSI::FindLogical(Adapter& generic, const SystemFacts& facts) {
  if (volumes_.genericNumbers.empty()) {
    MORVU_LOG(kLogInfo, "FindLogical",
              "No logical drives matched to operating system physical drives");
    return;
  }
  bool isAnyFound = false;
  for (auto& disk : generic.GetDrives()) {
    const auto number = GetOsDriveNumber(*disk, facts);
    const auto found = std::ranges::find_if(volumes_.genericNumbers, [&](const auto& volume) {
      return number && volume.second == *number;
    });
    if (found == volumes_.genericNumbers.end() || disk->AsDrive() == nullptr) continue;
    isAnyFound = true;
    BecomeVolume(*disk->AsDrive(), found->first);
    drives_.push_back(std::move(disk));
  }
  std::erase(generic.GetDrives(), nullptr);
  if (!isAnyFound) {
    MORVU_LOG(kLogWarning, "FindLogical",
              "No generic drives were found related to LSI virtual volumes");
  }
}

void Adapter_LSI::BecomeVolume(Drive& disk, std::uint16_t volume) const {
  for (const auto* entry : kControllerProperties) {
    if (const auto* value = properties_.Find(*entry)) disk.GetProperties().Add(*value);
  }
  const auto& members = volumes_.members.at(volume);
  bool areAllMorvu = true;
  for (const auto& drive : drives_) {
    const auto* member = dynamic_cast<const Drive_LSI*>(drive.get());
    if (member == nullptr || !members.contains(member->GetDeviceId())) continue;
    areAllMorvu = areAllMorvu && member->GetBool(Properties::Morvu);
    disk.GetChildren().push_back(member->Clone());
  }
  disk.AddProperty(Properties::RAID, true);
  // Of a member that is hidden, or does not answer, nobody knows what it is.
  const bool areAllSeen = !members.empty() && disk.GetChildren().size() == members.size();
  disk.AddProperty(Properties::Morvu, areAllMorvu && areAllSeen);
  // A logical volume is no product.
  disk.GetProperties().Remove(Properties::Product);
  disk.GetProperties().Remove(Properties::ProductFamily);
}

std::unique_ptr<Device> Adapter_LSI::Clone() const {
  auto clone = std::make_unique<Adapter_LSI>(library_.GetPath(), controllerId_);
  clone->CopyFrom(*this);
  return clone;
}

std::optional<std::uint32_t> GetOsDriveNumber(const Device& device, const SystemFacts& facts) {
  MORVU_LOG(kLogInfo, "GetOsDriveNumber", "Getting OS disk number");
  const auto path = device.GetString(Properties::DevicePath);
  const auto disks = facts.FindDisks(GetNodeName(path));
  if (!disks || disks->size() != 1) return {};
  MORVU_LOG(kLogInfo, "GetOsDriveNumber", "Disk Name = " + disks->front());
  auto names = ListFolder("/sys/class/block/" + disks->front() + "/device/scsi_generic")
                   .value_or(std::vector<std::string>());
  std::erase_if(names, [](const auto& name) { return !IsGenericName(name); });
  MORVU_LOG(kLogInfo, "GetOsDriveNumber", "Number of lines = " + std::to_string(names.size()));
  if (names.size() != 1) return {};
  const auto number = ParseDecimal(std::string_view(names.front()).substr(2));
  return number ? std::optional(static_cast<std::uint32_t>(*number)) : std::nullopt;
}

}  // namespace Morvu::DeviceManagement
