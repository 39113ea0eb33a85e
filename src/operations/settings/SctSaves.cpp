#include "operations/settings/SctSaves.h"

#include <algorithm>

#include "devices/commands/CommandSet_ATA.h"
#include "devices/model/Device.h"
#include "devices/properties/BasicProperties.h"
#include "devices/properties/ProductProperties.h"
#include "frame/Logger.h"
#include "frame/Text.h"
#include "operations/settings/SCT.h"

namespace Morvu {

using DeviceManagement::CommandSet_ATA;
using DeviceManagement::Device;
namespace Properties = DeviceManagement::Properties;

namespace {

constexpr std::int32_t kUnknown = -1;
constexpr std::int32_t kUncounted = 100;  // firmware that keeps no count
constexpr std::int32_t kFew = 50;
constexpr std::size_t kSavesOffset = 482;  // of the SCT status sector: the vendor's

// Firmware that keeps no count, by the revision in the characters 5 to 7 of its name.
struct UncountedFirmware {
  std::string_view product;
  bool isPart;  // of the product's name, whatever its case; else the whole name
  std::string_view oem;
  std::string_view revision;
  bool isIncluded;  // the revision itself keeps none either
};

// clang-format off
constexpr UncountedFirmware kUncountedFirmware[] = {
    {"Vorsham",    true,  "Generic", "253", false},
    {"Vorsham",    true,  "IBM",     "B00", true},
    {"Cobbenrath", false, "Generic", "311", false},
    {"Cobbenrath", false, "IBM",     "B00", true},
};
// clang-format on

constexpr std::size_t kRevisionOffset = 5, kRevisionSize = 3;

// A name that is too short tells no revision: the drive is asked.
bool KeepsNoCount(const Device& device) {
  const auto firmware = device.GetString(Properties::Firmware);
  if (firmware.size() < kRevisionOffset + kRevisionSize) return false;
  const auto revision = firmware.substr(kRevisionOffset, kRevisionSize);
  const auto product = device.GetString(Properties::Product);
  const auto oem = device.GetString(Properties::OEM);
  return std::ranges::any_of(kUncountedFirmware, [&](const UncountedFirmware& row) {
    const bool isProduct = row.isPart ? IContains(product, row.product) : product == row.product;
    const bool isOlder = row.isIncluded ? revision <= row.revision : revision < row.revision;
    return isProduct && oem == row.oem && isOlder;
  });
}

}  // namespace

std::int32_t GetRemainingSaves(Device& device) {
  auto* ata = device.GetCommandSetAs<CommandSet_ATA>(DeviceManagement::Protocol::Ata);
  if (ata == nullptr) return kUnknown;
  if (KeepsNoCount(device)) return kUncounted;
  if (!device.TestConnection()) return kUnknown;
  ata->ReadUnseen();  // the drive brings its count up to date
  const auto sector = ReadSctStatus(device);
  return sector.empty() ? kUnknown : ReadLittle16(sector, kSavesOffset);
}

RemainingSaves CheckRemainingSaves(Device& device, bool needsPowerCycle) {
  RemainingSaves saves{.count = GetRemainingSaves(device)};
  const bool isLast = saves.count == 0;
  if (saves.count == kUnknown) {
    saves.lines.push_back("Error: Failed to read the remaining number of SCT saves.");
  } else if (isLast) {
    saves.lines.push_back(
        "Warning: The number of SCT saves remaining has reached 0. Settings will NOT persist over "
        "power-cycle!");
    if (needsPowerCycle) {
      saves.lines.push_back(
          "Canceling SCT command since there are no SCT saves remaining and it requires a "
          "power-cycle.");
    }
  } else if (saves.count <= kFew) {
    saves.lines.push_back("Warning: The number of SCT saves remaining = " +
                          std::to_string(saves.count));
  }
  const bool stops = saves.count == kUnknown || (isLast && needsPowerCycle);
  saves.code = stops ? Status::CanceledByUser : Status::ReadyToRun;
  for (const auto& line : saves.lines) {
    MORVU_LOG(kLogWarning, "CheckRemainingSaves", line);
  }
  return saves;
}

}  // namespace Morvu
