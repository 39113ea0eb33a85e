#include "operations/SettingProperty.h"

#include "frame/Logger.h"
#include "frame/status/NvmeStatus.h"
#include "messaging/XmlMessaging.h"

namespace Morvu {

std::string JoinRemarks(const Feature& feature) {
  std::string text;
  for (const auto& remark : feature.GetRemarks()) {
    if (!text.empty()) text += text.ends_with('.') ? " " : "; ";
    text += remark.text;
  }
  return text;
}

std::unique_ptr<XmlMessaging::Property> DescribeSetting(
    const PropertyEntry& entry, DeviceManagement::Device* device,
    const std::function<SettingReading(DeviceManagement::Device&)>& read) {
  auto element = DeviceProperty(entry).ToXml();
  if (device == nullptr) return element;
  MORVU_LOG(kLogInfo, "GetCimProperty", "Attribute Name = " + std::string(entry.name));
  const auto reading = read(*device);
  if (reading.code == Status::NotSupportedByDrive) return nullptr;
  if (reading.code == Status::Completed) {
    element->value = reading.text;
    if (!reading.detail.empty()) element->SetAttribute("detail", reading.detail);
    return element;
  }
  element->SetAttribute("status", std::to_string(ToToldNumber(reading.code)));
  const auto detail = reading.detail.empty() ? DescribeNvmeStatus(reading.code) : reading.detail;
  if (!detail.empty()) element->SetAttribute("detail", detail);
  return element;
}

}  // namespace Morvu
