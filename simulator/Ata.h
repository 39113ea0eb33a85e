// The ATA side of a simulated SATA drive: one command's registers, and a row
// of the table that says what the drive knows (ACS-3).
#pragma once

#include <span>

#include "Devices.h"

namespace Simulator {

inline constexpr std::uint8_t kAtaReady = 0x50;          // DRDY and the seek-complete bit
inline constexpr std::uint8_t kAtaRefused = 0x51;        // with ERR
inline constexpr std::uint8_t kAtaAbort = 0x04;          // ABRT
inline constexpr std::uint8_t kAtaNotFound = 0x10;       // IDNF
inline constexpr std::uint8_t kAtaUncorrectable = 0x40;  // UNC
inline constexpr std::uint32_t kBlock = 512;

struct AtaRegisters {
  std::uint16_t features = 0, count = 0;
  std::uint64_t lba = 0;  // 48 bits, or 24
  std::uint8_t device = 0, command = 0;
  bool extended = false;
  std::uint8_t protocol = 0;  // SAT's PROTOCOL field
};

struct AtaOutput {
  std::uint8_t status = kAtaReady, error = 0;
  std::uint16_t count = 0;
  std::uint64_t lba = 0;
  std::uint8_t device = 0;
  bool pioIn = false;     // the command was of the PIO data-in class
  bool timedOut = false;  // the host gave up before the drive was done
};

// One command at the drive.
class AtaCommand {
 public:
  AtaCommand(Drive& drive, Transaction& transaction, const AtaRegisters& registers);

  Drive& TheDrive() { return drive_; }
  DriveState& State() { return drive_.State(); }
  AtaState& Ata() { return drive_.State().ata; }
  const AtaRegisters& In() const { return in_; }
  AtaOutput& Out() { return out_; }

  std::uint8_t Feature() const { return static_cast<std::uint8_t>(in_.features); }
  // The LBA with the device register's nibble, where the command is a 28-bit one.
  std::uint64_t Address() const;
  // Blocks that a count stands for: 0 is 256 or 65536.
  std::uint32_t Blocks() const;

  void Abort(std::uint8_t error = kAtaAbort);
  // The command takes this long. False when its time-out ends it first: the host then
  // sees no answer.
  bool Lasts(std::uint32_t milliseconds);
  void Give(const void* data, std::size_t size);  // data in
  // Data out; empty, and the command aborted, when the host sends less.
  std::span<const std::uint8_t> Take(std::size_t size);
  std::span<std::uint8_t> Room() { return {transaction_.data, transaction_.length}; }
  void Moved(std::size_t size) { transaction_.transferred = static_cast<std::uint32_t>(size); }

 private:
  Drive& drive_;
  Transaction& transaction_;
  AtaRegisters in_;
  AtaOutput out_;
};

enum class Transfer : std::uint8_t { None, PioIn, PioOut, DmaIn, DmaOut };

// When a drive that is not free to do as it is told still obeys.
enum Allowed : std::uint8_t { kWhenLocked = 1, kWhenSanitizing = 2, kMediaAccess = 4 };

struct AtaRow {
  std::uint8_t opcode;
  std::int16_t feature;  // -1: any
  Transfer transfer;
  std::uint8_t allowed;
  void (*handler)(AtaCommand&);
};

// The drive's own work on one command, after SAT has decoded it.
AtaOutput ExecuteAta(Drive& drive, Transaction& transaction, const AtaRegisters& registers);

bool AtaIsSanitizing(Drive& drive);

// Handlers, by the file that they stand in.
void AtaIdentifyDevice(AtaCommand& command);
void BuildIdentify(Drive& drive, std::uint8_t (&block)[512]);

void AtaRead(AtaCommand& command);
void AtaWrite(AtaCommand& command);
void AtaVerify(AtaCommand& command);
void AtaDataSetManagement(AtaCommand& command);
void AtaReadNativeMax(AtaCommand& command);
void AtaReadNativeMaxExt(AtaCommand& command);
void AtaSetMax(AtaCommand& command);
void AtaSetMaxExt(AtaCommand& command);

void AtaSmartReadData(AtaCommand& command);
void AtaSmartReadThresholds(AtaCommand& command);
void AtaSmartAutosave(AtaCommand& command);
void AtaSmartExecuteOffline(AtaCommand& command);
void AtaSmartReadLog(AtaCommand& command);
void AtaSmartWriteLog(AtaCommand& command);
void AtaSmartEnable(AtaCommand& command);
void AtaSmartDisable(AtaCommand& command);
void AtaSmartReturnStatus(AtaCommand& command);

void AtaReadLogExt(AtaCommand& command);
void AtaWriteLogExt(AtaCommand& command);
// A log's content from a page on; false when the drive has no such log or page.
bool ReadAtaLog(AtaCommand& command, std::uint8_t address, std::uint32_t page,
                std::span<std::uint8_t> into);

void AtaSecuritySetPassword(AtaCommand& command);
void AtaSecurityUnlock(AtaCommand& command);
void AtaSecurityErasePrepare(AtaCommand& command);
void AtaSecurityEraseUnit(AtaCommand& command);
void AtaSecurityFreezeLock(AtaCommand& command);
void AtaSecurityDisablePassword(AtaCommand& command);

void AtaSanitize(AtaCommand& command);
void AtaDownloadMicrocode(AtaCommand& command);
void AtaFinishDownload(AtaCommand& command);  // another command follows a download

void MakeSct(AtaState& ata);
void PowerCycleSct(AtaState& ata);
void ReadSctStatus(AtaCommand& command, std::span<std::uint8_t> block);
bool ReadSctData(AtaCommand& command, std::span<std::uint8_t> into);
void WriteSctKey(AtaCommand& command, std::span<const std::uint8_t> key);

}  // namespace Simulator
