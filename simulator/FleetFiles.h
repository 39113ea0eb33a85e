// The files of a fleet that stand for what the kernel and the shell tools show.
#pragma once

#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "DriveState.h"

namespace Simulator {

// The tables of a fleet: a row a line, its cells between blanks.
void AppendLine(const std::string& path, std::string_view line);
std::vector<std::vector<std::string>> ReadTable(const std::string& path);

struct PartitionSpec {
  std::uint64_t bytes;
  std::string fileSystem, mountPoint, volumeGroup;
};

// Why a folder cannot hold a fleet; empty when it can. The folder's path is
// part of every line that a shell pipeline sees, so it holds no word that the
// pipelines look for, and no character that a shell reads.
std::string CheckFleetPath(const std::string& root);

bool MakeFleetFolders(const std::string& root);
// Where an NVMe subsystem shows: its controllers, the names of its namespaces ("nvme0"
// before "n1"), and the identifier of each namespace in the order of the nodes.
struct NvmePlaces {
  std::vector<std::string> controllers;
  std::string namespacePrefix;
  std::vector<std::uint32_t> nsids;
};
bool MakeSysfs(const std::string& root, const NvmePlaces& places, const DriveState& state);
// `wwn` is the World Wide Name of a SCSI drive; 0 for none.
bool MakeSysfs(const std::string& root, const std::string& name, const DriveState& state,
               std::uint64_t wwn);
std::string MakePartition(const std::string& root, const std::string& block,
                          const PartitionSpec& spec);

// The disk's own table of partitions: a partition that is made stands in it too, an erase
// takes it, and the kernel reads it anew when it is asked to. One that is written behind its
// back stands in the table alone.
void WriteUnreadPartition(const std::string& root, const std::string& block,
                          const PartitionSpec& spec);
void ErasePartitionTable(const std::string& root, const std::string& block);
// The size that the kernel has for a disk, which it reads as the disk comes.
void WriteDiskSize(const std::string& root, const std::string& block, std::uint64_t bytes);
// False while a partition is mounted, or open in some program.
bool RereadPartitions(const std::string& root, const std::string& block);
void OpenPartition(const std::string& root, std::string_view node);

// What keeps an exclusive open of a disk off: a mount of it or of a partition.
bool IsMounted(const std::string& root, const std::string& block);
// A loop device over a node or a file.
std::string MakeLoop(const std::string& root, std::string_view backingFile);
// "nvme0n1" to "nvme0" and the namespace's identifier, 0 when there is none of this name.
std::pair<std::string, std::uint32_t> FindNamespace(const std::string& root,
                                                    const std::string& block);
// The other way.
std::string NamespaceNode(const std::string& root, const std::string& drive, std::uint32_t nsid);
// The drive behind a controller, which bears the name of its first one.
std::string DriveOfController(const std::string& root, const std::string& controller);

struct MountedPartition {
  std::string node, fileSystem, mountPoint, options;
  std::uint64_t bytes;
};
std::vector<MountedPartition> ReadMounts(const std::string& root);

// What reached a disk by mounts, and what udev heard of: "write /dev/sda1",
// "mount /dev/sda1 ro,loop", "change /dev/sda".
void AppendEvent(const std::string& root, std::string_view line);
std::vector<std::string> ReadEvents(const std::string& root);

void WriteRootMount(const std::string& root, std::string_view device);

std::string NodeName(std::string_view node);                                 // "/dev/sg0" to "sg0"
std::string GenericName(const std::string& root, const std::string& block);  // "sda" to "sg0"
std::string BlockNameOf(const std::string& root, const std::string& generic);  // "sg0" to "sda"

}  // namespace Simulator
