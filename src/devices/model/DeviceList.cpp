#include "devices/model/DeviceList.h"

#include <algorithm>

#include "devices/model/Drive.h"
#include "devices/properties/BasicProperties.h"
#include "devices/properties/ScanProperties.h"
#include "frame/status/Commands.h"

namespace Morvu::DeviceManagement {
namespace {

// The adapter's driver keeps the drive from being known: no filter may hide it.
bool HasDriverError(const Device& drive) {
  const auto error = drive.GetUInt(Properties::DriverCommunicationError);
  return error == Status::AtaDriverUnreachable || error == Status::ScsiDriverUnreachable ||
         error == Status::NvmeDriverMissing;
}

// One that somebody works on was not asked which product of the maker's it is.
bool IsHeldAndUnnamed(const Device& drive) {
  return IsHeldDrive(drive) && drive.GetBool(Properties::Morvu) &&
         drive.GetString(Properties::Product).empty();
}

bool Passes(Device& device, const ScanOptions& options) {
  if (options.morvuOnly && !device.GetBool(Properties::Morvu)) return false;
  const auto* drive = device.AsDrive();
  // A volume is no product: it passes when all its members do.
  if (drive != nullptr && !drive->GetChildren().empty()) {
    return std::ranges::all_of(drive->GetChildren(),
                               [&](const auto& member) { return Passes(*member, options); });
  }
  const auto product = device.GetString(Properties::Product);
  if (!options.includeProducts.empty()) {
    return HasDriverError(device) || IsHeldAndUnnamed(device) ||
           std::ranges::count(options.includeProducts, product) > 0;
  }
  return std::ranges::none_of(options.excludeProducts, [&](const std::string& excluded) {
    return product.find(excluded) != product.npos;
  });
}

}  // namespace

void DeviceList::Set(const std::vector<Device*>& drives) {
  drives_.clear();
  for (auto* drive : drives) {
    if (!Passes(*drive, options_)) continue;
    drive->AddProperty(Properties::Index, static_cast<std::int32_t>(drives_.size()));
    drives_.push_back(drive);
  }
}

Device* DeviceList::Find(std::string_view serialNumber, std::string_view partitionName) const {
  const auto found = std::ranges::find_if(drives_, [&](const Device* drive) {
    return drive->GetString(Properties::SerialNumber) == serialNumber &&
           std::ranges::count(drive->GetPartitions(), partitionName, &Partition::GetName) > 0;
  });
  return found == drives_.end() ? nullptr : *found;
}

std::vector<Device*> SelectedDevices::GetDevices() const {
  std::vector<Device*> pointers;
  for (const auto& device : devices) pointers.push_back(device.get());
  return pointers;
}

}  // namespace Morvu::DeviceManagement
