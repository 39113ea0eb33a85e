// One simulated drive: its record, its media, its journal and its lock, and
// the way every command takes: lock, faults, the drive's own work, journal.
#pragma once

#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "DriveState.h"
#include "Journal.h"

namespace Simulator {

class Fleet;

// What the adapter says of a drive whose link is down.
inline constexpr std::uint16_t kHostNoConnect = 0x01;
// What the adapter and the driver say of a command that got no answer in its time.
inline constexpr std::uint16_t kHostTimedOut = 0x03, kDriverTimedOut = 0x06;

// A command on its way through the drive.
struct Transaction {
  Ioctl ioctl = Ioctl::SgIo;
  const std::uint8_t* command = nullptr;
  std::size_t commandLength = 0;
  Direction direction = Direction::None;
  std::uint8_t* data = nullptr;
  std::uint32_t length = 0;
  std::uint32_t requested = 0;  // the length that the host wrote, whatever the direction
  std::uint32_t timeoutMs = 0;
  std::uint32_t nsid = 0;  // of the node that the ioctl went to, 0 for a controller
  int signal = 0;          // one that comes while the drive works

  // The answer.
  std::uint32_t transferred = 0;
  int errorNumber = 0;
  std::uint16_t hostStatus = 0, driverStatus = 0;
  std::uint8_t scsiStatus = 0;
  std::uint8_t sense[32] = {};
  std::uint8_t senseLength = 0;
  std::uint8_t ataStatus = 0, ataError = 0, ataDevice = 0;
  std::uint16_t ataCount = 0;
  std::uint64_t ataLba = 0;
  bool timedOut = false;  // an ATA command whose end nobody saw
  std::uint16_t nvmeStatus = 0;
  std::uint32_t nvmeResult = 0;

  // Gives the host at most what it asked for and has room for.
  void Reply(const void* from, std::size_t size);
  void SetSense(std::uint8_t key, std::uint8_t asc, std::uint8_t ascq, bool descriptor = false);
  void Refuse(std::uint8_t asc, std::uint8_t ascq) { SetSense(0x05, asc, ascq); }
  // Puts an address in the sense data that are there (SPC-4, 4.5.2.2 and 4.5.3).
  void SetInformation(std::uint64_t lba);
};

class Drive {
 public:
  // Maps the drive `name` ("sg0", "nvme0") of the fleet; a drive that is not
  // there gives an object that is not Valid.
  Drive(Fleet& fleet, std::string name);
  ~Drive();
  Drive(const Drive&) = delete;
  Drive& operator=(const Drive&) = delete;

  bool Valid() const { return state_ != nullptr; }
  DriveState& State() { return *state_; }
  const std::string& Name() const { return name_; }

  void Execute(Transaction& transaction);

  void PowerCycle();
  bool Inject(const FaultSlot& fault);
  void ClearFaults();  // and bad ranges; a vanished node comes back

  std::uint64_t Now() const;               // milliseconds of the fleet's clock
  void Spend(std::uint32_t milliseconds);  // time that a command takes passes on the fleet's clock

  // Media, by byte; nsid 0 is the only medium of a drive that is not NVMe.
  bool ReadMedium(std::uint32_t nsid, std::uint64_t offset, void* data, std::size_t size);
  bool WriteMedium(std::uint32_t nsid, std::uint64_t offset, const void* data, std::size_t size);
  // A range that fails to be read from now on; false when there is no room for more.
  bool AddBadRange(std::uint32_t nsid, std::uint64_t offset, std::uint64_t size);
  bool IsReadable(std::uint32_t nsid, std::uint64_t offset, std::uint64_t size) const {
    return !FindBad(nsid, offset, size);
  }
  // The first byte of the range that cannot be read.
  std::optional<std::uint64_t> FindBad(std::uint32_t nsid, std::uint64_t offset,
                                       std::uint64_t size) const;
  bool DiscardMedium(std::uint32_t nsid, std::uint64_t offset, std::uint64_t size);
  bool EraseMedium(std::uint32_t nsid);
  std::string MediumPath(std::uint32_t nsid) const;

  // Logs that are files of the fleet: "ata-DE", "nvme-CA". Empty when there is none.
  std::string LogPath(const std::string& log) const;
  bool HasLog(const std::string& log, std::uint64_t* size = nullptr) const;
  bool ReadLog(const std::string& log, std::uint64_t offset, void* data, std::size_t size) const;
  void WriteLog(const std::string& log, const void* data, std::size_t size) const;

  std::string JournalPath() const;
  void ClearJournal();

 private:
  class Lock;
  int Medium(std::uint32_t nsid);
  bool TakeFault(const Transaction& transaction, FaultSlot& taken);
  void Dispatch(Transaction& transaction);
  void TransferRaw(Transaction& transaction);
  void ExecuteFaultyRaw(Transaction& transaction, const FaultSlot& fault);
  void HandBackStaleData(Transaction& transaction);
  void ExecuteFaulty(Transaction& transaction, const FaultSlot& fault);
  void Append(const Transaction& transaction, std::uint64_t digest);

  Fleet& fleet_;
  std::string name_;
  DriveState* state_ = nullptr;
  int stateFile_ = -1;
  int journalFile_ = -1;
  int media_[kMaxNamespaces + 1];
  std::mutex executing_;  // between threads; processes are kept apart by the lock on the state file
};

}  // namespace Simulator
