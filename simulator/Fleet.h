// A fleet: a folder with simulated drives, and what the system shows of them.
//
//   dev/sg0, dev/sda, dev/nvme0, dev/nvme0n1   nodes; those with data are the media
//   sys/class/..., sys/devices/...             the links and files of sysfs
//   drives/sg0.state, .journal, .logs/         what the drive remembers and has seen
//   bin/, tables/                              df, mount, umount, pvdisplay and what they print;
//                                              which node is which namespace; what was written
//   fleet.state                                the clock
#pragma once

#include <atomic>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "Drive.h"

namespace Simulator {

struct DriveSpec {
  Kind kind = Kind::Ata;
  std::string model = "MORVU SIMULATED DRIVE";
  std::string serial = "SIM000001";
  std::string firmware = "SIM10001";
  std::string vendor = "MORVU";                 // SCSI only
  std::uint64_t sectors = 2 * 1024 * 1024 * 4;  // of sectorSize bytes; the medium is sparse
  std::uint32_t sectorSize = 512;
  bool usb = false;    // the device path goes by a USB port
  int deviceType = 0;  // SCSI peripheral device type; 0 is a disk
  SenseFormat senseFormat = SenseFormat::Descriptor;
  unsigned namespaces = 1;  // NVMe; 0 is a controller with nothing on it
  // NVMe: the identifiers of the namespaces, when they are not 1, 2, ... A node's number
  // is its place in this list.
  std::vector<std::uint32_t> nsids{};
  unsigned controllers = 1;  // NVMe: of one subsystem, whose namespaces have one node each
  int subsystem = -1;     // NVMe: the number in the namespaces' names, when it is not the drive's
  std::uint64_t wwn = 0;  // SCSI: the World Wide Name that sysfs shows
  bool inquirySerial = true;     // SCSI: INQUIRY has the serial number too
  bool refusesIdentify = false;  // NVMe: the controller fails IDENTIFY
  int controller = -1;           // behind this RAID controller, without a node; not NVMe
  bool isHidden = false;         // the controller keeps it for itself
  bool journal = true;
};

struct FleetState {
  std::uint32_t magic, version;
  std::int64_t clockOffsetMs __attribute__((aligned(8)));
};
static_assert(sizeof(FleetState) == 16);

// Where a node leads.
struct Node {
  std::shared_ptr<Drive> drive;
  std::uint32_t nsid = 0;
  bool block = false;  // a block device, not a character device
  explicit operator bool() const { return drive != nullptr; }
};

// A mount as the mount table shows it.
struct ShownMount {
  int id;
  std::string point;
  std::uint64_t bytes;
};

class Fleet {
 public:
  // Makes the folder and an empty fleet in it. False with `error` set when it cannot.
  static bool Make(const std::string& root, std::string& error);

  // The fleet in a folder; null when there is none.
  static std::shared_ptr<Fleet> Open(const std::string& root);
  ~Fleet();

  const std::string& Root() const { return root_; }

  // Returns the new drive's node, "/dev/sg0" or "/dev/nvme0n1" ("/dev/nvme0"
  // without namespaces), or its name behind a controller, "LSI_0_0"; empty with `error` set
  // when it cannot.
  std::string Add(const DriveSpec& spec, std::string& error);
  Node Find(std::string_view node);  // "/dev/sg0", "/dev/sda", "sg0", "/dev/nvme0n1", "LSI_0_0"
  std::vector<std::string> DriveNames() const;  // "nvme0", "sg0", in order

  // A RAID controller, behind which Add puts drives; its identifier. Without `passesThrough` its
  // drives take no ATA commands in SCSI commands.
  std::uint32_t AddController(bool passesThrough = true);
  // A volume of drives behind one controller ("LSI_0_1"), with a disk of the operating system's
  // or without. Its number; -1 with `error` set when it cannot.
  int AddVolume(const std::vector<std::string>& drives, bool hasDisk, std::string& error);

  // The partition's node, such as "/dev/sda1".
  std::string AddPartition(std::string_view node, std::uint64_t bytes, std::string_view fileSystem,
                           std::string_view mountPoint, std::string_view volumeGroup);
  void SetRootMount(std::string_view device);  // what `mount` shows on /
  // The name of the block node of a drive's medium: "sda", "nvme0n1"; empty without one.
  std::string DiskOf(const Node& node) const;
  // /proc/self/mountinfo of a machine with these drives.
  std::string MountInfo() const;
  // The bytes of the file system on a mount point; 0 when none of the fleet's is there.
  std::uint64_t FindMountedBytes(std::string_view mountPoint) const;
  // The mount on top that a path, of the fleet's, lies on.
  std::optional<ShownMount> FindMountOf(std::string_view path) const;

  std::uint64_t Now() const;
  void AdvanceClock(std::int64_t milliseconds);
  std::int64_t PassedOver() const;  // milliseconds by which the clock was advanced

  // Whether the waits of this process pass on the fleet's clock alone; off at first.
  bool SkipsWaits() const { return skipsWaits_.load(std::memory_order_relaxed); }
  void SkipWaits(bool skips) { skipsWaits_.store(skips, std::memory_order_relaxed); }

  // A path of the system's as the fleet has it; empty when the system itself
  // answers for it.
  std::string Map(std::string_view path) const;
  // The other way: what the fleet's folder adds to a text is taken out of it.
  void Unmap(std::string& text) const;
  // A shell line with its paths led into the fleet.
  std::string MapCommand(std::string_view command) const;

 private:
  explicit Fleet(std::string root);
  std::shared_ptr<Drive> FindDrive(const std::string& name);
  std::vector<std::string> NewNames(const char* prefix, std::size_t count) const;
  bool KeepState(const std::string& name, const DriveState& state, std::string& error);
  std::string AddScsi(const DriveSpec& spec, const DriveState& state, std::string& error);
  std::string AddNvme(const DriveSpec& spec, const DriveState& state, std::string& error);
  std::string AddBound(const DriveSpec& spec, const DriveState& state, std::string& error);

  std::string root_;
  FleetState* state_ = nullptr;
  std::atomic<bool> skipsWaits_{false};
  std::mutex drivesMutex_;
  std::map<std::string, std::shared_ptr<Drive>> drives_;
};

// This process's fleet: set by a test, or named by MORVU_SIMULATOR_FLEET. With
// MORVU_SIMULATOR_SKIP_WAITS=1 beside it the fleet skips waits.
std::shared_ptr<Fleet> ActiveFleet();
void SetActiveFleet(std::shared_ptr<Fleet> fleet);
bool HasActiveFleet();

}  // namespace Simulator
