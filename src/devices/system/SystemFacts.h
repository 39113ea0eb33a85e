// What the kernel shows of its storage, read once: a scan takes all its facts from one of
// these. A question that could not be put to the kernel has no answer (nullopt), never an
// empty one.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "devices/system/MountTable.h"

namespace Morvu::DeviceManagement {

using Names = std::vector<std::string>;

// One namespace with a node of its own.
struct NvmeSpace {
  std::string path;                         // "/dev/nvme0n1"
  std::optional<std::uint32_t> identifier;  // the standard's NSID, from 1
  Names controllers;                        // that reach it: "/dev/nvme0"; by their names
};

// A SCSI device as its INQUIRY told it to the kernel; empty where it could not be read.
struct GenericDevice {
  std::string type;  // SPC-4, table 155
  std::string vendor;
  std::string model;
  std::string revision;
};

class SystemFacts {
 public:
  static SystemFacts Read();

  // The names of the generic SCSI nodes in /dev: "sg0".
  const std::optional<Names>& GetGenericNodes() const { return genericNodes_; }
  // The paths in /dev that begin with "n" and hold "nvme".
  const std::optional<Names>& GetNvmeNodes() const { return nvmeNodes_; }
  // The namespaces with a node, in the order of their names. Hidden ones, which are but
  // paths to a shared namespace, are not among them.
  const std::optional<std::vector<NvmeSpace>>& GetNvmeSpaces() const { return nvmeSpaces_; }
  const std::optional<MountTable>& GetMounts() const { return mounts_; }

  // What sysfs shows of the device behind a generic node, "sg0".
  GenericDevice ReadGenericDevice(std::string_view name) const;
  // The same of an NVMe controller, or of a namespace's first one.
  GenericDevice ReadController(std::string_view devicePath) const;
  // Whether the way to the device goes by a USB port.
  std::optional<bool> IsUsb(std::string_view name) const;
  // The serial number that the kernel has read from a drive behind a generic node or an
  // NVMe node, the one by which the drive is listed; empty when it knows none. Nothing is sent
  // to the drive.
  std::string FindSerialNumber(std::string_view devicePath) const;
  // The World Wide Name that the kernel has read, of 64 bits; 0 when it knows none.
  std::uint64_t FindWorldWideName(std::string_view devicePath) const;
  // What tells one NVMe subsystem from others; empty when it is not known.
  static std::string FindSubsystem(std::string_view controller);

  // The partitions on the drive behind a generic or a block node: "sda1". Those of an NVMe
  // controller are the partitions on all its namespaces. What has no node has none, and no disk.
  std::optional<Names> FindPartitions(std::string_view devicePath) const;
  // The block nodes of the disk behind a generic node: "sda".
  std::optional<Names> FindDisks(std::string_view name) const;
  // The paths of the block nodes of all that a command to this node can reach: "/dev/sda" for
  // "/dev/sg0"; for a namespace or a controller all namespaces of its subsystem.
  std::optional<Names> FindWholeDisks(std::string_view devicePath) const;
  // The generic node of a block node's device, "/dev/sg0" for "sda"; empty when it has none.
  std::string FindGenericNode(std::string_view disk) const;
  // "sda" for its partition "sda1"; nothing for what is no partition.
  std::optional<std::string> FindDiskOfPartition(std::string_view partition) const;

 private:
  using Links = std::map<std::string, std::string, std::less<>>;  // name -> folder in /sys
  static std::optional<Links> ReadLinks(const std::string& folder);
  std::optional<Names> FindPartitionsOfDisk(std::string_view disk) const;
  std::vector<NvmeSpace> FindNvmeSpaces() const;
  std::string FindController(std::string_view devicePath) const;
  std::optional<Names> FindSpacesOfSubsystem(std::string_view devicePath) const;
  bool HasNode(std::string_view name) const;

  std::optional<Names> devNames_;
  std::optional<Names> genericNodes_;
  std::optional<Names> nvmeNodes_;
  std::optional<Links> genericLinks_;
  std::optional<Links> blockLinks_;
  std::optional<std::vector<NvmeSpace>> nvmeSpaces_;
  std::optional<MountTable> mounts_;
};

// The partitions that the kernel shows now on the drive behind a node; none for a name of
// fewer than three characters, which is no node's.
std::optional<Names> FindPartitionsNow(std::string_view devicePath);

// The path itself, or where a symbolic link such as /dev/disk/by-id/... leads.
std::string ResolveNode(const std::string& path);

}  // namespace Morvu::DeviceManagement
