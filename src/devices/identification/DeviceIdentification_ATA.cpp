#include "devices/identification/DeviceIdentification_ATA.h"

#include <algorithm>
#include <array>

#include "devices/commands/CommandSet_ATA.h"
#include "devices/identification/ProductDetection.h"
#include "devices/model/Device.h"
#include "frame/Logger.h"

namespace Morvu::DeviceManagement {
namespace {

using IdentifyData = std::array<std::uint8_t, 512>;

std::uint16_t Word(const IdentifyData& data, std::size_t word) {
  return ReadLittle16(data, word * 2);
}

bool Bit(const IdentifyData& data, std::size_t word, int bit) {
  return (Word(data, word) >> bit & 1) != 0;
}

// A text of `count` words, whose bytes are exchanged in pairs.
std::string Text(const IdentifyData& data, std::size_t word, std::size_t count) {
  auto copy = data;
  const auto field = ByteSpan(copy).subspan(word * 2, count * 2);
  SwapBytePairs(field);
  return ReadText(field, 0, field.size());
}

// ---- Properties that are more than a word, a bit or a text ----

// A drive in its boot loader tells more than a model.
std::string ReadModel(const IdentifyData& data) {
  constexpr std::string_view kBootloader = "MorvuBootloader";
  const auto model = Text(data, 27, 20);
  return model.find(kBootloader) == model.npos ? model : std::string(kBootloader);
}

// The drive's own status text; behind a "*" it is no fault.
std::string ReadErrorString(const IdentifyData& data) {
  const auto text = Text(data, 140, 10);
  return text.starts_with('*') ? std::string() : text;
}

std::uint64_t ReadMaximumLba(const IdentifyData& data) {
  constexpr std::uint32_t kMore = 0xFFFFFFF;  // the drive has more than 28 bits tell
  const auto lba28 = ReadLittle32(data, 60 * 2) & kMore;
  return lba28 == kMore ? ReadLittle64(data, 100 * 2) : lba28;
}

bool IsHardDisk(const IdentifyData& data) {
  constexpr std::uint16_t kNonRotating = 1;
  return Word(data, 217) != kNonRotating;
}

// Words 117 and 118 count in words, and hold where word 106 is valid and says so.
std::uint64_t ReadSectorSize(const IdentifyData& data) {
  const bool told = Bit(data, 106, 14) && !Bit(data, 106, 15) && Bit(data, 106, 12);
  return told ? std::uint64_t{ReadLittle32(data, 117 * 2)} * 2 : 512;
}

std::uint64_t ReadWwid(const IdentifyData& data) {
  std::uint64_t name = 0;
  for (std::size_t word = 108; word <= 111; ++word) name = name << 16 | Word(data, word);
  return name;
}

std::string_view ReadNegotiatedSpeed(const IdentifyData& data) {
  constexpr std::string_view kSpeeds[] = {"", "1.5 Gbs", "3.0 Gbs", "6.0 Gbs"};
  const auto generation = static_cast<std::size_t>(Word(data, 77) >> 1 & 7);
  return generation < std::size(kSpeeds) ? kSpeeds[generation] : std::string_view();
}

// ---- The rest, in the order in which they are read ----

struct BitRow {
  const PropertyEntry* entry;
  std::uint8_t word;
  std::uint8_t bit;
};

// clang-format off
constexpr BitRow kBits[] = {
    {&Properties::SecurityFrozen,                  128,  3},
    {&Properties::SecurityLocked,                  128,  2},
    {&Properties::SecurityEnabled,                 128,  1},
    {&Properties::SecuritySupported,               128,  0},
    {&Properties::SMARTEnabled,                     85,  0},
    {&Properties::DIPMSupported,                    78,  3},
    {&Properties::DIPMEnabled,                      79,  3},
    {&Properties::WriteCacheSupported,              82,  5},
    {&Properties::WriteCacheEnabled,                85,  5},
    {&Properties::SSCEnabled,                      129,  1},
    {&Properties::TCGSupported,                     48,  0},
    {&Properties::DigitalFenceSupported,           157,  0},
    {&Properties::RemoteSecureEraseSupported,      157,  1},
    {&Properties::SataGen1,                         76,  1},
    {&Properties::SataGen2,                         76,  2},
    {&Properties::SataGen3,                         76,  3},
    {&Properties::IEEE1667Supported,                69,  7},
    {&Properties::SanitizeSupported,                59, 12},
    {&Properties::SanitizeCryptoScrambleSupported,  59, 13},
    {&Properties::SanitizeBlockEraseSupported,      59, 15},
    {&Properties::SMARTSelfTestSupported,           84,  1},
};
// clang-format on

// Behind a controller in IDE mode these are known by their identify data only.
constexpr std::string_view kNeedsIdentify[] = {
    Products::Tarnwell,
    Products::WistleBrook,
    Products::SedgwoldBrook,
    Products::Yarrowick2,
};

// Neither result matters: a drive that sleeps is awake afterwards.
void Wake(CommandSet_ATA& ata, IdentifyData& data) {
  if (ata.ataReadDma(data, 0, 1) != Status::Completed) {
    (void)ata.ataCheckPowerMode(data);
  }
  data.fill(0);
}

}  // namespace

bool DeviceIdentification_ATA::Identify() {
  MORVU_LOG(kLogDebug, "Identify", "DeviceIdentification_ATA::Identify");
  if (device_ == nullptr) return false;
  DetectProduct();
  const bool answered = ReadIdentifyData();
  DetectProduct();
  if (!device_->GetBool(Properties::Morvu)) {
    device_->AddProperty(Properties::DigitalFenceSupported, false);
    device_->AddProperty(Properties::RemoteSecureEraseSupported, false);
  }
  if (device_->GetBool(Properties::ControllerIDEMode)) return CountsAsIdentified();
  device_->AddProperty(Properties::DownloadMicrocodePossible, true);
  return answered;
}

bool DeviceIdentification_ATA::ReadIdentifyData() {
  auto* ata = device_->GetCommandSetAs<CommandSet_ATA>(Protocol::Ata);
  if (ata == nullptr) return false;
  IdentifyData data{};
  if (!device_->GetBool(Properties::CSMI)) Wake(*ata, data);
  if (ata->ataIdentifyDevice(data) != Status::Completed) return false;

  device_->AddProperty(Properties::SerialNumber, Text(data, 10, 10));
  device_->AddProperty(Properties::Firmware, Text(data, 23, 4));
  device_->AddProperty(Properties::ModelNumber, ReadModel(data));
  device_->AddProperty(Properties::ErrorString, ReadErrorString(data));
  device_->AddProperty(Properties::MaximumLBA, ReadMaximumLba(data));
  device_->AddProperty(Properties::TrimSupported, Bit(data, 169, 0));
  device_->AddProperty(Properties::HDD, IsHardDisk(data));
  device_->AddProperty(Properties::SectorSize, CheckedSectorSize(ReadSectorSize(data)));
  device_->AddProperty(Properties::WWID, ReadWwid(data));
  for (const auto& row : kBits) device_->AddProperty(*row.entry, Bit(data, row.word, row.bit));
  device_->AddProperty(Properties::TrimSize, std::uint32_t{Word(data, 105)});
  device_->AddProperty(Properties::PhyConfig, std::uint32_t{Word(data, 138)});
  const auto speed = ReadNegotiatedSpeed(data);
  if (!speed.empty()) device_->AddProperty(Properties::SataNegotiatedSpeed, speed);
  return true;
}

bool DeviceIdentification_ATA::CountsAsIdentified() const {
  const auto product = device_->GetString(Properties::Product);
  return !device_->GetBool(Properties::LSI) &&
         std::ranges::find(kNeedsIdentify, product) == std::end(kNeedsIdentify);
}

}  // namespace Morvu::DeviceManagement
