#include "Fleet.h"

#include <errno.h>
#include <fcntl.h>
#include <string.h>
#include <sys/mman.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <filesystem>
#include <fstream>

#include "Bytes.h"
#include "Controllers.h"
#include "Devices.h"
#include "FleetFiles.h"
#include "Real.h"

namespace Simulator {

namespace {

namespace fs = std::filesystem;

constexpr std::uint32_t kFleetMagic = 0x4D525646;

bool WriteFile(const std::string& path, const void* data, std::size_t size) {
  const int file = Libc().open64(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
  if (file < 0) return false;
  const bool whole = Libc().write(file, data, size) == static_cast<ssize_t>(size);
  Libc().close(file);
  return whole;
}

bool MakeMedium(const std::string& path, std::uint64_t bytes) {
  const int file = Libc().open64(path.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
  if (file < 0) return false;
  const bool sized = ftruncate64(file, static_cast<off64_t>(bytes)) == 0;
  Libc().close(file);
  return sized;
}

std::string Fail(std::string& error, std::string text) {
  error = std::move(text);
  return {};
}

std::string Check(const DriveSpec& spec) {
  if (spec.model.empty() || spec.model.size() > 40) return "a model has 1 to 40 characters";
  const bool needsSerial = spec.kind != Kind::Scsi;
  if ((needsSerial && spec.serial.empty()) || spec.serial.size() > 20)
    return "a serial number has 1 to 20 characters";
  if (spec.firmware.empty() || spec.firmware.size() > 8)
    return "a firmware revision has 1 to 8 characters";
  if (spec.vendor.empty() || spec.vendor.size() > 8) return "a vendor has 1 to 8 characters";
  if (spec.sectorSize != 512 && spec.sectorSize != 4096) return "a sector has 512 or 4096 bytes";
  if (spec.sectors == 0 || spec.sectors > std::uint64_t{1} << 40)
    return "a drive has 1 to 2^40 sectors";
  if (spec.namespaces > kMaxNamespaces || spec.nsids.size() > kMaxNamespaces)
    return "a controller has at most 16 namespaces";
  for (const auto nsid : spec.nsids) {
    if (nsid == 0 || nsid > kMaxNamespaces) return "a namespace's identifier is 1 to 16";
  }
  if (spec.controllers == 0 || spec.controllers > 4) return "a subsystem has 1 to 4 controllers";
  if (spec.deviceType < 0 || spec.deviceType > 0x1F)
    return "a device type is a number from 0 to 31";
  return {};
}

void Fill(DriveState& state, const DriveSpec& spec) {
  state.magic = kStateMagic;
  state.version = kStateVersion;
  state.kind = spec.kind;
  state.senseFormat = spec.senseFormat;
  state.journalOff = spec.journal ? 0 : 1;
  state.deviceType = static_cast<std::uint8_t>(spec.deviceType);
  state.usb = spec.usb ? 1 : 0;
  SetText(state.vendor, spec.vendor);
  SetText(state.model, spec.model);
  SetText(state.serial, spec.serial);
  SetText(state.firmware, spec.firmware);
  state.sectorSize = spec.sectorSize;
  state.sectors = spec.sectors;
  switch (spec.kind) {
    case Kind::Ata:
      MakeAta(state, spec);
      break;
    case Kind::Nvme:
      MakeNvme(state, spec);
      break;
    case Kind::Scsi:
      MakeScsi(state, spec);
      break;
  }
}

std::mutex& ActiveMutex() {
  static std::mutex mutex;
  return mutex;
}

// Never destroyed: calls come in until the process is gone.
std::shared_ptr<Fleet>& ActiveSlot() {
  static auto& slot = *new std::shared_ptr<Fleet>;
  return slot;
}

std::atomic<bool> active{false};
std::once_flag environmentRead;

void ReadEnvironment() {
  const char* root = std::getenv("MORVU_SIMULATOR_FLEET");
  if (root == nullptr || *root == '\0') return;
  auto fleet = Fleet::Open(root);
  if (!fleet) {
    const std::string text = std::string("morvu simulator: no fleet in ") + root + "\n";
    [[maybe_unused]] const auto written = Libc().write(2, text.data(), text.size());
    return;
  }
  const char* skip = std::getenv("MORVU_SIMULATOR_SKIP_WAITS");
  fleet->SkipWaits(skip != nullptr && std::string_view(skip) == "1");
  const std::lock_guard lock(ActiveMutex());
  if (ActiveSlot() == nullptr) ActiveSlot() = std::move(fleet);
  active = true;
}

}  // namespace

bool HasActiveFleet() {
  std::call_once(environmentRead, ReadEnvironment);
  return active.load(std::memory_order_relaxed);
}

std::shared_ptr<Fleet> ActiveFleet() {
  if (!HasActiveFleet()) return nullptr;
  const std::lock_guard lock(ActiveMutex());
  return ActiveSlot();
}

void SetActiveFleet(std::shared_ptr<Fleet> fleet) {
  std::call_once(environmentRead, ReadEnvironment);
  const std::lock_guard lock(ActiveMutex());
  ActiveSlot() = std::move(fleet);
  active = ActiveSlot() != nullptr;
}

bool Fleet::Make(const std::string& root, std::string& error) {
  std::error_code failure;
  const auto full = fs::absolute(root, failure).lexically_normal().string();
  if (const auto reason = CheckFleetPath(full); !reason.empty()) {
    error = full + ": " + reason;
    return false;
  }
  if (fs::exists(full + "/fleet.state", failure)) {
    error = full + " holds a fleet already";
    return false;
  }
  fs::create_directories(full, failure);
  FleetState state{kFleetMagic, kStateVersion, 0};
  if (failure || !MakeFleetFolders(full) ||
      !WriteFile(full + "/fleet.state", &state, sizeof state)) {
    error = "cannot write into " + full + ": " + strerror(errno);
    return false;
  }
  return true;
}

std::shared_ptr<Fleet> Fleet::Open(const std::string& root) {
  std::error_code failure;
  auto full = fs::absolute(root, failure).lexically_normal().string();
  while (full.size() > 1 && full.back() == '/') full.pop_back();
  auto fleet = std::shared_ptr<Fleet>(new Fleet(full));
  return fleet->state_ != nullptr ? fleet : nullptr;
}

Fleet::Fleet(std::string root) : root_(std::move(root)) {
  const int file = Libc().open64((root_ + "/fleet.state").c_str(), O_RDWR | O_CLOEXEC);
  if (file < 0) return;
  struct stat64 size {};
  if (Libc().fstat64(file, &size) == 0 && size.st_size == sizeof(FleetState)) {
    void* mapped = mmap(nullptr, sizeof(FleetState), PROT_READ | PROT_WRITE, MAP_SHARED, file, 0);
    if (mapped != MAP_FAILED) state_ = static_cast<FleetState*>(mapped);
  }
  Libc().close(file);
  if (state_ != nullptr && (state_->magic != kFleetMagic || state_->version != kStateVersion)) {
    munmap(state_, sizeof(FleetState));
    state_ = nullptr;
  }
}

Fleet::~Fleet() {
  if (state_ != nullptr) munmap(state_, sizeof(FleetState));
}

std::uint64_t Fleet::Now() const {
  timespec now{};
  clock_gettime(CLOCK_REALTIME, &now);
  return static_cast<std::uint64_t>(static_cast<std::int64_t>(now.tv_sec) * 1000 +
                                    now.tv_nsec / 1000000 + PassedOver());
}

std::int64_t Fleet::PassedOver() const { return std::atomic_ref(state_->clockOffsetMs).load(); }

void Fleet::AdvanceClock(std::int64_t milliseconds) {
  std::atomic_ref(state_->clockOffsetMs).fetch_add(milliseconds);
}

std::string Fleet::Add(const DriveSpec& spec, std::string& error) {
  if (const auto reason = Check(spec); !reason.empty()) return Fail(error, reason);
  const auto state = std::make_unique<DriveState>();
  Fill(*state, spec);
  if (spec.controller >= 0) return AddBound(spec, *state, error);
  return spec.kind == Kind::Nvme ? AddNvme(spec, *state, error) : AddScsi(spec, *state, error);
}

std::string Fleet::AddBound(const DriveSpec& spec, const DriveState& state, std::string& error) {
  BoundDrive drive{static_cast<std::uint32_t>(spec.controller), 0, spec.isHidden};
  if (std::ranges::count(ReadControllers(root_), drive.controller, &Controller::id) == 0)
    return Fail(error, "the fleet has no controller " + std::to_string(spec.controller));
  if (spec.kind == Kind::Nvme) return Fail(error, "a controller has SATA and SAS drives");
  while (fs::exists(root_ + "/drives/" + drive.Name() + ".state")) ++drive.device;
  const auto name = drive.Name();
  if (!MakeMedium(root_ + "/drives/" + name + ".medium", spec.sectors * spec.sectorSize))
    return Fail(error, "cannot write the drive's files into " + root_ + ": " + strerror(errno));
  if (!KeepState(name, state, error)) return {};
  Append(root_, drive);
  return name;
}

std::uint32_t Fleet::AddController(bool passesThrough) {
  const auto id = static_cast<std::uint32_t>(ReadControllers(root_).size());
  Append(root_, Controller{id, passesThrough});
  return id;
}

int Fleet::AddVolume(const std::vector<std::string>& drives, bool hasDisk, std::string& error) {
  Volume volume;
  std::uint64_t sectors = UINT64_MAX;
  for (const auto& name : drives) {
    BoundDrive member;
    const auto node = Find(name);
    const bool isBound = node && ParseBoundName(name, member);
    if (!isBound || (!volume.members.empty() && member.controller != volume.controller)) {
      error = name + " is no drive behind " +
              (volume.members.empty() ? "a controller" : "the same controller");
      return -1;
    }
    volume.controller = member.controller;
    volume.members.push_back(member.device);
    sectors = std::min<std::uint64_t>(sectors, node.drive->State().sectors);
  }
  if (drives.empty()) sectors = 2048;
  for (const auto& other : ReadVolumes(root_)) {
    if (other.controller == volume.controller && other.number >= volume.number)
      volume.number = static_cast<std::uint16_t>(other.number + 1);
  }
  if (hasDisk) {
    const auto number = std::to_string(volume.controller) + std::to_string(volume.number);
    const auto node = Add({.kind = Kind::Scsi,
                           .model = "RAID VOLUME",
                           .serial = number + "00600605B",
                           .firmware = "4.68",
                           .vendor = "LSI",
                           .sectors = sectors},
                          error);
    if (node.empty()) return -1;
    volume.generic =
        static_cast<std::uint16_t>(std::stoi(node.substr(std::string("/dev/sg").size())));
  }
  Append(root_, volume);
  return volume.number;
}

// The lowest numbers that no drive has.
std::vector<std::string> Fleet::NewNames(const char* prefix, std::size_t count) const {
  std::vector<std::string> names;
  for (int number = 0; names.size() < count; ++number) {
    auto name = prefix + std::to_string(number);
    if (!fs::exists(root_ + "/dev/" + name) && !fs::exists(root_ + "/drives/" + name + ".state"))
      names.push_back(std::move(name));
  }
  return names;
}

// The state comes last: a drive that has one is whole.
bool Fleet::KeepState(const std::string& name, const DriveState& state, std::string& error) {
  if (WriteFile(root_ + "/drives/" + name + ".state", &state, sizeof(DriveState))) return true;
  error = "cannot write the drive's files into " + root_ + ": " + strerror(errno);
  return false;
}

std::string Fleet::AddScsi(const DriveSpec& spec, const DriveState& state, std::string& error) {
  const auto name = NewNames("sg", 1).front();
  const bool made = MakeMedium(root_ + "/dev/" + name, spec.sectors * spec.sectorSize) &&
                    MakeSysfs(root_, name, state, spec.wwn);
  if (!made) error = "cannot write the drive's files into " + root_ + ": " + strerror(errno);
  return made && KeepState(name, state, error) ? "/dev/" + name : std::string();
}

std::string Fleet::AddNvme(const DriveSpec& spec, const DriveState& state, std::string& error) {
  NvmePlaces places;
  places.controllers = NewNames("nvme", spec.controllers);
  const auto& name = places.controllers.front();
  places.namespacePrefix = spec.subsystem < 0 ? name : "nvme" + std::to_string(spec.subsystem);
  for (std::uint32_t nsid = 1; nsid <= kMaxNamespaces; ++nsid) {
    if (state.nvme.namespaces[nsid - 1].exists) places.nsids.push_back(nsid);
  }
  bool made = true;
  for (const auto& controller : places.controllers) {
    made = made && MakeMedium(root_ + "/dev/" + controller, 0);
  }
  const auto node = places.namespacePrefix + "n";
  for (std::size_t i = 1; i <= places.nsids.size(); ++i) {
    made = made &&
           MakeMedium(root_ + "/dev/" + node + std::to_string(i), spec.sectors * spec.sectorSize);
  }
  made = made && MakeSysfs(root_, places, state);
  if (!made) error = "cannot write the drive's files into " + root_ + ": " + strerror(errno);
  if (!made || !KeepState(name, state, error)) return {};
  return "/dev/" + (places.nsids.empty() ? name : node + "1");
}

std::shared_ptr<Drive> Fleet::FindDrive(const std::string& name) {
  const std::lock_guard lock(drivesMutex_);
  if (const auto found = drives_.find(name); found != drives_.end()) return found->second;
  auto drive = std::make_shared<Drive>(*this, name);
  if (!drive->Valid()) return nullptr;
  drives_.emplace(name, drive);
  return drive;
}

Node Fleet::Find(std::string_view node) {
  const auto name = NodeName(node);
  if (name.empty() || name.find('/') != name.npos) return {};
  if (name.starts_with("sd")) {
    const auto generic = GenericName(root_, name);
    return generic.empty() ? Node{} : Node{FindDrive(generic), 0, true};
  }
  if (!name.starts_with("nvme")) return {FindDrive(name), 0, false};
  if (name.find('n', 4) == name.npos) return {FindDrive(DriveOfController(root_, name)), 0, false};
  const auto [controller, nsid] = FindNamespace(root_, name);
  if (nsid == 0 || nsid > kMaxNamespaces) return {};
  const auto drive = FindDrive(controller);
  if (drive == nullptr || !drive->State().nvme.namespaces[nsid - 1].exists) return {};
  return {drive, nsid, true};
}

std::vector<std::string> Fleet::DriveNames() const {
  std::vector<std::string> names;
  for (const auto& entry : fs::directory_iterator(root_ + "/drives")) {
    if (entry.path().extension() == ".state") names.push_back(entry.path().stem().string());
  }
  std::sort(names.begin(), names.end());
  return names;
}

std::string Fleet::AddPartition(std::string_view node, std::uint64_t bytes,
                                std::string_view fileSystem, std::string_view mountPoint,
                                std::string_view volumeGroup) {
  const auto name = NodeName(node);
  const auto block = name.starts_with("sg") ? BlockNameOf(root_, name) : name;
  if (block.empty() || !Find(node)) return {};
  return MakePartition(
      root_, block,
      {bytes, std::string(fileSystem), std::string(mountPoint), std::string(volumeGroup)});
}

namespace {

constexpr int kFirstMount = 20;

// Those that a mount point shows beside "rw".
std::string LockedOptions(std::string_view options) {
  std::string shown;
  for (const std::string_view option : {"nosuid", "nodev", "noexec"}) {
    if (options.find(option) != options.npos) shown.append(",").append(option);
  }
  return shown;
}

}  // namespace

std::optional<ShownMount> Fleet::FindMountOf(std::string_view path) const {
  std::optional<ShownMount> found;
  int number = kFirstMount;
  for (const auto& mount : ReadMounts(root_)) {
    ++number;
    const bool isOn = path == mount.mountPoint || path.starts_with(mount.mountPoint + "/");
    if (isOn) found = ShownMount{number, mount.mountPoint, mount.bytes};
  }
  return found;
}

std::string Fleet::MountInfo() const {
  std::string text;
  int number = kFirstMount;
  for (const auto& mount : ReadMounts(root_)) {
    const bool loops = mount.options.find("loop") != mount.options.npos;
    const bool readOnly =
        mount.options.starts_with("ro") || mount.options.find(",ro") != mount.options.npos;
    const auto source = loops ? std::string("/dev/loop0") : mount.node;
    std::string device = loops ? "7:0" : "0:40";
    std::ifstream file(root_ + "/sys/class/block/" + NodeName(mount.node) + "/dev");
    if (!loops && file) std::getline(file, device);
    const std::string access = readOnly ? "ro" : "rw";
    ++number;
    text += std::to_string(number) + " 1 " + device + " / " + mount.mountPoint + " " + access +
            LockedOptions(mount.options) + ",relatime shared:" + std::to_string(number) + " - " +
            mount.fileSystem + " " + source + " " + access + "\n";
  }
  return text;
}

std::uint64_t Fleet::FindMountedBytes(std::string_view mountPoint) const {
  std::uint64_t bytes = 0;
  for (const auto& mount : ReadMounts(root_)) {
    if (mount.mountPoint == mountPoint) bytes = mount.bytes;  // the one on top
  }
  return bytes;
}

std::string Fleet::DiskOf(const Node& node) const {
  const auto& name = node.drive->Name();
  if (node.drive->State().kind != Kind::Nvme) return Simulator::BlockNameOf(root_, name);
  return node.nsid == 0 ? std::string() : NamespaceNode(root_, name, node.nsid);
}

void Fleet::SetRootMount(std::string_view device) { WriteRootMount(root_, device); }

void Fleet::Unmap(std::string& text) const {
  for (auto at = text.find(root_); at != text.npos; at = text.find(root_, at)) {
    text.erase(at, root_.size());
  }
}

}  // namespace Simulator
