// Drive methods as a request names them, without a request.
#pragma once

#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "messaging/XmlMessaging.h"
#include "messaging/drive_class/MethodCall.h"
#include "messaging/drive_class/MorvuSSD.h"

namespace Morvu::Testing {

using MethodParameters = std::vector<std::pair<std::string_view, std::string>>;

inline std::unique_ptr<XmlMessaging::Object> DescribeMethod(std::string_view name,
                                                            DeviceManagement::Device* device) {
  return FindDriveMethod(name)->method->Describe(device);
}

// The value of the first property of this name; "none" without one.
template <typename Element>
std::string GetText(const Element& element, std::string_view name) {
  for (const auto& property : element.properties) {
    if (property->GetAttribute("name") == name) return property->value;
  }
  return "none";
}

inline StatusCode CallMethod(JobContext& context, std::string_view name,
                             const MethodParameters& parameters,
                             const DeviceManagement::SelectedDevices& devices) {
  XmlMessaging::Object method;
  method.SetAttribute("name", name);
  for (const auto& [parameter, text] : parameters) method.AddProperty(parameter, text);
  return RunDriveMethod(context, method, devices);
}

}  // namespace Morvu::Testing
