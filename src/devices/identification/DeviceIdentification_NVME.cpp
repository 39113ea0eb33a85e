#include "devices/identification/DeviceIdentification_NVME.h"

#include <vector>

#include "devices/commands/CommandSet_NVME.h"
#include "devices/model/Device.h"
#include "frame/Logger.h"

namespace Morvu::DeviceManagement {
namespace {

constexpr std::size_t kIdentifySize = 4096;
constexpr std::uint8_t kNamespace = 0;  // values of CNS
constexpr std::uint8_t kController = 1;

struct TextRow {
  const PropertyEntry* entry;
  std::uint16_t offset;
  std::uint16_t length;
};

// Bits of a byte: `width` of them from bit `low` on.
struct BitsRow {
  const PropertyEntry* entry;
  std::uint16_t offset;
  std::uint8_t low;
  std::uint8_t width;
};

// clang-format off
constexpr TextRow kControllerTexts[] = {
    {&Properties::ModelNumber,    24, 40},
    {&Properties::Firmware,       64,  8},
    {&Properties::SerialNumber,    4, 20},
    {&Properties::ErrorString,  3076, 20},
    {&Properties::Bootloader,   3100,  8},
};

constexpr BitsRow kControllerBits[] = {
    {&Properties::NumErrorLogPageEntries,  262, 0, 8},
    {&Properties::PCILinkGenSpeed,        3096, 0, 8},
    {&Properties::PCILinkWidth,           3097, 0, 8},
    {&Properties::TCGSupported,            256, 0, 1},
    {&Properties::TrimSupported,           520, 2, 1},
};

constexpr BitsRow kNamespaceBits[] = {
    {&Properties::EndToEndDataProtCapabilities,  28, 0, 8},
    {&Properties::NumLBAFormats,                 25, 0, 8},
    {&Properties::ProtectionInformation,         29, 0, 3},
    {&Properties::ProtectionInformationLocation, 29, 3, 1},
    {&Properties::MetadataSetting,               26, 4, 1},
    {&Properties::LBAFormat,                     26, 0, 4},
};
// clang-format on

std::uint32_t ReadBits(ByteView data, const BitsRow& row) {
  return (ReadByte(data, row.offset) >> row.low) & ((1u << row.width) - 1);
}

// The LBA Data Size of the current format, a power of two.
std::uint64_t ReadSectorSize(ByteView data) {
  const std::size_t format = ReadByte(data, 26) & 0x0F;
  return std::uint64_t{1} << (ReadByte(data, 130 + 4 * format) & 0x1F);
}

}  // namespace

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
  for (const auto& row : kControllerTexts) {
    device_->AddProperty(*row.entry, ReadText(controller, row.offset, row.length));
  }
  for (const auto& row : kControllerBits) {
    device_->AddProperty(*row.entry, ReadBits(controller, row));
  }
  DetectProduct();
  return true;
}

void DeviceIdentification_NVME::PutNamespace(ByteView data) {
  // A namespace that is not active is told as all zero, and has no last LBA.
  const auto size = ReadLittle64(data, 0);
  if (size == 0) {
    device_->GetProperties().Remove(Properties::MaximumLBA);
  } else {
    device_->AddProperty(Properties::MaximumLBA, size - 1);
  }
  for (const auto& row : kNamespaceBits) device_->AddProperty(*row.entry, ReadBits(data, row));
  device_->AddProperty(Properties::SectorSize, CheckedSectorSize(ReadSectorSize(data)));
}

}  // namespace Morvu::DeviceManagement
