// The drive method "HostController": the controller that a drive hangs on, and its
// driver.
#include <string>

#include "devices/model/Device.h"
#include "devices/properties/BasicProperties.h"
#include "devices/properties/DriverProperties.h"
#include "frame/status/Drives.h"
#include "frame/status/Requests.h"
#include "messaging/XmlMessaging.h"
#include "messaging/features/FeatureRecord.h"
#include "messaging/features/JobContext.h"

namespace Morvu {
namespace {

using DeviceManagement::Device;
using XmlMessaging::List;
using XmlMessaging::Object;
using XmlMessaging::Property;
namespace Properties = DeviceManagement::Properties;

constexpr std::string_view kTableName = "HostController";

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

bool IsMorvu(const Device& device) { return device.GetBool(Properties::Morvu); }

// Adds the List to the reply: rows of a category, a field and its value.
StatusCode RunHostController(const FeatureCall& call, JobContext& context) {
  if (!IsMorvu(call.GetDevice()) || context.reply == nullptr) return Status::Completed;
  auto list = std::make_unique<List>();
  list->SetAttribute("name", kTableName);
  list->SetAttribute("type", "table");
  list->SetAttribute("direction", "o");
  for (const auto& property : kRows) list->objects.push_back(MakeRow(property, call.GetDevice()));
  context.reply->lists.push_back(std::move(list));
  return Status::Completed;
}

StatusCode AssessHostController(Device& device) {
  return IsMorvu(device) ? Status::ReadyToRun : Status::NotAMorvuDrive;
}

constexpr StatusCode kHiddenCodes[] = {Status::NotAMorvuDrive};
constexpr CimMethod kMethods[] = {
    {.name = "HostController",
     .category = "standard",
     .targetType = "device",
     .hasTable = true,
     .tableName = kTableName,
     .hiddenCodes = kHiddenCodes,
     .assess = &AssessHostController,
     .run = &RunHostController},
};

}  // namespace

extern constexpr FeatureRecord HostControllerRecord = {
    .name = "HostController",
    .needsDrive = true,
    .methods = kMethods,
};

}  // namespace Morvu
