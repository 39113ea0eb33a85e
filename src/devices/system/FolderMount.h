// A mount of ours on a folder of ours.
#pragma once

#include <string>
#include <string_view>

#include "frame/FileHandle.h"

namespace Morvu::DeviceManagement {

// The turn of one process, and one thread of it, at mounting: others wait for it, some
// seconds at most.
class MountTurn {
 public:
  explicit MountTurn(const std::string& folder);
  bool IsTaken() const { return handle_.IsOpen(); }

 private:
  FileHandle handle_;
};

// Mounts a node on a folder, which it makes, and ends that mount alone. A folder on which
// anything is mounted already is not touched.
class FolderMount {
 public:
  // `arguments` stand before the node on mount's line: "-t ext4 -o ro,noload".
  FolderMount(const std::string& node, std::string_view folder, std::string_view arguments);
  // Takes over a mount that is there already, which a process has left behind.
  explicit FolderMount(std::string_view folder) : folder_(folder), mounted_(true) {}
  ~FolderMount();
  FolderMount(const FolderMount&) = delete;
  FolderMount& operator=(const FolderMount&) = delete;

  bool IsMounted() const { return mounted_; }

 private:
  std::string folder_;
  bool mounted_ = false;
};

}  // namespace Morvu::DeviceManagement
