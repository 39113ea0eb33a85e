// SMART attributes: their names, the ways in which their raw values are shown, and
// their rows and objects.
#pragma once

#include <boost/property_tree/ptree_fwd.hpp>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "messaging/ResultTable.h"

namespace Morvu {

namespace DeviceManagement {
class Device;
}
namespace XmlMessaging {
class Object;
}

// The name of the attribute with this ID, upper-case hexadecimal text, on the device,
// by its "Product" and "OEM"; "Unknown" for an ID that has none there.
std::string LookUpAttributeName(const DeviceManagement::Device& device, std::string_view id);

// One attribute of an NVMe drive. The device is not owned and outlives the attribute.
class SmartAttribute {
 public:
  // A field's name and its value, in decimal.
  using Breakdown = std::vector<std::pair<std::string, std::string>>;

  // `raw` is the 48-bit raw value.
  SmartAttribute(const DeviceManagement::Device& device, std::string id, std::string description,
                 std::uint64_t raw, std::uint8_t normalized);
  virtual ~SmartAttribute() = default;
  SmartAttribute(const SmartAttribute&) = delete;
  SmartAttribute& operator=(const SmartAttribute&) = delete;

  const std::string& GetId() const { return id_; }
  const std::string& GetDescription() const { return description_; }
  const std::string& GetRawText() const { return rawText_; }
  std::uint64_t GetRaw() const { return raw_; }
  std::uint8_t GetNormalized() const { return normalized_; }
  const Breakdown& GetBreakdown() const { return breakdown_; }

  // The attribute's row, and one for each field of its breakdown.
  ResultTable ToRows() const;
  std::unique_ptr<XmlMessaging::Object> ToObject() const;
  // Adds the attribute's values and its breakdown to `node`.
  void WriteData(boost::property_tree::ptree& node) const;

 protected:
  // The cells of the attribute's row.
  virtual std::vector<std::string> GetCells() const;
  // The object's properties, behind each other.
  virtual void AddProperties(XmlMessaging::Object& object) const;
  // The attribute's leaves in a property tree.
  virtual void AddLeaves(boost::property_tree::ptree& node) const;

  // Adds a property of a table's row. An empty name or display name and a negative
  // column are left out.
  static void AddProperty(XmlMessaging::Object& object, std::string_view name,
                          std::string_view displayName, std::string_view type, int column,
                          std::string_view value);

 private:
  const DeviceManagement::Device& device_;
  std::string id_;
  std::string description_;
  std::string rawText_;
  std::uint64_t raw_;
  std::uint8_t normalized_;
  Breakdown breakdown_;
};

}  // namespace Morvu
