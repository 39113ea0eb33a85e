#include "Drive.h"

#include <errno.h>
#include <fcntl.h>
#include <signal.h>
#include <sys/mman.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <filesystem>

#include "Bytes.h"
#include "Controllers.h"
#include "Devices.h"
#include "FleetFiles.h"
#include "Real.h"

namespace Simulator {

namespace {

constexpr std::uint32_t kDefaultTimeoutMs = 60000;
constexpr std::uint32_t kKernelTimeoutMs = 30000;  // of a disk's own reads
constexpr std::uint16_t kNvmeInternalError = 0x006;
constexpr std::uint8_t kScsiBusy = 0x08;

int OpenFile(const std::string& path, int flags) {
  return Libc().open64(path.c_str(), flags | O_CLOEXEC, 0666);
}

void Sleep(std::uint32_t milliseconds) {
  timespec left{static_cast<time_t>(milliseconds / 1000),
                static_cast<long>(milliseconds % 1000) * 1000000};
  while (nanosleep(&left, &left) != 0 && errno == EINTR) {
  }
}

void Fill(std::uint8_t* data, std::size_t size, Garbage garbage, std::uint64_t seed) {
  if (garbage != Garbage::Random) {
    std::memset(data, garbage == Garbage::Ones ? 0xFF : 0x00, size);
    return;
  }
  for (std::size_t i = 0; i < size; ++i) {
    seed = seed * 6364136223846793005u + 1442695040888963407u;
    data[i] = static_cast<std::uint8_t>(seed >> 56);
  }
}

bool Fits(const FaultSlot& slot, const Identity& identity) {
  if (slot.action == FaultAction::None) return false;
  if (slot.commandClass != CommandClass::Any && slot.commandClass != identity.commandClass)
    return false;
  if (!slot.anyOpcode && slot.opcode != identity.opcode) return false;
  return slot.anyFeature || slot.feature == identity.feature;
}

}  // namespace

void Transaction::Reply(const void* from, std::size_t size) {
  const auto moved = std::min<std::size_t>(size, length);
  if (moved != 0 && data != nullptr) std::memcpy(data, from, moved);
  transferred = static_cast<std::uint32_t>(moved);
}

void Transaction::SetSense(std::uint8_t key, std::uint8_t asc, std::uint8_t ascq, bool descriptor) {
  scsiStatus = 0x02;
  std::memset(sense, 0, sizeof sense);
  sense[0] = descriptor ? 0x72 : 0x70;
  sense[descriptor ? 1 : 2] = key;
  sense[descriptor ? 2 : 12] = asc;
  sense[descriptor ? 3 : 13] = ascq;
  if (!descriptor) sense[7] = 10;
  senseLength = descriptor ? 8 : 18;
}

void Transaction::SetInformation(std::uint64_t lba) {
  constexpr std::uint8_t kValid = 0x80;
  if (sense[0] == 0x70) {
    if (lba > 0xFFFFFFFF) return;
    sense[0] |= kValid;
    PutBig(sense + 3, 4, lba);
    return;
  }
  std::uint8_t* descriptor = sense + 8;
  descriptor[0] = 0x00;
  descriptor[1] = 0x0A;
  descriptor[2] = kValid;
  PutBig(descriptor + 4, 8, lba);
  sense[7] = 12;
  senseLength = 20;
}

// Held while a command is executed. The lock on the state file is the
// process's own and falls with it, however the process ends.
class Drive::Lock {
 public:
  explicit Lock(Drive& drive) : drive_(drive), threads_(drive.executing_) { Set(F_WRLCK); }
  ~Lock() { Set(F_UNLCK); }
  Lock(const Lock&) = delete;
  Lock& operator=(const Lock&) = delete;

 private:
  void Set(short type) {
    struct flock range {};
    range.l_type = type;
    range.l_whence = SEEK_SET;
    while (fcntl(drive_.stateFile_, F_SETLKW, &range) != 0 && errno == EINTR) {
    }
  }
  Drive& drive_;
  std::lock_guard<std::mutex> threads_;
};

Drive::Drive(Fleet& fleet, std::string name) : fleet_(fleet), name_(std::move(name)) {
  std::fill(std::begin(media_), std::end(media_), -1);
  const auto path = fleet_.Root() + "/drives/" + name_ + ".state";
  stateFile_ = OpenFile(path, O_RDWR);
  if (stateFile_ < 0) return;
  struct stat64 file {};
  if (Libc().fstat64(stateFile_, &file) != 0 || file.st_size != sizeof(DriveState)) return;
  void* mapped =
      mmap(nullptr, sizeof(DriveState), PROT_READ | PROT_WRITE, MAP_SHARED, stateFile_, 0);
  if (mapped == MAP_FAILED) return;
  auto* state = static_cast<DriveState*>(mapped);
  if (state->magic != kStateMagic || state->version != kStateVersion) {
    munmap(mapped, sizeof(DriveState));
    return;
  }
  state_ = state;
  journalFile_ = OpenFile(JournalPath(), O_WRONLY | O_APPEND | O_CREAT);
}

Drive::~Drive() {
  if (state_ != nullptr) munmap(state_, sizeof(DriveState));
  for (const int file : media_) {
    if (file >= 0) Libc().close(file);
  }
  if (journalFile_ >= 0) Libc().close(journalFile_);
  if (stateFile_ >= 0) Libc().close(stateFile_);
}

std::uint64_t Drive::Now() const { return fleet_.Now(); }

void Drive::Spend(std::uint32_t milliseconds) { fleet_.AdvanceClock(milliseconds); }

void Drive::Execute(Transaction& transaction) {
  const bool journal = state_->journalOff == 0;
  std::uint64_t digest = 0;
  if (journal && transaction.direction == Direction::ToDevice && transaction.data != nullptr) {
    digest = Digest(transaction.data, transaction.length);
  }
  const Lock lock(*this);
  ++state_->commands;
  FaultSlot fault{};
  const bool faulty = state_->faultCount != 0 && TakeFault(transaction, fault);
  if (state_->vanished) {
    transaction.errorNumber = ENODEV;
  } else if (faulty) {
    ExecuteFaulty(transaction, fault);
    if (fault.action == FaultAction::Kill) {
      if (journal && fault.afterwards) Append(transaction, digest);
      kill(getpid(), SIGKILL);
    }
  } else {
    Dispatch(transaction);
  }
  HandBackStaleData(transaction);
  if (journal) Append(transaction, digest);
}

// The kernel asks the drive with commands of its own.
void Drive::TransferRaw(Transaction& transaction) {
  const auto offset = GetLittle<std::uint64_t>(transaction.command + 8);
  const bool isWrite = transaction.direction == Direction::ToDevice;
  if (!isWrite && !IsReadable(transaction.nsid, offset, transaction.length)) {
    transaction.errorNumber = ENODATA;
    return;
  }
  const bool done =
      isWrite ? WriteMedium(transaction.nsid, offset, transaction.data, transaction.length)
              : ReadMedium(transaction.nsid, offset, transaction.data, transaction.length);
  if (!done) transaction.errorNumber = EIO;
  if (done) transaction.transferred = transaction.length;
}

// What the kernel makes of it when one of its own commands fails.
void Drive::ExecuteFaultyRaw(Transaction& transaction, const FaultSlot& fault) {
  constexpr std::uint8_t kUncorrectable = 0x40, kMediumError = 0x03;
  constexpr std::uint16_t kTypeMask = 0x700, kMediaErrors = 0x200;
  const auto isMedium = [&] {
    switch (fault.action) {
      case FaultAction::AtaError:
        return (fault.error & kUncorrectable) != 0;
      case FaultAction::ScsiError:
        return fault.status == 0x02 && fault.key == kMediumError;
      case FaultAction::NvmeStatus:
        return (fault.status & kTypeMask) == kMediaErrors;
      default:
        return false;
    }
  };
  if (fault.action == FaultAction::Hang) {
    fleet_.AdvanceClock(kKernelTimeoutMs);
    transaction.errorNumber = ETIMEDOUT;
  } else {
    transaction.errorNumber = isMedium() ? ENODATA : EIO;
  }
}

void Drive::Dispatch(Transaction& transaction) {
  if (transaction.ioctl == Ioctl::Raw) return TransferRaw(transaction);
  switch (state_->kind) {
    case Kind::Ata:
      if (Now() < state_->ata.sct.linkBackMs) {
        transaction.hostStatus = kHostNoConnect;
      } else {
        ExecuteAtaDrive(*this, transaction);
      }
      break;
    case Kind::Nvme:
      ExecuteNvmeDrive(*this, transaction);
      break;
    case Kind::Scsi:
      ExecuteScsiDrive(*this, transaction);
      break;
  }
}

// A generic node copies its buffer back also when a read was refused: the host
// finds the data of an earlier command in it.
void Drive::HandBackStaleData(Transaction& transaction) {
  if (!state_->staleData || transaction.direction != Direction::FromDevice) return;
  if (transaction.transferred != 0) {
    std::memcpy(state_->lastData, transaction.data,
                std::min<std::size_t>(transaction.transferred, sizeof state_->lastData));
  } else if ((transaction.scsiStatus != 0 || transaction.hostStatus != 0) &&
             transaction.data != nullptr) {
    std::memcpy(transaction.data, state_->lastData,
                std::min<std::size_t>(transaction.length, sizeof state_->lastData));
  }
}

// Counts the command for every fault that it fits, and takes the first that is due.
bool Drive::TakeFault(const Transaction& transaction, FaultSlot& taken) {
  const auto identity = Identify(transaction);
  FaultSlot* due = nullptr;
  for (auto& slot : state_->faults) {
    if (!Fits(slot, identity)) continue;
    if (slot.skip > 0) {
      --slot.skip;
    } else if (due == nullptr) {
      due = &slot;
    }
  }
  if (due == nullptr) return false;
  taken = *due;
  if (due->times != 0 && --due->times == 0) {
    *due = FaultSlot{};
    --state_->faultCount;
  }
  return true;
}

void Drive::ExecuteFaulty(Transaction& transaction, const FaultSlot& fault) {
  constexpr FaultAction kOfCommands[] = {FaultAction::Fail,      FaultAction::AtaError,
                                         FaultAction::ScsiError, FaultAction::NvmeStatus,
                                         FaultAction::HostError, FaultAction::RawSense,
                                         FaultAction::Hang};
  if (transaction.ioctl == Ioctl::Raw && std::ranges::count(kOfCommands, fault.action) > 0) {
    return ExecuteFaultyRaw(transaction, fault);
  }
  switch (fault.action) {
    case FaultAction::None:
      Dispatch(transaction);
      break;
    case FaultAction::Fail:
      if (transaction.ioctl != Ioctl::SgIo) {
        transaction.nvmeStatus = kNvmeInternalError;
      } else if (Identify(transaction).commandClass == CommandClass::Ata) {
        RefuseAta(*this, transaction, 0x51, 0x04, 0);
      } else {
        transaction.scsiStatus = kScsiBusy;
      }
      break;
    case FaultAction::AtaError:
      RefuseAta(*this, transaction, static_cast<std::uint8_t>(fault.status), fault.error,
                fault.lba);
      break;
    case FaultAction::ScsiError:
      if (fault.status == 0x02) transaction.SetSense(fault.key, fault.asc, fault.ascq);
      transaction.scsiStatus = static_cast<std::uint8_t>(fault.status);
      break;
    case FaultAction::NvmeStatus:
      transaction.nvmeStatus = fault.status;
      break;
    case FaultAction::IoctlError:
      transaction.errorNumber = static_cast<int>(fault.value);
      break;
    case FaultAction::HostError:
      transaction.hostStatus = fault.hostStatus;
      transaction.driverStatus = fault.driverStatus;
      break;
    case FaultAction::Vanish:
      state_->vanished = 1;
      transaction.errorNumber = ENODEV;
      break;
    case FaultAction::Delay:
      Sleep(fault.value);
      Dispatch(transaction);
      break;
    case FaultAction::ShortData: {
      std::vector<std::uint8_t> kept;
      const bool cuts = transaction.direction == Direction::FromDevice &&
                        transaction.data != nullptr && fault.value < transaction.length;
      if (cuts) kept.assign(transaction.data + fault.value, transaction.data + transaction.length);
      Dispatch(transaction);
      if (cuts) std::copy(kept.begin(), kept.end(), transaction.data + fault.value);
      transaction.transferred = std::min(transaction.transferred, fault.value);
      break;
    }
    case FaultAction::Garbage:
      Dispatch(transaction);
      if (transaction.direction == Direction::FromDevice && transaction.data != nullptr) {
        Fill(transaction.data, transaction.transferred, fault.garbage, state_->commands);
      }
      break;
    case FaultAction::Hang:
      fleet_.AdvanceClock(transaction.timeoutMs != 0 ? transaction.timeoutMs : kDefaultTimeoutMs);
      if (transaction.ioctl != Ioctl::SgIo) {
        transaction.errorNumber = EINTR;  // as the kernel ends a request that it had to abort
      } else if (Identify(transaction).commandClass == CommandClass::Ata) {
        TimeOutAta(*this, transaction);
      } else {
        transaction.hostStatus = kHostTimedOut;
        transaction.driverStatus = kDriverTimedOut;
      }
      break;
    case FaultAction::RawSense:
      transaction.scsiStatus = static_cast<std::uint8_t>(fault.status);
      transaction.hostStatus = fault.hostStatus;
      transaction.senseLength = fault.senseLength;
      std::memcpy(transaction.sense, fault.sense, sizeof transaction.sense);
      break;
    case FaultAction::Kill:
      if (fault.afterwards) Dispatch(transaction);
      break;
    case FaultAction::Signal:
      Dispatch(transaction);
      transaction.signal = static_cast<int>(fault.value);
      break;
  }
}

bool Drive::Inject(const FaultSlot& fault) {
  const Lock lock(*this);
  for (auto& slot : state_->faults) {
    if (slot.action != FaultAction::None) continue;
    slot = fault;
    ++state_->faultCount;
    return true;
  }
  return false;
}

void Drive::ClearFaults() {
  const Lock lock(*this);
  for (auto& slot : state_->faults) slot = FaultSlot{};
  for (auto& range : state_->badRanges) range = BadRange{};
  state_->faultCount = 0;
  state_->vanished = 0;
}

void Drive::PowerCycle() {
  const Lock lock(*this);
  ++state_->powerCycles;
  state_->vanished = 0;
  switch (state_->kind) {
    case Kind::Ata:
      PowerCycleAta(*this);
      WriteDiskSize(fleet_.Root(), BlockNameOf(fleet_.Root(), name_),
                    (state_->ata.maxLba + 1) * AtaSectorSize(*state_));
      break;
    case Kind::Nvme:
      PowerCycleNvme(*this);
      for (std::uint32_t nsid = 1; nsid <= kMaxNamespaces; ++nsid) {
        const auto& space = state_->nvme.namespaces[nsid - 1];
        if (!space.exists) continue;
        WriteDiskSize(fleet_.Root(), NamespaceNode(fleet_.Root(), name_, nsid), space.bytes);
      }
      break;
    case Kind::Scsi:
      PowerCycleScsi(*this);
      break;
  }
}

void Drive::Append(const Transaction& transaction, std::uint64_t digest) {
  if (journalFile_ < 0) return;
  JournalRecord record{};
  record.ioctl = transaction.ioctl;
  record.commandLength =
      static_cast<std::uint8_t>(std::min(transaction.commandLength, sizeof record.command));
  std::memcpy(record.command, transaction.command, record.commandLength);
  record.direction = transaction.direction;
  record.transferLength = transaction.requested;
  record.timeoutMs = transaction.timeoutMs;
  record.transferred = transaction.transferred;
  record.dataDigest = digest;
  if (transaction.direction == Direction::ToDevice && transaction.data != nullptr) {
    std::memcpy(record.data, transaction.data,
                std::min<std::size_t>(transaction.length, sizeof record.data));
  }
  record.errorNumber = transaction.errorNumber;
  record.nvmeStatus = transaction.nvmeStatus;
  record.nvmeResult = transaction.nvmeResult;
  record.hostStatus = transaction.hostStatus;
  record.driverStatus = transaction.driverStatus;
  record.scsiStatus = transaction.scsiStatus;
  record.ataStatus = transaction.ataStatus;
  record.ataError = transaction.ataError;
  record.senseLength = transaction.senseLength;
  std::memcpy(record.sense, transaction.sense, sizeof record.sense);
  [[maybe_unused]] const auto written = Libc().write(journalFile_, &record, sizeof record);
}

std::string Drive::JournalPath() const { return fleet_.Root() + "/drives/" + name_ + ".journal"; }

void Drive::ClearJournal() {
  if (journalFile_ >= 0) [[maybe_unused]]
    const int cut = ftruncate(journalFile_, 0);
}

std::string Drive::MediumPath(std::uint32_t nsid) const {
  BoundDrive bound;
  if (ParseBoundName(name_, bound)) return fleet_.Root() + "/drives/" + name_ + ".medium";
  const bool space = state_->kind == Kind::Nvme && nsid != 0;
  return fleet_.Root() + "/dev/" + (space ? NamespaceNode(fleet_.Root(), name_, nsid) : name_);
}

int Drive::Medium(std::uint32_t nsid) {
  if (nsid > kMaxNamespaces) return -1;
  if (media_[nsid] < 0) media_[nsid] = OpenFile(MediumPath(nsid), O_RDWR);
  return media_[nsid];
}

bool Drive::AddBadRange(std::uint32_t nsid, std::uint64_t offset, std::uint64_t size) {
  const Lock lock(*this);
  for (auto& range : state_->badRanges) {
    if (range.size != 0) continue;
    range.offset = offset;
    range.size = size;
    range.nsid = nsid;
    return true;
  }
  return false;
}

std::optional<std::uint64_t> Drive::FindBad(std::uint32_t nsid, std::uint64_t offset,
                                            std::uint64_t size) const {
  std::optional<std::uint64_t> first;
  for (const auto& range : state_->badRanges) {
    if (range.size == 0 || range.nsid != nsid) continue;
    if (offset >= range.offset + range.size || range.offset >= offset + size) continue;
    const auto bad = std::max<std::uint64_t>(range.offset, offset);
    first = std::min(bad, first.value_or(bad));
  }
  return first;
}

bool Drive::ReadMedium(std::uint32_t nsid, std::uint64_t offset, void* data, std::size_t size) {
  if (!IsReadable(nsid, offset, size)) return false;
  const auto got = Libc().pread64(Medium(nsid), data, size, static_cast<off64_t>(offset));
  if (got < 0) return false;
  std::memset(static_cast<std::uint8_t*>(data) + got, 0, size - static_cast<std::size_t>(got));
  return true;
}

bool Drive::WriteMedium(std::uint32_t nsid, std::uint64_t offset, const void* data,
                        std::size_t size) {
  return Libc().pwrite64(Medium(nsid), data, size, static_cast<off64_t>(offset)) ==
         static_cast<ssize_t>(size);
}

bool Drive::DiscardMedium(std::uint32_t nsid, std::uint64_t offset, std::uint64_t size) {
  return fallocate64(Medium(nsid), FALLOC_FL_PUNCH_HOLE | FALLOC_FL_KEEP_SIZE,
                     static_cast<off64_t>(offset), static_cast<off64_t>(size)) == 0;
}

bool Drive::EraseMedium(std::uint32_t nsid) {
  const int file = Medium(nsid);
  struct stat64 medium {};
  if (file < 0 || Libc().fstat64(file, &medium) != 0) return false;
  const auto block = state_->kind == Kind::Nvme ? NamespaceNode(fleet_.Root(), name_, nsid)
                                                : BlockNameOf(fleet_.Root(), name_);
  ErasePartitionTable(fleet_.Root(), block);
  return ftruncate64(file, 0) == 0 && ftruncate64(file, medium.st_size) == 0;
}

std::string Drive::LogPath(const std::string& log) const {
  return fleet_.Root() + "/drives/" + name_ + ".logs/" + log;
}

bool Drive::HasLog(const std::string& log, std::uint64_t* size) const {
  struct stat64 file {};
  if (Libc().stat64(LogPath(log).c_str(), &file) != 0) return false;
  if (size != nullptr) *size = static_cast<std::uint64_t>(file.st_size);
  return true;
}

bool Drive::ReadLog(const std::string& log, std::uint64_t offset, void* data,
                    std::size_t size) const {
  const int file = OpenFile(LogPath(log), O_RDONLY);
  if (file < 0) return false;
  std::memset(data, 0, size);
  const auto got = Libc().pread64(file, data, size, static_cast<off64_t>(offset));
  Libc().close(file);
  return got >= 0;
}

void Drive::WriteLog(const std::string& log, const void* data, std::size_t size) const {
  std::filesystem::create_directories(fleet_.Root() + "/drives/" + name_ + ".logs");
  const int file = OpenFile(LogPath(log), O_WRONLY | O_CREAT | O_TRUNC);
  if (file < 0) return;
  [[maybe_unused]] const auto written = Libc().write(file, data, size);
  Libc().close(file);
}

}  // namespace Simulator
