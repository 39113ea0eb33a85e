#include "devices/system/FileSystemSpace.h"

#include <fcntl.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <limits>

#include "devices/system/FolderMount.h"
#include "devices/system/MountTable.h"
#include "devices/system/SystemNodes.h"
#include "frame/Bytes.h"
#include "frame/FileHandle.h"
#include "frame/Logger.h"

namespace Morvu::DeviceManagement {
namespace {

// ext2, ext3 and ext4 share their magic; ext2 has no journal and no row.
enum class ExtKind { None, Ext3, Ext4 };

struct FileSystemRow {
  std::string_view type;
  std::size_t offset;
  std::string_view magic;
  ExtKind extKind;
  std::string_view options;
};
constexpr FileSystemRow kFileSystems[] = {
#include "devices/system/FileSystems.inc"
};

constexpr std::size_t kSuperblocks = 0x10048;  // to the end of the farthest magic
static_assert(std::ranges::all_of(kFileSystems, [](const FileSystemRow& row) {
  return row.offset + row.magic.size() <= kSuperblocks;
}));

// The ext4 disk layout's feature words, and the features that make an ext3 of it.
bool IsExtKind(ByteView medium, ExtKind kind) {
  constexpr std::size_t kCompatible = 0x45C, kIncompatible = 0x460, kReadOnlyCompatible = 0x464;
  constexpr std::uint32_t kJournal = 0x4, kExt3Incompatible = 0x16, kExt3ReadOnly = 0x7;
  if (kind == ExtKind::None) return true;
  const bool hasJournal = (ReadLittle32(medium, kCompatible) & kJournal) != 0;
  const bool hasMore = (ReadLittle32(medium, kIncompatible) & ~kExt3Incompatible) != 0 ||
                       (ReadLittle32(medium, kReadOnlyCompatible) & ~kExt3ReadOnly) != 0;
  return kind == ExtKind::Ext4 ? hasMore : hasJournal && !hasMore;
}

bool Holds(ByteView medium, const FileSystemRow& row) {
  const auto place = medium.subspan(row.offset, row.magic.size());
  const bool same = std::ranges::equal(place, row.magic, [](std::uint8_t byte, char c) {
    return byte == static_cast<std::uint8_t>(c);
  });
  return same && IsExtKind(medium, row.extKind);
}

// The first bytes of a node; what lies behind its end reads as zero. Empty on a failure.
std::vector<std::uint8_t> ReadSuperblocks(const std::string& node) {
  const auto handle = OpenFile(node, O_RDONLY | O_NONBLOCK);
  if (!handle.IsOpen()) return {};
  std::vector<std::uint8_t> bytes(kSuperblocks);
  std::size_t at = 0;
  while (at < bytes.size()) {
    const auto count = read(handle.Get(), bytes.data() + at, bytes.size() - at);
    if (count == 0) break;
    if (count > 0) {
      at += static_cast<std::size_t>(count);
    } else if (errno != EINTR) {
      bytes.clear();
    }
  }
  return bytes;
}

// Null for a type that may not be mounted.
const FileSystemRow* FindRow(const std::string& node) {
  const auto medium = ReadSuperblocks(node);
  if (medium.empty()) return nullptr;
  const auto row = std::ranges::find_if(
      kFileSystems, [&](const FileSystemRow& each) { return Holds(medium, each); });
  return row == std::end(kFileSystems) ? nullptr : row;
}

// A loop device that is read-only lets no option be wrong.
std::string MountArguments(const FileSystemRow& row) {
  std::string options = "ro,nosuid,nodev,noexec";
  if (access("/dev/loop-control", F_OK) == 0) options += ",loop";
  if (!row.options.empty()) options.append(",").append(row.options);
  return "-t " + std::string(row.type) + " -o " + options;
}

std::int64_t Multiply(std::uint64_t blocks, std::uint64_t size) {
  const auto most = static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max());
  return size == 0 || blocks > most / size ? -1 : static_cast<std::int64_t>(blocks * size);
}

const Mount* FindReadable(const std::optional<MountTable>& mounts, const std::string& node) {
  return mounts ? FindMountOf(*mounts, node) : nullptr;
}

}  // namespace

FileSystemSpace ReadMountedSpace(const std::string& mountPoint) {
  FileSystemSpace space;
  struct statvfs64 told {};
  while (statvfs64(mountPoint.c_str(), &told) != 0) {
    if (errno != EINTR) return space;
  }
  space.used =
      told.f_bfree > told.f_blocks ? -1 : Multiply(told.f_blocks - told.f_bfree, told.f_frsize);
  space.free = Multiply(told.f_bavail, told.f_frsize);
  if (space.used >= 0 && space.free >= 0) space.size = space.used + space.free;
  const auto mounts = ReadMountTable();
  const auto* mount = mounts ? FindMountPoint(*mounts, mountPoint) : nullptr;
  if (mount != nullptr) space.type = mount->type;
  return space;
}

FileSystemSpace ReadFileSystemSpace(const std::string& node, std::string_view folder) {
  if (!IsShellWord(node)) return {};
  auto mounts = ReadMountTable();
  if (!mounts) return {};
  if (const auto* mount = FindReadable(mounts, node)) return ReadMountedSpace(mount->point);

  const auto* row = FindRow(node);
  if (row == nullptr) return {};
  const MountTurn turn{std::string(folder)};
  if (!turn.IsTaken()) {
    MORVU_LOG(kLogWarning, "ReadFileSystemSpace", "Others are reading partitions");
    return {};
  }
  // Another may have mounted it while this one waited.
  mounts = ReadMountTable();
  if (const auto* mount = FindReadable(mounts, node)) return ReadMountedSpace(mount->point);
  const FolderMount mount(node, folder, MountArguments(*row));
  return mount.IsMounted() ? ReadMountedSpace(std::string(folder)) : FileSystemSpace{};
}

}  // namespace Morvu::DeviceManagement
