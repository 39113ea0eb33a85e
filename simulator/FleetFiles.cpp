#include "FleetFiles.h"

#include <cctype>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "Bytes.h"

namespace Simulator {

namespace {

namespace fs = std::filesystem;

bool Write(const std::string& path, std::string_view text) {
  std::ofstream file(path, std::ios::binary | std::ios::trunc);
  file << text;
  return file.good();
}

bool Link(const std::string& target, const std::string& path) {
  std::error_code failure;
  fs::create_symlink(target, path, failure);
  return !failure;
}

std::string Padded(std::string_view text, std::size_t width) {
  std::string field(text.substr(0, width));
  field.resize(width, ' ');
  return field + "\n";
}

// df and mount print their table; with ROOT before each node, since a pipeline's
// patterns are led into the fleet as its paths are.
constexpr std::string_view kDf = R"sh(#!/bin/sh
# df of the simulated fleet: -T is always on, -B gives the unit.
root=$(cd "$(dirname "$0")/.." && pwd)
unit=1024
while [ $# -gt 0 ]; do
  case $1 in
    -B) unit=$2; shift ;;
    -B*) unit=${1#-B} ;;
  esac
  shift
done
echo "Filesystem Type $unit-blocks Used Available Use% Mounted on"
awk -v root="$root" -v unit="$unit" '$3 != "-" {
  used = int($4 / 4); free = $4 - used
  where = ($3 ~ "^/mnt/" ? root : "") $3
  # %d would cut large numbers to 31 bits.
  printf "%s%s %s %.0f %.0f %.0f %d%% %s\n", root, $1, $2, int($4 / unit), int(used / unit), int(free / unit), 25, where
}' "$root/tables/partitions"
)sh";

constexpr std::string_view kMount = R"sh(#!/bin/sh
# mount of the simulated fleet: prints the table, or puts a node into it.
root=$(cd "$(dirname "$0")/.." && pwd)
table=$root/tables/partitions
if [ $# -eq 0 ]; then
  awk -v root="$root" '{ print ($1 ~ "^/dev/(sd|nvme)" ? root : "") $1 " on / type ext4 (rw,relatime)" }' "$root/tables/root"
  awk -v root="$root" '$3 != "-" { print root $1 " on " ($3 ~ "^/mnt/" ? root : "") $3 " type " $2 " (rw,relatime)" }' "$table"
  exit 0
fi
node=${1#"$root"}
awk -v node="$node" '$1 == node && $2 != "-" { found = 1 } END { exit !found }' "$table" || {
  echo "mount: $node: can't read superblock." >&2
  exit 32
}
where=${2#"$root"}
awk -v node="$node" -v where="$where" '$1 == node && $3 == "-" { $3 = where } { print }' "$table" > "$table.new" &&
  mv "$table.new" "$table"
)sh";

constexpr std::string_view kUmount = R"sh(#!/bin/sh
# umount of the simulated fleet: by mount point or by node.
root=$(cd "$(dirname "$0")/.." && pwd)
table=$root/tables/partitions
for what; do :; done
what=${what#"$root"}
awk -v what="$what" '$3 == what || $1 == what { found = 1 } END { exit !found }' "$table" || {
  echo "umount: $what: not mounted." >&2
  exit 32
}
awk -v what="$what" '$3 == what || $1 == what { $3 = "-" } { print }' "$table" > "$table.new" &&
  mv "$table.new" "$table"
)sh";

constexpr std::string_view kPvdisplay = R"sh(#!/bin/sh
# pvdisplay of the simulated fleet: the volume group of one partition.
root=$(cd "$(dirname "$0")/.." && pwd)
node=${1#"$root"}
awk -v node="$node" '$1 == node && $5 != "-" {
  print "  --- Physical volume ---"; print "  PV Name               " node
  print "  VG Name               " $5; found = 1
} END { if (!found) exit 5 }' "$root/tables/partitions" || {
  echo "  Failed to find physical volume \"$node\"." >&2
  exit 5
}
)sh";

bool Script(const std::string& path, std::string_view text) {
  if (!Write(path, text)) return false;
  std::error_code failure;
  fs::permissions(path,
                  fs::perms::owner_all | fs::perms::group_read | fs::perms::group_exec |
                      fs::perms::others_read | fs::perms::others_exec,
                  failure);
  return !failure;
}

// The next free letter of sda, sdb, ..., sdz, sdaa, ...
std::string NextDisk(const std::string& root) {
  for (int i = 0;; ++i) {
    std::string name = "sd";
    if (i >= 26) name += static_cast<char>('a' + i / 26 - 1);
    name += static_cast<char>('a' + i % 26);
    if (!fs::exists(root + "/dev/" + name)) return name;
  }
}

bool MakeScsiSysfs(const std::string& root, const std::string& name, const DriveState& state) {
  const auto number = name.substr(2);
  const auto host = "host" + number;
  const auto address = number + ":0:0:0";
  const auto port = state.usb ? std::string("pci0000:00/0000:00:14.0/usb2/2-1/2-1:1.0/")
                    : state.kind == Kind::Ata ? "pci0000:00/0000:00:17.0/ata" +
                                                    std::to_string(std::stoi(number) + 1) + "/"
                                              : std::string("pci0000:00/0000:03:00.0/");
  const auto device = "devices/" + port + host + "/target" + number + ":0:0/" + address;
  const auto folder = root + "/sys/" + device;
  std::error_code failure;
  fs::create_directories(folder + "/scsi_generic/" + name, failure);
  if (failure) return false;

  const bool ata = state.kind == Kind::Ata;
  const auto firmware = GetText(state.firmware);
  const auto revision =
      ata && firmware.size() > 4 ? firmware.substr(firmware.size() - 4) : firmware;
  bool made =
      Write(folder + "/type", std::to_string(state.deviceType) + "\n") &&
      Write(folder + "/vendor", Padded(ata ? "ATA" : GetText(state.vendor), 8)) &&
      Write(folder + "/model", Padded(GetText(state.model), 16)) &&
      Write(folder + "/rev", Padded(revision, 4)) &&
      Link("../../../" + address, folder + "/scsi_generic/" + name + "/device") &&
      Link("../../" + device + "/scsi_generic/" + name, root + "/sys/class/scsi_generic/" + name);
  if (!made || state.deviceType != 0) return made;

  const auto disk = NextDisk(root);
  fs::create_directories(folder + "/block/" + disk, failure);
  fs::create_hard_link(root + "/dev/" + name, root + "/dev/" + disk, failure);
  return !failure &&
         Write(folder + "/block/" + disk + "/size",
               std::to_string(state.sectors * (state.sectorSize / 512)) + "\n") &&
         Link("../../../" + address, folder + "/block/" + disk + "/device") &&
         Link("../../" + device + "/block/" + disk, root + "/sys/class/block/" + disk);
}

bool MakeNvmeSysfs(const std::string& root, const std::string& name, const DriveState& state) {
  char slot[32];
  std::snprintf(slot, sizeof slot, "0000:%02x:00.0", 0x41 + std::stoi(name.substr(4)));
  const auto device = std::string("devices/pci0000:40/") + slot + "/nvme/" + name;
  const auto folder = root + "/sys/" + device;
  std::error_code failure;
  fs::create_directories(folder, failure);
  bool made = !failure && Write(folder + "/model", Padded(GetText(state.model), 40)) &&
              Write(folder + "/serial", Padded(GetText(state.serial), 20)) &&
              Write(folder + "/firmware_rev", Padded(GetText(state.firmware), 8)) &&
              Link("../../" + device, root + "/sys/class/nvme/" + name);
  for (std::size_t i = 0; made && i < kMaxNamespaces; ++i) {
    if (!state.nvme.namespaces[i].exists) continue;
    const auto block = name + "n" + std::to_string(i + 2 - state.nvme.firstNamespace);
    fs::create_directories(folder + "/" + block, failure);
    made = !failure &&
           Write(folder + "/" + block + "/size",
                 std::to_string(state.nvme.namespaces[i].bytes / 512) + "\n") &&
           Write(folder + "/" + block + "/nsid", std::to_string(i + 1) + "\n") &&
           Link("../../" + device + "/" + block, root + "/sys/class/block/" + block);
  }
  return made;
}

}  // namespace

std::string CheckFleetPath(const std::string& root) {
  if (root.size() < 2 || root[0] != '/') return "the root folder cannot hold a fleet";
  for (const char c : root) {
    if (!std::isalnum(static_cast<unsigned char>(c)) &&
        std::string_view("/._-+").find(c) == std::string_view::npos) {
      return "a fleet's path may hold letters, digits and / . _ - + only";
    }
  }
  for (const std::string_view word : {"nvme", "usb", "/dev/", "/sys/"}) {
    if (root.find(word) != root.npos)
      return "a fleet's path may not hold \"" + std::string(word) + "\"";
  }
  for (const std::string_view word : {"sg", "sd"}) {
    for (auto at = root.find(word); at != root.npos; at = root.find(word, at + 1)) {
      const auto next = at + 2 < root.size() ? root[at + 2] : '/';
      if (word == "sg" && std::isdigit(static_cast<unsigned char>(next))) {
        return "a fleet's path may not hold the name of a node, such as sg1";
      }
    }
  }
  return {};
}

bool MakeFleetFolders(const std::string& root) {
  std::error_code failure;
  for (const auto* folder :
       {"/dev", "/sys/class/scsi_generic", "/sys/class/block", "/sys/class/nvme",
        "/sys/class/nvme-subsystem", "/sys/devices", "/drives", "/bin", "/tables", "/mnt"}) {
    fs::create_directories(root + folder, failure);
    if (failure) return false;
  }
  return Write(root + "/tables/partitions", "") && Write(root + "/tables/root", "") &&
         Script(root + "/bin/df", kDf) && Script(root + "/bin/mount", kMount) &&
         Script(root + "/bin/umount", kUmount) && Script(root + "/bin/pvdisplay", kPvdisplay);
}

bool MakeSysfs(const std::string& root, const std::string& name, const DriveState& state) {
  return state.kind == Kind::Nvme ? MakeNvmeSysfs(root, name, state)
                                  : MakeScsiSysfs(root, name, state);
}

std::string MakePartition(const std::string& root, const std::string& block,
                          const PartitionSpec& spec) {
  std::error_code failure;
  const auto link = fs::read_symlink(root + "/sys/class/block/" + block, failure).string();
  if (failure) return {};
  const auto base = std::isdigit(static_cast<unsigned char>(block.back())) ? block + "p" : block;
  int number = 1;
  while (fs::exists(root + "/dev/" + base + std::to_string(number))) ++number;
  const auto name = base + std::to_string(number);
  const auto folder = root + "/sys/class/block/" + block + "/" + name;
  fs::create_directories(folder, failure);
  const auto field = [](const std::string& text) { return text.empty() ? std::string("-") : text; };
  std::ofstream table(root + "/tables/partitions", std::ios::app);
  table << "/dev/" << name << ' ' << field(spec.fileSystem) << ' ' << field(spec.mountPoint) << ' '
        << spec.bytes << ' ' << field(spec.volumeGroup) << '\n';
  const bool made = !failure && table.good() && Write(root + "/dev/" + name, "") &&
                    Write(folder + "/partition", std::to_string(number) + "\n") &&
                    Write(folder + "/size", std::to_string(spec.bytes / 512) + "\n") &&
                    Link(link + "/" + name, root + "/sys/class/block/" + name);
  return made ? "/dev/" + name : std::string();
}

void WriteRootMount(const std::string& root, std::string_view device) {
  Write(root + "/tables/root", device.empty() ? std::string() : std::string(device) + "\n");
}

std::string NodeName(std::string_view node) {
  if (node.starts_with("/dev/")) node.remove_prefix(5);
  return std::string(node);
}

std::string GenericName(const std::string& root, const std::string& block) {
  std::error_code failure;
  const auto folder = root + "/sys/class/block/" + block + "/device/scsi_generic";
  for (const auto& entry : fs::directory_iterator(folder, failure)) return entry.path().filename();
  return {};
}

std::string BlockNameOf(const std::string& root, const std::string& generic) {
  std::error_code failure;
  const auto folder = root + "/sys/class/scsi_generic/" + generic + "/device/block";
  for (const auto& entry : fs::directory_iterator(folder, failure)) return entry.path().filename();
  return {};
}

}  // namespace Simulator
