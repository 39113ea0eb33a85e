// What the operating system tells about its device nodes, by its listings.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace Morvu::DeviceManagement {

// "/dev/sg2" -> "sg2".
std::string_view GetNodeName(std::string_view devicePath);

// The text may stand in a shell line as it is: letters, digits and "/._:+-" only.
bool IsShellWord(std::string_view text);

// The parts of an NVMe node's name: "/dev/nvme0" is a controller, "/dev/nvme0n1" its
// first namespace.
struct NvmeNode {
  std::string controller;              // "/dev/nvme0"
  std::optional<std::uint32_t> space;  // the namespace's number, from 1
};
// Nothing for a path of any other form, a partition's among them.
std::optional<NvmeNode> ParseNvmeNode(std::string_view path);

// The names of the generic SCSI nodes: "sg0".
std::vector<std::string> ListGenericNodes();
// The paths that a listing of /dev/n* shows and that hold "nvme".
std::vector<std::string> ListNvmeNodes();
// The names of the partitions on the drive behind a generic or an NVMe node: "sda1".
// Those of a controller are the partitions on all its namespaces.
std::vector<std::string> ListPartitions(std::string_view devicePath);

// The lines that a shell command prints; none if it cannot be run.
std::vector<std::string> RunPipeline(const std::string& command);

}  // namespace Morvu::DeviceManagement
