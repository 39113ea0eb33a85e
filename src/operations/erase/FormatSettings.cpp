// Which settings of a format a drive takes, and which it has now.
#include <algorithm>
#include <limits>

#include "devices/properties/NamespaceProperties.h"
#include "operations/erase/Format.h"

namespace Morvu {

using DeviceManagement::Device;
namespace Properties = DeviceManagement::Properties;
namespace Protocol = DeviceManagement::Protocol;

namespace {

// End-to-end data protection capabilities (NVMe 1.0, figure 66, DPC).
constexpr std::uint8_t kFirstBytes = 0x08;
constexpr std::uint8_t kAllAllowed = 0x0F;
constexpr bool AllowsType(std::uint8_t capabilities, int type) {
  return type == 0 || (capabilities & 1 << (type - 1)) != 0;
}

constexpr std::uint8_t kMostProtection = 3;
// The command has four bits for the format.
constexpr std::uint8_t kMostLbaFormat = 15;

constexpr std::uint8_t Clamp(std::uint64_t value) {
  return static_cast<std::uint8_t>(
      std::min<std::uint64_t>(value, std::numeric_limits<std::uint8_t>::max()));
}

std::uint8_t GetCapabilities(const Device& device) {
  const auto* property = device.GetProperties().Find(Properties::EndToEndDataProtCapabilities);
  if (property == nullptr || !property->HasValue()) return kAllAllowed;
  return static_cast<std::uint8_t>(property->AsUnsigned());
}

std::string ListTypes(std::uint8_t capabilities) {
  std::string text = "Selected drive supports type 0";
  for (int type = 1; type <= kMostProtection; ++type) {
    if (AllowsType(capabilities, type)) text += ", " + std::to_string(type);
  }
  return text;
}

void CheckNvme(const Device& device, const FormatSettings& settings,
               std::vector<std::string>& errors) {
  const auto capabilities = GetCapabilities(device);
  if (settings.protectionInformation > kMostProtection ||
      !AllowsType(capabilities, settings.protectionInformation)) {
    errors.push_back("Error: Invalid value for protection information. " + ListTypes(capabilities));
  }
  const auto most = std::min(Clamp(device.GetUInt(Properties::NumLBAFormats)), kMostLbaFormat);
  if (settings.lbaFormat > most) {
    errors.push_back("Error: Invalid value for LBA Format. Supported values are: 0-" +
                     std::to_string(most));
  }
  const bool allowsFirst = (capabilities & kFirstBytes) != 0;
  if (settings.protectionInfoLocation > (allowsFirst ? 1 : 0)) {
    errors.push_back(std::string("Error: Invalid value for protection information location. ") +
                     (allowsFirst ? "Supported values are: 0 and 1." : "Supported value is: 0"));
  }
  if (settings.metadata > 1) {
    errors.push_back("Error: Invalid value for metadata settings. Supported values are: 0 and 1.");
  }
}

}  // namespace

std::vector<std::string> CheckFormatSettings(const Device& device, const FormatSettings& settings) {
  std::vector<std::string> errors;
  const bool isNvme = device.HasCommandSet(Protocol::Nvme);
  if (isNvme && settings.secureErase > 2) {
    errors.push_back(
        "Error: Invalid value for secure erase setting. Supported values are: 0, 1, and 2.");
  }
  if (device.HasCommandSet(Protocol::Ata) && settings.secureErase > 1) {
    errors.push_back(
        "Error: Invalid value for secure erase setting. Supported values are: 0, and 1 for ATA "
        "drives.");
  }
  if (isNvme) CheckNvme(device, settings, errors);
  return errors;
}

FormatSettings GetCurrentLayout(const Device& device) {
  return {
      .protectionInformation = Clamp(device.GetUInt(Properties::ProtectionInformation)),
      .lbaFormat = Clamp(device.GetUInt(Properties::LBAFormat)),
      .protectionInfoLocation = Clamp(device.GetUInt(Properties::ProtectionInformationLocation)),
      .metadata = Clamp(device.GetUInt(Properties::MetadataSetting)),
  };
}

}  // namespace Morvu
