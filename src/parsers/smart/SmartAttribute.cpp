#include "parsers/smart/SmartAttribute.h"

#include <algorithm>
#include <array>
#include <boost/property_tree/ptree.hpp>
#include <iterator>
#include <span>

#include "devices/identification/Products.h"
#include "devices/model/Device.h"
#include "devices/properties/BasicProperties.h"
#include "devices/properties/ProductProperties.h"
#include "frame/Text.h"
#include "messaging/PageTable.h"
#include "messaging/XmlMessaging.h"

namespace Morvu {

using namespace DeviceManagement;

namespace {

struct NameRow {
  std::string_view id;
  std::string_view base;
  std::string_view dell;
  std::string_view emc;
  std::string_view nvme;
};

constexpr NameRow kNames[] = {
#define NAME(id, base, dell, emc, nvme) {id, base, dell, emc, nvme},
#include "parsers/smart/SmartAttributeNames.inc"
#undef NAME
};
static_assert(std::size(kNames) == 79);
static_assert(std::ranges::adjacent_find(kNames, std::ranges::greater_equal{}, &NameRow::id) ==
              std::end(kNames));

constexpr std::string_view kVendorSpecific = "Vendor Specific";

// The fields of raw values, whose 6 bytes are a page.
using RawBytes = std::array<std::uint8_t, 6>;

constexpr PageField kEraseCycles[] = {
    {{0, 2}, "Minimum erase cycles", Form::Decimal},
    {{2, 2}, "Maximum erase cycles", Form::Decimal},
    {{4, 2}, "Average erase cycles", Form::Decimal},
};
constexpr PageField kPowerLossTest[] = {
    {{0, 2}, "Last test result (microseconds)", Form::Decimal},
    {{2, 2}, "Minutes since last test", Form::Decimal},
    {{4, 2}, "Total number of tests", Form::Decimal},
};
constexpr PageField kThrottling[] = {
    {{0, 1}, "Throttle status (%)", Form::Decimal},
    {{1, 3}, "Throttling event count", Form::Decimal},
    {{4, 1}, "Reserved", Form::Decimal},
};
constexpr PageField kTemperature[] = {
    {{0, 2}, "Current degree C", Form::Decimal},
    {{2, 2}, "Highest degree C", Form::Decimal},
    {{4, 2}, "Lowest degree C", Form::Decimal},
};
constexpr PageField kIbmTemperature[] = {
    {{0, 2}, "Current degree C", Form::Decimal},
    {{4, 2}, "Highest degree C", Form::Decimal},
    {{2, 2}, "Lowest degree C", Form::Decimal},
};
constexpr PageField kOemTemperature[] = {
    {{0, 1}, "Current degree C", Form::Decimal},
    {{3, 1}, "Highest degree C", Form::Decimal},
    {{2, 1}, "Lowest degree C", Form::Decimal},
    {{4, 2}, "Over Temperature Counter", Form::Decimal},
};

std::span<const PageField> FindTemperatureFields(const Device& device) {
  const auto& product = ProductOf(device);
  if (product.hasThreeTemperatures) return kTemperature;
  if (!product.hasOemAttributes) return {};
  if (device.GetString(Properties::OEM) == "IBM") return kIbmTemperature;
  return kOemTemperature;
}

std::span<const PageField> FindFields(const Device& device, std::string_view id) {
  if (id == "AD") return kEraseCycles;
  if (id == "AF") return kPowerLossTest;
  if (id == "EA") return kThrottling;
  if (id == "BE") return FindTemperatureFields(device);
  return {};
}

std::string MakeRawText(std::string_view id, std::string_view description, std::uint64_t raw) {
  if (description == kVendorSpecific || id == "AF" || id == "BE" || id == "EA") {
    return "0x" + ToHexNumber(raw);
  }
  auto text = std::to_string(raw);
  if (id == "C2") text += " degree C (direct from PCB without offset)";
  return text;
}

}  // namespace

std::string LookUpAttributeName(const Device& device, std::string_view id) {
  const auto* row = std::ranges::lower_bound(kNames, id, {}, &NameRow::id);
  if (row == std::end(kNames) || row->id != id) return "Unknown";
  const auto& product = ProductOf(device);
  std::string_view name;
  if (product.hasOemAttributes) {
    const auto oem = device.GetString(Properties::OEM);
    if (oem == "Dell") name = row->dell;
    if (oem == "EMC") name = row->emc;
  } else if (product.hasNvmeAttributes) {
    name = row->nvme;
  }
  if (name.empty()) name = row->base;
  return std::string(name.empty() ? "Unknown" : name);
}

SmartAttribute::SmartAttribute(const Device& device, std::string id, std::string description,
                               std::uint64_t raw, std::uint8_t normalized)
    : device_(device),
      id_(std::move(id)),
      description_(std::move(description)),
      rawText_(MakeRawText(id_, description_, raw)),
      raw_(raw),
      normalized_(normalized) {
  RawBytes bytes{};
  WriteLittle(raw, 0, bytes.size(), bytes);
  for (const auto& field : FindFields(device, id_)) {
    breakdown_.emplace_back(field.label, ShowField(bytes, field));
  }
}

std::vector<std::string> SmartAttribute::GetCells() const {
  return {id_, description_, rawText_, std::to_string(normalized_)};
}

ResultTable SmartAttribute::ToRows() const {
  ResultTable table;
  table.AppendRow(GetCells());
  for (const auto& [name, value] : breakdown_) table.AppendRow({"", name, value});
  return table;
}

void SmartAttribute::AddProperty(XmlMessaging::Object& object, std::string_view name,
                                 std::string_view displayName, std::string_view type, int column,
                                 std::string_view value) {
  auto property = std::make_unique<XmlMessaging::Property>();
  if (!name.empty()) property->SetAttribute("name", name);
  if (!displayName.empty()) property->SetAttribute("displayName", displayName);
  property->SetAttribute("type", type);
  if (column >= 0) property->SetAttribute("column", std::to_string(column));
  property->value = value;
  object.AddProperty(std::move(property));
}

void SmartAttribute::AddProperties(XmlMessaging::Object& object) const {
  const auto name = device_.GetString(Properties::SerialNumber) + "." + id_;
  AddProperty(object, "Name", "", "string", -1, name);
  AddProperty(object, "ID", "ID", "string", 0, id_);
  AddProperty(object, "Description", "Description", "string", 1, description_);
  AddProperty(object, "Raw", "Raw", "uint64", 2, std::to_string(raw_));
  AddProperty(object, "Normalized", "Normalized", "uint8", 3, std::to_string(normalized_));
}

std::unique_ptr<XmlMessaging::Object> SmartAttribute::ToObject() const {
  auto object = std::make_unique<XmlMessaging::Object>();
  object->SetAttribute("name", "SMART Attribute");
  object->SetAttribute("cimClass", "SMARTAttribute");
  AddProperties(*object);
  if (breakdown_.empty()) return object;
  auto list = std::make_unique<XmlMessaging::List>();
  list->SetAttribute("name", "breakdown");
  list->SetAttribute("type", "table");
  list->SetAttribute("direction", "o");
  for (const auto& [name, value] : breakdown_) {
    auto& row = *list->objects.emplace_back(std::make_unique<XmlMessaging::Object>());
    AddProperty(row, "", "", "string", 0, "");
    AddProperty(row, "", "", "string", 1, name);
    AddProperty(row, "", "", "string", 2, value);
  }
  object->lists.push_back(std::move(list));
  return object;
}

void SmartAttribute::AddLeaves(boost::property_tree::ptree& node) const {
  node.add("id", id_);
  node.add("description", description_);
  node.add("raw", rawText_);
  node.add("value", std::to_string(normalized_));
}

void SmartAttribute::WriteData(boost::property_tree::ptree& node) const {
  AddLeaves(node);
  if (breakdown_.empty()) return;
  auto& fields = node.add_child("breakdown", {});
  for (const auto& [name, value] : breakdown_) {
    auto& field = fields.add_child("field", {});
    field.add("description", name);
    field.add("value", value);
  }
}

}  // namespace Morvu
