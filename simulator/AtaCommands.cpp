#include <cstring>

#include "Ata.h"
#include "Bytes.h"

namespace Simulator {

namespace {

void Nothing(AtaCommand&) {}
void Refused(AtaCommand& command) { command.Abort(); }

void SetPower(AtaCommand& command, PowerMode mode) {
  if (mode == PowerMode::Standby && command.Ata().standbyStaysActive) return;
  command.Ata().powerMode = mode;
}

void Standby(AtaCommand& command) { SetPower(command, PowerMode::Standby); }
void Idle(AtaCommand& command) { SetPower(command, PowerMode::Idle); }

void Sleep(AtaCommand& command) {
  command.Ata().sleeping = 1;
  SetPower(command, PowerMode::Standby);
}

void CheckPowerMode(AtaCommand& command) {
  command.Out().count = static_cast<std::uint8_t>(command.Ata().powerMode);
}

void ReadBuffer(AtaCommand& command) { command.Give(command.Ata().buffer, kBlock); }

void WriteBuffer(AtaCommand& command) {
  const auto data = command.Take(kBlock);
  if (!data.empty()) std::memcpy(command.Ata().buffer, data.data(), kBlock);
}

void Diagnostic(AtaCommand& command) { command.Out().error = 0x01; }  // device 0 passed

void SetMultiple(AtaCommand& command) {
  const auto count = command.In().count;
  if (count > 16 || (count & (count - 1)) != 0) return command.Abort();
  command.Ata().multiple = static_cast<std::uint8_t>(count);
}

void SetFeatures(AtaCommand& command) {
  auto& ata = command.Ata();
  switch (command.Feature()) {
    case 0x02:
    case 0x82:  // where SCT leaves the write cache to it
      if (ata.sct.features[0].state == 1) ata.writeCache = command.Feature() == 0x02;
      return;
    case 0xAA:
      ata.lookAhead = 1;
      return;
    case 0x55:
      ata.lookAhead = 0;
      return;
    case 0x03:  // transfer mode
    case 0x05:
    case 0x85:  // power management
    case 0x66:
    case 0xCC:
      return;  // defaults at a soft reset
    case 0x10:
    case 0x90:  // SATA features: 3 is device-initiated power management
      if (command.In().count != 0x03) return command.Abort();
      ata.dipm = command.Feature() == 0x10 ? 1 : 0;
      return;
    default:
      return command.Abort();
  }
}

void Trusted(AtaCommand& command) {
  if (command.Ata().refusesTrusted) return command.Abort();
  const bool sends = command.In().command >= 0x5E;
  const std::uint8_t nothing[kBlock] = {};
  if (!sends) command.Give(nothing, std::min<std::size_t>(command.Room().size(), kBlock));
}

constexpr Transfer kNone = Transfer::None, kPioIn = Transfer::PioIn, kPioOut = Transfer::PioOut,
                   kDmaIn = Transfer::DmaIn, kDmaOut = Transfer::DmaOut;
constexpr std::uint8_t kLocked = kWhenLocked, kSanitizing = kWhenSanitizing, kMedia = kMediaAccess;
constexpr std::uint8_t kAlways = kWhenLocked | kWhenSanitizing;

// clang-format off
// opcode, feature, transfer, allowed, handler; first match.
constexpr AtaRow kRows[] = {
    {0x00, -1, kNone, kAlways, Refused},  // NOP: aborted by every drive
    {0x06, 0x01, kDmaOut, kMedia, AtaDataSetManagement},
    {0x0B, -1, kNone, kAlways, Nothing},  // REQUEST SENSE DATA EXT: no sense
    {0x10, -1, kNone, kLocked, Nothing},  // RECALIBRATE
    {0x20, -1, kPioIn, kMedia, AtaRead},
    {0x24, -1, kPioIn, kMedia, AtaRead},
    {0x25, -1, kDmaIn, kMedia, AtaRead},
    {0x27, -1, kNone, kLocked, AtaReadNativeMaxExt},
    {0x29, -1, kPioIn, kMedia, AtaRead},
    {0x2F, -1, kPioIn, kAlways, AtaReadLogExt},
    {0x30, -1, kPioOut, kMedia, AtaWrite},
    {0x34, -1, kPioOut, kMedia, AtaWrite},
    {0x35, -1, kDmaOut, kMedia, AtaWrite},
    {0x37, -1, kNone, 0, AtaSetMaxExt},
    {0x39, -1, kPioOut, kMedia, AtaWrite},
    {0x3D, -1, kDmaOut, kMedia, AtaWrite},
    {0x3F, -1, kPioOut, 0, AtaWriteLogExt},
    {0x40, -1, kNone, kMedia, AtaVerify},
    {0x42, -1, kNone, kMedia, AtaVerify},
    {0x47, -1, kDmaIn, kAlways, AtaReadLogExt},
    {0x57, -1, kDmaOut, 0, AtaWriteLogExt},
    {0x5C, -1, kPioIn, kLocked, Trusted},
    {0x5D, -1, kDmaIn, kLocked, Trusted},
    {0x5E, -1, kPioOut, kLocked, Trusted},
    {0x5F, -1, kDmaOut, kLocked, Trusted},
    {0x70, -1, kNone, kLocked, Nothing},  // SEEK
    {0x77, -1, kNone, kLocked, Nothing},  // SET DATE & TIME EXT
    {0x82, 0x01, kDmaIn, kMedia, AtaRead},  // the vendor's reads, in 48 and in 28 bits
    {0x83, 0x01, kDmaIn, kMedia, AtaRead},
    {0x90, -1, kNone, kLocked, Diagnostic},
    {0x91, -1, kNone, kLocked, Nothing},  // INITIALIZE DEVICE PARAMETERS
    {0x92, -1, kPioOut, 0, AtaDownloadMicrocode},
    {0x93, -1, kDmaOut, 0, AtaDownloadMicrocode},
    {0xB0, 0xD0, kPioIn, kAlways, AtaSmartReadData},
    {0xB0, 0xD1, kPioIn, kAlways, AtaSmartReadThresholds},
    {0xB0, 0xD2, kNone, kLocked, AtaSmartAutosave},
    {0xB0, 0xD4, kNone, kLocked, AtaSmartExecuteOffline},
    {0xB0, 0xD5, kPioIn, kAlways, AtaSmartReadLog},
    {0xB0, 0xD6, kPioOut, kLocked, AtaSmartWriteLog},
    {0xB0, 0xD8, kNone, kLocked, AtaSmartEnable},
    {0xB0, 0xD9, kNone, kLocked, AtaSmartDisable},
    {0xB0, 0xDA, kNone, kAlways, AtaSmartReturnStatus},
    {0xB4, -1, kNone, kSanitizing, AtaSanitize},
    {0xC4, -1, kPioIn, kMedia, AtaRead},
    {0xC5, -1, kPioOut, kMedia, AtaWrite},
    {0xC6, -1, kNone, kLocked, SetMultiple},
    {0xC8, -1, kDmaIn, kMedia, AtaRead},
    {0xCA, -1, kDmaOut, kMedia, AtaWrite},
    {0xCE, -1, kPioOut, kMedia, AtaWrite},
    {0xE0, -1, kNone, kAlways, Standby},
    {0xE1, -1, kNone, kAlways, Idle},
    {0xE2, -1, kNone, kLocked, Standby},
    {0xE3, -1, kNone, kLocked, Idle},
    {0xE4, -1, kPioIn, kLocked, ReadBuffer},
    {0xE5, -1, kNone, kAlways, CheckPowerMode},
    {0xE6, -1, kNone, kLocked, Sleep},
    {0xE7, -1, kNone, kMedia, Nothing},  // FLUSH CACHE
    {0xE8, -1, kPioOut, kLocked, WriteBuffer},
    {0xE9, -1, kDmaIn, kLocked, ReadBuffer},
    {0xEA, -1, kNone, kMedia, Nothing},  // FLUSH CACHE EXT
    {0xEB, -1, kDmaOut, kLocked, WriteBuffer},
    {0xEC, -1, kPioIn, kAlways, AtaIdentifyDevice},
    {0xEF, -1, kNone, kLocked, SetFeatures},
    {0xF1, -1, kPioOut, 0, AtaSecuritySetPassword},
    {0xF2, -1, kPioOut, kLocked, AtaSecurityUnlock},
    {0xF3, -1, kNone, kLocked, AtaSecurityErasePrepare},
    {0xF4, -1, kPioOut, kLocked, AtaSecurityEraseUnit},
    {0xF5, -1, kNone, 0, AtaSecurityFreezeLock},
    {0xF6, -1, kPioOut, 0, AtaSecurityDisablePassword},
    {0xF8, -1, kNone, kLocked, AtaReadNativeMax},
    {0xF9, -1, kNone, 0, AtaSetMax},
};
// clang-format on

const AtaRow* FindRow(const AtaRegisters& in) {
  for (const auto& row : kRows) {
    const bool feature = row.feature < 0 || row.feature == (in.features & 0xFF);
    if (row.opcode == in.command && feature) return &row;
  }
  return nullptr;
}

// SAT's PROTOCOL field must be that of the command. A non-data command that is
// sent as a read ends without data, as at any host adapter.
bool ProtocolFits(const AtaRow& row, const AtaRegisters& in, Direction direction) {
  const bool pioIn = in.protocol == 4, pioOut = in.protocol == 5;
  const bool dma = in.protocol == 6 || in.protocol == 10 || in.protocol == 11;
  switch (row.transfer) {
    case Transfer::None:
      return in.protocol == 3 || in.protocol == 8 || direction == Direction::FromDevice;
    case Transfer::PioIn:
      return pioIn;
    case Transfer::PioOut:
      return pioOut;
    case Transfer::DmaIn:
      return dma && direction == Direction::FromDevice;
    case Transfer::DmaOut:
      return dma && direction == Direction::ToDevice;
  }
  return false;
}

bool MayRun(AtaCommand& command, const AtaRow& row) {
  auto& ata = command.Ata();
  if (ata.sleeping) return false;  // only a reset wakes it
  if (ata.security.locked && (row.allowed & kWhenLocked) == 0) return false;
  if (AtaIsSanitizing(command.TheDrive()) && (row.allowed & kWhenSanitizing) == 0) return false;
  return true;
}

}  // namespace

AtaCommand::AtaCommand(Drive& drive, Transaction& transaction, const AtaRegisters& registers)
    : drive_(drive), transaction_(transaction), in_(registers) {
  out_.device = registers.device;
  out_.count = registers.count;
  out_.lba = registers.lba;
}

std::uint64_t AtaCommand::Address() const {
  if (in_.extended) return in_.lba;
  return (in_.lba & 0xFFFFFF) | static_cast<std::uint64_t>(in_.device & 0x0F) << 24;
}

std::uint32_t AtaCommand::Blocks() const {
  if (in_.count != 0) return in_.count;
  return in_.extended ? 0x10000 : 0x100;
}

void AtaCommand::Abort(std::uint8_t error) {
  out_.status = kAtaRefused;
  out_.error = error;
}

bool AtaCommand::Lasts(std::uint32_t milliseconds) {
  const auto limit = transaction_.timeoutMs;
  out_.timedOut = limit != 0 && milliseconds > limit;
  drive_.Spend(out_.timedOut ? limit : milliseconds);
  return !out_.timedOut;
}

void AtaCommand::Give(const void* data, std::size_t size) {
  if (transaction_.data == nullptr) return Abort();
  transaction_.Reply(data, size);
}

std::span<const std::uint8_t> AtaCommand::Take(std::size_t size) {
  if (transaction_.data == nullptr || transaction_.length < size) {
    Abort();
    return {};
  }
  Moved(size);
  return {transaction_.data, size};
}

namespace {

// In standby a drive answers for itself; its medium and what is kept there wake it.
bool NeedsToWake(const AtaRow& row, const AtaRegisters& registers) {
  constexpr std::uint8_t kSmart = 0xB0, kReadLog = 0x2F, kReadLogDma = 0x47;
  return (row.allowed & kMediaAccess) != 0 || registers.command == kSmart ||
         registers.command == kReadLog || registers.command == kReadLogDma;
}

}  // namespace

AtaOutput ExecuteAta(Drive& drive, Transaction& transaction, const AtaRegisters& registers) {
  AtaCommand command(drive, transaction, registers);
  auto& ata = drive.State().ata;
  AtaFinishDownload(command);
  const auto* row = FindRow(registers);
  if (row != nullptr) command.Out().pioIn = row->transfer == Transfer::PioIn;
  if (row == nullptr || !ProtocolFits(*row, registers, transaction.direction) ||
      !MayRun(command, *row)) {
    command.Abort();
  } else {
    if (NeedsToWake(*row, registers)) {
      if (ata.powerMode == PowerMode::Standby) ++ata.wakeUps;
      ata.powerMode = PowerMode::Active;
    }
    row->handler(command);
  }
  const bool readsLog = registers.command == 0x2F || registers.command == 0x47;
  if (!readsLog || (command.Out().status & 1) != 0) ata.streaming = 0;
  if (registers.command != 0xF3) ata.security.prepared = 0;
  ata.previousCommand = (command.Out().status & 1) == 0 ? registers.command : 0;
  return command.Out();
}

}  // namespace Simulator
