#include "cli/DriveInformation.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <optional>

#include "devices/identification/Products.h"
#include "devices/model/Drive.h"
#include "devices/model/DriveHold.h"
#include "devices/model/PartitionTable.h"
#include "devices/properties/BasicProperties.h"
#include "devices/properties/IdentityProperties.h"
#include "devices/properties/LinkProperties.h"
#include "devices/properties/ProductProperties.h"
#include "devices/properties/ScanProperties.h"
#include "devices/properties/SettingProperties.h"
#include "frame/Text.h"
#include "operations/settings/GetMaxAddress.h"
#include "parsers/smart/DriveVerdict.h"

namespace Morvu {
namespace {

using DeviceManagement::Device;
using DeviceManagement::DriveHold;
using DeviceManagement::IsHeldDrive;
using DeviceManagement::Partition;
namespace Properties = DeviceManagement::Properties;
namespace Protocol = DeviceManagement::Protocol;

constexpr std::string_view kUnreachable =
    "\nUnable to communicate with the drive. Only basic information was queried.\n\n";

constexpr std::string_view kHeld =
    "\nAnother program or job works on the drive. Only basic information was queried.\n\n";

struct PhyConfigText {
  std::uint64_t value;
  std::string_view text;
};
constexpr PhyConfigText kPhyConfigs[] = {
    {0, "0 (Default Enterprise Settings)"},
    {1, "1 (Client Settings)"},
    {2, "2 (Alternate Enterprise Settings)"},
    {6, "6 (Custom Settings)"},
};

constexpr std::string_view kUnknown = "Unknown";

bool IsKnown(const Device& drive, const PropertyEntry& entry) {
  const auto* property = drive.GetProperties().Find(entry);
  return property != nullptr && property->HasValue();
}

std::string GetText(const Device& drive, const PropertyEntry& entry) {
  return Printable(drive.GetString(entry));
}

std::string OnOff(const Device& drive, const PropertyEntry& entry) {
  if (!IsKnown(drive, entry)) return std::string(kUnknown);
  return drive.GetBool(entry) ? "ON" : "OFF";
}

// A drive is healthy when its own text of failure was read, and is empty.
std::string GetHealth(const Device& drive) {
  const bool wasRead = drive.GetProperties().Has(Properties::ErrorString);
  return wasRead ? GetText(drive, Properties::DeviceStatus) : std::string(kUnknown);
}

std::string TwoPlaces(double value) {
  std::array<char, 64> text{};
  std::snprintf(text.data(), text.size(), "%.2f", value);
  return text.data();
}

std::optional<std::uint64_t> ReadNativeMax(Device& drive) {
  GetMaxAddress get(&drive, NoReporter());
  if (get.GetErrorCode() != Status::ReadyToRun || get.Execute() == 0) return std::nullopt;
  return get.GetNativeMax().last;
}

bool ShowsSpreadSpectrumClocking(const Device& drive) {
  const auto& product = DeviceManagement::ProductOf(drive);
  const auto from = product.clockingFirmware;
  return product.hasOemAttributes ||
         (!from.empty() && drive.GetString(Properties::Firmware).substr(0, from.size()) >= from);
}

void AppendVerdict(ResultTable& table, Device& drive, std::vector<std::string>& warnings) {
  const auto verdict = ReadVerdict(drive);
  table.AppendRow({"Drive Verdict:",
                   verdict.IsFailing() ? "<c:LIGHTRED>" + verdict.text + "</c>" : verdict.text});
  if (verdict.IsFailing()) warnings.push_back(DescribeAlarm(verdict));
}

void AppendCapacity(ResultTable& table, Device& drive, std::vector<std::string>& warnings) {
  // A count of sectors on ATA, beside a native maximum that is an address.
  const bool isKnown = IsKnown(drive, Properties::MaximumLBA);
  const auto maximum = drive.GetUInt(Properties::MaximumLBA);
  const auto native = ReadNativeMax(drive);
  table.AppendRow(
      {"Current MAX LBA:", isKnown ? "0x" + ToHexNumber(maximum) : std::string(kUnknown)});
  table.AppendRow({"Drive Status:", GetHealth(drive)});
  AppendVerdict(table, drive, warnings);
  table.AppendRow({"Native MAX LBA:", native ? "0x" + ToHexNumber(*native)
                                             : "<c:LIGHTRED>Failed to read native max.</c>"});
  if (isKnown && native) {
    table.AppendRow({"Current Percent:", TwoPlaces(100.0 * static_cast<double>(maximum) /
                                                   static_cast<double>(*native))});
  }
  const auto bytes = static_cast<double>(drive.GetUInt(Properties::PhysicalSize));
  table.AppendRow(
      {"Current Capacity:", isKnown ? TwoPlaces(bytes / 1e9) + " GB" : std::string(kUnknown)});
}

void AppendSettings(ResultTable& table, const Device& drive) {
  if (!drive.HasCommandSet(Protocol::Nvme)) {
    table.AppendRow({"SMART:", OnOff(drive, Properties::SMARTEnabled)});
    table.AppendRow({"DIPM:", OnOff(drive, Properties::DIPMEnabled)});
    table.AppendRow({"Write Cache:", OnOff(drive, Properties::WriteCacheEnabled)});
  }
  if (ShowsSpreadSpectrumClocking(drive)) {
    table.AppendRow({"SSC:", OnOff(drive, Properties::SSCEnabled)});
  }
  if (!DeviceManagement::ProductOf(drive).hasOemAttributes) return;
  const auto speed = GetText(drive, Properties::SataNegotiatedSpeed);
  table.AppendRow({"Negotiated SATA Speed:", speed.empty() ? std::string(kUnknown) : speed});
  if (!drive.GetProperties().Has(Properties::PhyConfig)) return;
  const auto config =
      std::ranges::find(kPhyConfigs, drive.GetUInt(Properties::PhyConfig), &PhyConfigText::value);
  if (config != std::end(kPhyConfigs)) {
    table.AppendRow({"PHY Config:", std::string(config->text)});
  }
}

std::string DescribePartition(const Partition& partition, std::size_t number, bool isHeld) {
  const auto space = isHeld ? DeviceManagement::PartitionSpace() : partition.ReadSpace();
  ResultTable table;
  table.AppendRow({"Partition", std::to_string(number)});
  DeviceManagement::AppendPartition(table, partition, space);
  return "\n" + table.ToText() + "\n";
}

std::string DescribeDrive(Device& drive, DriveDetail detail, std::vector<std::string>& warnings) {
  const bool inform = detail == DriveDetail::Information;
  auto index = drive.GetProperties().Has(Properties::Index)
                   ? std::to_string(drive.GetProperties().GetSigned(Properties::Index))
                   : std::string();
  if (drive.GetBool(Properties::RAID)) index += " (RAID Volume)";
  if (drive.GetBool(Properties::RAIDMember)) index += " (RAID Member)";

  ResultTable table;
  const auto append = [&](const char* label, const PropertyEntry& entry, bool evenEmpty) {
    const auto text = GetText(drive, entry);
    if (evenEmpty || !text.empty()) table.AppendRow({label, text});
  };
  table.AppendRow({"Drive Index:", index});
  if (inform) append("Drive Series:", Properties::ProductFamily, false);
  append("Model Number:", Properties::ModelNumber, true);
  append("Serial Number:", Properties::SerialNumber, true);
  append("Firmware:", Properties::Firmware, true);
  append("Bootloader:", Properties::Bootloader, false);
  append("Device Path:", Properties::DevicePath, true);
  if (!inform) {
    if (IsHeldDrive(drive)) table.AppendRow({"In Use:", "Another program or job works on it"});
    return table.ToText() + "\n";
  }
  const DriveHold hold(drive, DriveHold::Kind::Moment);
  const DeviceManagement::OneConnectionTest once(drive);
  const bool reachable = hold.IsTaken() && IsReachable(drive);
  if (reachable) {
    AppendCapacity(table, drive, warnings);
    AppendSettings(table, drive);
  }
  const auto reason = hold.IsTaken() ? kUnreachable : kHeld;
  auto text = table.ToText() + (reachable ? "\n" : std::string(reason));
  std::size_t number = 0;
  for (const auto& partition : drive.GetPartitions()) {
    text += DescribePartition(partition, number++, !hold.IsTaken());
  }
  return text;
}

}  // namespace

bool IsReachable(Device& drive) {
  return drive.GetUInt(Properties::DriverCommunicationError) == 0 && drive.TestConnection();
}

std::string DescribeDrives(std::span<Device* const> drives, std::string_view title,
                           DriveDetail detail, std::vector<std::string>& warnings) {
  auto text = std::string(title) + "\n\n";
  if (drives.empty()) return text + "No supported devices found.\n";
  std::vector<std::string> blocks;
  for (auto* drive : drives) blocks.push_back(DescribeDrive(*drive, detail, warnings));
  return text + Join(blocks, "\n");
}

ResultTable TabulateDrives(std::span<Device* const> drives) {
  ResultTable table;
  table.AppendRow({"Index", "Model", "Serial", "Firmware", "Device Path"}, true);
  for (const auto* drive : drives) {
    table.AppendRow(
        {std::to_string(drive->GetProperties().GetSigned(Properties::Index)),
         GetText(*drive, Properties::ModelNumber), GetText(*drive, Properties::SerialNumber),
         GetText(*drive, Properties::Firmware), GetText(*drive, Properties::DevicePath)});
  }
  return table;
}

}  // namespace Morvu
