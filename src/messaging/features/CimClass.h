// Classes in the manner of CIM: properties that can be read and perhaps written,
// and methods, both described to the host in XML.
#pragma once

#include <memory>
#include <span>
#include <string_view>

#include "frame/StatusCode.h"
#include "messaging/DeviceProperty.h"

namespace Morvu {

namespace DeviceManagement {
class Device;
struct SelectedDevices;
}  // namespace DeviceManagement
namespace XmlMessaging {
class Object;
class Property;
}  // namespace XmlMessaging
struct JobContext;

// One row of a class's property table.
struct CimProperty {
  // With a null device the property's description; with one, the same element with
  // the device's value as its text, or null when the device lacks the property.
  using Getter = std::unique_ptr<XmlMessaging::Property> (*)(JobContext* context,
                                                             const PropertyEntry& entry,
                                                             DeviceManagement::Device* device);
  // Writes the element's text to the device. A setter whose value takes effect after a
  // power cycle gives the element the attribute powercycle="True".
  using Setter = StatusCode (*)(XmlMessaging::Property& request, DeviceManagement::Device& device);

  const PropertyEntry* entry;
  std::string_view direction;  // "o" or "io"
  Getter getter;               // never null
  Setter setter;               // null for what cannot be written
  bool isKey = false;

  constexpr std::string_view GetName() const { return entry->name; }
  std::unique_ptr<XmlMessaging::Property> Describe(JobContext* context,
                                                   DeviceManagement::Device* device) const;
  // The setter's status; 73 without a setter.
  StatusCode Apply(XmlMessaging::Property& request, DeviceManagement::Device& device) const;
};

// The getter of most rows: the value in the device's property list.
std::unique_ptr<XmlMessaging::Property> GetGenericProperty(JobContext* context,
                                                           const PropertyEntry& entry,
                                                           DeviceManagement::Device* device);

// One row of a class's method table.
struct CimMethod {
  // The method's description; null hides the method on this device. `device` may be null.
  using Describer = std::unique_ptr<XmlMessaging::Object> (*)(DeviceManagement::Device* device);
  using Runner = StatusCode (*)(JobContext& context, const XmlMessaging::Object& method,
                                DeviceManagement::SelectedDevices& devices);

  std::string_view name;
  Describer describe;
  Runner run;
};

// A parameter of a method.
struct MethodParameter {
  std::string_view name;
  std::string_view type;
  bool required = false;
};

// What a method's description says; empty texts and false leave the attribute out.
struct MethodDescription {
  std::string_view name;
  std::string_view displayName;
  std::string_view description;
  std::string_view category;    // "standard" or "advanced"
  std::string_view targetType;  // "device" or "partition"
  bool prompt = false;          // the host must ask the user first
  bool cancelSupported = true;
  std::span<const MethodParameter> parameters;
  bool hasStatus = false;  // a drive's description tells whether the method can run now
  bool hasTable = false;   // the reply holds a table
  std::string_view tableName;
};

// The Object that describes a method.
std::unique_ptr<XmlMessaging::Object> BuildMethodObject(const MethodDescription& description);
// Adds the List that tells whether the method can run now: 1 means yes.
void AddStatusList(XmlMessaging::Object& method, StatusCode status);

}  // namespace Morvu
