// The journal of a drive: what it was sent, and what it answered. One record
// a command, in a file that is only ever appended to, so that it tells the
// truth also after a process was killed.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace Simulator {

// Raw: a read or write of a block node's bytes, without a command of the host's own.
enum class Ioctl : std::uint8_t { SgIo, NvmeAdmin, NvmeIo, Raw };

enum class Direction : std::uint8_t { None, FromDevice, ToDevice };

// As it stands in the file.
struct JournalRecord {
  Ioctl ioctl;
  std::uint8_t commandLength;
  Direction direction;
  std::uint8_t senseLength;
  std::uint32_t transferLength, timeoutMs;
  std::uint32_t transferred;
  std::uint64_t dataDigest;
  std::int32_t errorNumber;  // of the ioctl, 0 when it succeeded
  std::uint32_t nvmeStatus, nvmeResult;
  std::uint16_t hostStatus, driverStatus;
  std::uint8_t scsiStatus, ataStatus, ataError, reserved[5];
  std::uint8_t command[80];
  std::uint8_t sense[32];
  std::uint8_t data[96];  // the first bytes of the data out
};
static_assert(sizeof(JournalRecord) == 256);

// What stands for the command of a raw transfer.
struct RawCommand {
  std::uint8_t opcode;  // 'R' or 'W'
  std::uint8_t direct;  // past the page cache
  std::uint8_t reserved[6];
  std::uint8_t offset[8];  // in bytes, little-endian
};
static_assert(sizeof(RawCommand) == 16);

struct JournalEntry {
  Ioctl ioctl;
  // The CDB, or the 72-byte NVMe record. NVME_IOCTL_SUBMIT_IO's own record
  // stands here as the pass-through record that asks for the same.
  std::vector<std::uint8_t> command;
  Direction direction;
  std::uint32_t transferLength;  // as the host gave it, also where the direction is none
  std::uint32_t timeoutMs;
  std::uint32_t transferred;           // bytes that really moved
  std::uint64_t dataDigest;            // of the data out: Digest()
  std::vector<std::uint8_t> dataHead;  // the first 96 bytes of the data out
  int errorNumber;                     // errno of the ioctl, 0 when it returned well
  std::uint16_t hostStatus, driverStatus;
  std::uint8_t scsiStatus;  // SAM status byte: 02h is CHECK CONDITION
  std::vector<std::uint8_t> sense;
  std::uint8_t ataStatus, ataError;
  std::uint16_t nvmeStatus;
  std::uint32_t nvmeResult;

  // The ATA command inside an ATA PASS-THROUGH CDB.
  bool IsAta() const;
  bool IsExtended() const;         // the 16-byte CDB with its EXTEND bit
  std::uint8_t AtaOpcode() const;  // 0 when there is none
  std::uint16_t Features() const;
  std::uint16_t Count() const;
  std::uint64_t Lba() const;  // 28-bit commands: Device 3:0 is not in it
  std::uint8_t Device() const;
  std::uint8_t Protocol() const;  // the CDB's PROTOCOL field, unshifted

  // ATA command, SCSI opcode or NVMe opcode: whatever the drive was asked.
  std::uint8_t Opcode() const;
  bool IsRaw() const { return ioctl == Ioctl::Raw; }
  bool IsDirect() const { return IsRaw() && command.size() > 1 && command[1] != 0; }
  std::uint64_t RawOffset() const;  // of a raw transfer, in bytes
  std::uint32_t NvmeNamespace() const;
  std::uint32_t Cdw(int number) const;  // 2, 3, 10 to 15

  bool Succeeded() const;    // neither an errno nor an error status
  std::string Text() const;  // one line for a reader
};

// FNV-1a, 64 bits.
std::uint64_t Digest(const void* data, std::size_t size);

std::vector<JournalEntry> ReadJournal(const std::string& path);

}  // namespace Simulator
