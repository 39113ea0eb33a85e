// The files of a fleet that stand for what the kernel and the shell tools show.
#pragma once

#include <string>
#include <string_view>

#include "DriveState.h"

namespace Simulator {

struct PartitionSpec {
  std::uint64_t bytes;
  std::string fileSystem, mountPoint, volumeGroup;
};

// Why a folder cannot hold a fleet; empty when it can. The folder's path is
// part of every line that a shell pipeline sees, so it holds no word that the
// pipelines look for, and no character that a shell reads.
std::string CheckFleetPath(const std::string& root);

bool MakeFleetFolders(const std::string& root);
bool MakeSysfs(const std::string& root, const std::string& name, const DriveState& state);
std::string MakePartition(const std::string& root, const std::string& block,
                          const PartitionSpec& spec);
void WriteRootMount(const std::string& root, std::string_view device);

std::string NodeName(std::string_view node);                                 // "/dev/sg0" to "sg0"
std::string GenericName(const std::string& root, const std::string& block);  // "sda" to "sg0"
std::string BlockNameOf(const std::string& root, const std::string& generic);  // "sg0" to "sda"

}  // namespace Simulator
