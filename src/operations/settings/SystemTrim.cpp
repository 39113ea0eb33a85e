#include "operations/settings/SystemTrim.h"

#include "devices/model/Device.h"
#include "devices/system/DiskAttributes.h"
#include "frame/Text.h"
#include "messaging/XmlMessaging.h"
#include "operations/SettingProperty.h"

namespace Morvu {

std::unique_ptr<XmlMessaging::Property> GetSystemTrimProperty(JobContext*,
                                                              const PropertyEntry& entry,
                                                              DeviceManagement::Device* device) {
  return DescribeSetting(entry, device, [](DeviceManagement::Device& drive) -> SettingReading {
    const auto passes = DeviceManagement::PassesDiscards(drive.GetPath().GetDevicePath());
    if (!passes) return {Status::NotRun, {}, "The system does not tell."};
    return {Status::Completed, BoolText(*passes)};
  });
}

}  // namespace Morvu
