#include "devices/discovery/Adapter_NVMe.h"

#include <algorithm>
#include <iterator>
#include <set>

#include "devices/commands/CommandPath_NVME.h"
#include "devices/commands/CommandSet_NVME.h"
#include "devices/discovery/Adapter_Generic.h"
#include "devices/discovery/HeldDrive.h"
#include "devices/discovery/SideBySide.h"
#include "devices/identification/DeviceIdentification.h"
#include "devices/model/Drive.h"
#include "devices/model/DriveHold.h"
#include "devices/properties/AdapterProperties.h"
#include "devices/properties/BasicProperties.h"
#include "devices/system/SystemFacts.h"
#include "devices/system/SystemNodes.h"
#include "frame/Logger.h"
#include "frame/Text.h"

namespace Morvu::DeviceManagement {
namespace {

constexpr std::uint32_t kSectorSize = 512;

bool IsController(std::string_view path) {
  const auto node = ParseNvmeNode(path);
  return node && !node->space;
}

bool IsNamespace(std::string_view path) {
  const auto node = ParseNvmeNode(path);
  return node && node->space;
}

template <typename Test>
std::vector<std::string> LogPaths(const std::vector<std::string>& paths, std::string_view title,
                                  Test test) {
  std::vector<std::string> chosen;
  for (const auto& path : paths) {
    if (!test(path)) continue;
    MORVU_LOG(kLogInfo, "FindAdapters",
              std::string(title) + std::to_string(chosen.size()) + " = " + path);
    chosen.push_back(path);
  }
  return chosen;
}

bool Reaches(const NvmeSpace& space, const std::string& controller) {
  return std::ranges::count(space.controllers, controller) > 0;
}

// Whether the scan asks anything of this controller.
bool IsWanted(const std::string& controller, const ScanOptions& options, const SystemFacts& facts) {
  if (options.Wants(controller)) return true;
  if (!facts.GetNvmeSpaces()) return false;
  return std::ranges::any_of(*facts.GetNvmeSpaces(), [&](const NvmeSpace& space) {
    return Reaches(space, controller) && options.Wants(space.path);
  });
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

Adapter_NVMe_Linux::Adapter_NVMe_Linux(std::int32_t number, std::string nodePath, bool isHeld)
    : Adapter_NVMe(number, std::move(nodePath)), isHeld_(isHeld) {
  MORVU_LOG(kLogInfo, "Adapter_NVMe_Linux",
            "Opening SCSI path / passthrough for this NVMe Linux adapter at path " + GetNodePath());
  AddProperty(Properties::DevicePath, GetNodePath());
  auto path = std::make_unique<CommandPath_NVME>(GetNodePath());
  if (!isHeld && !path->TestDevice()) {
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

// The controllers of one subsystem, and what of it has become a drive.
class Adapter_NVMe_Linux::Subsystem {
 public:
  struct Controller {
    std::int32_t number;
    std::string path;
  };
  explicit Subsystem(std::string name) : name_(std::move(name)) {}

  const std::string& GetName() const { return name_; }
  void Add(Controller controller) { controllers_.push_back(std::move(controller)); }

  // Asks one controller after the other.
  void Ask(const ScanOptions& options, const SystemFacts& facts) {
    const DriveHold hold(controllers_.front().path, facts, DriveHold::Kind::Moment);
    for (const auto& [number, path] : controllers_) {
      const auto adapter = std::make_shared<Adapter_NVMe_Linux>(number, path, !hold.IsTaken());
      MORVU_LOG(kLogInfo, "FindAdapters",
                adapter->IsUsable() ? "    This path appeared to pass NVMe testing"
                                    : "    This path did not pass NVMe... should not be added.");
      if (!adapter->IsUsable()) continue;
      adapter->TakeNamespaces(options, facts, *this);
      adapters_.push_back(adapter);
    }
  }
  // True once for each node.
  bool Take(const std::string& node) { return taken_.insert(node).second; }
  bool HasDrives() const { return !taken_.empty(); }
  AdapterList& GetAdapters() { return adapters_; }

 private:
  std::string name_;
  std::vector<Controller> controllers_;
  std::set<std::string> taken_;
  AdapterList adapters_;
};

void Adapter_NVMe_Linux::FindAdapters(AdapterList& list, const ScanOptions& options,
                                      const SystemFacts& facts) {
  MORVU_LOG(kLogInfo, "FindAdapters", "Scanning NVME Adapters");
  const auto handles = facts.GetNvmeNodes().value_or(std::vector<std::string>());
  if (handles.empty()) {
    MORVU_LOG(kLogInfo, "FindAdapters", "No NVME adapters/drives found");
    return;
  }
  for (const auto& path : handles) {
    MORVU_LOG(kLogInfo, "FindAdapters", "UniqueDrive string " + path);
    MORVU_LOG(kLogInfo, "FindAdapters", "NVME HANDLE = " + path);
  }
  LogPaths(handles, "Drive ", IsController);
  LogPaths(handles, "Namespace ", IsNamespace);
  const auto controllers = LogPaths(handles, "Passthrough ", IsController);

  std::vector<Subsystem> subsystems;
  for (std::size_t i = 0; i < controllers.size(); ++i) {
    if (!IsWanted(controllers[i], options, facts)) continue;
    const auto told = facts.FindSubsystem(controllers[i]);
    const auto& name = told.empty() ? controllers[i] : told;
    auto subsystem = std::ranges::find(subsystems, name, &Subsystem::GetName);
    if (subsystem == subsystems.end()) subsystem = subsystems.emplace(subsystem, name);
    subsystem->Add({static_cast<std::int32_t>(i), controllers[i]});
  }
  AskSideBySide(subsystems.size(), [&](std::size_t i) { subsystems[i].Ask(options, facts); });
  for (auto& subsystem : subsystems)
    std::ranges::move(subsystem.GetAdapters(), std::back_inserter(list));
  std::ranges::sort(list, {}, [](const auto& adapter) {
    return adapter->GetProperties().GetSigned(Properties::PortNumber);
  });
}

void Adapter_NVMe_Linux::ScanDrives(const ScanOptions& options, const SystemFacts& facts) {
  Subsystem subsystem(GetNodePath());
  TakeNamespaces(options, facts, subsystem);
}

void Adapter_NVMe_Linux::TakeNamespaces(const ScanOptions& options, const SystemFacts& facts,
                                        Subsystem& subsystem) {
  MORVU_LOG(kLogInfo, "ScanDrives",
            "Matching block/namespace handles to this NVMe adapter " + GetNodePath());
  Devices found;
  bool hasNamespaces = !facts.GetNvmeSpaces();  // what could not be asked may be there
  for (const auto& space : facts.GetNvmeSpaces().value_or(std::vector<NvmeSpace>())) {
    MORVU_LOG(kLogInfo, "ScanDrives", "Checking device: " + space.path);
    if (!Reaches(space, GetNodePath())) {
      MORVU_LOG(kLogInfo, "ScanDrives",
                "Drive " + space.path + " does not match adapter " + GetNodePath());
      continue;
    }
    MORVU_LOG(kLogInfo, "ScanDrives",
              "Drive " + space.path + " matches to adapter " + GetNodePath());
    hasNamespaces = true;
    if (!options.Wants(space.path) || !subsystem.Take(space.path)) continue;
    if (auto drive = MakeNamespaceDrive(space)) found.push_back(std::move(drive));
  }
  if (!hasNamespaces && !subsystem.HasDrives() && options.Wants(GetNodePath())) {
    MORVU_LOG(kLogInfo, "ScanDrives", "This adapter has no drives. Assuming logical disable.");
    subsystem.Take(GetNodePath());
    found.push_back(MakeControllerDrive());
  }
  for (auto& drive : found) {
    GiveCommandSet(*drive);
    Describe(*drive, options, facts);
  }
  SyncDrives(std::move(found), options);
}

void Adapter_NVMe_Linux::Describe(Device& drive, const ScanOptions& options,
                                  const SystemFacts& facts) const {
  if (isHeld_) return DescribeHeldDrive(drive, facts);
  if (options.identify) UpdateProperties(drive);
}

std::unique_ptr<Device> Adapter_NVMe_Linux::MakeControllerDrive() {
  auto drive = std::make_unique<Drive>();
  drive->AddProperty(Properties::PNPString, "1");
  drive->AddProperty(Properties::DevicePath, GetNodePath());
  const auto number = std::string_view(GetNodePath()).substr(GetNodePath().rfind('e') + 1);
  drive->AddProperty(Properties::Lun, static_cast<std::int32_t>(ParseDecimal(number).value_or(0)));
  drive->SetPath(std::make_unique<CommandPath_NVME>(GetNodePath()));
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
