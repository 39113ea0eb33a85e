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
}  // namespace DeviceManagement
namespace XmlMessaging {
class Object;
class Property;
}  // namespace XmlMessaging
struct FeatureCall;
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

// A parameter of a method.
struct MethodParameter {
  std::string_view name;
  std::string_view type;
  bool required = false;
};

// One row of a class's method table. Empty texts and false leave an attribute out of the
// description.
struct CimMethod {
  // The code that the method's Feature is left at on the device, before it is run.
  using Assessor = StatusCode (*)(DeviceManagement::Device& device);
  using Runner = StatusCode (*)(const FeatureCall& call, JobContext& context);

  std::string_view name;
  std::string_view displayName{};
  std::string_view description{};
  std::string_view category{};    // "standard" or "advanced"
  std::string_view targetType{};  // "device" or "partition"
  bool prompt = false;            // the host must ask the user first
  bool cancelSupported = true;
  std::span<const MethodParameter> parameters{};
  bool hasStatus = false;  // a drive's description tells whether the method can run now
  bool hasTable = false;   // the reply holds a table
  std::string_view tableName{};
  std::span<const StatusCode> hiddenCodes{};  // assessed so, a device lacks the method
  Assessor assess = nullptr;                  // null: every device has the method
  Runner run = nullptr;

  // The description for the class, or for a device; null when the device lacks the method.
  std::unique_ptr<XmlMessaging::Object> Describe(DeviceManagement::Device* device) const;
  // For a device that somebody works on, which is not asked: its status is 180.
  std::unique_ptr<XmlMessaging::Object> DescribeHeld() const;
};

}  // namespace Morvu
