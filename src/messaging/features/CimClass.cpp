#include "messaging/features/CimClass.h"

#include <algorithm>

#include "devices/model/Device.h"
#include "frame/Text.h"
#include "frame/status/Drives.h"
#include "frame/status/NvmeStatus.h"
#include "messaging/XmlMessaging.h"

namespace Morvu {

using XmlMessaging::Object;
using XmlMessaging::Property;

std::unique_ptr<Property> CimProperty::Describe(JobContext* context,
                                                DeviceManagement::Device* device) const {
  auto property = getter(context, *entry, device);
  if (!property) return nullptr;
  property->SetAttribute("required", BoolText(false));
  property->SetAttribute("direction", direction);
  if (isKey) property->SetAttribute("key", BoolText(true));
  return property;
}

StatusCode CimProperty::Apply(Property& request, DeviceManagement::Device& device) const {
  return setter == nullptr ? Status::InvalidArguments : setter(request, device);
}

std::unique_ptr<Property> GetGenericProperty(JobContext*, const PropertyEntry& entry,
                                             DeviceManagement::Device* device) {
  auto element = DeviceProperty(entry).ToXml();
  if (device == nullptr) return element;
  const auto* property = device->GetProperties().Find(entry);
  if (property == nullptr) return nullptr;
  const auto value = property->Resolve();
  // A number that the device has under this name but cannot give.
  const bool isNumber = entry.kind >= PropertyKind::Sint16 && entry.kind <= PropertyKind::Uint64;
  element->value =
      isNumber && !value.HasValue() ? std::to_string(~std::uint64_t{0}) : value.ToText();
  return element;
}

namespace {

std::unique_ptr<Object> BuildMethodObject(const CimMethod& method) {
  auto object = std::make_unique<Object>();
  object->SetAttribute("type", "method");
  const auto set = [&](std::string_view key, std::string_view value) {
    if (!value.empty()) object->SetAttribute(key, value);
  };
  set("name", method.name);
  set("displayName", method.displayName);
  set("description", method.description);
  set("prompt", method.prompt ? "True" : "");
  set("category", method.category);
  set("targetType", method.targetType);
  set("cancelSupported", method.cancelSupported ? "" : "False");
  for (const auto& parameter : method.parameters) {
    auto property = std::make_unique<Property>();
    property->SetAttribute("name", parameter.name);
    property->SetAttribute("type", parameter.type);
    property->SetAttribute("required", BoolText(parameter.required));
    property->SetAttribute("direction", "i");
    object->AddProperty(std::move(property));
  }
  if (method.hasTable) {
    auto list = std::make_unique<XmlMessaging::List>();
    list->SetAttribute("type", "table");
    list->SetAttribute("direction", "o");
    if (!method.tableName.empty()) list->SetAttribute("name", method.tableName);
    object->lists.push_back(std::move(list));
  }
  return object;
}

// The List that tells whether the method can run now: 1 means yes.
void AddStatusList(Object& method, StatusCode status) {
  auto property = std::make_unique<Property>();
  property->SetAttribute("type", "uint8");
  property->value = std::to_string(ToToldNumber(status));
  auto object = std::make_unique<Object>();
  object->AddProperty(std::move(property));
  auto list = std::make_unique<XmlMessaging::List>();
  list->SetAttribute("type", "status");
  list->objects.push_back(std::move(object));
  method.lists.push_back(std::move(list));
}

}  // namespace

std::unique_ptr<Object> CimMethod::Describe(DeviceManagement::Device* device) const {
  if (device == nullptr || assess == nullptr) return BuildMethodObject(*this);
  const auto status = assess(*device);
  if (std::ranges::find(hiddenCodes, status) != hiddenCodes.end()) return nullptr;
  auto object = BuildMethodObject(*this);
  if (hasStatus) AddStatusList(*object, status);
  return object;
}

std::unique_ptr<Object> CimMethod::DescribeHeld() const {
  auto object = BuildMethodObject(*this);
  if (hasStatus) AddStatusList(*object, Status::DriveHeld);
  return object;
}

}  // namespace Morvu
