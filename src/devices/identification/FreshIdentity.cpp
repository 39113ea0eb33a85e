#include "devices/identification/FreshIdentity.h"

#include "devices/commands/CommandPath_ATA_SCSI.h"
#include "devices/commands/CommandPath_NVME.h"
#include "devices/commands/CommandSet_ATA.h"
#include "devices/commands/CommandSet_NVME.h"
#include "devices/model/Drive.h"
#include "devices/properties/BasicProperties.h"
#include "devices/properties/IdentityProperties.h"

namespace Morvu::DeviceManagement {
namespace {

template <typename Path, typename Set>
std::optional<FreshIdentity> AskByHandle(Device& device, int handle) {
  Path path("");
  if (!path.Adopt(handle)) return {};
  Set set(device.GetProperties(), path);
  return ReadFreshIdentity(set);
}

}  // namespace

std::string DescribeNoSetMax(const AtaAddressing& addressing) {
  std::string text = "The drive has no commands to set its maximum (SET MAX ADDRESS)";
  if (addressing.hasAccessibleMax) {
    text += "; those of the Accessible Max Address feature set, which it has, are not used";
  }
  return text + ".";
}

std::optional<FreshIdentity> ReadFreshIdentity(Device& device) {
  if (auto* ata = device.GetCommandSetAs<CommandSet_ATA>(Protocol::Ata)) {
    return ReadFreshIdentity(*ata);
  }
  if (auto* nvme = device.GetCommandSetAs<CommandSet_NVME>(Protocol::Nvme)) {
    return ReadFreshIdentity(*nvme);
  }
  return {};
}

std::optional<FreshIdentity> ReadFreshIdentity(Device& device, int blockHandle) {
  if (device.HasCommandSet(Protocol::Ata)) {
    return AskByHandle<CommandPath_ATA_SCSI, CommandSet_ATA>(device, blockHandle);
  }
  if (device.HasCommandSet(Protocol::Nvme)) {
    return AskByHandle<CommandPath_NVME, CommandSet_NVME>(device, blockHandle);
  }
  return {};
}

bool IsIdentityOf(const FreshIdentity& told, const Device& device) {
  if (told.properties.GetString(Properties::SerialNumber) !=
      device.GetString(Properties::SerialNumber)) {
    return false;
  }
  const auto name = device.GetUInt(Properties::WWID);
  return !told.properties.Has(Properties::WWID) || name == 0 ||
         told.properties.GetUnsigned(Properties::WWID) == name;
}

}  // namespace Morvu::DeviceManagement
