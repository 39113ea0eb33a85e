#include "devices/system/FolderMount.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <utility>

#include "devices/system/MountTable.h"
#include "devices/system/SystemNodes.h"
#include "frame/Logger.h"
#include "frame/Platform.h"

namespace Morvu::DeviceManagement {
namespace {

constexpr std::chrono::milliseconds kLongestTurn{10'000};
constexpr std::chrono::milliseconds kTurnPause{20};

// Parent by parent. That a folder is there already is no fault.
void MakeFolders(const std::string& folder) {
  for (auto level = folder.find('/', 1);; level = folder.find('/', level + 1)) {
    mkdir(folder.substr(0, level).c_str(), 0755);
    if (level == folder.npos) return;
  }
}

bool IsMountPoint(const std::string& folder, bool whenUnknown) {
  const auto mounts = ReadMountTable();
  return mounts ? FindMountPoint(*mounts, folder) != nullptr : whenUnknown;
}

}  // namespace

// The lock is on the folder's parent, which stays.
MountTurn::MountTurn(const std::string& folder) {
  const auto parent = folder.substr(0, folder.rfind('/'));
  MakeFolders(parent);
  auto handle = OpenFile(parent, O_RDONLY | O_DIRECTORY);
  if (!handle.IsOpen()) return;
  const auto end = std::chrono::steady_clock::now() + kLongestTurn;
  while (flock(handle.Get(), LOCK_EX | LOCK_NB) != 0) {
    if (errno != EWOULDBLOCK || std::chrono::steady_clock::now() >= end) return;
    SleepFor(kTurnPause);
  }
  handle_ = std::move(handle);
}

FolderMount::FolderMount(const std::string& node, std::string_view folder,
                         std::string_view arguments)
    : folder_(folder) {
  if (!IsShellWord(node) || !IsShellWord(folder_)) return;
  if (IsMountPoint(folder_, true)) {
    MORVU_LOG(kLogWarning, "FolderMount", "Something is mounted on " + folder_ + " already");
    return;
  }
  MakeFolders(folder_);
  RunSystem("mount " + std::string(arguments) + " " + node + " " + folder_ + " > /dev/null 2>&1");
  mounted_ = IsMountPoint(folder_, false);
  if (!mounted_) rmdir(folder_.c_str());
}

FolderMount::~FolderMount() {
  if (!mounted_) return;
  RunSystem("umount -l " + folder_ + " 2>/dev/null");
  rmdir(folder_.c_str());
}

}  // namespace Morvu::DeviceManagement
