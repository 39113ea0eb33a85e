#include "devices/identification/DeviceIdentification_SCSI.h"

#include <array>

#include "devices/identification/PropertyFields.h"
#include "devices/model/Device.h"
#include "devices/properties/BasicProperties.h"
#include "devices/properties/IdentityProperties.h"
#include "frame/Logger.h"

namespace Morvu::DeviceManagement {
namespace {

using Block = std::array<std::uint8_t, 512>;

// Standard INQUIRY data (SPC-4).
// clang-format off
constexpr PropertyField kInquiryFields[] = {
    {&Properties::ModelNumber,  {16, 16}},
    {&Properties::Firmware,     {32,  4}},
    {&Properties::SerialNumber, {36,  8}},
    {&Properties::Vendor,       { 8,  8}},
};
// clang-format on

}  // namespace

bool DeviceIdentification_SCSI::Identify() {
  MORVU_LOG(kLogDebug, "Identify", "DeviceIdentification_SCSI::Identify");
  if (device_ == nullptr) return false;
  auto* scsi = device_->GetCommandSetAs<CommandSet_SCSI>(Protocol::Scsi);
  if (scsi == nullptr) return false;
  const bool inquired = ReadInquiry(*scsi);
  const bool measured = ReadCapacity(*scsi);
  DetectProduct();
  return inquired && measured;
}

bool DeviceIdentification_SCSI::ReadInquiry(CommandSet_SCSI& scsi) {
  constexpr std::uint8_t kAllocation = 255;
  Block data{};
  if (scsi.scsiInquiry(data, false, 0, kAllocation, 1) != Status::Completed) return false;
  PutFields(data, kInquiryFields, device_->GetProperties());
  return true;
}

bool DeviceIdentification_SCSI::ReadCapacity(CommandSet_SCSI& scsi) {
  constexpr std::uint32_t kMore = 0xFFFFFFFF;  // READ CAPACITY (16) tells it
  Block data{};
  if (scsi.scsiReadCapacity10(data) != Status::Completed) return false;
  std::uint64_t last = ReadBig(data, 0, 4);
  auto sectorSize = ReadBig(data, 4, 4);
  if (last == kMore) {
    data.fill(0);
    if (scsi.scsiReadCapacity16(data, 0, 32, false, 1) == Status::Completed) {
      last = ReadBig(data, 0, 8);
      sectorSize = ReadBig(data, 8, 4);
    }
  }
  device_->AddProperty(Properties::MaximumLBA, last);  // on ATA the count of sectors
  device_->AddProperty(Properties::SectorSize, CheckedSectorSize(sectorSize));
  return true;
}

}  // namespace Morvu::DeviceManagement
