// SMART Command Transport (ACS-3, clause 8): status, actions and data. A new
// action is a row of kActions and its handler.
#include <cstring>

#include "Ata.h"
#include "Bytes.h"

namespace Simulator {

namespace {

// Words of the key sector.
struct Key {
  std::uint16_t action, function, selector, value, options;
};

// Extended status codes.
constexpr std::uint16_t kGood = 0x0000, kBadAction = 0x0004, kBadFunction = 0x0001,
                        kBadSelector = 0x0002;

// What a get hands back goes into count 7:0 and LBA 7:0.
void Return(AtaCommand& command, std::uint16_t value) {
  command.Ata().sct.transferValue = value;
  command.Out().count = static_cast<std::uint8_t>(value);
  command.Out().lba = (command.Out().lba & 0xFFFF00) | value >> 8;
}

std::uint16_t ErrorRecovery(AtaCommand& command, const Key& key) {
  auto& sct = command.Ata().sct;
  if (key.selector != 1 && key.selector != 2) return kBadSelector;
  auto& timer = key.selector == 1 ? sct.readTimer : sct.writeTimer;
  if (key.function == 1) {
    timer = key.value;
  } else if (key.function == 2) {
    Return(command, timer);
  } else {
    return kBadFunction;
  }
  return kGood;
}

// Feature codes and the state that each has in a new drive.
struct FeatureRow {
  std::uint16_t code, state;
};

// clang-format off
constexpr FeatureRow kFeatures[] = {
    {0x0001, 1},     // write cache
    {0x0002, 1},     // write cache reordering
    {0x0003, 1},     // temperature logging interval, minutes
    {0xD000, 60},    // test interval of the power-loss capacitor
    {0xD001, 0},     // power governor mode
    {0xD003, 25000}, // power governor burst power, mW
    {0xD004, 20000}, // power governor average power, mW
    {0xD801, 1},     // physical sector size: 4096
};
// clang-format on
static_assert(std::size(kFeatures) == std::size(SctState{}.featureState));

std::uint16_t FeatureControl(AtaCommand& command, const Key& key) {
  auto& sct = command.Ata().sct;
  for (std::size_t i = 0; i < std::size(kFeatures); ++i) {
    if (kFeatures[i].code != key.selector) continue;
    const bool set = sct.featureCode[i] == key.selector;  // else as a new drive has it
    switch (key.function) {
      case 1:
        sct.featureCode[i] = key.selector;
        sct.featureState[i] = key.value;
        sct.featureOptions[i] = key.options;
        if (key.options & 1) ++sct.savesUsed;
        if (key.selector == 0x0001) command.Ata().writeCache = key.value == 2 ? 0 : 1;
        return kGood;
      case 2:
        Return(command, set ? sct.featureState[i] : kFeatures[i].state);
        return kGood;
      case 3:
        Return(command, set ? sct.featureOptions[i] : 0);
        return kGood;
      default:
        return kBadFunction;
    }
  }
  return kBadSelector;
}

std::uint16_t DataTable(AtaCommand& command, const Key& key) {
  if (key.function != 1) return kBadFunction;
  if (key.selector != 2) return kBadSelector;  // the temperature history is the one table
  command.Ata().sct.tableIdentifier = key.selector;
  Return(command, 1);
  return kGood;
}

// Vendor actions; identify words 138 (PHY settings) and 129 (spread spectrum)
// follow at once, word 77's speed too.
std::uint16_t PhyConfig(AtaCommand& command, const Key& key) {
  command.Ata().identify[138] = key.function;
  ++command.Ata().sct.savesUsed;
  return kGood;
}

std::uint16_t SpreadSpectrum(AtaCommand& command, const Key& key) {
  if (key.function > 1) return kBadFunction;
  auto& word = command.Ata().identify[129];
  word = static_cast<std::uint16_t>((word & ~2) | key.function << 1);
  ++command.Ata().sct.savesUsed;
  return kGood;
}

std::uint16_t PhySpeed(AtaCommand& command, const Key& key) {
  if (key.function > 2) return kBadFunction;
  command.Ata().identify[77] = static_cast<std::uint16_t>((key.function + 1) << 1);
  ++command.Ata().sct.savesUsed;
  return kGood;
}

std::uint16_t Cominit(AtaCommand&, const Key&) { return kGood; }

struct ActionRow {
  std::uint16_t action;
  std::uint16_t (*run)(AtaCommand&, const Key&);
};

// clang-format off
constexpr ActionRow kActions[] = {
    {0x0003, ErrorRecovery}, {0x0004, FeatureControl}, {0x0005, DataTable}, {0xC002, PhyConfig},
    {0xC003, SpreadSpectrum}, {0xC004, PhySpeed},      {0xC100, Cominit},   {0xC60E, SpreadSpectrum},
};
// clang-format on

}  // namespace

void WriteSctKey(AtaCommand& command, std::span<const std::uint8_t> data) {
  if (data.size() != kBlock) return command.Abort();
  const auto word = [&](std::size_t at) { return GetLittle<std::uint16_t>(&data[at]); };
  const Key key{word(0), word(2), word(4), word(6), word(8)};
  auto& sct = command.Ata().sct;
  sct.lastAction = key.action;
  sct.lastFunction = key.function;
  sct.lastStatus = kBadAction;
  sct.transferValue = 0;
  sct.tableIdentifier = 0;
  for (const auto& row : kActions) {
    if (row.action == key.action) sct.lastStatus = row.run(command, key);
  }
  if (sct.lastStatus == kGood) return;
  command.Abort();
  command.Out().count = static_cast<std::uint8_t>(sct.lastStatus);
  command.Out().lba = (command.Out().lba & 0xFFFF00) | sct.lastStatus >> 8;
}

void ReadSctStatus(AtaCommand& command, std::span<std::uint8_t> block) {
  const auto& sct = command.Ata().sct;
  auto* at = block.data();
  PutLittle<std::uint16_t>(at, 3);      // format version
  PutLittle<std::uint16_t>(at + 2, 1);  // SCT version
  PutLittle<std::uint16_t>(at + 4, 1);  // SCT specification
  at[10] = 0;                           // active
  PutLittle(at + 14, sct.lastStatus);
  PutLittle(at + 16, sct.lastAction);
  PutLittle(at + 18, sct.lastFunction);
  at[200] = 28;  // temperature, degree C
  at[201] = 22;  // lowest and highest since power-on
  at[202] = 33;
  at[203] = 18;  // lowest and highest, lifetime
  at[204] = 45;
  PutLittle<std::uint16_t>(
      at + 482, static_cast<std::uint16_t>(sct.savesUsed >= 1000 ? 0 : 1000 - sct.savesUsed));
}

// The temperature history, of four samples.
bool ReadSctData(AtaCommand& command, std::span<std::uint8_t> into) {
  if (command.Ata().sct.tableIdentifier != 2 || into.size() != kBlock) return false;
  auto* at = into.data();
  PutLittle<std::uint16_t>(at, 2);
  PutLittle<std::uint16_t>(at + 2, 1);  // sampled each minute
  PutLittle<std::uint16_t>(at + 4, 1);  // logged each minute
  at[6] = 70;                           // operation limits, degree C
  at[7] = 75;
  at[8] = 0;
  at[9] = static_cast<std::uint8_t>(-5);
  PutLittle<std::uint16_t>(at + 30, 478);
  PutLittle<std::uint16_t>(at + 32, 3);
  std::memset(at + 34, 0x80, 478);  // no sample
  for (int i = 0; i < 4; ++i) at[34 + i] = static_cast<std::uint8_t>(25 + i);
  command.Ata().sct.tableIdentifier = 0;
  return true;
}

}  // namespace Simulator
