// A drive's setting as a property of the drive class: asked of the drive when a host asks
// for it, and told only where the drive has told it.
#pragma once

#include <functional>
#include <memory>
#include <string>

#include "frame/StatusCode.h"
#include "messaging/features/CimClass.h"
#include "messaging/features/Feature.h"

namespace Morvu {

struct SettingReading {
  StatusCode code = Status::NotRun;  // 0 when the drive has told its value
  std::string text{};
  std::string detail{};  // what there is to say of the value, or the drive said of a failure
};

// The run's remarks, for the attribute "detail".
std::string JoinRemarks(const Feature& feature);

// The element of the property: its description without a device; with one, the value as its
// text, and what there is to say of it in "detail", or the attribute "status" with the reason why
// there is none. Null on a drive that lacks the setting (118).
std::unique_ptr<XmlMessaging::Property> DescribeSetting(
    const PropertyEntry& entry, DeviceManagement::Device* device,
    const std::function<SettingReading(DeviceManagement::Device&)>& read);

}  // namespace Morvu
