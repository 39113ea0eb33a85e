#include "devices/identification/DeviceIdentification_NVME.h"

#include <vector>

#include "devices/commands/CommandSet_NVME.h"
#include "devices/identification/FreshIdentity.h"
#include "devices/identification/PropertyFields.h"
#include "devices/model/Device.h"
#include "devices/properties/BasicProperties.h"
#include "devices/properties/IdentityProperties.h"
#include "devices/properties/LinkProperties.h"
#include "devices/properties/NamespaceProperties.h"
#include "devices/properties/SecurityProperties.h"
#include "frame/Logger.h"

namespace Morvu::DeviceManagement {
namespace {

constexpr std::size_t kIdentifySize = 4096;
constexpr std::uint8_t kNamespace = 0;  // values of CNS
constexpr std::uint8_t kController = 1;

// clang-format off
constexpr PropertyField kControllerFields[] = {
    {&Properties::ModelNumber,            {  24, 40}},
    {&Properties::Firmware,               {  64,  8}},
    {&Properties::SerialNumber,           {   4, 20}},
    {&Properties::ErrorString,            {3076, 20}},
    {&Properties::Bootloader,             {3100,  8}},
    {&Properties::NumErrorLogPageEntries, { 262,  1}},
    {&Properties::PCILinkGenSpeed,        {3096,  1}},
    {&Properties::PCILinkWidth,           {3097,  1}},
    {&Properties::TCGSupported,           { 256,  1, 0, 1}},
    {&Properties::TrimSupported,          { 520,  1, 2, 1}},
};

constexpr PropertyField kNamespaceFields[] = {
    {&Properties::EndToEndDataProtCapabilities,  {28, 1}},
    {&Properties::NumLBAFormats,                 {25, 1}},
    {&Properties::ProtectionInformation,         {29, 1, 0, 3}},
    {&Properties::ProtectionInformationLocation, {29, 1, 3, 1}},
    {&Properties::MetadataSetting,               {26, 1, 4, 1}},
    {&Properties::LBAFormat,                     {26, 1, 0, 4}},
};
// clang-format on

// The LBA Data Size of the current format, a power of two.
std::uint64_t ReadLbaSize(ByteView data) {
  const std::size_t format = ReadByte(data, 26) & 0x0F;
  return std::uint64_t{1} << (ReadByte(data, 130 + 4 * format) & 0x1F);
}

}  // namespace

std::optional<FreshIdentity> ReadFreshIdentity(CommandSet_NVME& nvme) {
  // FNA of NVMe 1.0, figure 66: what a format, and its secure erase, is done to.
  constexpr std::size_t kFormatAttributes = 524;
  std::vector<std::uint8_t> controller(kIdentifySize);
  if (nvme.nvmeIdentify(kController, 0, controller) != Status::Completed) return {};
  FreshIdentity told;
  PutFields(controller, kControllerFields, told.properties);
  const auto attributes = ReadByte(controller, kFormatAttributes);
  told.formatsAllSpaces = (attributes & 0x01) != 0;
  told.erasesAllSpaces = (attributes & 0x02) != 0;
  return told;
}

bool DeviceIdentification_NVME::Identify() {
  MORVU_LOG(kLogDebug, "Identify", "DeviceIdentification_NVME::Identify");
  if (device_ == nullptr) return false;
  DetectProduct();
  auto* nvme = device_->GetCommandSetAs<CommandSet_NVME>(Protocol::Nvme);
  if (nvme == nullptr) return false;
  std::vector<std::uint8_t> controller(kIdentifySize);
  if (nvme->nvmeIdentify(kController, 0, controller) != Status::Completed) return false;

  const auto nsid =
      static_cast<std::uint32_t>(device_->GetProperties().GetSigned(Properties::Lun) + 1);
  std::vector<std::uint8_t> space(kIdentifySize);
  if (nvme->nvmeIdentify(kNamespace, nsid, space) == Status::Completed) {
    PutNamespace(space);
  }
  PutFields(controller, kControllerFields, device_->GetProperties());
  DetectProduct();
  return true;
}

void DeviceIdentification_NVME::PutNamespace(ByteView data) {
  // A namespace that is not active is told as all zero, and has no last LBA.
  const auto size = ReadLittle64(data, 0);
  if (size == 0) {
    device_->GetProperties().Remove(Properties::MaximumLBA);
  } else {
    device_->AddProperty(Properties::MaximumLBA, size - 1);  // on ATA the count itself
  }
  PutFields(data, kNamespaceFields, device_->GetProperties());
  device_->AddProperty(Properties::SectorSize, CheckedSectorSize(ReadLbaSize(data)));
}

}  // namespace Morvu::DeviceManagement
