// The system's functions, before libc's own. Paths of the active fleet and
// descriptors of its nodes are answered here; all else goes on to libc.
//
// Names are defined as they stand in the library, so this file must not be
// compiled with a wider off_t than the platform's own (_FILE_OFFSET_BITS).
#undef _FILE_OFFSET_BITS
#undef _FORTIFY_SOURCE

#include <aio.h>
#include <dirent.h>
#include <errno.h>
#include <fcntl.h>
#include <limits.h>
#include <linux/fs.h>
#include <sched.h>
#include <stdarg.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <sys/sysmacros.h>
#include <time.h>
#include <unistd.h>

#include <atomic>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <memory>
#include <mutex>

#include "Clock.h"
#include "FleetFiles.h"
#include "Nodes.h"
#include "Real.h"
#include "Shell.h"
#include "TestFleet.h"

#define MORVU_VISIBLE __attribute__((visibility("default")))

namespace {

using namespace Simulator;

constexpr unsigned kSgMajor = 21, kSdMajor = 8, kNvmeMajor = 242, kBlockMajor = 259;

// A path as the fleet has it, or as it came.
class FleetPath {
 public:
  explicit FleetPath(const char* path) : path_(path) {
    if (path == nullptr || *path != '/' || !HasActiveFleet()) return;
    fleet_ = ActiveFleet();
    if (fleet_ == nullptr) return;
    mapped_ = fleet_->Map(path);
    if (mapped_.empty()) return;
    path_ = mapped_.c_str();
    const std::string_view full = mapped_;
    if (!full.starts_with(fleet_->Root())) return;  // a file of the machine's own
    const auto rest = full.substr(fleet_->Root().size());
    if (rest.starts_with("/dev/")) node_ = fleet_->Find(rest);
  }
  const char* Get() const { return path_; }
  bool IsMapped() const { return !mapped_.empty(); }
  const Node& TheNode() const { return node_; }
  const std::shared_ptr<Fleet>& TheFleet() const { return fleet_; }

 private:
  std::shared_ptr<Fleet> fleet_;
  std::string mapped_;
  const char* path_;
  Node node_;
};

int Remember(int descriptor, const FleetPath& path, int flags, std::shared_ptr<void> claim) {
  if (descriptor < 0) return descriptor;
  const auto& node = path.TheNode();
  const bool writes = node.block && (flags & O_ACCMODE) != O_RDONLY;
  const auto name = std::string(path.Get()).substr(path.TheFleet()->Root().size());
  Simulator::Register(descriptor, {.node = node,
                                   .writtenNode = writes ? name : std::string(),
                                   .claim = std::move(claim),
                                   .direct = (flags & O_DIRECT) != 0,
                                   .writable = (flags & O_ACCMODE) != O_RDONLY});
  return descriptor;
}

// A mount table is written as it is opened.
bool IsMountInfo(const char* path) {
  return path != nullptr && std::strcmp(path, "/proc/self/mountinfo") == 0 && HasActiveFleet();
}

int OpenMountInfo() {
  const auto fleet = ActiveFleet();
  const auto text = fleet != nullptr ? fleet->MountInfo() : std::string();
  const int file = memfd_create("mountinfo", MFD_CLOEXEC);
  if (file < 0) return -1;
  const bool whole =
      Libc().write(file, text.data(), text.size()) == static_cast<ssize_t>(text.size());
  if (whole && lseek(file, 0, SEEK_SET) == 0) return file;
  Libc().close(file);
  errno = EIO;
  return -1;
}

// A medium is larger than what a 32-bit off_t counts, and the folder's file
// system may know no direct reads.
int OpenNodeFile(const FleetPath& path, int flags) {
  if (path.TheNode().drive->State().vanished) {
    errno = ENODEV;
    return -1;
  }
  std::shared_ptr<void> claim;
  if (path.TheNode().block && (flags & O_EXCL) != 0) {
    claim = ClaimDisk(*path.TheFleet(), path.TheNode());
    if (claim == nullptr) {
      errno = EBUSY;
      return -1;
    }
  }
  flags = (flags & ~(O_CREAT | O_EXCL | O_TRUNC)) | O_LARGEFILE;
  int descriptor = Libc().open64(path.Get(), flags);
  if (descriptor < 0 && errno == EINVAL && (flags & O_DIRECT) != 0) {
    descriptor = Libc().open64(path.Get(), flags & ~O_DIRECT);
  }
  return Remember(descriptor, path, flags, std::move(claim));
}

// The fleet's path of an open file below /mnt; empty for any other.
std::string MountedPath(int descriptor) {
  const auto fleet = HasActiveFleet() ? ActiveFleet() : nullptr;
  if (fleet == nullptr) return {};
  char target[512];
  const auto link = "/proc/self/fd/" + std::to_string(descriptor);
  const auto length = Libc().readlink(link.c_str(), target, sizeof target);
  const auto& root = fleet->Root();
  if (length <= 0) return {};
  const std::string_view path(target, static_cast<std::size_t>(length));
  return path.starts_with(root + "/mnt/") ? std::string(path.substr(root.size())) : std::string();
}

// What the kernel tells of an open file, as far as the fleet mounts it.
int OpenFileInfo(const char* name) {
  constexpr std::string_view kFolder = "/proc/self/fdinfo/";
  if (name == nullptr || !std::string_view(name).starts_with(kFolder)) return -1;
  const auto path = MountedPath(std::atoi(name + kFolder.size()));
  const auto mount = path.empty() ? std::nullopt : ActiveFleet()->FindMountOf(path);
  if (!mount) return -1;
  const auto text = "pos:\t0\nflags:\t0100000\nmnt_id:\t" + std::to_string(mount->id) + "\n";
  const int file = memfd_create("fdinfo", MFD_CLOEXEC);
  [[maybe_unused]] const auto written = Libc().write(file, text.data(), text.size());
  lseek(file, 0, SEEK_SET);
  return file;
}

// A partition's node is a file of the fleet. False for a descriptor of anything else.
bool FlushPartition(int descriptor) {
  const auto fleet = ActiveFleet();
  char target[512];
  const auto link = "/proc/self/fd/" + std::to_string(descriptor);
  const auto length = Libc().readlink(link.c_str(), target, sizeof target);
  if (fleet == nullptr || length <= 0) return false;
  const std::string_view path(target, static_cast<std::size_t>(length));
  const auto folder = fleet->Root() + "/dev/";
  if (!path.starts_with(folder)) return false;
  AppendEvent(fleet->Root(), "flush " + std::string(path.substr(fleet->Root().size())));
  return true;
}

// A number that closed by a way unseen here (close_range) leads to no node any more.
int Fresh(int descriptor) {
  Forget(descriptor);
  return descriptor;
}

int Control(int (*real)(int, int, ...), int descriptor, int command, void* argument) {
  const int result = real(descriptor, command, argument);
  if (result >= 0 && (command == F_DUPFD || command == F_DUPFD_CLOEXEC)) {
    Duplicate(descriptor, result);
  }
  return result;
}

mode_t ModeArgument(int flags, va_list arguments) {
  return (flags & (O_CREAT | O_TMPFILE)) != 0 ? va_arg(arguments, mode_t) : 0;
}

int Open(int (*real)(const char*, int, ...), const char* name, int flags, mode_t mode) {
  if (IsMountInfo(name)) return Fresh(OpenMountInfo());
  if (const int info = OpenFileInfo(name); info >= 0) return Fresh(info);
  const FleetPath path(name);
  return path.TheNode() ? OpenNodeFile(path, flags) : Fresh(real(path.Get(), flags, mode));
}

int OpenAt(int (*real)(int, const char*, int, ...), int folder, const char* name, int flags,
           mode_t mode) {
  if (IsMountInfo(name)) return Fresh(OpenMountInfo());
  if (const int info = OpenFileInfo(name); info >= 0) return Fresh(info);
  const FleetPath path(name);
  return path.TheNode() ? OpenNodeFile(path, flags) : Fresh(real(folder, path.Get(), flags, mode));
}

// What a kernel says of a device node.
template <typename Stat>
void ShowNode(const Node& node, Stat& result) {
  const auto& name = node.drive->Name();
  const bool nvme = name.starts_with("nvme");
  const auto digits = name.find_first_of("0123456789");
  const auto number = static_cast<unsigned>(std::strtoul(name.c_str() + digits, nullptr, 10));
  result.st_mode = (node.block ? S_IFBLK : S_IFCHR) | 0660;
  result.st_size = 0;
  result.st_blocks = 0;
  if (nvme) {
    result.st_rdev =
        node.block ? makedev(kBlockMajor, number * 16 + node.nsid) : makedev(kNvmeMajor, number);
  } else {
    result.st_rdev = node.block ? makedev(kSdMajor, number * 16) : makedev(kSgMajor, number);
  }
}

// The narrow forms fail on a large medium, so nodes are always asked widely.
template <typename Stat>
bool StatNode(const FleetPath& path, Stat& result, int& answer) {
  if (!path.TheNode()) return false;
  if (path.TheNode().drive->State().vanished) {
    errno = ENOENT;
    answer = -1;
    return true;
  }
  struct stat64 wide {};
  answer = Libc().stat64(path.Get(), &wide);
  if (answer != 0) return true;
  std::memset(&result, 0, sizeof result);
  result.st_ino = static_cast<decltype(result.st_ino)>(wide.st_ino);
  result.st_dev = wide.st_dev;
  result.st_nlink = 1;
  result.st_blksize = 4096;
  ShowNode(path.TheNode(), result);
  return true;
}

template <typename Stat, typename Function>
int StatPath(Function real, const char* name, Stat* result) {
  const FleetPath path(name);
  int answer = 0;
  return StatNode(path, *result, answer) ? answer : real(path.Get(), result);
}

template <typename Stat, typename Function>
int StatAt(Function real, int folder, const char* name, Stat* result, int flags) {
  const FleetPath path(name);
  int answer = 0;
  return StatNode(path, *result, answer) ? answer : real(folder, path.Get(), result, flags);
}

template <typename Stat, typename Function>
int StatOpen(Function real, int descriptor, Stat* result) {
  const auto* open = FindOpen(descriptor);
  if (open == nullptr) return real(descriptor, result);
  struct stat64 wide {};
  if (Libc().fstat64(descriptor, &wide) != 0) return -1;
  std::memset(result, 0, sizeof *result);
  // By these /proc/locks names the node.
  result->st_ino = static_cast<decltype(result->st_ino)>(wide.st_ino);
  result->st_dev = wide.st_dev;
  result->st_nlink = 1;
  result->st_blksize = 4096;
  ShowNode(open->node, *result);
  return 0;
}

// Some blocks are for root alone, as mkfs sets them aside.
constexpr std::uint64_t kFileSystemBlock = 512, kReservedBlocks = 64;

// What the files of a folder take.
std::uint64_t BytesOfFiles(const std::string& folder) {
  std::uint64_t bytes = 0;
  std::error_code gone;
  for (const auto& entry : std::filesystem::directory_iterator(folder, gone)) {
    const auto size = entry.is_regular_file(gone) ? entry.file_size(gone) : 0;
    if (!gone) bytes += size;
  }
  return bytes;
}

// False for a path on which the fleet has nothing mounted.
template <typename Stat>
bool ShowMounted(const char* path, Stat& result) {
  const auto fleet = path != nullptr && *path == '/' ? ActiveFleet() : nullptr;
  const auto bytes = fleet != nullptr ? fleet->FindMountedBytes(path) : 0;
  if (bytes == 0) return false;
  const auto blocks = bytes / kFileSystemBlock;
  const auto room = blocks - blocks / 4;
  const auto used = BytesOfFiles(fleet->Root() + path) / kFileSystemBlock;
  const auto free = room - std::min(room, used);
  std::memset(&result, 0, sizeof result);
  result.f_bsize = 4096;
  result.f_frsize = kFileSystemBlock;
  result.f_blocks = static_cast<decltype(result.f_blocks)>(blocks + kReservedBlocks);
  result.f_bfree = static_cast<decltype(result.f_bfree)>(free + kReservedBlocks);
  result.f_bavail = static_cast<decltype(result.f_bavail)>(free);
  return true;
}

template <typename Stat>
bool ShowMountedFile(int descriptor, Stat& result) {
  const auto path = MountedPath(descriptor);
  const auto mount = path.empty() ? std::nullopt : ActiveFleet()->FindMountOf(path);
  return mount && ShowMounted(mount->point.c_str(), result);
}

std::shared_ptr<const FileHook>& TheFileHook() {
  static auto& hook = *new std::shared_ptr<const FileHook>;
  return hook;
}
std::atomic<bool> hasFileHook = false;
std::mutex fileHookMutex;  // guards the hook

template <typename Function>
ssize_t Hooked(FileTransfer::Kind kind, int descriptor, void* data, size_t size,
               std::uint64_t offset, Function real) {
  if (!hasFileHook) return real();
  const auto hook = [] {
    const std::lock_guard lock(fileHookMutex);
    return TheFileHook();
  }();
  return hook == nullptr ? real() : (*hook)({kind, descriptor, data, size, offset, real});
}

// A listing of /dev shows the fleet's nodes.
std::string FolderPath(const char* path) {
  if (std::strcmp(path, "/dev") != 0 && std::strcmp(path, "/dev/") != 0)
    return FleetPath(path).Get();
  const auto fleet = ActiveFleet();
  return fleet != nullptr ? fleet->Root() + "/dev" : std::string(path);
}

// The names that are found are as the caller's pattern has them.
template <typename Found, typename Function>
int Glob(Function real, const char* pattern, int flags, int (*failed)(const char*, int),
         Found* found) {
  const FleetPath mapped(pattern);
  const int result = real(mapped.Get(), flags, failed, found);
  if (result != 0 || !mapped.IsMapped()) return result;
  const auto first = (flags & GLOB_DOOFFS) != 0 ? found->gl_offs : 0;
  for (std::size_t i = first; i < first + found->gl_pathc; ++i) {
    std::string name(found->gl_pathv[i]);
    mapped.TheFleet()->Unmap(name);
    std::strcpy(found->gl_pathv[i], name.c_str());  // shorter than what stood there
  }
  return result;
}

// A transfer of a node is over at once, as the C library marks it. Without offsets, as a generic
// node is, the library reads and writes in turn.
template <typename Block, typename Function>
int Submit(Function real, Block* block, bool isWrite) {
  auto* open = FindOpen(block->aio_fildes);
  if (open == nullptr) return real(block);
  auto* data = const_cast<void*>(static_cast<volatile void*>(block->aio_buf));
  const auto offset = static_cast<std::uint64_t>(block->aio_offset);
  ssize_t result = 0;
  if (open->node.block) {
    result = isWrite ? RawWrite(*open, data, block->aio_nbytes, offset)
                     : RawRead(*open, data, block->aio_nbytes, offset);
  } else {
    result = isWrite ? NodeWrite(*open, data, block->aio_nbytes)
                     : NodeRead(*open, data, block->aio_nbytes);
  }
  block->__error_code = result < 0 ? errno : 0;
  block->__return_value = result;
  return 0;
}

// A transfer at the descriptor's place, which goes on by what has moved.
template <typename Function>
ssize_t AtPlace(int descriptor, Function transfer) {
  const auto place = lseek64(descriptor, 0, SEEK_CUR);
  if (place < 0) return -1;
  const auto moved = transfer(static_cast<std::uint64_t>(place));
  if (moved > 0) lseek64(descriptor, place + moved, SEEK_SET);
  return moved;
}

// A shorter rest is a poller's, not a wait for a drive: skipping it would make the
// poller spin, and the drives' time fly while it does.
constexpr std::int64_t kShortestWaitMs = 100;

// The milliseconds of a wait that the fleet's clock takes over; 0 when it is slept.
std::int64_t SkippedWait(const timespec* time) {
  if (time == nullptr || time->tv_sec < 0 || time->tv_nsec < 0 || time->tv_nsec >= 1'000'000'000)
    return 0;
  const auto wait = static_cast<std::int64_t>(time->tv_sec) * 1000 + time->tv_nsec / 1'000'000;
  return wait >= kShortestWaitMs ? wait : 0;
}

std::atomic<std::int64_t> addedToDay = 0;

// As libc does it: a program that would write behind its buffer ends.
size_t Fits(size_t size, size_t room) {
  if (size > room) std::abort();
  return size;
}

}  // namespace

namespace Simulator {
void SetFileHook(FileHook hook) {
  hasFileHook = hook != nullptr;
  const std::lock_guard lock(fileHookMutex);
  TheFileHook() = std::make_shared<const FileHook>(std::move(hook));
}
}  // namespace Simulator

void Simulator::AdvanceTimeOfDay(std::int64_t seconds) { addedToDay += seconds; }

extern "C" {

MORVU_VISIBLE int open(const char* path, int flags, ...) {
  va_list arguments;
  va_start(arguments, flags);
  const auto mode = ModeArgument(flags, arguments);
  va_end(arguments);
  return Open(Libc().open, path, flags, mode);
}

MORVU_VISIBLE int open64(const char* path, int flags, ...) {
  va_list arguments;
  va_start(arguments, flags);
  const auto mode = ModeArgument(flags, arguments);
  va_end(arguments);
  return Open(Libc().open64, path, flags, mode);
}

MORVU_VISIBLE int openat(int folder, const char* path, int flags, ...) {
  va_list arguments;
  va_start(arguments, flags);
  const auto mode = ModeArgument(flags, arguments);
  va_end(arguments);
  return OpenAt(Libc().openat, folder, path, flags, mode);
}

MORVU_VISIBLE int openat64(int folder, const char* path, int flags, ...) {
  va_list arguments;
  va_start(arguments, flags);
  const auto mode = ModeArgument(flags, arguments);
  va_end(arguments);
  return OpenAt(Libc().openat64, folder, path, flags, mode);
}

// What a fortified build calls in place of the four above.
MORVU_VISIBLE int __open_2(const char* path, int flags) {
  return Open(Libc().open, path, flags, 0);
}
MORVU_VISIBLE int __open64_2(const char* path, int flags) {
  return Open(Libc().open64, path, flags, 0);
}
MORVU_VISIBLE int __openat_2(int folder, const char* path, int flags) {
  return OpenAt(Libc().openat, folder, path, flags, 0);
}
MORVU_VISIBLE int __openat64_2(int folder, const char* path, int flags) {
  return OpenAt(Libc().openat64, folder, path, flags, 0);
}

MORVU_VISIBLE int close(int descriptor) {
  const auto* open = FindOpen(descriptor);
  if (open != nullptr && !open->writtenNode.empty()) {
    if (const auto fleet = ActiveFleet()) AppendEvent(fleet->Root(), "change " + open->writtenNode);
  }
  Forget(descriptor);
  return Libc().close(descriptor);
}

MORVU_VISIBLE int dup(int descriptor) noexcept {
  const int copy = Libc().dup(descriptor);
  if (copy >= 0) Duplicate(descriptor, copy);
  return copy;
}

MORVU_VISIBLE int dup2(int descriptor, int to) noexcept {
  const int copy = Libc().dup2(descriptor, to);
  if (copy >= 0 && copy != descriptor) Duplicate(descriptor, copy);
  return copy;
}
MORVU_VISIBLE int dup3(int descriptor, int to, int flags) noexcept {
  const int copy = Libc().dup3(descriptor, to, flags);
  if (copy >= 0) Duplicate(descriptor, copy);
  return copy;
}

// Of all commands these two make descriptors; an argument is a number or a pointer.
MORVU_VISIBLE int fcntl(int descriptor, int command, ...) {
  va_list arguments;
  va_start(arguments, command);
  void* argument = va_arg(arguments, void*);
  va_end(arguments);
  return Control(Libc().fcntl, descriptor, command, argument);
}
MORVU_VISIBLE int fcntl64(int descriptor, int command, ...) {
  va_list arguments;
  va_start(arguments, command);
  void* argument = va_arg(arguments, void*);
  va_end(arguments);
  return Control(Libc().fcntl64, descriptor, command, argument);
}

MORVU_VISIBLE int ioctl(int descriptor, unsigned long request, ...) noexcept {
  va_list arguments;
  va_start(arguments, request);
  void* argument = va_arg(arguments, void*);
  va_end(arguments);
  auto* open = FindOpen(descriptor);
  if (open != nullptr) return NodeIoctl(*open, request, argument);
  if (request == BLKFLSBUF && FlushPartition(descriptor)) return 0;
  return Libc().ioctl(descriptor, request, argument);
}

MORVU_VISIBLE ssize_t write(int descriptor, const void* data, size_t size) {
  auto* open = FindOpen(descriptor);
  if (open == nullptr) return Libc().write(descriptor, data, size);
  if (!open->node.block) return NodeWrite(*open, data, size);
  return AtPlace(descriptor,
                 [&](std::uint64_t place) { return RawWrite(*open, data, size, place); });
}

MORVU_VISIBLE ssize_t read(int descriptor, void* data, size_t size) {
  auto* open = FindOpen(descriptor);
  if (open == nullptr) return Libc().read(descriptor, data, size);
  if (!open->node.block) return NodeRead(*open, data, size);
  return AtPlace(descriptor,
                 [&](std::uint64_t place) { return RawRead(*open, data, size, place); });
}

MORVU_VISIBLE ssize_t pread(int descriptor, void* data, size_t size, off_t offset) {
  auto* open = FindOpen(descriptor);
  if (open != nullptr) return RawRead(*open, data, size, static_cast<std::uint64_t>(offset));
  return Hooked(FileTransfer::Kind::Read, descriptor, data, size,
                static_cast<std::uint64_t>(offset),
                [=] { return Libc().pread(descriptor, data, size, offset); });
}
MORVU_VISIBLE ssize_t pread64(int descriptor, void* data, size_t size, off64_t offset) {
  auto* open = FindOpen(descriptor);
  if (open != nullptr) return RawRead(*open, data, size, static_cast<std::uint64_t>(offset));
  return Hooked(FileTransfer::Kind::Read, descriptor, data, size,
                static_cast<std::uint64_t>(offset),
                [=] { return Libc().pread64(descriptor, data, size, offset); });
}
MORVU_VISIBLE ssize_t pwrite(int descriptor, const void* data, size_t size, off_t offset) {
  auto* open = FindOpen(descriptor);
  if (open != nullptr) return RawWrite(*open, data, size, static_cast<std::uint64_t>(offset));
  return Hooked(FileTransfer::Kind::Write, descriptor, const_cast<void*>(data), size,
                static_cast<std::uint64_t>(offset),
                [=] { return Libc().pwrite(descriptor, data, size, offset); });
}
MORVU_VISIBLE ssize_t pwrite64(int descriptor, const void* data, size_t size, off64_t offset) {
  auto* open = FindOpen(descriptor);
  if (open != nullptr) return RawWrite(*open, data, size, static_cast<std::uint64_t>(offset));
  return Hooked(FileTransfer::Kind::Write, descriptor, const_cast<void*>(data), size,
                static_cast<std::uint64_t>(offset),
                [=] { return Libc().pwrite64(descriptor, data, size, offset); });
}

MORVU_VISIBLE int aio_read(struct aiocb* block) noexcept {
  return Submit(Libc().aio_read, block, false);
}
MORVU_VISIBLE int aio_read64(struct aiocb64* block) noexcept {
  return Submit(Libc().aio_read64, block, false);
}
MORVU_VISIBLE int aio_write(struct aiocb* block) noexcept {
  return Submit(Libc().aio_write, block, true);
}
MORVU_VISIBLE int aio_write64(struct aiocb64* block) noexcept {
  return Submit(Libc().aio_write64, block, true);
}

MORVU_VISIBLE int stat(const char* path, struct stat* result) noexcept {
  return StatPath(Libc().stat, path, result);
}
MORVU_VISIBLE int stat64(const char* path, struct stat64* result) noexcept {
  return StatPath(Libc().stat64, path, result);
}
MORVU_VISIBLE int lstat(const char* path, struct stat* result) noexcept {
  return StatPath(Libc().lstat, path, result);
}
MORVU_VISIBLE int lstat64(const char* path, struct stat64* result) noexcept {
  return StatPath(Libc().lstat64, path, result);
}
MORVU_VISIBLE int fstat(int descriptor, struct stat* result) noexcept {
  return StatOpen(Libc().fstat, descriptor, result);
}
MORVU_VISIBLE int fstat64(int descriptor, struct stat64* result) noexcept {
  return StatOpen(Libc().fstat64, descriptor, result);
}
MORVU_VISIBLE int fstatat(int folder, const char* path, struct stat* result, int flags) noexcept {
  return StatAt(Libc().fstatat, folder, path, result, flags);
}
MORVU_VISIBLE int fstatat64(int folder, const char* path, struct stat64* result,
                            int flags) noexcept {
  return StatAt(Libc().fstatat64, folder, path, result, flags);
}
MORVU_VISIBLE int statx(int folder, const char* path, int flags, unsigned mask,
                        struct statx* result) noexcept {
  const FleetPath mapped(path);
  return Libc().statx(folder, mapped.Get(), flags, mask, result);
}

MORVU_VISIBLE int statvfs(const char* path, struct statvfs* result) noexcept {
  return ShowMounted(path, *result) ? 0 : Libc().statvfs(FleetPath(path).Get(), result);
}
MORVU_VISIBLE int statvfs64(const char* path, struct statvfs64* result) noexcept {
  return ShowMounted(path, *result) ? 0 : Libc().statvfs64(FleetPath(path).Get(), result);
}

MORVU_VISIBLE int fstatvfs(int descriptor, struct statvfs* result) noexcept {
  return ShowMountedFile(descriptor, *result) ? 0 : Libc().fstatvfs(descriptor, result);
}
MORVU_VISIBLE int fstatvfs64(int descriptor, struct statvfs64* result) noexcept {
  return ShowMountedFile(descriptor, *result) ? 0 : Libc().fstatvfs64(descriptor, result);
}

MORVU_VISIBLE int fsync(int descriptor) {
  return static_cast<int>(Hooked(FileTransfer::Kind::Sync, descriptor, nullptr, 0, 0,
                                 [=] { return ssize_t{Libc().fsync(descriptor)}; }));
}

MORVU_VISIBLE int access(const char* path, int mode) noexcept {
  const FleetPath mapped(path);
  return Libc().access(mapped.Get(), mode);
}
MORVU_VISIBLE int faccessat(int folder, const char* path, int mode, int flags) noexcept {
  const FleetPath mapped(path);
  return Libc().faccessat(folder, mapped.Get(), mode, flags);
}
MORVU_VISIBLE ssize_t readlink(const char* path, char* buffer, size_t size) noexcept {
  const FleetPath mapped(path);
  return Libc().readlink(mapped.Get(), buffer, size);
}
MORVU_VISIBLE ssize_t readlinkat(int folder, const char* path, char* buffer, size_t size) noexcept {
  const FleetPath mapped(path);
  return Libc().readlinkat(folder, mapped.Get(), buffer, size);
}

MORVU_VISIBLE int mkdir(const char* path, mode_t mode) noexcept {
  return Libc().mkdir(FleetPath(path).Get(), mode);
}
MORVU_VISIBLE int rmdir(const char* path) noexcept { return Libc().rmdir(FleetPath(path).Get()); }
MORVU_VISIBLE int unlink(const char* path) noexcept { return Libc().unlink(FleetPath(path).Get()); }
MORVU_VISIBLE int remove(const char* path) noexcept { return Libc().remove(FleetPath(path).Get()); }
MORVU_VISIBLE int rename(const char* from, const char* to) noexcept {
  return Libc().rename(FleetPath(from).Get(), FleetPath(to).Get());
}

MORVU_VISIBLE char* realpath(const char* path, char* resolved) noexcept {
  const FleetPath mapped(path);
  char* full = Libc().realpath(mapped.Get(), resolved);
  // A file of the fleet's folder, called by its own name, is where it is.
  const bool isNode = mapped.IsMapped() && std::strcmp(path, mapped.Get()) != 0;
  if (full != nullptr && isNode) {
    std::string text(full);
    mapped.TheFleet()->Unmap(text);
    std::strcpy(full, text.c_str());  // shorter than what stood there
  }
  return full;
}

// What a fortified build calls for a buffer whose size its compiler knows: `room`.
MORVU_VISIBLE ssize_t __read_chk(int descriptor, void* data, size_t size, size_t room) {
  return read(descriptor, data, Fits(size, room));
}
MORVU_VISIBLE ssize_t __pread_chk(int descriptor, void* data, size_t size, off_t offset,
                                  size_t room) {
  return pread(descriptor, data, Fits(size, room), offset);
}
MORVU_VISIBLE ssize_t __pread64_chk(int descriptor, void* data, size_t size, off64_t offset,
                                    size_t room) {
  return pread64(descriptor, data, Fits(size, room), offset);
}
MORVU_VISIBLE ssize_t __readlink_chk(const char* path, char* buffer, size_t size,
                                     size_t room) noexcept {
  return readlink(path, buffer, Fits(size, room));
}
MORVU_VISIBLE ssize_t __readlinkat_chk(int folder, const char* path, char* buffer, size_t size,
                                       size_t room) noexcept {
  return readlinkat(folder, path, buffer, Fits(size, room));
}
MORVU_VISIBLE char* __realpath_chk(const char* path, char* resolved, size_t room) noexcept {
  Fits(PATH_MAX, room);
  return realpath(path, resolved);
}

MORVU_VISIBLE DIR* opendir(const char* path) { return Libc().opendir(FolderPath(path).c_str()); }
MORVU_VISIBLE int scandir(const char* path, struct dirent*** list,
                          int (*filter)(const struct dirent*),
                          int (*compare)(const struct dirent**, const struct dirent**)) {
  return Libc().scandir(FolderPath(path).c_str(), list, filter, compare);
}
MORVU_VISIBLE int scandir64(const char* path, struct dirent64*** list,
                            int (*filter)(const struct dirent64*),
                            int (*compare)(const struct dirent64**, const struct dirent64**)) {
  return Libc().scandir64(FolderPath(path).c_str(), list, filter, compare);
}

MORVU_VISIBLE int glob(const char* pattern, int flags, int (*failed)(const char*, int),
                       glob_t* found) noexcept {
  return Glob(Libc().glob, pattern, flags, failed, found);
}
MORVU_VISIBLE int glob64(const char* pattern, int flags, int (*failed)(const char*, int),
                         glob64_t* found) noexcept {
  return Glob(Libc().glob64, pattern, flags, failed, found);
}

MORVU_VISIBLE FILE* fopen(const char* path, const char* mode) {
  const FleetPath mapped(path);
  return Libc().fopen(mapped.Get(), mode);
}
MORVU_VISIBLE FILE* fopen64(const char* path, const char* mode) {
  const FleetPath mapped(path);
  return Libc().fopen64(mapped.Get(), mode);
}

// What is measured from the machine's start are the limits of operations on drives: they go by
// the fleet's clock. The other clocks are those of timers and waits.
MORVU_VISIBLE int clock_gettime(clockid_t clock, struct timespec* time) noexcept {
  const auto result = Libc().clock_gettime(clock, time);
  if (clock == CLOCK_REALTIME && result == 0) time->tv_sec += static_cast<time_t>(addedToDay);
  if (clock != CLOCK_BOOTTIME || result != 0 || !HasActiveFleet()) return result;
  const auto fleet = ActiveFleet();
  if (fleet == nullptr) return result;
  const auto passed = fleet->PassedOver() + time->tv_nsec / 1'000'000;
  time->tv_sec += static_cast<time_t>(passed / 1000);
  time->tv_nsec = static_cast<long>(passed % 1000 * 1'000'000 + time->tv_nsec % 1'000'000);
  return 0;
}

MORVU_VISIBLE int nanosleep(const struct timespec* time, struct timespec* left) {
  const auto fleet = ActiveFleet();
  const auto wait = fleet != nullptr && fleet->SkipsWaits() ? SkippedWait(time) : 0;
  if (wait == 0) return Libc().nanosleep(time, left);
  fleet->AdvanceClock(wait);
  sched_yield();
  return 0;
}

MORVU_VISIBLE FILE* popen(const char* command, const char* mode) {
  const auto fleet = ActiveFleet();
  return fleet != nullptr && command != nullptr && mode != nullptr
             ? OpenShell(*fleet, command, mode)
             : Libc().popen(command, mode);
}
MORVU_VISIBLE int pclose(FILE* stream) {
  int status = 0;
  return CloseShell(stream, status) ? status : Libc().pclose(stream);
}
MORVU_VISIBLE int system(const char* command) {
  const auto fleet = ActiveFleet();
  return fleet != nullptr && command != nullptr ? RunShell(*fleet, command)
                                                : Libc().system(command);
}

}  // extern "C"
