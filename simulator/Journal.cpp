#include "Journal.h"

#include <fcntl.h>

#include <algorithm>
#include <cstdio>

#include "Bytes.h"
#include "Real.h"

namespace Simulator {

namespace {

constexpr std::uint8_t kAtaPassThrough12 = 0xA1;
constexpr std::uint8_t kAtaPassThrough16 = 0x85;

bool Is16(const JournalEntry& entry) { return entry.command[0] == kAtaPassThrough16; }

JournalEntry ToEntry(const JournalRecord& record) {
  JournalEntry entry{};
  entry.ioctl = record.ioctl;
  const auto length = std::min<std::size_t>(record.commandLength, sizeof record.command);
  entry.command.assign(record.command, record.command + length);
  entry.direction = record.direction;
  entry.transferLength = record.transferLength;
  entry.timeoutMs = record.timeoutMs;
  entry.transferred = record.transferred;
  entry.dataDigest = record.dataDigest;
  if (record.direction == Direction::ToDevice) {
    const auto head = std::min<std::size_t>(record.transferLength, sizeof record.data);
    entry.dataHead.assign(record.data, record.data + head);
  }
  entry.errorNumber = record.errorNumber;
  entry.hostStatus = record.hostStatus;
  entry.driverStatus = record.driverStatus;
  entry.scsiStatus = record.scsiStatus;
  const auto sense = std::min<std::size_t>(record.senseLength, sizeof record.sense);
  entry.sense.assign(record.sense, record.sense + sense);
  entry.ataStatus = record.ataStatus;
  entry.ataError = record.ataError;
  entry.nvmeStatus = static_cast<std::uint16_t>(record.nvmeStatus);
  entry.nvmeResult = record.nvmeResult;
  return entry;
}

std::string Hex(const std::vector<std::uint8_t>& bytes) {
  std::string text;
  char digits[4];
  for (const auto byte : bytes) {
    std::snprintf(digits, sizeof digits, "%02X ", byte);
    text += digits;
  }
  if (!text.empty()) text.pop_back();
  return text;
}

}  // namespace

bool JournalEntry::IsAta() const {
  return ioctl == Ioctl::SgIo && ((command.size() >= 16 && command[0] == kAtaPassThrough16) ||
                                  (command.size() >= 12 && command[0] == kAtaPassThrough12));
}

bool JournalEntry::IsExtended() const { return IsAta() && Is16(*this) && (command[1] & 1) != 0; }

std::uint8_t JournalEntry::AtaOpcode() const {
  if (!IsAta()) return 0;
  return Is16(*this) ? command[14] : command[9];
}

std::uint16_t JournalEntry::Features() const {
  if (!IsAta()) return 0;
  return Is16(*this) ? static_cast<std::uint16_t>(command[3] << 8 | command[4]) : command[3];
}

std::uint16_t JournalEntry::Count() const {
  if (!IsAta()) return 0;
  return Is16(*this) ? static_cast<std::uint16_t>(command[5] << 8 | command[6]) : command[4];
}

std::uint64_t JournalEntry::Lba() const {
  if (!IsAta()) return 0;
  const auto at = [this](std::size_t i) { return static_cast<std::uint64_t>(command[i]); };
  if (!Is16(*this)) return at(5) | at(6) << 8 | at(7) << 16;
  return at(8) | at(10) << 8 | at(12) << 16 | at(7) << 24 | at(9) << 32 | at(11) << 40;
}

std::uint8_t JournalEntry::Device() const {
  if (!IsAta()) return 0;
  return Is16(*this) ? command[13] : command[8];
}

std::uint8_t JournalEntry::Protocol() const {
  return IsAta() ? static_cast<std::uint8_t>(command[1] >> 1 & 0x0F) : 0;
}

std::uint8_t JournalEntry::Opcode() const {
  if (IsAta()) return AtaOpcode();
  return command.empty() ? 0 : command[0];
}

std::uint64_t JournalEntry::RawOffset() const {
  return IsRaw() && command.size() == sizeof(RawCommand) ? GetLittle<std::uint64_t>(&command[8])
                                                         : 0;
}

std::uint32_t JournalEntry::NvmeNamespace() const {
  if (ioctl == Ioctl::SgIo || command.size() < 72) return 0;
  return GetLittle<std::uint32_t>(&command[4]);
}

std::uint32_t JournalEntry::Cdw(int number) const {
  if (ioctl == Ioctl::SgIo || command.size() < 72) return 0;
  if (number == 2 || number == 3) return GetLittle<std::uint32_t>(&command[4 * number]);
  if (number < 10 || number > 15) return 0;
  return GetLittle<std::uint32_t>(&command[static_cast<std::size_t>(number) * 4]);
}

bool JournalEntry::Succeeded() const {
  if (errorNumber != 0 || hostStatus != 0 || nvmeStatus != 0) return false;
  if (IsAta()) return (ataStatus & 0xA1) == 0;
  return scsiStatus == 0;
}

std::string JournalEntry::Text() const {
  static constexpr const char* kNames[] = {"SCSI", "NVME-ADMIN", "NVME-IO", "RAW"};
  static constexpr const char* kDirections[] = {"none", "in", "out"};
  char line[400];
  std::string text = IsAta() ? "ATA" : kNames[static_cast<int>(ioctl)];
  if (IsAta()) {
    std::snprintf(line, sizeof line, " %02X features=%04X count=%04X lba=%012llX device=%02X",
                  AtaOpcode(), Features(), Count(), static_cast<unsigned long long>(Lba()),
                  Device());
  } else if (IsRaw()) {
    std::snprintf(line, sizeof line, " %s offset=%llX%s", Opcode() == 'W' ? "write" : "read",
                  static_cast<unsigned long long>(RawOffset()), IsDirect() ? " direct" : "");
  } else if (ioctl != Ioctl::SgIo && command.size() >= 72) {
    std::snprintf(line, sizeof line,
                  " %02X nsid=%X cdw10=%08X cdw11=%08X cdw12=%08X cdw13=%08X cdw14=%08X cdw15=%08X",
                  Opcode(), NvmeNamespace(), Cdw(10), Cdw(11), Cdw(12), Cdw(13), Cdw(14), Cdw(15));
  } else {
    std::snprintf(line, sizeof line, " [%s]", Hex(command).c_str());
  }
  text += line;
  std::snprintf(line, sizeof line, " %s=%u timeout=%ums", kDirections[static_cast<int>(direction)],
                transferLength, timeoutMs);
  text += line;
  if (errorNumber != 0) {
    std::snprintf(line, sizeof line, " -> errno %d", errorNumber);
  } else if (IsRaw()) {
    std::snprintf(line, sizeof line, " -> %u bytes", transferred);
  } else if (hostStatus != 0 || driverStatus != 0) {
    std::snprintf(line, sizeof line, " -> host %02X driver %02X", hostStatus, driverStatus);
  } else if (IsAta()) {
    std::snprintf(line, sizeof line, " -> status %02X error %02X", ataStatus, ataError);
  } else if (ioctl == Ioctl::SgIo) {
    std::snprintf(line, sizeof line, " -> status %02X%s%s", scsiStatus,
                  sense.empty() ? "" : " sense ", Hex(sense).c_str());
  } else {
    std::snprintf(line, sizeof line, " -> status %03X result %08X", nvmeStatus, nvmeResult);
  }
  return text + line;
}

std::uint64_t Digest(const void* data, std::size_t size) {
  std::uint64_t digest = 0xCBF29CE484222325u;
  const auto* bytes = static_cast<const std::uint8_t*>(data);
  for (std::size_t i = 0; i < size; ++i) digest = (digest ^ bytes[i]) * 0x100000001B3u;
  return digest;
}

std::vector<JournalEntry> ReadJournal(const std::string& path) {
  std::vector<JournalEntry> entries;
  const int file = Libc().open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (file < 0) return entries;
  JournalRecord record;
  while (Libc().read(file, &record, sizeof record) == sizeof record) {
    entries.push_back(ToEntry(record));
  }
  Libc().close(file);
  return entries;
}

}  // namespace Simulator
