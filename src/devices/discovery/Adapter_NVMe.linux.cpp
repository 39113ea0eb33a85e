#include "devices/discovery/Adapter_NVMe.h"

#include "devices/commands/CommandPath_NVME.h"
#include "devices/commands/CommandSet_NVME.h"
#include "devices/discovery/Adapter_Generic.h"
#include "devices/identification/DeviceIdentification.h"
#include "devices/model/Drive.h"
#include "devices/properties/AdapterProperties.h"
#include "devices/properties/BasicProperties.h"
#include "devices/system/SystemNodes.h"
#include "frame/Logger.h"
#include "frame/Text.h"

namespace Morvu::DeviceManagement {
namespace {

constexpr std::uint32_t kSectorSize = 512;

// Only what the node's name tells: "/dev/nvme0n1" belongs to "/dev/nvme0".
bool IsNamespaceOf(std::string_view path, std::string_view controller) {
  const auto node = ParseNvmeNode(path);
  return node && node->space && node->controller == controller;
}

}  // namespace

Adapter_NVMe::Adapter_NVMe(std::int32_t number, std::string nodePath)
    : Adapter("nvme"), nodePath_(std::move(nodePath)) {
  AddProperty(Properties::PortNumber, number);
  AddProperty(Properties::SectorSize, kSectorSize);
}

std::string Adapter_NVMe::GetIdentifier() const {
  return std::to_string(properties_.GetSigned(Properties::PortNumber));
}

Adapter_NVMe_Linux::Adapter_NVMe_Linux(std::int32_t number, std::string nodePath)
    : Adapter_NVMe(number, std::move(nodePath)) {
  MORVU_LOG(kLogInfo, "Adapter_NVMe_Linux",
            "Opening SCSI path / passthrough for this NVMe Linux adapter at path " + GetNodePath());
  AddProperty(Properties::DevicePath, GetNodePath());
  auto path = std::make_unique<CommandPath_NVME>(GetNodePath());
  if (!path->TestDevice()) {
    MORVU_LOG(kLogWarning, "Adapter_NVMe_Linux",
              "In AdapterNVMeLinux constructor, tried to TestDevice() on CommandPath_NVMe, "
              "but failed");
    return;
  }
  MORVU_LOG(kLogInfo, "Adapter_NVMe_Linux",
            "AdapterNVMeLinux has command path to nvme passthough open. Good to go.");
  SetPath(std::move(path));
  AddCommandSet(std::make_unique<CommandSet_NVME>(properties_, *path_));
}

void Adapter_NVMe_Linux::FindAdapters(AdapterList& list, const ScanOptions&) {
  MORVU_LOG(kLogInfo, "FindAdapters", "Scanning NVME Adapters");
  const auto handles = ListNvmeNodes();
  if (handles.empty()) {
    MORVU_LOG(kLogInfo, "FindAdapters", "No NVME adapters/drives found");
    return;
  }
  std::int32_t number = 0;
  for (const auto& path : handles) {
    MORVU_LOG(kLogInfo, "FindAdapters", "UniqueDrive string " + path);
    MORVU_LOG(kLogInfo, "FindAdapters", "NVME HANDLE = " + path);
    const auto node = ParseNvmeNode(path);
    if (!node || node->space) continue;
    const auto adapter = std::make_shared<Adapter_NVMe_Linux>(number, path);
    MORVU_LOG(kLogInfo, "FindAdapters", "Passthrough " + std::to_string(number) + " = " + path);
    ++number;
    MORVU_LOG(kLogInfo, "FindAdapters",
              adapter->IsUsable() ? "    This path appeared to pass NVMe testing"
                                  : "    This path did not pass NVMe... should not be added.");
    if (adapter->IsUsable()) list.push_back(adapter);
  }
}

void Adapter_NVMe_Linux::ScanDrives(const ScanOptions& options, Adapter_Generic_Linux* generic) {
  MORVU_LOG(kLogInfo, "ScanDrives",
            "Matching block/namespace handles to this NVMe adapter " + GetNodePath());
  Devices found;
  if (generic != nullptr) TakeNamespaces(*generic, found);
  if (found.empty()) {
    MORVU_LOG(kLogInfo, "ScanDrives", "This adapter has no drives. Assuming logical disable.");
    found.push_back(MakeControllerDrive());
  }
  // Which drive is which shows in its identify data only.
  if (!options.replaceObjects && options.identify) {
    for (auto& drive : found) UpdateProperties(*drive);
  }
  SyncDrives(std::move(found), options);
}

void Adapter_NVMe_Linux::TakeNamespaces(Adapter_Generic_Linux& generic, Devices& found) {
  for (auto& drive : generic.GetDrives()) {
    if (drive->GetKind() != DeviceKind::Drive) continue;
    const auto path = drive->GetString(Properties::DevicePath);
    MORVU_LOG(kLogInfo, "ScanDrives", "Checking device: " + path);
    if (!IsNamespaceOf(path, GetNodePath())) {
      MORVU_LOG(kLogInfo, "ScanDrives",
                "Drive " + path + " does not match adapter " + GetNodePath());
      continue;
    }
    MORVU_LOG(kLogInfo, "ScanDrives", "Drive " + path + " matches to adapter " + GetNodePath());
    // Older kernels let SCSI commands through to a namespace, which proves no more
    // than that its node is there.
    if (drive->GetPath().GetProtocol() != Transport::Nvme) {
      drive->SetPath(std::make_unique<CommandPath_NVME>(path));
    }
    GiveCommandSet(*drive);
    found.push_back(std::move(drive));
  }
  std::erase(generic.GetDrives(), nullptr);
}

std::unique_ptr<Device> Adapter_NVMe_Linux::MakeControllerDrive() {
  auto drive = std::make_unique<Drive>();
  drive->AddProperty(Properties::PNPString, "1");
  drive->AddProperty(Properties::DevicePath, GetNodePath());
  const auto number = std::string_view(GetNodePath()).substr(GetNodePath().rfind('e') + 1);
  drive->AddProperty(Properties::Lun, static_cast<std::int32_t>(ParseDecimal(number).value_or(0)));
  drive->SetPath(std::make_unique<CommandPath_NVME>(GetNodePath()));
  GiveCommandSet(*drive);
  return drive;
}

// The set's commands go to the controller, on a path of the drive's own; the drive's
// path stays on the namespace, whose data are read there.
void Adapter_NVMe_Linux::GiveCommandSet(Device& drive) const {
  if (const auto* set = GetCommandSet(Protocol::Nvme))
    drive.AddCommandSet(set->Clone(drive.GetProperties(), drive.GetPath()));
}

std::unique_ptr<Device> Adapter_NVMe_Linux::Clone() const {
  auto clone = std::make_unique<Adapter_NVMe_Linux>(
      static_cast<std::int32_t>(properties_.GetSigned(Properties::PortNumber)), GetNodePath());
  clone->CopyFrom(*this);
  return clone;
}

}  // namespace Morvu::DeviceManagement
