#include "parsers/nvme/DriveTemperature.h"

#include "devices/model/DriveHold.h"
#include "devices/properties/BasicProperties.h"
#include "devices/system/SystemFacts.h"
#include "parsers/nvme/NVMeLogParser.h"

namespace Morvu {

using DeviceManagement::Device;
using DeviceManagement::DriveHold;
namespace Properties = DeviceManagement::Properties;

namespace {

// What the notification service tells; no device keeps it.
constexpr PropertyEntry kTemperatureValue{"Temperature", "Temperature", PropertyKind::Sint16};
constexpr std::uint32_t kTemperatureType = 2;

}  // namespace

void NotifyTemperatures(JobContext& context, std::span<Device* const> devices) {
  const auto facts = DeviceManagement::SystemFacts::Read();
  for (auto* device : devices) {
    TempStatisticsParser parser(device);
    const DriveHold hold(*device, facts, DriveHold::Kind::Moment);
    if (!hold.IsTaken()) continue;  // a later pass tells of it
    if (parser.GetErrorCode() != Status::ReadyToRun || parser.Execute() == 0) continue;
    const auto degrees = parser.GetCurrentTemperature();
    if (!degrees) continue;
    context.services->PostNotification(
        {.type = kTemperatureType,
         .value = DeviceProperty(kTemperatureValue, *degrees),
         .objectPath = "MorvuSSD." + device->GetString(Properties::SerialNumber),
         .status = 0});
  }
}

}  // namespace Morvu
