#include "messaging/drive_class/HostController.h"

#include <string>

#include "devices/model/Device.h"
#include "frame/status/Requests.h"
#include "operations/Operation.h"

namespace Morvu::HostController {
namespace {

using DeviceManagement::Device;
using XmlMessaging::List;
using XmlMessaging::Object;
using XmlMessaging::Property;
namespace Properties = DeviceManagement::Properties;

constexpr CimProperty kRows[] = {
    {&Properties::ControllerDescription, "o", &GetGenericProperty, nullptr},
    {&Properties::ControllerIDEMode, "o", &GetGenericProperty, nullptr},
    {&Properties::ControllerManufacturer, "o", &GetGenericProperty, nullptr},
    {&Properties::ControllerService, "o", &GetGenericProperty, nullptr},
    {&Properties::DriverDescription, "o", &GetGenericProperty, nullptr},
    {&Properties::DriverMajorVersion, "o", &GetGenericProperty, nullptr},
    {&Properties::DriverManufacturer, "o", &GetGenericProperty, nullptr},
    {&Properties::DriverMinorVersion, "o", &GetGenericProperty, nullptr},
};

void AddCell(Object& row, std::string_view name, std::string_view column, std::string_view text) {
  row.AddProperty(name, text).SetAttribute("column", column);
}

// Display names begin with their category: "Driver Major Version".
std::unique_ptr<Object> MakeRow(const CimProperty& property, Device& device) {
  const std::string_view displayName = property.entry->displayName;
  const auto blank = displayName.find(' ');
  const auto value = property.Describe(nullptr, &device);

  auto row = std::make_unique<Object>();
  row->SetAttribute("row", "0");
  AddCell(*row, "Category", "0", "TRANS_" + std::string(displayName.substr(0, blank)));
  AddCell(*row, "Field", "1", "TRANS_" + std::string(displayName.substr(blank + 1)));
  AddCell(*row, "Value", "2", value == nullptr ? "" : value->value);
  return row;
}

}  // namespace

std::unique_ptr<Object> Describe(Device* device) {
  if (device != nullptr && !device->GetBool(Properties::Morvu)) return nullptr;
  return DescribeMethod("HostController");
}

StatusCode Run(JobContext& context, const Object&, DeviceManagement::SelectedDevices& devices) {
  auto* device = BeginMethod(context, devices);
  if (device == nullptr) return Status::NoDeviceSelected;
  if (!device->GetBool(Properties::Morvu) || context.reply == nullptr) return Status::Completed;

  auto list = std::make_unique<List>();
  list->SetAttribute("name", "HostController");
  list->SetAttribute("type", "table");
  list->SetAttribute("direction", "o");
  for (const auto& property : kRows) list->objects.push_back(MakeRow(property, *device));
  context.reply->lists.push_back(std::move(list));
  return Status::Completed;
}

}  // namespace Morvu::HostController
