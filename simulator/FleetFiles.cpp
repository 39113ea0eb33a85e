#include "FleetFiles.h"

#include <algorithm>
#include <cctype>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>

#include "Bytes.h"
#include "ScsiReplies.h"

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
# mount of the simulated fleet: prints the table, or puts a node into it. As strict as the
# kernel about types and options; what a mount writes to the disk stands in tables/events.
root=$(cd "$(dirname "$0")/.." && pwd)
table=$root/tables/partitions
if [ $# -eq 0 ]; then
  awk -v root="$root" '{ print ($1 ~ "^/dev/(sd|nvme)" ? root : "") $1 " on / type ext4 (rw,relatime)" }' "$root/tables/root"
  awk -v root="$root" '$3 != "-" {
    print ($6 ~ "(^|,)loop" ? "/dev/loop0" : root $1) " on " ($3 ~ "^/mnt/" ? root : "") $3 " type " $2 " (" ($6 ~ "(^|,)ro(,|$)" ? "ro" : "rw") ",relatime)"
  }' "$table"
  exit 0
fi
type= options=rw
while getopts t:o: letter; do
  case $letter in
    t) type=$OPTARG ;;
    o) options=$OPTARG ;;
    *) exit 1 ;;
  esac
done
shift $((OPTIND - 1))
node=${1#"$root"} where=${2#"$root"}
fail() { echo "mount: $where: $1." >&2; exit 32; }
has() { case ,$options, in *,$1,*) return 0 ;; *) return 1 ;; esac; }

set -- $(awk -v node="$node" '$1 == node { print; exit }' "$table")
[ "${2:--}" != - ] || fail "can't read superblock on $node"
[ -z "$type" ] || [ "$type" = "$2" ] || fail "wrong fs type, bad option, bad superblock on $node"
[ -d "$root$where" ] || fail "mount point does not exist"
disk=$(basename "$(dirname "$(readlink "$root/sys/class/block/$(basename "$node")")")")
claim=$root/drives/$disk.claim
[ ! -e "$claim" ] || flock -n "$claim" true || fail "$node already mounted or mount point busy"
# A file system that is mounted for writing is mounted once more for writing alone.
isrw() { case ,$1, in *,ro,*) return 1 ;; *) return 0 ;; esac; }
{ [ "$3" = - ] || has loop || { isrw "$options" && isrw "$6"; }; } ||
  fail "$node already mounted or mount point busy"
for option in $(echo "$options" | tr , ' '); do
  case $2:$option in
    *:ro | *:rw | *:loop | *:nosuid | *:nodev | *:noexec) ;;
    ext[34]:noload | xfs:norecovery | xfs:nouuid | btrfs:rescue=nologreplay | f2fs:norecovery) ;;
    *) fail "bad option $option for $2" ;;
  esac
done
! { [ "$2" = xfs ] && has norecovery; } || has ro || fail "no-recovery mounts must be read-only"
# Without the type's own option a read-only mount replays the journal, unless a loop
# device beneath lets no write through.
quiet=no
has ro && case $2 in
  ext[34]) has noload && quiet=yes ;;
  xfs | f2fs) has norecovery && quiet=yes ;;
  btrfs) has rescue=nologreplay && quiet=yes ;;
  *) quiet=yes ;;
esac
if has loop && has ro && [ $quiet = no ]; then fail "cannot mount $node read-only"; fi
[ $quiet = yes ] || echo "write $node" >>"$root/tables/events"
echo "mount $node $options" >>"$root/tables/events"
if [ "$3" = - ]; then
  awk -v node="$node" -v where="$where" -v options="$options" '$1 == node { $3 = where; $6 = options } { print }' "$table"
else
  cat "$table"
  echo "$node $2 $where $4 - $options"
fi >"$table.new" && mv "$table.new" "$table"
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
# The mount on top goes; a node that is mounted elsewhere too has a line for each.
awk -v what="$what" '{ lines[NR] = $0; nodes[NR] = $1; if ($3 == what || $1 == what) last = NR }
END {
  for (i = 1; i <= NR; ++i) {
    if (i != last) { print lines[i]; continue }
    first = 1
    for (j = 1; j < i; ++j) if (nodes[j] == nodes[i]) first = 0
    if (!first) continue
    $0 = lines[i]; $3 = "-"; $6 = "-"; print
  }
}' "$table" >"$table.new" && mv "$table.new" "$table"
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

std::string ReadFirstLine(const std::string& path) {
  std::string line;
  std::ifstream file(path);
  std::getline(file, line);
  return line;
}

// What tells the type of a file system: the magic text at its place.
struct Magic {
  std::string_view fileSystem;
  std::size_t offset;
  std::string_view bytes;
};
// clang-format off
constexpr Magic kMagics[] = {
    {"ext4",  0x438,   {"\x53\xEF", 2}},
    {"ext4",  0x45C,   {"\x04\0\0\0\x40\0\0\0", 8}},  // a journal, extents
    {"xfs",   0,       {"XFSB", 4}},
    {"btrfs", 0x10040, {"_BHRfS_M", 8}},
    {"f2fs",  0x400,   {"\x10\x20\xF5\xF2", 4}},
    {"ntfs",  3,       {"NTFS    ", 8}},
    {"ntfs",  510,     {"\x55\xAA", 2}},
    {"vfat",  82,      {"FAT32   ", 8}},
    {"vfat",  510,     {"\x55\xAA", 2}},
};
// clang-format on

std::string Superblock(std::string_view fileSystem) {
  std::string medium;
  for (const auto& magic : kMagics) {
    if (magic.fileSystem != fileSystem) continue;
    if (medium.empty()) medium.resize(0x11000);
    medium.replace(magic.offset, magic.bytes.size(), magic.bytes);
  }
  return medium;
}

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

}  // namespace

void AppendLine(const std::string& path, std::string_view line) {
  std::ofstream(path, std::ios::app) << line << '\n';
}

std::vector<std::vector<std::string>> ReadTable(const std::string& path) {
  std::vector<std::vector<std::string>> rows;
  std::ifstream file(path);
  for (std::string line; std::getline(file, line);) {
    std::istringstream words(line);
    rows.emplace_back(std::istream_iterator<std::string>(words),
                      std::istream_iterator<std::string>());
  }
  return rows;
}

namespace {

// Folder, link and attributes of a disk. `folder` stands below /sys/devices.
constexpr std::string_view kUp = "../../";  // from /sys/class/block to /sys

// A hidden path has no number, and is in the class all the same.
bool LinkNode(const std::string& root, const std::string& folder, const std::string& name,
              const std::string& device) {
  const auto target = std::string(kUp) + folder;
  return Link(target, root + "/sys/class/block/" + name) &&
         (device == "0:0" || Link(target, root + "/sys/dev/block/" + device));
}

bool MakeBlockNode(const std::string& root, const std::string& folder, const std::string& name,
                   std::uint64_t bytes, const std::string& device, bool takesDiscards) {
  std::error_code failure;
  const auto path = root + "/sys/" + folder + "/" + name;
  fs::create_directories(path + "/queue", failure);
  return !failure && Write(path + "/size", std::to_string(bytes / 512) + "\n") &&
         Write(path + "/dev", device + "\n") && Write(path + "/hidden", "0\n") &&
         Write(path + "/queue/discard_max_bytes", takesDiscards ? "2147450880\n" : "0\n") &&
         Link("../" + folder + "/" + name, root + "/sys/block/" + name) &&
         LinkNode(root, folder + "/" + name, name, device);
}

// The unit serial number (SPC-4, 7.8.16) and the designator as sysfs shows them.
bool MakeIdentity(const std::string& folder, const DriveState& state, std::uint64_t wwn) {
  const auto serial = GetText(state.serial);
  char name[32];
  std::snprintf(name, sizeof name, "naa.%016llx\n", static_cast<unsigned long long>(wwn));
  const auto ata = "t10.ATA     " + Padded(GetText(state.model), 40);
  const bool hasName = state.kind == Kind::Ata || wwn != 0;
  if (hasName &&
      !Write(folder + "/wwid", state.kind == Kind::Ata ? ata.substr(0, 52) + Padded(serial, 20)
                                                       : std::string(name))) {
    return false;
  }
  const auto inquiry = StandardInquiry(state);
  if (!Write(folder + "/inquiry", std::string(inquiry.begin(), inquiry.end()))) return false;
  if (serial.empty()) return true;
  const auto page = UnitSerial(state);
  const std::string head{'\0', '\x80', '\0', static_cast<char>(page.size())};
  return Write(folder + "/vpd_pg80", head + page);
}

// Word 169 of IDENTIFY DEVICE.
bool TakesTrim(const DriveState& state) { return (state.ata.identify[169] & 1) != 0; }

bool MakeScsiSysfs(const std::string& root, const std::string& name, const DriveState& state,
                   std::uint64_t wwn) {
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
      Write(folder + "/rev", Padded(revision, 4)) && MakeIdentity(folder, state, wwn) &&
      Link("../../../" + address, folder + "/scsi_generic/" + name + "/device") &&
      Link("../../" + device + "/scsi_generic/" + name, root + "/sys/class/scsi_generic/" + name);
  if (!made || state.deviceType != 0) return made;

  const auto disk = NextDisk(root);
  fs::create_hard_link(root + "/dev/" + name, root + "/dev/" + disk, failure);
  return !failure &&
         MakeBlockNode(root, device + "/block", disk, state.sectors * state.sectorSize,
                       "8:" + std::to_string(std::stoi(number) * 16), ata && TakesTrim(state)) &&
         Link("../../../" + address, folder + "/block/" + disk + "/device");
}

std::string NvmeFolder(const std::string& name) {
  char slot[32];
  std::snprintf(slot, sizeof slot, "0000:%02x:00.0", 0x41 + std::stoi(name.substr(4)));
  return std::string("devices/pci0000:40/") + slot + "/nvme/" + name;
}

// One path to a namespace of a subsystem with several controllers: listed, hidden, and
// without a node.
bool MakeHiddenPath(const std::string& root, const std::string& folder, const std::string& name) {
  return MakeBlockNode(root, folder, name, 0, "0:0", true) &&
         Write(root + "/sys/" + folder + "/" + name + "/hidden", "1\n");
}

std::string SubsystemName(const DriveState& state) {
  return "nqn.2014.08.org.nvmexpress:" + GetText(state.serial) + GetText(state.model);
}

bool MakeNvmeController(const std::string& root, const std::string& name, int controllerId,
                        const DriveState& state) {
  const auto device = NvmeFolder(name);
  const auto folder = root + "/sys/" + device;
  std::error_code failure;
  fs::create_directories(folder, failure);
  return !failure && Write(folder + "/model", Padded(GetText(state.model), 40)) &&
         Write(folder + "/serial", Padded(GetText(state.serial), 20)) &&
         Write(folder + "/firmware_rev", Padded(GetText(state.firmware), 8)) &&
         Write(folder + "/cntlid", std::to_string(controllerId) + "\n") &&
         Write(folder + "/subsysnqn", SubsystemName(state) + "\n") &&
         Write(folder + "/transport", "pcie\n") && Write(folder + "/state", "live\n") &&
         Write(folder + "/address", device.substr(device.find(':') + 4, 12) + "\n") &&
         Link("../../" + device, root + "/sys/class/nvme/" + name);
}

// The kernel makes a subsystem of a single controller too.
bool MakeNvmeSubsystem(const std::string& root, const std::string& name,
                       const std::vector<std::string>& controllers, const DriveState& state) {
  const auto device = "devices/virtual/nvme-subsystem/" + name;
  const auto folder = root + "/sys/" + device;
  std::error_code failure;
  fs::create_directories(folder, failure);
  bool made = !failure && Write(folder + "/model", Padded(GetText(state.model), 40)) &&
              Write(folder + "/serial", Padded(GetText(state.serial), 20)) &&
              Write(folder + "/firmware_rev", Padded(GetText(state.firmware), 8)) &&
              Write(folder + "/subsysnqn", SubsystemName(state) + "\n") &&
              Write(folder + "/iopolicy", "numa\n") &&
              Link("../../" + device, root + "/sys/class/nvme-subsystem/" + name);
  for (const auto& controller : controllers) {
    const auto target = "../../../../" + NvmeFolder(controller);
    made = made && Link(target, folder + "/" + controller);
  }
  return made;
}

bool MakeNvmeSysfs(const std::string& root, const NvmePlaces& places, const DriveState& state) {
  bool made = true;
  for (std::size_t i = 0; i < places.controllers.size(); ++i) {
    made = made && MakeNvmeController(root, places.controllers[i], static_cast<int>(i + 1), state);
  }
  const auto& first = places.controllers.front();
  const auto number = places.namespacePrefix.substr(4);
  const bool shared = places.controllers.size() > 1;
  const auto subsystem = "nvme-subsys" + number;
  made = made && MakeNvmeSubsystem(root, subsystem, places.controllers, state);
  const auto parent = shared ? "devices/virtual/nvme-subsystem/" + subsystem : NvmeFolder(first);
  for (std::size_t i = 0; made && i < places.nsids.size(); ++i) {
    const auto nsid = places.nsids[i];
    const auto node = "n" + std::to_string(i + 1);
    const auto block = places.namespacePrefix + node;
    made = MakeBlockNode(root, parent, block, state.nvme.namespaces[nsid - 1].bytes,
                         "259:" + std::to_string(std::stoi(first.substr(4)) * 16 + nsid), true) &&
           Write(root + "/sys/" + parent + "/" + block + "/nsid", std::to_string(nsid) + "\n");
    AppendLine(root + "/tables/namespaces", block + " " + first + " " + std::to_string(nsid));
    for (const auto& controller : places.controllers) {
      if (!shared) break;
      made = made && MakeHiddenPath(root, NvmeFolder(controller),
                                    places.namespacePrefix + "c" + controller.substr(4) + node);
    }
  }
  for (const auto& controller : places.controllers) {
    if (controller != first) AppendLine(root + "/tables/controllers", controller + " " + first);
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
        "/sys/class/nvme-subsystem", "/sys/devices", "/sys/block", "/sys/dev/block", "/drives",
        "/bin", "/tables", "/mnt", "/run"}) {
    fs::create_directories(root + folder, failure);
    if (failure) return false;
  }
  for (const auto* table : {"partitions", "root", "namespaces", "controllers", "events"}) {
    if (!Write(root + "/tables/" + table, "")) return false;
  }
  if (!Write(root + "/dev/loop-control", "")) return false;
  return Script(root + "/bin/df", kDf) && Script(root + "/bin/mount", kMount) &&
         Script(root + "/bin/umount", kUmount) && Script(root + "/bin/pvdisplay", kPvdisplay);
}

bool MakeSysfs(const std::string& root, const NvmePlaces& places, const DriveState& state) {
  return MakeNvmeSysfs(root, places, state);
}

bool MakeSysfs(const std::string& root, const std::string& name, const DriveState& state,
               std::uint64_t wwn) {
  return MakeScsiSysfs(root, name, state, wwn);
}

void WriteDiskSize(const std::string& root, const std::string& block, std::uint64_t bytes) {
  const auto path = root + "/sys/class/block/" + block + "/size";
  if (fs::exists(path)) Write(path, std::to_string(bytes / 512) + "\n");
}

std::pair<std::string, std::uint32_t> FindNamespace(const std::string& root,
                                                    const std::string& block) {
  for (const auto& row : ReadTable(root + "/tables/namespaces")) {
    if (row.size() == 3 && row[0] == block)
      return {row[1], static_cast<std::uint32_t>(std::stoul(row[2]))};
  }
  return {};
}

std::string NamespaceNode(const std::string& root, const std::string& drive, std::uint32_t nsid) {
  for (const auto& row : ReadTable(root + "/tables/namespaces")) {
    if (row.size() == 3 && row[1] == drive && row[2] == std::to_string(nsid)) return row[0];
  }
  return drive + "n" + std::to_string(nsid);
}

std::string DriveOfController(const std::string& root, const std::string& controller) {
  for (const auto& row : ReadTable(root + "/tables/controllers")) {
    if (row.size() == 2 && row[0] == controller) return row[1];
  }
  return controller;
}

std::vector<MountedPartition> ReadMounts(const std::string& root) {
  const auto partitions = ReadTable(root + "/tables/partitions");
  std::vector<MountedPartition> mounts;
  for (const auto& row : ReadTable(root + "/tables/root")) {
    if (row.empty()) continue;
    const auto partition = std::ranges::find_if(
        partitions, [&](const auto& each) { return each.size() > 3 && each[0] == row[0]; });
    const bool known = partition != partitions.end();
    mounts.push_back({row[0], known ? (*partition)[1] : "ext4", "/", "rw",
                      known ? std::stoull((*partition)[3]) : std::uint64_t{1} << 30});
  }
  for (const auto& row : partitions) {
    if (row.size() < 5 || row[2] == "-") continue;
    const auto options = row.size() > 5 && row[5] != "-" ? row[5] : std::string("rw");
    mounts.push_back({row[0], row[1], row[2], options, std::stoull(row[3])});
  }
  return mounts;
}

void AppendEvent(const std::string& root, std::string_view line) {
  AppendLine(root + "/tables/events", line);
}

std::vector<std::string> ReadEvents(const std::string& root) {
  std::vector<std::string> lines;
  std::ifstream file(root + "/tables/events");
  for (std::string line; std::getline(file, line);) lines.push_back(line);
  return lines;
}

namespace {

std::string TablePath(const std::string& root, const std::string& block) {
  return root + "/tables/" + block + ".table";
}

std::string UnreadPath(const std::string& root, const std::string& block) {
  return root + "/tables/" + block + ".unread";
}

// "sda1" of "sda", "nvme0n1p1" of "nvme0n1".
std::vector<std::string> PartitionsOf(const std::string& root, const std::string& block) {
  std::vector<std::string> names;
  std::error_code failure;
  for (const auto& entry : fs::directory_iterator(root + "/sys/class/block/" + block, failure)) {
    if (fs::exists(entry.path() / "partition", failure)) names.push_back(entry.path().filename());
  }
  return names;
}

void RemovePartition(const std::string& root, const std::string& block, const std::string& name) {
  std::error_code ignored;
  const auto device = ReadFirstLine(root + "/sys/class/block/" + name + "/dev");
  if (!device.empty()) fs::remove(root + "/sys/dev/block/" + device, ignored);
  fs::remove(root + "/sys/class/block/" + name, ignored);
  fs::remove_all(root + "/sys/class/block/" + block + "/" + name, ignored);
  fs::remove(root + "/dev/" + name, ignored);
  std::string kept;
  std::ifstream file(root + "/tables/partitions");
  for (std::string line; std::getline(file, line);) {
    if (!line.starts_with("/dev/" + name + " ")) kept += line + "\n";
  }
  Write(root + "/tables/partitions", kept);
}

}  // namespace

bool IsMounted(const std::string& root, const std::string& block) {
  auto nodes = PartitionsOf(root, block);
  nodes.push_back(block);
  return std::ranges::any_of(ReadMounts(root), [&](const MountedPartition& mount) {
    return std::ranges::count(nodes, NodeName(mount.node)) > 0;
  });
}

void WriteUnreadPartition(const std::string& root, const std::string& block,
                          const PartitionSpec& spec) {
  AppendLine(UnreadPath(root, block), std::to_string(spec.bytes));
}

void ErasePartitionTable(const std::string& root, const std::string& block) {
  std::error_code ignored;
  fs::remove(TablePath(root, block), ignored);
  fs::remove(UnreadPath(root, block), ignored);
}

void OpenPartition(const std::string& root, std::string_view node) {
  AppendLine(root + "/tables/open", NodeName(node));
}

bool RereadPartitions(const std::string& root, const std::string& block) {
  const auto partitions = PartitionsOf(root, block);
  for (const auto& row : ReadTable(root + "/tables/open")) {
    if (!row.empty() && std::ranges::count(partitions, row[0]) > 0) return false;
  }
  if (IsMounted(root, block)) return false;
  AppendEvent(root, "reread /dev/" + block);
  if (!fs::exists(TablePath(root, block))) {
    for (const auto& name : partitions) RemovePartition(root, block, name);
  }
  const auto unread = ReadTable(UnreadPath(root, block));
  std::error_code ignored;
  fs::remove(UnreadPath(root, block), ignored);
  for (const auto& row : unread) MakePartition(root, block, {std::stoull(row.at(0)), "", "", ""});
  return true;
}

std::string MakeLoop(const std::string& root, std::string_view backingFile) {
  int number = 0;
  while (fs::exists(root + "/sys/class/block/loop" + std::to_string(number))) ++number;
  const auto name = "loop" + std::to_string(number);
  const auto folder = "devices/virtual/block/" + name;
  std::error_code failure;
  fs::create_directories(root + "/sys/" + folder + "/loop", failure);
  const bool made =
      !failure && Write(root + "/sys/" + folder + "/dev", "7:" + std::to_string(number) + "\n") &&
      Write(root + "/sys/" + folder + "/loop/backing_file", std::string(backingFile) + "\n") &&
      Link("../../" + folder, root + "/sys/class/block/" + name);
  return made ? "/dev/" + name : std::string();
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
        << spec.bytes << ' ' << field(spec.volumeGroup) << " -\n";
  const auto disk = ReadFirstLine(root + "/sys/class/block/" + block + "/dev");
  const auto colon = disk.find(':') + 1;
  const auto minor = std::stoul(disk.substr(colon)) + (disk.starts_with("8:") ? 0 : 4096) +
                     static_cast<unsigned>(number);
  const auto device = disk.substr(0, colon) + std::to_string(minor);
  const bool made = !failure && table.good() && Write(TablePath(root, block), "") &&
                    Write(root + "/dev/" + name, Superblock(spec.fileSystem)) &&
                    Write(folder + "/dev", device + "\n") &&
                    Write(folder + "/partition", std::to_string(number) + "\n") &&
                    Write(folder + "/size", std::to_string(spec.bytes / 512) + "\n") &&
                    LinkNode(root, link.substr(kUp.size()) + "/" + name, name, device);
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
