#include "devices/system/SystemFacts.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstdlib>
#include <memory>

#include "devices/system/KernelFiles.h"
#include "devices/system/SystemNodes.h"
#include "frame/Text.h"

namespace Morvu::DeviceManagement {
namespace {

constexpr std::string_view kDevFolder = "/dev/";
constexpr std::string_view kGenericClass = "/sys/class/scsi_generic/";
constexpr std::string_view kBlockClass = "/sys/class/block/";
constexpr std::string_view kNvmeClass = "/sys/class/nvme/";

std::string Path(std::string_view folder, std::string_view name, std::string_view rest = {}) {
  return std::string(folder).append(name).append(rest);
}

std::string_view ParentFolder(std::string_view folder) {
  const auto slash = folder.rfind('/');
  return slash == folder.npos ? std::string_view() : folder.substr(0, slash);
}

// "nvme2c3n1", a path to the namespace /dev/nvme2n1 by the controller nvme3: the name of
// that namespace. Nothing for any other name.
std::optional<std::string> SharedNamespaceOf(std::string_view name) {
  const auto path = name.find('c', std::min<std::size_t>(4, name.size()));
  const auto space = path == name.npos ? path : name.find('n', path);
  if (!name.starts_with("nvme") || space == name.npos) return {};
  return std::string(name.substr(0, path)).append(name.substr(space));
}

std::optional<std::uint32_t> ParseIdentifier(std::string_view text) {
  std::uint32_t number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  const bool whole = error == std::errc() && end == text.data() + text.size();
  return whole && number != 0 ? std::optional(number) : std::nullopt;
}

std::optional<Names> Select(const std::optional<Names>& names, bool (*test)(std::string_view)) {
  if (!names) return {};
  Names selected;
  std::ranges::copy_if(*names, std::back_inserter(selected), test);
  return selected;
}

bool MayBeNvme(std::string_view name) {
  return name.starts_with('n') && name.find("nvme") != name.npos;
}

// What is printable, up to a NUL.
std::string ParseSerial(std::string_view text) {
  const bool printable =
      std::ranges::all_of(text, [](char c) { return c == '\0' || (c >= ' ' && c <= '~'); });
  return printable ? Trim(text.substr(0, text.find('\0'))) : std::string();
}

// Unit Serial Number page (SPC-4, 7.8.16).
std::string ParseSerialPage(std::string_view page) {
  constexpr std::size_t kHead = 4;
  if (page.size() < kHead || static_cast<unsigned char>(page[1]) != 0x80) return {};
  const auto length = static_cast<std::size_t>(static_cast<unsigned char>(page[2])) << 8 |
                      static_cast<unsigned char>(page[3]);
  return ParseSerial(page.substr(kHead, length));
}

// The eight bytes of standard INQUIRY data that are left to the vendor (SPC-4, 6.6.2): a SAS drive
// has a serial number there, or nothing. Behind a translation (SAT-3) they are not the drive's.
std::string ParseInquirySerial(std::string_view inquiry) {
  constexpr std::size_t kVendor = 8, kSerial = 36, kLength = 8;
  if (inquiry.size() < kSerial + kLength || inquiry.substr(kVendor).starts_with("ATA ")) return {};
  return ParseSerial(inquiry.substr(kSerial, kLength));
}

}  // namespace

SystemFacts SystemFacts::Read() {
  SystemFacts facts;
  facts.blockLinks_ = ReadLinks(std::string(kBlockClass));
  facts.genericLinks_ = ReadLinks(std::string(kGenericClass));
  facts.devNames_ = ListFolder("/dev");
  facts.genericNodes_ = Select(facts.devNames_, IsGenericName);
  facts.nvmeNodes_ = Select(facts.devNames_, MayBeNvme);
  if (facts.nvmeNodes_) {
    for (auto& name : *facts.nvmeNodes_) name.insert(0, kDevFolder);
  }
  if (facts.blockLinks_ && facts.devNames_) facts.nvmeSpaces_ = facts.FindNvmeSpaces();
  facts.mounts_ = ReadMountTable();
  return facts;
}

// A link leads to "../../devices/pci0000:00/...": the folder is what stands behind "devices".
std::optional<SystemFacts::Links> SystemFacts::ReadLinks(const std::string& folder) {
  constexpr std::string_view kDevices = "/devices/";
  // Every kernel has this one: without it there is no sysfs, and a missing folder tells nothing.
  if (access(std::string(kBlockClass).c_str(), F_OK) != 0) return {};
  const auto names = ListFolder(folder);
  if (!names) return {};
  const KernelFolder opened(folder);
  Links links;
  for (const auto& name : *names) {
    const auto target = opened.ReadLinkOf(name);
    if (!target) {
      if (errno == ENOENT || errno == EINVAL) continue;  // it went meanwhile; it is no link
      return {};
    }
    const auto devices = target->find(kDevices);
    if (devices == target->npos) continue;
    links.emplace_hint(links.end(), name, target->substr(devices + kDevices.size()));
  }
  return links;
}

bool SystemFacts::HasNode(std::string_view name) const {
  return devNames_ && std::ranges::binary_search(*devNames_, name);
}

std::vector<NvmeSpace> SystemFacts::FindNvmeSpaces() const {
  std::map<std::string, Names, std::less<>> controllersOf;
  for (const auto& [name, folder] : *blockLinks_) {
    const auto shared = SharedNamespaceOf(name);
    const auto parent = GetNodeName(ParentFolder(folder));
    const auto controller = ParseNvmeNode(Path(kDevFolder, parent));
    if (controller && !controller->space) {
      controllersOf[shared.value_or(name)].push_back(controller->prefix);
    }
  }
  std::vector<NvmeSpace> spaces;
  for (const auto& [name, folder] : *blockLinks_) {
    const auto path = Path(kDevFolder, name);
    const auto node = ParseNvmeNode(path);
    if (!node || !node->space || !HasNode(name)) continue;
    if (ReadAttribute(Path(kBlockClass, name, "/hidden")) == "1") continue;
    spaces.push_back({path, ParseIdentifier(ReadAttribute(Path(kBlockClass, name, "/nsid"))), {}});
    const auto found = controllersOf.find(name);
    if (found == controllersOf.end()) continue;
    spaces.back().controllers = found->second;
    std::ranges::sort(spaces.back().controllers);
  }
  return spaces;
}

GenericDevice SystemFacts::ReadGenericDevice(std::string_view name) const {
  const KernelFolder device(Path(kGenericClass, name, "/device"));
  return {device.ReadAttributeOf("type"), device.ReadAttributeOf("vendor"),
          device.ReadAttributeOf("model"), device.ReadAttributeOf("rev")};
}

// The controller itself, or the first that reaches a namespace; empty when none is known.
std::string SystemFacts::FindController(std::string_view devicePath) const {
  if (const auto node = ParseNvmeNode(devicePath); node && !node->space) {
    return std::string(GetNodeName(devicePath));
  }
  if (!nvmeSpaces_) return {};
  const auto space = std::ranges::find(*nvmeSpaces_, devicePath, &NvmeSpace::path);
  if (space == nvmeSpaces_->end() || space->controllers.empty()) return {};
  return std::string(GetNodeName(space->controllers.front()));
}

GenericDevice SystemFacts::ReadController(std::string_view devicePath) const {
  const auto controller = FindController(devicePath);
  if (controller.empty()) return {};
  const KernelFolder folder(Path(kNvmeClass, controller));
  return {.type = {},
          .vendor = {},
          .model = folder.ReadAttributeOf("model"),
          .revision = folder.ReadAttributeOf("firmware_rev")};
}

std::optional<bool> SystemFacts::IsUsb(std::string_view name) const {
  if (!genericLinks_) return {};
  const auto link = genericLinks_->find(name);
  if (link == genericLinks_->end()) return {};
  return link->second.find("usb") != std::string::npos;
}

std::string SystemFacts::FindSerialNumber(std::string_view devicePath) const {
  const auto name = GetNodeName(devicePath);
  if (IsGenericName(name)) {
    // In the order in which identification takes them: the page of a SAS drive may hold more than
    // its INQUIRY data, and something else.
    const auto read = [&](std::string_view file) {
      return ReadKernelFile(Path(kGenericClass, name, file)).value_or(std::string());
    };
    const auto serial = ParseInquirySerial(read("/device/inquiry"));
    return serial.empty() ? ParseSerialPage(read("/device/vpd_pg80")) : serial;
  }
  const auto controller = FindController(devicePath);
  return controller.empty() ? controller : ReadAttribute(Path(kNvmeClass, controller, "/serial"));
}

std::uint64_t SystemFacts::FindWorldWideName(std::string_view devicePath) const {
  constexpr std::string_view kNaa = "naa.";
  constexpr std::size_t kDigits = 16;  // a longer one does not fit, and cut it tells nothing
  const auto name = GetNodeName(devicePath);
  if (!IsGenericName(name)) return 0;
  const auto text = ReadAttribute(Path(kGenericClass, name, "/device/wwid"));
  if (!text.starts_with(kNaa) || text.size() != kNaa.size() + kDigits) return 0;
  std::uint64_t value = 0;
  const auto* end = text.data() + text.size();
  const auto [stop, error] = std::from_chars(text.data() + kNaa.size(), end, value, 16);
  return error == std::errc() && stop == end ? value : 0;
}

std::string SystemFacts::FindSubsystem(std::string_view controller) {
  return ReadAttribute(Path(kNvmeClass, GetNodeName(controller), "/subsysnqn"));
}

std::optional<Names> SystemFacts::FindDisks(std::string_view name) const {
  constexpr std::string_view kClassFolder = "scsi_generic/";
  if (!genericLinks_ || !blockLinks_) return {};
  const auto link = genericLinks_->find(name);
  // A node whose device sysfs does not show any more may be any device's by now.
  if (link == genericLinks_->end()) return {};
  const std::string_view folder = link->second;
  const auto device = folder.substr(0, folder.size() - std::min(name.size(), folder.size()));
  if (!device.ends_with(kClassFolder)) return {};
  const auto block = std::string(device.substr(0, device.size() - kClassFolder.size())) + "block";
  Names disks;
  for (const auto& [disk, target] : *blockLinks_) {
    if (ParentFolder(target) == block) disks.push_back(disk);
  }
  return disks;
}

std::optional<Names> SystemFacts::FindSpacesOfSubsystem(std::string_view devicePath) const {
  if (!nvmeSpaces_) return {};
  Names controllers{std::string(devicePath)};
  const auto own = std::ranges::find(*nvmeSpaces_, devicePath, &NvmeSpace::path);
  if (own != nvmeSpaces_->end()) controllers = own->controllers;
  Names subsystems;
  for (const auto& controller : controllers) {
    auto name = FindSubsystem(controller);
    if (!name.empty()) subsystems.push_back(std::move(name));
  }
  const auto isReached = [&](const std::string& controller) {
    return std::ranges::count(controllers, controller) > 0 ||
           std::ranges::count(subsystems, FindSubsystem(controller)) > 0;
  };
  Names disks;
  for (const auto& space : *nvmeSpaces_) {
    if (space.path == devicePath || std::ranges::any_of(space.controllers, isReached)) {
      disks.push_back(space.path);
    }
  }
  return disks;
}

std::optional<Names> SystemFacts::FindWholeDisks(std::string_view devicePath) const {
  if (!IsNodePath(devicePath)) return Names();
  const auto name = GetNodeName(devicePath);
  if (ParseNvmeNode(devicePath)) return FindSpacesOfSubsystem(devicePath);
  if (!IsGenericName(name)) return Names{std::string(devicePath)};
  auto disks = FindDisks(name);
  if (disks) {
    for (auto& disk : *disks) disk.insert(0, kDevFolder);
  }
  return disks;
}

std::string SystemFacts::FindGenericNode(std::string_view disk) const {
  if (!genericLinks_) return {};
  for (const auto& [name, folder] : *genericLinks_) {
    const auto disks = FindDisks(name);
    if (disks && std::ranges::count(*disks, disk) > 0) return Path(kDevFolder, name);
  }
  return {};
}

std::optional<std::string> SystemFacts::FindDiskOfPartition(std::string_view partition) const {
  if (!blockLinks_) return {};
  const auto link = blockLinks_->find(partition);
  if (link == blockLinks_->end()) return {};
  const auto parent = ParentFolder(link->second);
  const auto disk = blockLinks_->find(GetNodeName(parent));
  if (disk == blockLinks_->end() || disk->second != parent) return {};
  return disk->first;
}

std::optional<Names> SystemFacts::FindPartitionsOfDisk(std::string_view disk) const {
  if (!blockLinks_) return {};
  const auto link = blockLinks_->find(disk);
  if (link == blockLinks_->end()) return {};
  Names partitions;
  for (const auto& [name, folder] : *blockLinks_) {
    if (ParentFolder(folder) == link->second) partitions.push_back(name);
  }
  return partitions;
}

std::optional<Names> SystemFacts::FindPartitions(std::string_view devicePath) const {
  if (!IsNodePath(devicePath)) return Names();
  const auto name = GetNodeName(devicePath);
  std::optional<Names> disks;
  if (IsGenericName(name)) {
    disks = FindDisks(name);
  } else if (const auto node = ParseNvmeNode(devicePath); node && !node->space) {
    if (!nvmeSpaces_) return {};
    disks.emplace();
    for (const auto& space : *nvmeSpaces_) {
      if (std::ranges::count(space.controllers, node->prefix) == 0) continue;
      disks->emplace_back(GetNodeName(space.path));
    }
  } else {
    disks = Names{std::string(name)};
  }
  if (!disks) return {};
  Names all;
  for (const auto& disk : *disks) {
    const auto partitions = FindPartitionsOfDisk(disk);
    if (!partitions) return {};
    all.insert(all.end(), partitions->begin(), partitions->end());
  }
  return all;
}

std::optional<Names> FindPartitionsNow(std::string_view devicePath) {
  constexpr std::size_t kShortestName = 3;
  if (GetNodeName(devicePath).size() < kShortestName) return Names();
  return SystemFacts::Read().FindPartitions(devicePath);
}

std::string ResolveNode(const std::string& path) {
  const std::unique_ptr<char, decltype(&std::free)> full(realpath(path.c_str(), nullptr),
                                                         &std::free);
  return full == nullptr ? path : std::string(full.get());
}

}  // namespace Morvu::DeviceManagement
