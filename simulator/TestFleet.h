// Simulated drives for a test, in a fleet of the test's own.
//
//   TestFleet fleet;
//   auto drive = fleet.Add({.model = "MORVU SSDSC2BB480G4", .serial = "BTWL1"});
//   drive.State().ata.security.frozen = 1;        shape the drive
//   ... let the product act ...
//   EXPECT_EQ(0xF4, drive.Journal().back().AtaOpcode());
//
// One TestFleet at a time may live in a process: it stands for the machine.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <functional>

#include "Fault.h"
#include "Fleet.h"

namespace Simulator {

// A handle; copies lead to the same drive. The fleet must outlive it.
class SimulatedDrive {
 public:
  SimulatedDrive() = default;
  SimulatedDrive(std::shared_ptr<Fleet> fleet, std::string node);

  const std::string& Node() const { return node_; }  // "/dev/sg0", "/dev/nvme0n1"
  DriveState& State() { return drive_->State(); }

  std::vector<JournalEntry> Journal() const { return ReadJournal(drive_->JournalPath()); }
  void ClearJournal() { drive_->ClearJournal(); }
  std::vector<std::uint8_t> Opcodes() const;  // of the journal, in order

  void Inject(const Fault& fault) { drive_->Inject(fault.Slot()); }
  void ClearFaults() { drive_->ClearFaults(); }
  void PowerCycle() { drive_->PowerCycle(); }

  // Sectors that no read gets, neither a command nor a read of the node; until ClearFaults.
  void AddBadSectors(std::uint64_t lba, std::uint64_t count = 1);

  // A partition as the kernel and df show it. Returns its node, "/dev/sda1".
  std::string AddPartition(std::uint64_t bytes = 1 << 20, std::string_view mountPoint = {},
                           std::string_view fileSystem = "ext4", std::string_view volumeGroup = {});

  // A partition that another program wrote to the disk and the kernel has not read yet.
  void AddUnreadPartition(std::uint64_t bytes = 1 << 20);
  // Some program has the partition open: the kernel does not read the table anew then.
  void OpenPartition(std::string_view partition);
  // A loop device over a node: "/dev/loop0".
  std::string AddLoop(std::string_view backingFile);

  // The content of a log: ATA general purpose and SMART logs by address, NVMe
  // log pages by identifier.
  void SetLog(std::uint8_t address, const std::vector<std::uint8_t>& content);
  // NVMe: a log read by the vendor's opcode D2h, which names it in cdw12.
  void SetVendorLog(std::uint32_t number, const std::vector<std::uint8_t>& content);

  std::string MediumPath() const { return drive_->MediumPath(nsid_); }
  void WriteMedium(std::uint64_t offset, const std::vector<std::uint8_t>& bytes);
  // Takes the serial number and, of a SATA drive, the World Wide Name (ACS-3, words 108 to 111).
  void TakeNames();
  std::vector<std::uint8_t> ReadMedium(std::uint64_t offset, std::size_t size);

 private:
  std::shared_ptr<Fleet> fleet_;
  std::shared_ptr<Drive> drive_;
  std::string node_;
  std::uint32_t nsid_ = 0;
};

// A read, write or fsync of a file, as the program asks for it. `proceed` carries it out.
struct FileTransfer {
  enum class Kind { Read, Write, Sync } kind;
  int descriptor;
  void* data;
  std::size_t size;
  std::uint64_t offset;
  std::function<ssize_t()> proceed;
};
// Takes the place of the transfer: its result, with errno.
using FileHook = std::function<ssize_t(const FileTransfer&)>;

class TestFleet {
 public:
  // What happens to this process's reads and writes of files by offset, and its fsync, from now
  // on; an empty hook ends it.
  static void OnFileTransfer(FileHook hook);
  TestFleet();   // a temporary folder, made this process's fleet
  ~TestFleet();  // removed with all that is in it
  TestFleet(const TestFleet&) = delete;
  TestFleet& operator=(const TestFleet&) = delete;

  SimulatedDrive Add(const DriveSpec& spec);
  SimulatedDrive Drive(std::string_view node);
  // A RAID controller; Add puts drives behind it, and makes those that it needs. Its identifier.
  int AddController(bool passesThrough = true) {
    return static_cast<int>(fleet_->AddController(passesThrough));
  }
  // A volume of drives behind a controller; the node of its disk, "" without one.
  std::string AddVolume(const std::vector<std::string>& drives, bool hasDisk = true);
  // What goes wrong with the controllers' library from now on (AdapterCalls.cpp).
  void SetLibraryFaults(const std::vector<std::string>& faults);
  void AdvanceClock(std::chrono::milliseconds time) { fleet_->AdvanceClock(time.count()); }
  // Waits (nanosleep of a tenth of a second or more) return at once and pass on the
  // fleet's clock. A test that wants them in real time turns this off.
  void SkipWaits(bool skips) { fleet_->SkipWaits(skips); }
  // Milliseconds of the fleet's clock.
  std::uint64_t Now() const { return fleet_->Now(); }
  // What is mounted on /: a partition of the fleet, or "/dev/mapper/vg0-root".
  void SetRoot(std::string_view device) { fleet_->SetRootMount(device); }
  // What reached a disk by mounts, and what udev heard of: "write /dev/sda1",
  // "mount /dev/sda1 ro,loop", "change /dev/sda" after a close of a writer.
  std::vector<std::string> Events() const;
  const std::string& Folder() const { return fleet_->Root(); }

 private:
  std::shared_ptr<Fleet> fleet_;
};

}  // namespace Simulator
