#include "cli/DriveReport.h"

#include <algorithm>
#include <limits>

#include "devices/model/Drive.h"
#include "devices/model/DriveHold.h"
#include "devices/properties/BasicProperties.h"
#include "messaging/XmlMessaging.h"
#include "parsers/smart/DriveVerdict.h"

namespace Morvu {
namespace {

using DeviceManagement::Device;
using DeviceManagement::DriveHold;
namespace Properties = DeviceManagement::Properties;

// Which a drive has that is no host's to show: who it is.
constexpr const PropertyEntry* kAlwaysShown[] = {&Properties::Index, &Properties::ModelNumber,
                                                 &Properties::SerialNumber, &Properties::Firmware,
                                                 &Properties::DevicePath};

// What a scan writes down of a drive that has not even told its size: no more than assumed.
constexpr const PropertyEntry* kAssumed[] = {&Properties::PhysicalSize, &Properties::SectorSize,
                                             &Properties::OpalState};

bool IsAssumed(const Device& device, const PropertyEntry& entry) {
  const auto& told = device.GetProperties();
  if (told.Has(Properties::MaximumLBA)) return false;
  // A controller without a namespace tells its state all the same.
  if (entry.name == Properties::DeviceStatus.name) return !told.Has(Properties::ErrorString);
  return std::ranges::any_of(kAssumed, [&](const auto* each) { return each->name == entry.name; });
}

bool IsShown(const Report::Drive& drive, const PropertyEntry& entry) {
  return std::ranges::any_of(drive.properties, [&](const DeviceProperty& property) {
    return property.GetName() == entry.name;
  });
}

void AddKept(Report::Drive& drive, const Device& device, const PropertyEntry& entry) {
  const auto* property = device.GetProperties().Find(entry);
  if (property == nullptr || IsShown(drive, entry) || IsAssumed(device, entry)) return;
  auto value = property->Resolve();
  if (value.HasValue()) drive.properties.push_back(std::move(value));
}

// A number that the drive has under this name but cannot give.
bool IsNoNumber(const XmlMessaging::Property& element) {
  return element.value == std::to_string(std::numeric_limits<std::uint64_t>::max());
}

void AddAsked(Report::Drive& drive, Device& device, const CimProperty& row) {
  const auto element = row.Describe(nullptr, &device);
  if (element == nullptr || element->value.empty() || IsNoNumber(*element)) return;
  const auto& status = element->GetAttribute("status");
  if (!status.empty() && status != "0") return;
  element->SetAttribute("value", element->value);  // as a typed element bears it
  auto value = DeviceProperty::FromXml(*element);
  if (value.HasValue()) drive.properties.push_back(std::move(value));
}

std::optional<std::uint64_t> Known(std::int64_t bytes) {
  if (bytes < 0) return std::nullopt;
  return static_cast<std::uint64_t>(bytes);
}

void AddPartitions(Report::Drive& drive, const Device& device) {
  for (const auto& partition : device.GetPartitions()) {
    const auto space = drive.isHeld ? DeviceManagement::PartitionSpace() : partition.ReadSpace();
    drive.partitions.push_back({.path = partition.GetName(),
                                .type = space.type,
                                .size = Known(space.size),
                                .free = Known(space.free),
                                .used = Known(space.used)});
  }
}

// Returns the line that warns of its verdict, empty for none.
std::string AskDrive(Report::Drive& drive, Device& device,
                     std::span<const CimProperty> properties) {
  const DriveHold hold(device, DriveHold::Kind::Moment);
  drive.isHeld = !hold.IsTaken();
  AddPartitions(drive, device);
  if (drive.isHeld) return {};
  const DeviceManagement::OneConnectionTest once(device);
  drive.answers = IsReachable(device);
  if (!*drive.answers) return {};
  for (const auto& row : properties) {
    if (row.getter != &GetGenericProperty) AddAsked(drive, device, row);
  }
  const auto verdict = ReadVerdict(device);
  drive.verdict = verdict.text;
  if (verdict.kind == DriveVerdict::Kind::Passed || verdict.IsFailing()) {
    drive.isFailing = verdict.IsFailing();
  }
  return verdict.IsFailing() ? DescribeAlarm(verdict) : std::string();
}

}  // namespace

std::vector<std::string> AddDrives(Report& report, std::span<Device* const> drives,
                                   std::span<const CimProperty> properties, DriveDetail detail) {
  std::vector<std::string> warnings;
  for (auto* device : drives) {
    Report::Drive drive;
    for (const auto* entry : kAlwaysShown) AddKept(drive, *device, *entry);
    for (const auto& row : properties) {
      if (row.getter == &GetGenericProperty) AddKept(drive, *device, *row.entry);
    }
    if (detail == DriveDetail::Information) {
      auto warning = AskDrive(drive, *device, properties);
      if (!warning.empty()) warnings.push_back(std::move(warning));
    } else {
      drive.isHeld = DeviceManagement::IsHeldDrive(*device);
    }
    report.drives.push_back(std::move(drive));
  }
  return warnings;
}

}  // namespace Morvu
