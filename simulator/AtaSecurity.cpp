// The SECURITY and SANITIZE DEVICE feature sets (ACS-3, 4.18 and 4.17).
#include <cstring>

#include "Ata.h"
#include "Bytes.h"

namespace Simulator {

namespace {

constexpr std::size_t kPasswordAt = 2, kPasswordSize = 32;

// SECURITY commands that a frozen drive aborts.
bool MayChangeSecurity(AtaCommand& command) {
  const auto& security = command.Ata().security;
  if (security.supported && !security.frozen) return true;
  command.Abort();
  return false;
}

bool IsMaster(std::span<const std::uint8_t> block) { return (block[0] & 1) != 0; }

bool Matches(const SecurityState& security, std::span<const std::uint8_t> block) {
  const auto& password = IsMaster(block) ? security.masterPassword : security.userPassword;
  return std::memcmp(password, &block[kPasswordAt], kPasswordSize) == 0;
}

void DisableSecurity(SecurityState& security) {
  security.enabled = security.locked = security.countExpired = 0;
  security.attemptsLeft = 5;
  std::memset(security.userPassword, 0, sizeof security.userPassword);
}

}  // namespace

void AtaSecuritySetPassword(AtaCommand& command) {
  if (!MayChangeSecurity(command)) return;
  const auto block = command.Take(kBlock);
  if (block.empty()) return;
  auto& security = command.Ata().security;
  if (IsMaster(block)) {
    std::memcpy(security.masterPassword, &block[kPasswordAt], kPasswordSize);
    const auto identifier = GetLittle<std::uint16_t>(&block[34]);
    if (identifier != 0 && identifier != 0xFFFF) security.masterIdentifier = identifier;
    return;
  }
  std::memcpy(security.userPassword, &block[kPasswordAt], kPasswordSize);
  security.maximumLevel = block[1] & 1;
  security.enabled = 1;
}

void AtaSecurityUnlock(AtaCommand& command) {
  if (!MayChangeSecurity(command)) return;
  const auto block = command.Take(kBlock);
  auto& security = command.Ata().security;
  if (block.empty() || !security.enabled) return;
  if (security.countExpired) return command.Abort();
  const bool barred = IsMaster(block) && security.maximumLevel;
  if (!barred && Matches(security, block)) {
    security.locked = 0;
    security.attemptsLeft = 5;
    return;
  }
  if (security.locked && --security.attemptsLeft == 0) security.countExpired = 1;
  command.Abort();
}

void AtaSecurityErasePrepare(AtaCommand& command) {
  if (!MayChangeSecurity(command)) return;
  command.Ata().security.prepared = 1;
}

// Only directly behind ERASE PREPARE, with the password that is set.
void AtaSecurityEraseUnit(AtaCommand& command) {
  if (!MayChangeSecurity(command)) return;
  const auto block = command.Take(kBlock);
  if (block.empty()) return;
  auto& security = command.Ata().security;
  const bool known = IsMaster(block) || security.enabled;
  if (!security.prepared || !known || !Matches(security, block)) return command.Abort();
  // Words 89 and 90 tell the time in units of two minutes. A drive whose host gave up
  // keeps its password.
  const auto units = command.Ata().identify[(block[0] & 2) != 0 ? 90 : 89] & 0xFF;
  if (!command.Lasts(static_cast<std::uint32_t>(units) * 120'000)) return;
  if (!command.TheDrive().EraseMedium(0)) return command.Abort();
  DisableSecurity(security);
}

void AtaSecurityFreezeLock(AtaCommand& command) {
  if (!command.Ata().security.supported) return command.Abort();
  command.Ata().security.frozen = 1;
}

void AtaSecurityDisablePassword(AtaCommand& command) {
  if (!MayChangeSecurity(command)) return;
  const auto block = command.Take(kBlock);
  auto& security = command.Ata().security;
  if (block.empty() || !security.enabled) return;
  if (!Matches(security, block)) return command.Abort();
  DisableSecurity(security);
}

namespace {

enum SanitizeReason : std::uint8_t {
  kNotReported = 0,
  kUnsuccessful = 1,
  kUnsupported = 2,
  kFrozen = 3
};

// A refused SANITIZE command says why in LBA 7:0.
void RefuseSanitize(AtaCommand& command, SanitizeReason reason) {
  command.Abort();
  command.Out().lba = reason;
  command.Out().count = 0;
}

// Sets the registers of SANITIZE STATUS EXT; ends an operation whose time is over.
std::uint32_t Progress(Drive& drive) {
  auto& sanitize = drive.State().ata.sanitize;
  if (!sanitize.running) return 0xFFFF;
  const auto now = drive.Now();
  const auto elapsed = now > sanitize.startedMs ? now - sanitize.startedMs : 0;
  if (elapsed < sanitize.durationMs) {
    return static_cast<std::uint32_t>(elapsed * 0xFFFF / sanitize.durationMs);
  }
  sanitize.running = 0;
  sanitize.failed = sanitize.willFail != 0;
  sanitize.completed = !sanitize.failed;
  sanitize.willFail = 0;
  if (sanitize.completed) drive.EraseMedium(0);
  return 0xFFFF;
}

void GiveStatus(AtaCommand& command) {
  const auto progress = Progress(command.TheDrive());
  const auto& sanitize = command.Ata().sanitize;
  command.Out().count = static_cast<std::uint16_t>(
      (sanitize.completed ? 0x8000 : 0) | (sanitize.running ? 0x4000 : 0) |
      (sanitize.frozen ? 0x2000 : 0) | (sanitize.antifreeze ? 0x1000 : 0));
  command.Out().lba = progress;
}

void Start(AtaCommand& command) {
  auto& sanitize = command.Ata().sanitize;
  if (sanitize.frozen) return RefuseSanitize(command, kFrozen);
  sanitize.running = 1;
  sanitize.failed = sanitize.completed = 0;
  sanitize.startedMs = command.TheDrive().Now();
  GiveStatus(command);
}

struct SanitizeRow {
  std::uint8_t feature;
  std::uint64_t key;  // 0: the LBA holds more than a key
};

constexpr std::uint8_t kStatus = 0x00, kCrypto = 0x11, kBlockErase = 0x12, kOverwrite = 0x14,
                       kFreeze = 0x20, kAntifreeze = 0x40;

// clang-format off
constexpr SanitizeRow kSanitizeRows[] = {
    {kStatus, 0},
    {kCrypto, 0x43727970},      // "Cryp"
    {kBlockErase, 0x426B4572},  // "BkEr"
    {kOverwrite, 0},            // "OW" in LBA 47:32
    {kFreeze, 0x46724C6B},      // "FrLk"
    {kAntifreeze, 0x416E7469},  // "Anti"
};
// clang-format on

bool IsSupported(const SanitizeState& sanitize, std::uint8_t feature) {
  const bool any = sanitize.cryptoScramble || sanitize.blockErase || sanitize.overwrite;
  switch (feature) {
    case kCrypto:
      return sanitize.cryptoScramble;
    case kBlockErase:
      return sanitize.blockErase;
    case kOverwrite:
      return sanitize.overwrite;
    default:
      return any;
  }
}

bool HasKey(const AtaRegisters& in, std::uint8_t feature) {
  if (feature == kOverwrite) return (in.lba >> 32) == 0x4F57;
  for (const auto& row : kSanitizeRows) {
    if (row.feature == feature) return row.key == 0 || in.lba == row.key;
  }
  return false;
}

}  // namespace

bool AtaIsSanitizing(Drive& drive) {
  if (!drive.State().ata.sanitize.running) return false;
  Progress(drive);
  return drive.State().ata.sanitize.running != 0;
}

void AtaSanitize(AtaCommand& command) {
  auto& sanitize = command.Ata().sanitize;
  const auto feature = command.Feature();
  if (!IsSupported(sanitize, feature)) return RefuseSanitize(command, kUnsupported);
  if (!command.In().extended || !HasKey(command.In(), feature))
    return RefuseSanitize(command, kNotReported);
  if (feature == kStatus) {
    GiveStatus(command);
    if (!sanitize.failed) return;
    // CLEAR SANITIZE OPERATION FAILED is count bit 0; the failure is told before.
    const auto cleared = (command.In().count & 1) != 0;
    RefuseSanitize(command, kUnsuccessful);
    if (cleared) sanitize.failed = 0;
    return;
  }
  if (AtaIsSanitizing(command.TheDrive())) return RefuseSanitize(command, kNotReported);
  if (feature == kFreeze) {
    if (sanitize.antifreeze) return RefuseSanitize(command, kNotReported);
    sanitize.frozen = 1;
    return;
  }
  if (feature == kAntifreeze) {
    if (sanitize.frozen) return RefuseSanitize(command, kFrozen);
    sanitize.antifreeze = 1;
    return;
  }
  Start(command);
}

}  // namespace Simulator
