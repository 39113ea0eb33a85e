#include "devices/identification/DeviceIdentification.h"

#include <algorithm>
#include <memory>

#include "devices/identification/DeviceIdentification_ATA.h"
#include "devices/identification/DeviceIdentification_NVME.h"
#include "devices/identification/DeviceIdentification_SCSI.h"
#include "devices/identification/DeviceIdentification_System.h"
#include "devices/identification/ProductDetection.h"
#include "devices/model/Device.h"
#include "devices/properties/BasicProperties.h"
#include "devices/properties/ScanProperties.h"

namespace Morvu::DeviceManagement {
namespace {

// Logical sectors of 512 to 4,224 bytes are sold; the bound leaves room for more.
constexpr std::uint64_t kLargestSectorSize = 65536;

template <typename Member>
std::unique_ptr<DeviceIdentification> Make(Device* device) {
  return std::make_unique<Member>(device);
}

// Which member asks a device with this command set; the first that it has decides.
struct Choice {
  std::string_view commandSet;
  std::unique_ptr<DeviceIdentification> (*make)(Device* device);
};
constexpr Choice kChoices[] = {
    {Protocol::Ata, &Make<DeviceIdentification_ATA>},
    {Protocol::SmartPt, &Make<DeviceIdentification_ATA>},
    {Protocol::Fmi, &Make<DeviceIdentification_NVME>},
    {Protocol::Nvme, &Make<DeviceIdentification_NVME>},
    {Protocol::Mmio, &Make<DeviceIdentification_NVME>},
    {Protocol::Scsi, &Make<DeviceIdentification_SCSI>},
};

}  // namespace

DeviceIdentification::DeviceIdentification(Device* device) : device_(device) {
  if (device_ == nullptr) return;
  device_->AddProperty(Properties::SectorSize, kDefaultSectorSize);
  if (!device_->GetProperties().Has(Properties::RAIDMember)) {
    device_->AddProperty(Properties::RAIDMember, false);
  }
}

bool DeviceIdentification::DetectProduct() {
  if (device_ == nullptr) return false;
  auto& properties = device_->GetProperties();
  const ProductDetection detection(properties);
  detection.Merge(properties);
  return detection.GetOutput().Has(Properties::Product);
}

std::uint32_t DeviceIdentification::CheckedSectorSize(std::uint64_t told) {
  const bool plausible = told >= kDefaultSectorSize && told <= kLargestSectorSize;
  return plausible ? static_cast<std::uint32_t>(told) : kDefaultSectorSize;
}

bool IdentifyDevice(Device* device) {
  if (device == nullptr) return false;
  const bool known = DeviceIdentification_System(device).Identify();
  const auto choice = std::ranges::find_if(
      kChoices, [&](const Choice& row) { return device->HasCommandSet(row.commandSet); });
  return choice == std::end(kChoices) ? known : choice->make(device)->Identify();
}

bool UpdateProperties(Device& device) {
  const bool identified = IdentifyDevice(&device);
  // On ATA the count of sectors stands there: the size is told one sector too large.
  const auto* last = device.GetProperties().Find(Properties::MaximumLBA);
  const bool hasSize = last != nullptr && last->HasValue();
  device.AddProperty(
      Properties::PhysicalSize,
      hasSize ? (last->AsUnsigned() + 1) * device.GetUInt(Properties::SectorSize) : 0);
  const auto error = device.GetString(Properties::ErrorString);
  device.AddProperty(Properties::DeviceStatus, error.empty() ? std::string("Healthy") : error);
  return identified;
}

}  // namespace Morvu::DeviceManagement
