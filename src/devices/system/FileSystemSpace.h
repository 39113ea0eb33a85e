// What a file system on a partition tells of its space, asked without a write to its disk.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace Morvu::DeviceManagement {

// In bytes; -1 and an empty type where they could not be had. All of one reading.
struct FileSystemSpace {
  std::int64_t size = -1;  // what users can have: used and free, as df adds them
  std::int64_t free = -1;  // for users, without what is set aside for root
  std::int64_t used = -1;
  std::string type;  // "ext4", as the mount table names it
};

// Asks where the node is mounted; a node that is not is mounted for the moment on
// `folder`, read-only, by the table of types, and by one reader at a time on the machine.
// What another process has mounted is left as it is.
FileSystemSpace ReadFileSystemSpace(const std::string& node, std::string_view folder);

// The space of what is mounted on a folder.
FileSystemSpace ReadMountedSpace(const std::string& mountPoint);

}  // namespace Morvu::DeviceManagement
