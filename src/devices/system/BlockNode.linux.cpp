#include "devices/system/BlockNode.h"

#include <fcntl.h>
#include <linux/fs.h>
#include <sys/file.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <utility>

#include "devices/system/KernelFiles.h"
#include "frame/Text.h"

namespace Morvu::DeviceManagement {
namespace {

FileHandle OpenNode(const std::string& path, BlockNode::Access access) {
  const int exclusive = access == BlockNode::Access::Exclusive ? O_EXCL : 0;
  return OpenFile(path, O_RDONLY | O_NONBLOCK | exclusive);
}

// "1: FLOCK  ADVISORY  WRITE 4711 00:05:345 0 EOF" (proc(5)): the file as the sixth field has it.
std::string NameInLockTable(int handle) {
  struct stat64 node {};
  if (fstat64(handle, &node) != 0) return {};
  std::array<char, 64> name{};
  std::snprintf(name.data(), name.size(), "%02x:%02x:%llu", major(node.st_dev), minor(node.st_dev),
                static_cast<unsigned long long>(node.st_ino));
  return name.data();
}

int CallNode(int handle, unsigned long request) {
  return ioctl(handle, request, nullptr) == 0 ? 0 : errno;
}

}  // namespace

BlockNode::BlockNode(std::string path, Access access)
    : path_(std::move(path)), handle_(OpenNode(path_, access)) {
  if (!IsOpen()) openError_ = errno;
}

BlockNode::Lock BlockNode::TryLock(bool shared) const {
  int result = 0;
  do {
    result = flock(handle_.Get(), (shared ? LOCK_SH : LOCK_EX) | LOCK_NB);
  } while (result != 0 && errno == EINTR);
  if (result == 0) return Lock::Taken;
  if (errno != EWOULDBLOCK) return Lock::Failed;
  return shared ? Lock::Owned : FindOwner();
}

// One that has let go meanwhile counts as a reader: who asks again gets the lock.
BlockNode::Lock BlockNode::FindOwner() const {
  constexpr std::size_t kKind = 1, kMode = 3, kFile = 5;
  const auto table = ReadKernelFile("/proc/locks");
  const auto name = NameInLockTable(handle_.Get());
  if (!table || name.empty()) return Lock::Shared;
  for (const auto& line : Split(*table, '\n')) {
    auto fields = Split(line, ' ');
    std::erase(fields, std::string());
    if (fields.size() <= kFile || fields[kKind] != "FLOCK" || fields[kFile] != name) continue;
    if (fields[kMode] == "WRITE") return Lock::Owned;
  }
  return Lock::Shared;
}

int BlockNode::Flush() const { return CallNode(handle_.Get(), BLKFLSBUF); }

int BlockNode::RereadPartitions() const { return CallNode(handle_.Get(), BLKRRPART); }

}  // namespace Morvu::DeviceManagement
