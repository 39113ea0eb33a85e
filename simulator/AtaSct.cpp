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

// Extended status codes (ACS-3, table 204).
enum SctStatus : std::uint16_t {
  kGood = 0x0000,
  kBadFunction = 0x0001,
  kBadTimerFunction = 0x0004,
  kBadTimer = 0x0005,
  kBadFeatureFunction = 0x000C,
  kBadFeature = 0x000D,
  kBadState = 0x000E,
  kBadOptions = 0x000F,
  kBadAction = 0x0010,
  kBadTable = 0x0011,
};

// What a get hands back goes into count 7:0 and LBA 7:0.
void Return(AtaCommand& command, std::uint16_t value) {
  command.Ata().sct.transferValue = value;
  command.Out().count = static_cast<std::uint8_t>(value);
  command.Out().lba = (command.Out().lba & 0xFFFF00) | value >> 8;
}

std::uint16_t ErrorRecovery(AtaCommand& command, const Key& key) {
  auto& sct = command.Ata().sct;
  if (key.function != 1 && key.function != 2) return kBadTimerFunction;
  if (key.selector != 1 && key.selector != 2) return kBadTimer;
  auto& timer = key.selector == 1 ? sct.readTimer : sct.writeTimer;
  if (key.function == 2) {
    Return(command, timer);
  } else if (!sct.forgets) {
    timer = key.value;
  }
  return kGood;
}

// Feature codes, the state that each has in a new drive, and what a set may bring.
struct FeatureRow {
  std::uint16_t code, state;
  std::uint16_t least, most;  // 0 and 0: the host cannot set it
  bool hasOptions;
};

// clang-format off
constexpr FeatureRow kFeatures[] = {
    {0x0001, 1,     1, 3,      true},   // write cache: 1 as SET FEATURES says, 2 on, 3 off
    {0x0002, 1,     1, 2,      true},   // write cache reordering
    {0x0003, 1,     1, 0xFFFF, true},   // temperature logging interval, minutes
    {0xD000, 2,     0, 6,      true},   // test interval of the power-loss capacitor
    {0xD001, 0,     0, 2,      false},  // power governor mode
    {0xD003, 25000, 0, 0,      false},  // power governor burst power, mW
    {0xD004, 20000, 0, 0,      false},  // power governor average power, mW
    {0xD801, 1,     0, 1,      true},   // physical sector size: 4096
};
// clang-format on
static_assert(std::size(kFeatures) == kSctFeatures);

// The minutes that stand behind the test intervals.
constexpr std::uint16_t kTestMinutes[] = {0, 0, 60, 1440, 4320, 10080, 20160};

// Takes one of the saves; false when there is none left.
bool Save(SctState& sct) {
  if (sct.savesLeft == 0) return false;
  --sct.savesLeft;
  return true;
}

std::uint16_t SetFeature(AtaCommand& command, const Key& key, std::size_t index) {
  const auto& row = kFeatures[index];
  if (row.most == 0) return kBadFeatureFunction;
  if (key.value < row.least || key.value > row.most) return kBadState;
  if (key.options > (row.hasOptions ? 1 : 0)) return kBadOptions;
  auto& sct = command.Ata().sct;
  if (sct.forgets) return kGood;
  auto& feature = sct.features[index];
  feature.state = key.value;
  feature.options = key.options;
  if ((key.options & 1) != 0 && Save(sct)) {
    feature.savedState = key.value;
    feature.savedOptions = key.options;
  }
  if (row.code == 0x0001 && key.value != 1) command.Ata().writeCache = key.value == 2;
  return kGood;
}

std::uint16_t FeatureControl(AtaCommand& command, const Key& key) {
  if (key.function < 1 || key.function > 3) return kBadFeatureFunction;
  auto& sct = command.Ata().sct;
  for (std::size_t i = 0; i < std::size(kFeatures); ++i) {
    const auto& row = kFeatures[i];
    if (row.code != key.selector || key.selector == sct.refusedFeature) continue;
    if (key.function == 1) return SetFeature(command, key, i);
    if (key.function == 3 && !row.hasOptions) return kBadFeatureFunction;
    const auto state = sct.features[i].state;
    const bool isInterval = row.code == 0xD000;
    Return(command, key.function == 3 ? sct.features[i].options
                    : isInterval      ? kTestMinutes[state]
                                      : state);
    return kGood;
  }
  return kBadFeature;
}

std::uint16_t DataTable(AtaCommand& command, const Key& key) {
  if (key.function != 1) return kBadFunction;
  if (key.selector != 2) return kBadTable;  // the temperature history is the one table
  command.Ata().sct.tableIdentifier = key.selector;
  Return(command, 1);
  return kGood;
}

// Vendor actions. Identify words 138 (PHY settings), 129 (spread spectrum) and 77 (speed)
// follow at once, or after the power cycle; without a save left they fall back there.
constexpr std::size_t kPhyWords[] = {77, 129, 138};

void SetPhyWord(AtaCommand& command, std::size_t which, std::uint16_t value) {
  auto& sct = command.Ata().sct;
  if (sct.forgets) return;
  auto& word = command.Ata().identify[kPhyWords[which]];
  const bool isSaved = Save(sct);
  if (isSaved == (sct.phyWaits != 0)) {
    sct.nextWords[which] = isSaved ? value : word;
    sct.isNext = static_cast<std::uint8_t>(sct.isNext | 1 << which);
  }
  if (!sct.phyWaits) word = value;
}

std::uint16_t PhyConfig(AtaCommand& command, const Key& key) {
  if (key.function > 2 && key.function != 6) return kBadFunction;
  SetPhyWord(command, 2, key.function);
  return kGood;
}

std::uint16_t SpreadSpectrum(AtaCommand& command, const Key& key) {
  if (key.function > 1) return kBadFunction;
  const auto word = command.Ata().identify[129];
  SetPhyWord(command, 1, static_cast<std::uint16_t>((word & ~2) | key.function << 1));
  return kGood;
}

std::uint16_t PhySpeed(AtaCommand& command, const Key& key) {
  if (key.function > 2) return kBadFunction;
  SetPhyWord(command, 0, static_cast<std::uint16_t>((key.function + 1) << 1));
  return kGood;
}

// The link comes up anew, and until then nobody is there.
std::uint16_t Cominit(AtaCommand& command, const Key&) {
  auto& sct = command.Ata().sct;
  if (sct.linkAwayMs != 0) sct.linkBackMs = command.TheDrive().Now() + sct.linkAwayMs;
  return kGood;
}

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

void MakeSct(AtaState& ata) {
  ata.sct.savesLeft = 1000;
  for (std::size_t i = 0; i < std::size(kFeatures); ++i) {
    ata.sct.features[i] = {kFeatures[i].state, 0, kFeatures[i].state, 0};
  }
}

// Timers and what was set without being saved are lost.
void PowerCycleSct(AtaState& ata) {
  auto& sct = ata.sct;
  sct.readTimer = sct.writeTimer = 0;
  sct.linkBackMs = 0;
  for (auto& feature : sct.features) {
    feature.state = feature.savedState;
    feature.options = feature.savedOptions;
  }
  const auto cache = sct.features[0].state;
  ata.writeCache = cache != 3;  // what SET FEATURES said is lost as well
  for (std::size_t i = 0; i < std::size(kPhyWords); ++i) {
    if ((sct.isNext >> i & 1) != 0) ata.identify[kPhyWords[i]] = sct.nextWords[i];
  }
  sct.isNext = 0;
}

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
    if (row.action == sct.refusedAction) continue;
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
  PutLittle<std::uint16_t>(at + 4, 1);  // the revision of SCT that it follows
  at[10] = 0;                           // active
  PutLittle(at + 14, sct.lastStatus);
  PutLittle(at + 16, sct.lastAction);
  PutLittle(at + 18, sct.lastFunction);
  at[200] = 28;  // temperature, degree C
  at[201] = 22;  // lowest and highest since power-on
  at[202] = 33;
  at[203] = 18;  // lowest and highest, lifetime
  at[204] = 45;
  PutLittle(at + 482, sct.savesLeft);
}

// The temperature history, of six samples: the drive began in the cold.
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
  PutLittle<std::uint16_t>(at + 32, 5);
  std::memset(at + 34, 0x80, 478);  // no sample
  constexpr std::int8_t kDegrees[] = {-3, 12, 25, 25, 26, 28};
  std::memcpy(at + 34, kDegrees, sizeof kDegrees);
  command.Ata().sct.tableIdentifier = 0;
  return true;
}

}  // namespace Simulator
