#include "parsers/health/DriveHealth.h"

#include "devices/commands/CommandSet_ATA.h"
#include "devices/commands/CommandSet_NVME.h"
#include "devices/commands/CommandSet_SCSI.h"
#include "devices/model/Drive.h"
#include "devices/model/DriveHold.h"
#include "devices/properties/BasicProperties.h"
#include "devices/properties/ScanProperties.h"
#include "devices/system/SystemFacts.h"
#include "parsers/health/HealthSources.h"

namespace Morvu {

using DeviceManagement::Device;
using DeviceManagement::DriveHold;
using DeviceManagement::SystemFacts;
using Access = DriveHealth::Access;
namespace Properties = DeviceManagement::Properties;
namespace Protocol = DeviceManagement::Protocol;

namespace {

// So little is left that the drive has to be replaced soon.
constexpr std::uint64_t kLittleLife = 10;

void ReadValues(Device& device, DriveHealth& health) {
  using namespace DeviceManagement;
  if (auto* ata = device.GetCommandSetAs<CommandSet_ATA>(Protocol::Ata)) {
    health.verdict = ReadVerdict(device);
    HealthSources::Read(device, *ata, health);
  } else if (auto* nvme = device.GetCommandSetAs<CommandSet_NVME>(Protocol::Nvme)) {
    HealthSources::Read(device, *nvme, health);
  } else if (auto* scsi = device.GetCommandSetAs<CommandSet_SCSI>(Protocol::Scsi)) {
    HealthSources::Read(*scsi, health);
  }
}

}  // namespace

bool DriveHealth::IsWornOut() const {
  const bool lacksSpare =
      sparePercent && spareThresholdPercent && *sparePercent < *spareThresholdPercent;
  return lacksSpare || (lifeLeftPercent && *lifeLeftPercent <= kLittleLife);
}

bool DriveHealth::HasFaults() const {
  return mediaErrors.value_or(0) != 0 || selfTest == SelfTestEnd::Failed ||
         verdict.kind == DriveVerdict::Kind::SmartOff;
}

bool DriveHealth::IsUnknown() const {
  if (access == Access::Volume) return false;
  return access != Access::Answered || verdict.kind == DriveVerdict::Kind::Unknown;
}

DriveHealth ReadHealth(Device& device, const SystemFacts& facts) {
  DriveHealth health;
  if (device.GetBool(Properties::RAID)) {
    health.access = Access::Volume;
    return health;
  }
  if (device.IsAsleep()) {
    health.access = Access::Asleep;
    return health;
  }
  const DriveHold hold(device, facts, DriveHold::Kind::Moment);
  if (!hold.IsTaken() || DeviceManagement::IsHeldDrive(device)) {
    health.access = Access::InUse;
  } else if (device.TestConnection()) {
    health.access = Access::Answered;
    ReadValues(device, health);
  }
  return health;
}

}  // namespace Morvu
