// IDENTIFY DEVICE (ACS-3, 7.12): words made once from the drive's description,
// and those that follow the drive's state.
#include <cstring>

#include "Ata.h"
#include "Bytes.h"

namespace Simulator {

namespace {

struct WordRow {
  std::uint16_t word, value;
};

// clang-format off
// What every simulated SATA drive says.
constexpr WordRow kWords[] = {
    {0, 0x0040},
    {1, 16383},
    {3, 16},
    {6, 63},
    {47, 0x8010},   // READ MULTIPLE: 16 sectors
    {48, 0x4000},   // no TRUSTED commands
    {49, 0x2F00},   // standby timer, IORDY, LBA, DMA
    {50, 0x4000},
    {53, 0x0007},
    {63, 0x0007},   // multiword DMA
    {64, 0x0003},
    {65, 120},
    {66, 120},
    {67, 120},
    {68, 120},
    {69, 0x4020},   // deterministic read after trim, zeros
    {75, 31},       // queue depth 32
    {76, 0x850E},   // generations 1 to 3, NCQ, PHY event counters
    {77, 0x0006},   // negotiated: generation 3
    {78, 0x0008},   // device-initiated power management
    {80, 0x03F0},   // up to ACS-2
    {82, 0x746B},   // NOP, buffers, HPA, look-ahead, write cache, power management, security, SMART
    {83, 0x7D01},   // FLUSH EXT, FLUSH, SET MAX security, 48-bit, DOWNLOAD MICROCODE
    {84, 0x4163},   // WWN, GPL, self-test, error log
    {85, 0x7468},
    {86, 0xBC01},
    {87, 0x4163},
    {88, 0x407F},   // UDMA
    {105, 8},       // DATA SET MANAGEMENT blocks
    {119, 0x4014},  // segmented DOWNLOAD MICROCODE, extended status
    {120, 0x4014},
    {169, 0x0001},  // TRIM
    {206, 0x0039},  // SCT: error recovery, features, tables
    {217, 1},       // no rotation
    {222, 0x103F},  // SATA 3.x
    {234, 1},       // DOWNLOAD MICROCODE mode 03h: least blocks
    {235, 0xFFFF},  // and most
};
// clang-format on

// ATA texts stand with the bytes of each word exchanged.
void PutAtaText(std::uint8_t* at, std::size_t width, std::string_view text) {
  PutText(at, width, text);
  for (std::size_t i = 0; i + 1 < width; i += 2) std::swap(at[i], at[i + 1]);
}

void SetBit(std::uint8_t* block, int word, int bit, bool value) {
  auto bits = GetLittle<std::uint16_t>(block + 2 * word);
  bits = static_cast<std::uint16_t>(value ? bits | 1u << bit : bits & ~(1u << bit));
  PutLittle(block + 2 * word, bits);
}

std::uint16_t SecurityWord(const SecurityState& security) {
  if (!security.supported) return 0;
  return static_cast<std::uint16_t>(0x0001 | security.enabled << 1 | security.locked << 2 |
                                    security.frozen << 3 | security.countExpired << 4 | 0x0020 |
                                    security.maximumLevel << 8);
}

void PutCapacity(std::uint8_t* block, const AtaState& ata) {
  const std::uint64_t sectors = ata.maxLba + 1;
  const auto low = static_cast<std::uint32_t>(sectors > 0xFFFFFFF ? 0xFFFFFFF : sectors);
  PutLittle(block + 2 * 60, low);
  PutLittle<std::uint64_t>(block + 2 * 100, ata.supports48Bit ? sectors : 0);
}

void PutSanitize(std::uint8_t* block, const SanitizeState& sanitize) {
  SetBit(block, 59, 12, sanitize.cryptoScramble || sanitize.blockErase || sanitize.overwrite);
  SetBit(block, 59, 13, sanitize.cryptoScramble);
  SetBit(block, 59, 14, sanitize.overwrite);
  SetBit(block, 59, 15, sanitize.blockErase);
}

// Word 255: the signature, and the byte that makes the sum of all 512 zero.
void PutChecksum(std::uint8_t (&block)[512]) {
  block[510] = 0xA5;
  std::uint8_t sum = 0;
  for (int i = 0; i < 511; ++i) sum = static_cast<std::uint8_t>(sum + block[i]);
  block[511] = static_cast<std::uint8_t>(-sum);
}

}  // namespace

void BuildIdentify(Drive& drive, std::uint8_t (&block)[512]) {
  const auto& state = drive.State();
  const auto& ata = state.ata;
  for (int i = 0; i < 256; ++i) PutLittle(block + 2 * i, ata.identify[i]);
  PutAtaText(block + 20, 20, GetText(state.serial));
  PutAtaText(block + 46, 8, GetText(state.firmware));
  PutAtaText(block + 54, 40, GetText(state.model));
  PutCapacity(block, ata);
  PutSanitize(block, ata.sanitize);
  SetBit(block, 79, 3, ata.dipm);
  SetBit(block, 82, 1, ata.security.supported);
  SetBit(block, 83, 10, ata.supports48Bit);
  SetBit(block, 85, 0, ata.smartEnabled);
  SetBit(block, 85, 1, ata.security.enabled);
  SetBit(block, 85, 5, ata.writeCache);
  SetBit(block, 85, 6, ata.lookAhead);
  SetBit(block, 86, 10, ata.supports48Bit);
  SetBit(block, 84, 1, ata.selfTest.supported);
  SetBit(block, 87, 1, ata.selfTest.supported);
  if (ata.multiple != 0)
    PutLittle<std::uint16_t>(block + 2 * 59,
                             static_cast<std::uint16_t>(GetLittle<std::uint16_t>(block + 2 * 59) |
                                                        0x0100 | ata.multiple));
  PutLittle(block + 2 * 92, ata.security.masterIdentifier);
  PutLittle(block + 2 * 128, SecurityWord(ata.security));
  PutChecksum(block);
}

void AtaIdentifyDevice(AtaCommand& command) {
  std::uint8_t block[512];
  BuildIdentify(command.TheDrive(), block);
  command.Give(block, sizeof block);
}

std::uint32_t AtaSectorSize(const DriveState& state) {
  const auto word106 = state.ata.identify[106];
  if ((word106 & 0xD000) != 0x5000) return kBlock;
  return 2u * (state.ata.identify[117] | static_cast<std::uint32_t>(state.ata.identify[118]) << 16);
}

void MakeAta(DriveState& state, const DriveSpec& spec) {
  auto& ata = state.ata;
  for (const auto& row : kWords) ata.identify[row.word] = row.value;
  // A name of its own: NAA 5, and the digest of model and serial number.
  const auto name =
      Digest(spec.serial.data(), spec.serial.size()) ^ Digest(spec.model.data(), spec.model.size());
  ata.identify[108] = static_cast<std::uint16_t>(0x5000 | (name >> 48 & 0x0FFF));
  ata.identify[109] = static_cast<std::uint16_t>(name >> 32);
  ata.identify[110] = static_cast<std::uint16_t>(name >> 16);
  ata.identify[111] = static_cast<std::uint16_t>(name);
  ata.identify[106] = 0x6003;  // 4096-byte physical sectors
  if (spec.sectorSize != kBlock) {
    ata.identify[106] = 0x5000;
    ata.identify[117] = static_cast<std::uint16_t>(spec.sectorSize / 2);
  }
  ata.supports48Bit = 1;
  ata.maxLba = ata.nativeMaxLba = ata.maxLbaAtPowerOn = spec.sectors - 1;
  ata.powerMode = PowerMode::Active;
  ata.smartEnabled = ata.autosave = ata.writeCache = ata.lookAhead = 1;
  ata.refusesTrusted = 1;
  ata.refusesDiagnosticProtocol = 1;

  ata.security.supported = 1;
  ata.security.attemptsLeft = 5;
  ata.security.masterIdentifier = 0xFFFE;
  ata.identify[89] = 1;  // erase time: 2 minutes
  ata.identify[90] = 1;

  MakeSct(ata);
  ata.sanitize.blockErase = ata.sanitize.cryptoScramble = 1;
  ata.sanitize.durationMs = 3000;
  ata.selfTest.supported = 1;
  ata.selfTest.shortMs = 2000;
  ata.selfTest.extendedMs = 10000;
  ata.selfTest.conveyanceMs = 3000;

  // clang-format off
  constexpr SmartAttribute kAttributes[] = {
      // id, value, worst, threshold, flags, reserved, raw
      {0x05, 100, 100, 0, 0x0032, 0, 0},          // reallocated sectors
      {0x09, 100, 100, 0, 0x0032, 0, 1234},       // power-on hours
      {0x0C, 100, 100, 0, 0x0032, 0, 56},         // power cycles
      {0xAA, 100, 100, 10, 0x0033, 0, 0},         // available reserved space
      {0xAB, 100, 100, 0, 0x0032, 0, 0},          // program failures
      {0xAC, 100, 100, 0, 0x0032, 0, 0},          // erase failures
      {0xAE, 100, 100, 0, 0x0032, 0, 7},          // unexpected power losses
      {0xB7, 100, 100, 0, 0x0032, 0, 0},          // SATA downshifts
      {0xB8, 100, 100, 90, 0x0033, 0, 0},         // end-to-end errors
      {0xBB, 100, 100, 0, 0x0032, 0, 0},          // uncorrectable errors
      {0xBE, 72, 60, 0, 0x0022, 0, 28},           // temperature
      {0xC5, 100, 100, 0, 0x0032, 0, 0},          // pending sectors
      {0xC7, 100, 100, 0, 0x003E, 0, 0},          // CRC errors
      {0xE1, 100, 100, 0, 0x0032, 0, 4321},       // host writes, 32 MiB
      {0xE8, 100, 100, 10, 0x0033, 0, 0},         // available reserved space
      {0xE9, 99, 99, 0, 0x0032, 0, 0},            // media wear-out
      {0xF1, 100, 100, 0, 0x0032, 0, 4321},       // LBAs written
      {0xF2, 100, 100, 0, 0x0032, 0, 8765},       // LBAs read
  };
  // clang-format on
  std::copy(std::begin(kAttributes), std::end(kAttributes), ata.attributes);
}

void PowerCycleAta(Drive& drive) {
  auto& ata = drive.State().ata;
  auto& security = ata.security;
  security.locked = security.enabled;
  security.frozen = security.frozenAtPowerOn;
  security.countExpired = 0;
  security.attemptsLeft = 5;
  security.prepared = 0;
  // A sanitize goes on over a power cycle, a self-test does not; the sanitize
  // freeze ends with the power.
  ata.sanitize.frozen = ata.sanitize.antifreeze = 0;
  if (ata.selfTest.running) {
    ata.selfTest.running = 0;
    ata.selfTest.status = 0x20;  // interrupted by a reset
  }
  ata.maxLba = ata.maxLbaAtPowerOn;
  ata.maximumIsSet = 0;
  ata.powerMode = PowerMode::Active;
  ata.sleeping = 0;
  ata.previousCommand = 0;
  if (ata.firmware.deferred) {
    SetText(drive.State().firmware, GetText(ata.firmware.pending));
    ata.firmware.deferred = 0;
    ++ata.firmware.activations;
  }
  ata.firmware.running = 0;
  PowerCycleSct(ata);
  for (auto& attribute : ata.attributes) {
    if (attribute.id == 0x0C) ++attribute.raw;
  }
}

}  // namespace Simulator
