// One named, typed value of a device.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "frame/Bytes.h"
#include "messaging/PropertyEntry.h"

namespace Morvu {

namespace XmlMessaging {
class Property;
}

// A value under a catalogue entry's name. Copies own their bytes; a copy of a
// dynamic property keeps the producer and its context, until it is rebound.
class DeviceProperty {
 public:
  // Computes the value anew at each read. `context` is not owned. What it returns is
  // taken as it stands: another dynamic property counts as an empty value.
  using Producer = DeviceProperty (*)(const void* context);

  // An empty value: "", 0, false; its size is 0.
  DeviceProperty() = default;
  explicit DeviceProperty(const PropertyEntry& entry);

  // A value of the entry's kind: a text for String and VectorString, a number for the
  // kinds of numbers, whose width it is cut to, and so on. A value of any other kind is
  // refused: the property stays empty, and the log tells so.
  DeviceProperty(const PropertyEntry& entry, std::string_view text);
  DeviceProperty(const PropertyEntry& entry, const char* text)
      : DeviceProperty(entry, std::string_view(text)) {}
  DeviceProperty(const PropertyEntry& entry, bool value);
  DeviceProperty(const PropertyEntry& entry, std::int64_t value);
  DeviceProperty(const PropertyEntry& entry, std::uint64_t value);
  DeviceProperty(const PropertyEntry& entry, std::int32_t value)
      : DeviceProperty(entry, static_cast<std::int64_t>(value)) {}
  DeviceProperty(const PropertyEntry& entry, std::uint32_t value)
      : DeviceProperty(entry, static_cast<std::uint64_t>(value)) {}
  DeviceProperty(const PropertyEntry& entry, ByteView bytes);
  DeviceProperty(const PropertyEntry& entry, Producer producer, const void* context);

  const std::string& GetName() const { return name_; }
  const std::string& GetDisplayName() const { return displayName_; }
  PropertyKind GetKind() const { return kind_; }
  // Bytes of the stored value: a text with its NUL, 4 for a producer, 0 when empty.
  std::uint32_t GetSize() const;
  bool HasValue() const { return GetSize() != 0; }
  bool IsDynamic() const { return kind_ == PropertyKind::Dynamic; }

  // This value; of a dynamic property the one that its producer gives now, empty
  // without a producer. Never dynamic itself.
  DeviceProperty Resolve() const;
  // Lets a dynamic property that asked `from` ask `to`. For one that was copied from
  // one device to another.
  void Rebind(const void* from, const void* to);

  bool AsBoolean() const;
  std::uint64_t AsUnsigned() const;  // widened with zeros
  std::int64_t AsSigned() const;     // widened with sign
  std::string AsString() const;      // a stored text; empty for other kinds
  std::string ToText() const;        // the value in its wire form

  // The typed form of the wire: attributes name, type, displayName, value, size.
  std::unique_ptr<XmlMessaging::Property> ToXml() const;
  // The sample that a description shows when there is no property.
  static std::unique_ptr<XmlMessaging::Property> SampleXml();
  // The value of an element in the typed form. An unknown type gives a string, a text
  // that is no number of the type's sign an empty value; a number out of range is cut.
  static DeviceProperty FromXml(const XmlMessaging::Property& element);

 private:
  struct Dynamic {
    Producer producer;
    const void* context;
  };
  // Numbers and booleans are stored widened; `kind_` knows their width.
  using Value =
      std::variant<std::monostate, std::string, std::uint64_t, std::vector<std::uint8_t>, Dynamic>;

  void Refuse(std::string_view value) const;

  std::string name_;
  std::string displayName_;
  PropertyKind kind_ = PropertyKind::String;
  Value value_;
};

// The wire's word for a kind; "string" for a kind that has none.
std::string_view KindWord(PropertyKind kind);

}  // namespace Morvu
