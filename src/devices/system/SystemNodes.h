// The names of device nodes.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace Morvu::DeviceManagement {

// "/dev/sg2" -> "sg2".
std::string_view GetNodeName(std::string_view devicePath);

// Whether it is a path of a node at all: a drive behind a RAID adapter has a mere name.
bool IsNodePath(std::string_view devicePath);

// The text may stand in a shell line as it is: letters, digits and "/._:+-" only.
bool IsShellWord(std::string_view text);

// The parts of an NVMe node's name: "/dev/nvme0" is a controller, "/dev/nvme2n1" the first
// namespace of subsystem 2. Neither the controller nor the namespace's identifier can be
// told from it: SystemFacts asks the kernel for both.
struct NvmeNode {
  std::string prefix;                  // "/dev/nvme0"
  std::optional<std::uint32_t> space;  // the namespace's place, from 1
};
// Nothing for a path of any other form, a partition's among them.
std::optional<NvmeNode> ParseNvmeNode(std::string_view path);

// "sg" and a number.
bool IsGenericName(std::string_view name);

}  // namespace Morvu::DeviceManagement
