// Reads, writes and the capacity of a SATA drive.
#include <algorithm>

#include "Ata.h"
#include "Bytes.h"

namespace Simulator {

namespace {

struct Range {
  std::uint64_t lba;
  std::uint32_t blocks;
};

// The LBA register of a command that met a bad address holds that address.
bool InMedium(AtaCommand& command, const Range& range) {
  const auto last = command.Ata().maxLba;
  if (range.lba <= last && range.blocks - 1 <= last - range.lba) return true;
  command.Abort(kAtaNotFound);
  command.Out().lba = std::max(range.lba, last + 1);
  return false;
}

bool FitsBuffer(AtaCommand& command, std::uint64_t bytes) {
  if (command.Room().size() == bytes) return true;
  command.Abort();
  return false;
}

// The registers hold the address of the first bad sector (ACS-3, 9.3).
bool FailsAtBadSector(AtaCommand& command, const Range& range) {
  const std::uint64_t size = AtaSectorSize(command.State());
  const auto bad = command.TheDrive().FindBad(0, range.lba * size, range.blocks * size);
  if (!bad) return false;
  command.Abort(kAtaUncorrectable);
  const auto lba = *bad / size;
  command.Out().lba = command.In().extended ? lba : lba & 0xFFFFFF;
  if (!command.In().extended) {
    command.Out().device = static_cast<std::uint8_t>((command.In().device & 0xF0) | lba >> 24);
  }
  return true;
}

void Count(AtaCommand& command, std::uint8_t id, std::uint32_t blocks) {
  for (auto& attribute : command.Ata().attributes) {
    if (attribute.id == id) attribute.raw += blocks;
  }
}

}  // namespace

void AtaRead(AtaCommand& command) {
  const Range range{command.Address(), command.Blocks()};
  const std::uint64_t size = AtaSectorSize(command.State());
  if (!InMedium(command, range) || !FitsBuffer(command, range.blocks * size)) return;
  const auto room = command.Room();
  if (FailsAtBadSector(command, range)) return;
  if (!command.TheDrive().ReadMedium(0, range.lba * size, room.data(), room.size())) {
    return command.Abort(kAtaUncorrectable);
  }
  command.Moved(room.size());
  Count(command, 0xF2, range.blocks);
}

void AtaWrite(AtaCommand& command) {
  const Range range{command.Address(), command.Blocks()};
  const std::uint64_t size = AtaSectorSize(command.State());
  if (!InMedium(command, range) || !FitsBuffer(command, range.blocks * size)) return;
  const auto room = command.Room();
  if (!command.TheDrive().WriteMedium(0, range.lba * size, room.data(), room.size()))
    return command.Abort();
  command.Moved(room.size());
  Count(command, 0xF1, range.blocks);
}

void AtaVerify(AtaCommand& command) {
  const Range range{command.Address(), command.Blocks()};
  if (InMedium(command, range)) FailsAtBadSector(command, range);
}

// TRIM: entries of an LBA in 48 bits and a length in 16.
void AtaDataSetManagement(AtaCommand& command) {
  const auto data = command.Take(command.Room().size());
  const std::uint64_t size = AtaSectorSize(command.State());
  for (std::size_t at = 0; at + 8 <= data.size(); at += 8) {
    const auto entry = GetLittle<std::uint64_t>(&data[at]);
    const auto blocks = static_cast<std::uint32_t>(entry >> 48);
    const auto lba = entry & 0xFFFFFFFFFFFF;
    if (blocks == 0) continue;
    if (!InMedium(command, {lba, blocks})) return command.Abort(kAtaNotFound);
    command.TheDrive().DiscardMedium(0, lba * size, blocks * size);
  }
}

namespace {

// Word 82: the Host Protected Area feature set.
bool HasSetMax(const AtaState& ata) { return (ata.identify[82] >> 10 & 1) != 0; }

// Only directly behind its READ NATIVE MAX, and once in a power cycle; count bit 0 keeps the
// value over power cycles (ATA8-ACS, 7.47 and 7.48).
void SetMax(AtaCommand& command, std::uint8_t readCommand, std::uint64_t lba) {
  auto& ata = command.Ata();
  if (!HasSetMax(ata) || ata.previousCommand != readCommand) return command.Abort();
  if (ata.maximumIsSet != 0 || lba > ata.nativeMaxLba) return command.Abort(kAtaNotFound);
  ata.maximumIsSet = 1;
  if (ata.forgetsMaximum != 0) return;
  ata.maxLba = lba;
  if ((command.In().count & 1) != 0) ata.maxLbaAtPowerOn = lba;
}

}  // namespace

void AtaReadNativeMaxExt(AtaCommand& command) {
  if (!command.Ata().supports48Bit || !HasSetMax(command.Ata())) return command.Abort();
  command.Out().lba = command.Ata().nativeMaxLba;
}

void AtaReadNativeMax(AtaCommand& command) {
  if (!HasSetMax(command.Ata())) return command.Abort();
  const auto last = std::min<std::uint64_t>(command.Ata().nativeMaxLba, 0xFFFFFFF);
  command.Out().lba = last & 0xFFFFFF;
  command.Out().device = static_cast<std::uint8_t>((command.In().device & 0xF0) | last >> 24);
}

void AtaSetMaxExt(AtaCommand& command) {
  if (!command.Ata().supports48Bit) return command.Abort();
  SetMax(command, 0x27, command.In().lba);
}

void AtaSetMax(AtaCommand& command) {
  // Features 01h to 04h are the password and freeze forms, which this drive has not.
  if (command.Feature() != 0) return command.Abort();
  SetMax(command, 0xF8, command.Address());
}

}  // namespace Simulator
