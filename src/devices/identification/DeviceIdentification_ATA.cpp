#include "devices/identification/DeviceIdentification_ATA.h"

#include <array>

#include "devices/commands/CommandSet_ATA.h"
#include "devices/identification/FreshIdentity.h"
#include "devices/identification/Products.h"
#include "devices/identification/PropertyFields.h"
#include "devices/model/Device.h"
#include "devices/properties/AdapterProperties.h"
#include "devices/properties/BasicProperties.h"
#include "devices/properties/DriverProperties.h"
#include "devices/properties/FirmwareProperties.h"
#include "devices/properties/IdentityProperties.h"
#include "devices/properties/LinkProperties.h"
#include "devices/properties/ProductProperties.h"
#include "devices/properties/SecurityProperties.h"
#include "devices/properties/SettingProperties.h"
#include "frame/Logger.h"

namespace Morvu::DeviceManagement {
namespace {

using IdentifyData = std::array<std::uint8_t, 512>;

// The places of words, and of bits in a word, as ACS-3 counts them.
constexpr PagePlace Words(unsigned word, unsigned count = 1) {
  return {static_cast<std::uint16_t>(word * 2), static_cast<std::uint16_t>(count * 2)};
}
constexpr PagePlace Bit(unsigned word, std::uint8_t bit) {
  return {static_cast<std::uint16_t>(word * 2), 2, bit, 1};
}

std::uint64_t Read(const IdentifyData& data, const PagePlace& place) {
  return ReadField(data, place);
}

// ---- Properties that are more than a word, a bit or a text ----

// A drive in its boot loader tells more than a model.
std::string ReadModel(const IdentifyData& data) {
  constexpr std::string_view kBootloader = "MorvuBootloader";
  const auto model = Form::AtaText(data, Words(27, 20));
  return model.find(kBootloader) == model.npos ? model : std::string(kBootloader);
}

// The drive's own status text; behind a "*" it is no fault.
std::string ReadErrorString(const IdentifyData& data) {
  const auto text = Form::AtaText(data, Words(140, 10));
  return text.starts_with('*') ? std::string() : text;
}

// ATA tells a count of sectors, and "MaximumLBA" keeps it; of other drives the property
// is the last address, which is one less.
std::uint64_t ReadMaximumLba(const IdentifyData& data) {
  constexpr std::uint32_t kMore = 0xFFFFFFF;  // the drive has more than 28 bits tell
  const auto lba28 = Read(data, Words(60, 2)) & kMore;
  return lba28 == kMore ? Read(data, Words(100, 4)) : lba28;
}

bool IsHardDisk(const IdentifyData& data) {
  constexpr std::uint16_t kNonRotating = 1;
  return Read(data, Words(217)) != kNonRotating;
}

// Words 117 and 118 count in words, and hold where word 106 is valid and says so.
std::uint64_t ReadSectorSize(const IdentifyData& data) {
  constexpr PagePlace kValid{106 * 2, 2, 14, 2};  // 01b: the word is valid
  const bool told = Read(data, kValid) == 1 && Read(data, Bit(106, 12)) != 0;
  return told ? Read(data, Words(117, 2)) * 2 : 512;
}

std::uint64_t ReadWwid(const IdentifyData& data) {
  std::uint64_t name = 0;
  for (unsigned word = 108; word <= 111; ++word) name = name << 16 | Read(data, Words(word));
  return name;
}

std::string_view ReadNegotiatedSpeed(const IdentifyData& data) {
  constexpr std::string_view kSpeeds[] = {"", "1.5 Gbs", "3.0 Gbs", "6.0 Gbs"};
  const auto generation = static_cast<std::size_t>(Read(data, {77 * 2, 2, 1, 3}));
  return generation < std::size(kSpeeds) ? kSpeeds[generation] : std::string_view();
}

// ---- The rest, in the order in which they are read ----

// clang-format off
constexpr PropertyField kIdentifyTexts[] = {
    {&Properties::SerialNumber,                     Words(10, 10), Form::AtaText},
    {&Properties::Firmware,                         Words(23, 4), Form::AtaText},
};

constexpr PropertyField kIdentifyFields[] = {
    {&Properties::SecurityFrozen,                   Bit(128,  3)},
    {&Properties::SecurityLocked,                   Bit(128,  2)},
    {&Properties::SecurityEnabled,                  Bit(128,  1)},
    {&Properties::SecuritySupported,                Bit(128,  0)},
    {&Properties::SMARTEnabled,                     Bit( 85,  0)},
    {&Properties::DIPMSupported,                    Bit( 78,  3)},
    {&Properties::DIPMEnabled,                      Bit( 79,  3)},
    {&Properties::WriteCacheSupported,              Bit( 82,  5)},
    {&Properties::WriteCacheEnabled,                Bit( 85,  5)},
    {&Properties::SSCEnabled,                       Bit(129,  1)},
    {&Properties::TCGSupported,                     Bit( 48,  0)},
    {&Properties::DigitalFenceSupported,            Bit(157,  0)},
    {&Properties::RemoteSecureEraseSupported,       Bit(157,  1)},
    {&Properties::SataGen1,                         Bit( 76,  1)},
    {&Properties::SataGen2,                         Bit( 76,  2)},
    {&Properties::SataGen3,                         Bit( 76,  3)},
    {&Properties::IEEE1667Supported,                Bit( 69,  7)},
    {&Properties::SanitizeSupported,                Bit( 59, 12)},
    {&Properties::SanitizeCryptoScrambleSupported,  Bit( 59, 13)},
    {&Properties::SanitizeBlockEraseSupported,      Bit( 59, 15)},
    {&Properties::SMARTSelfTestSupported,           Bit( 84,  1)},
    {&Properties::TrimSize,                         Words(105)},
    {&Properties::PhyConfig,                        Words(138)},
};
// clang-format on

// The minutes of a security erase (words 89 and 90); nothing for a drive that does not tell.
std::optional<std::chrono::minutes> ReadEraseTime(const IdentifyData& data, unsigned word) {
  const auto told = static_cast<unsigned>(Read(data, Words(word)));
  constexpr unsigned kExtended = 0x8000;  // 15 bits of time in place of 8
  const auto value = told & ((told & kExtended) != 0 ? 0x7FFFu : 0xFFu);
  if (value == 0) return std::nullopt;
  return std::chrono::minutes(value * 2);
}

// Words 83 and 87 say whether those around them hold anything.
std::optional<AtaAddressing> ReadAddressing(const IdentifyData& data) {
  const auto isValid = [&](std::uint16_t word) {
    return Read(data, {static_cast<std::uint16_t>(word * 2), 2, 14, 2}) == 1;
  };
  if (!isValid(83)) return std::nullopt;
  const auto has = [&](unsigned word, std::uint8_t bit) { return Read(data, Bit(word, bit)) != 0; };
  return AtaAddressing{.has48Bit = has(83, 10),
                       .hasSetMax = has(82, 10),
                       .isSetMaxOn = !isValid(87) || has(85, 10),
                       .hasSetMaxPassword = isValid(87) && has(86, 8),
                       .hasAccessibleMax = isValid(87) && has(119, 8)};
}

// Word 255, the integrity word of ACS-3: a drive that keeps a checksum says so.
bool HasWrongChecksum(const IdentifyData& data) {
  constexpr std::uint8_t kSignature = 0xA5;
  return data[510] == kSignature && SumOf(data) != 0;
}

// Neither result matters: a drive that sleeps is awake afterwards.
void Wake(CommandSet_ATA& ata, IdentifyData& data) {
  if (ata.ataReadDma(data, 0, 1) != Status::Completed) {
    (void)ata.ataCheckPowerMode();
  }
  data.fill(0);
}

}  // namespace

std::optional<FreshIdentity> ReadFreshIdentity(CommandSet_ATA& ata) {
  IdentifyData data{};
  if (ata.ataIdentifyDevice(data) != Status::Completed || HasWrongChecksum(data)) return {};
  FreshIdentity told;
  PutFields(data, kIdentifyTexts, told.properties);
  PutFields(data, kIdentifyFields, told.properties);
  told.properties.Add(DeviceProperty(Properties::WWID, ReadWwid(data)));
  told.eraseTime = ReadEraseTime(data, 89);
  told.enhancedEraseTime = ReadEraseTime(data, 90);
  told.addressing = ReadAddressing(data);
  if (const auto sectors = ReadMaximumLba(data); sectors != 0) told.lastLba = sectors - 1;
  return told;
}

bool DeviceIdentification_ATA::Identify() {
  MORVU_LOG(kLogDebug, "Identify", "DeviceIdentification_ATA::Identify");
  if (device_ == nullptr) return false;
  DetectProduct();
  const bool answered = ReadIdentifyData();
  const bool isKnown = DetectProduct();
  // A product that the system's cut model told, and the drive's own does not.
  if (answered && !isKnown) device_->GetProperties().Remove(Properties::Product);
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
  const bool mayWake = !device_->GetBool(Properties::CSMI) && !device_->GetOptions().letsSleep;
  if (mayWake) Wake(*ata, data);
  if (ata->ataIdentifyDevice(data) != Status::Completed) return false;
  if (HasWrongChecksum(data)) {
    MORVU_LOG(kLogWarning, "Identify", "The checksum of the identify data is wrong.");
  }

  auto& properties = device_->GetProperties();
  PutFields(data, kIdentifyTexts, properties);
  device_->AddProperty(Properties::ModelNumber, ReadModel(data));
  device_->AddProperty(Properties::ErrorString, ReadErrorString(data));
  device_->AddProperty(Properties::MaximumLBA, ReadMaximumLba(data));
  device_->AddProperty(Properties::TrimSupported, Read(data, Bit(169, 0)) != 0);
  device_->AddProperty(Properties::HDD, IsHardDisk(data));
  device_->AddProperty(Properties::SectorSize, CheckedSectorSize(ReadSectorSize(data)));
  device_->AddProperty(Properties::WWID, ReadWwid(data));
  PutFields(data, kIdentifyFields, properties);
  const auto speed = ReadNegotiatedSpeed(data);
  if (!speed.empty()) device_->AddProperty(Properties::SataNegotiatedSpeed, speed);
  return true;
}

bool DeviceIdentification_ATA::CountsAsIdentified() const {
  return !device_->GetBool(Properties::LSI) && !ProductOf(*device_).needsIdentify;
}

}  // namespace Morvu::DeviceManagement
