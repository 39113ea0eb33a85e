// The mounts of this process's mount namespace, as /proc/self/mountinfo tells them (proc(5)).
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace Morvu::DeviceManagement {

struct Mount {
  std::string id;            // the kernel's number of the mount
  std::string deviceNumber;  // "8:1"; of no block device where a file system spans several
  std::string point;         // "/boot"
  std::string type;          // "ext4"
  std::string source;        // "/dev/sda1"
  std::string options;       // of the mount point: "rw,relatime"
};
using MountTable = std::vector<Mount>;  // in the order of their mounting

// Nothing when the table could not be read, or makes no sense.
std::optional<MountTable> ReadMountTable();
// The text of such a table, taken apart.
std::optional<MountTable> ParseMountTable(std::string_view text);

// "/dev/sda1 on / type ext4 (rw,relatime)", as mount(8) prints it.
std::string ToText(const Mount& mount);

// The mount that an open file or folder lies on, by the kernel's own number, whatever is mounted
// where by now; nothing when it could not be asked.
std::optional<Mount> ReadMountOfHandle(int handle);

// Whether a mount is of this block node, whatever name it was mounted by.
bool IsMountOf(const Mount& mount, std::string_view node);
// The mount that is seen at a mount point, or of a node; null when there is none.
const Mount* FindMountPoint(const MountTable& table, std::string_view point);
const Mount* FindMountOf(const MountTable& table, std::string_view node);

}  // namespace Morvu::DeviceManagement
