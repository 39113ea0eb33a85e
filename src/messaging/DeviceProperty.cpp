#include "messaging/DeviceProperty.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <optional>

#include "frame/Logger.h"
#include "frame/Text.h"
#include "messaging/XmlMessaging.h"

namespace Morvu {
namespace {

struct KindRow {
  PropertyKind kind;
  std::string_view word;
  std::uint32_t width;  // bytes of a number; 0 for what has no fixed width
  bool isSigned;
};

// The type codes, in the order in which a reader compares their words.
constexpr KindRow kKinds[] = {
    {PropertyKind::Boolean, "boolean", 1, false},
    {PropertyKind::Sint16, "sint16", 2, true},
    {PropertyKind::Sint32, "sint32", 4, true},
    {PropertyKind::Sint64, "sint64", 8, true},
    {PropertyKind::Uint16, "uint16", 2, false},
    {PropertyKind::Uint32, "uint32", 4, false},
    {PropertyKind::Uint64, "uint64", 8, false},
    {PropertyKind::BytePointer, "bytepointer", 0, false},
    {PropertyKind::ListUint64, "list_uint64", 0, false},
    {PropertyKind::VectorString, "vector_string", 0, false},
};

const KindRow* FindKind(PropertyKind kind) {
  const auto row = std::ranges::find(kKinds, kind, &KindRow::kind);
  return row == std::end(kKinds) ? nullptr : row;
}

bool IsNumber(const KindRow* row) { return row != nullptr && row->width > 1; }

std::uint64_t CutToWidth(std::uint64_t value, std::uint32_t width) {
  return width >= 8 ? value : value & ((std::uint64_t{1} << width * 8) - 1);
}

std::int64_t WidenSign(std::uint64_t value, std::uint32_t width) {
  const auto shift = 64 - width * 8;
  return static_cast<std::int64_t>(value << shift) >> shift;
}

bool IsText(PropertyKind kind) {
  return kind == PropertyKind::String || kind == PropertyKind::VectorString;
}

bool IsBytes(PropertyKind kind) {
  return kind == PropertyKind::BytePointer || kind == PropertyKind::ListUint64;
}

// The bits of the number that the whole text writes, if it writes one.
std::optional<std::uint64_t> ReadNumber(std::string_view text, bool isSigned) {
  const bool negative = isSigned && text.starts_with('-');
  if (negative) text.remove_prefix(1);
  std::uint64_t magnitude = 0;
  const auto* end = text.data() + text.size();
  const auto [stop, error] = std::from_chars(text.data(), end, magnitude);
  if (error != std::errc() || stop != end) return std::nullopt;
  return negative ? 0 - magnitude : magnitude;
}

std::vector<std::uint8_t> BytesOfHex(std::string_view text) {
  std::vector<std::uint8_t> bytes;
  for (std::size_t i = 0; i + 1 < text.size(); i += 2) {
    bytes.push_back(static_cast<std::uint8_t>(ParseHex(text.substr(i, 2))));
  }
  return bytes;
}

}  // namespace

std::string_view KindWord(PropertyKind kind) {
  const auto* row = FindKind(kind);
  return row == nullptr ? "string" : row->word;
}

DeviceProperty::DeviceProperty(const PropertyEntry& entry)
    : name_(entry.name), displayName_(entry.displayName), kind_(entry.kind) {}

DeviceProperty::DeviceProperty(const PropertyEntry& entry, std::string_view text)
    : DeviceProperty(entry) {
  if (IsText(kind_)) {
    value_ = std::string(text);
  } else {
    Refuse(text);
  }
}

DeviceProperty::DeviceProperty(const PropertyEntry& entry, bool value) : DeviceProperty(entry) {
  if (kind_ == PropertyKind::Boolean) {
    value_ = std::uint64_t{value};
  } else {
    Refuse(BoolText(value));
  }
}

DeviceProperty::DeviceProperty(const PropertyEntry& entry, std::int64_t value)
    : DeviceProperty(entry, static_cast<std::uint64_t>(value)) {}

DeviceProperty::DeviceProperty(const PropertyEntry& entry, std::uint64_t value)
    : DeviceProperty(entry) {
  const auto* row = FindKind(kind_);
  if (IsNumber(row)) {
    value_ = CutToWidth(value, row->width);
  } else {
    Refuse(std::to_string(value));
  }
}

DeviceProperty::DeviceProperty(const PropertyEntry& entry, ByteView bytes) : DeviceProperty(entry) {
  if (IsBytes(kind_)) {
    value_ = std::vector<std::uint8_t>(bytes.begin(), bytes.end());
  } else {
    Refuse(ToHex(bytes));
  }
}

DeviceProperty::DeviceProperty(const PropertyEntry& entry, Producer producer, const void* context)
    : DeviceProperty(entry) {
  kind_ = PropertyKind::Dynamic;
  if (producer != nullptr) value_ = Dynamic{producer, context};
}

void DeviceProperty::Refuse(std::string_view value) const {
  MORVU_LOG(kLogError, "DeviceProperty",
            "Property " + name_ + " takes no value of this kind: " + std::string(value));
}

std::uint32_t DeviceProperty::GetSize() const {
  if (std::holds_alternative<Dynamic>(value_)) return 4;
  if (const auto* text = std::get_if<std::string>(&value_)) {
    return static_cast<std::uint32_t>(text->size() + 1);
  }
  if (const auto* bytes = std::get_if<std::vector<std::uint8_t>>(&value_)) {
    return static_cast<std::uint32_t>(bytes->size());
  }
  if (std::holds_alternative<std::monostate>(value_)) return 0;
  return FindKind(kind_)->width;
}

DeviceProperty DeviceProperty::Resolve() const {
  if (!IsDynamic()) return *this;
  const auto* dynamic = std::get_if<Dynamic>(&value_);
  if (dynamic == nullptr) return {};
  auto value = dynamic->producer(dynamic->context);
  return value.IsDynamic() ? DeviceProperty() : value;
}

void DeviceProperty::Rebind(const void* from, const void* to) {
  auto* dynamic = std::get_if<Dynamic>(&value_);
  if (dynamic != nullptr && dynamic->context == from) dynamic->context = to;
}

bool DeviceProperty::AsBoolean() const { return AsUnsigned() == 1; }

std::uint64_t DeviceProperty::AsUnsigned() const {
  if (IsDynamic()) return Resolve().AsUnsigned();
  const auto* number = std::get_if<std::uint64_t>(&value_);
  return number == nullptr ? 0 : *number;
}

std::int64_t DeviceProperty::AsSigned() const {
  if (IsDynamic()) return Resolve().AsSigned();
  const auto* number = std::get_if<std::uint64_t>(&value_);
  return number == nullptr ? 0 : WidenSign(*number, FindKind(kind_)->width);
}

std::string DeviceProperty::AsString() const {
  if (IsDynamic()) return Resolve().AsString();
  const auto* text = std::get_if<std::string>(&value_);
  return text == nullptr ? std::string() : *text;
}

std::string DeviceProperty::ToText() const {
  if (IsDynamic()) return Resolve().ToText();
  if (const auto* bytes = std::get_if<std::vector<std::uint8_t>>(&value_)) return ToHex(*bytes);
  if (kind_ == PropertyKind::Boolean) return BoolText(AsBoolean());
  const auto* row = FindKind(kind_);
  if (!IsNumber(row)) return AsString();
  return row->isSigned ? std::to_string(AsSigned()) : std::to_string(AsUnsigned());
}

std::unique_ptr<XmlMessaging::Property> DeviceProperty::ToXml() const {
  auto element = std::make_unique<XmlMessaging::Property>();
  element->SetAttribute("name", name_);
  element->SetAttribute("type", KindWord(kind_));
  element->SetAttribute("displayName", displayName_);
  element->SetAttribute("value", ToText());
  element->SetAttribute("size", std::to_string(GetSize()));
  return element;
}

std::unique_ptr<XmlMessaging::Property> DeviceProperty::SampleXml() {
  auto element = std::make_unique<XmlMessaging::Property>();
  element->SetAttribute("name", "A name");
  element->SetAttribute("displayName", "Display name");
  element->SetAttribute("type", "A type");
  element->SetAttribute("size", "1");
  element->SetAttribute("value", "0");
  return element;
}

DeviceProperty DeviceProperty::FromXml(const XmlMessaging::Property& element) {
  const auto& name = element.GetAttribute("name");
  const auto& displayName = element.GetAttribute("displayName");
  const auto& value = element.GetAttribute("value");
  const auto row = std::ranges::find(kKinds, element.GetAttribute("type"), &KindRow::word);
  const bool known = row != std::end(kKinds);
  const PropertyEntry entry{name, displayName, known ? row->kind : PropertyKind::String};
  if (entry.kind == PropertyKind::Boolean) return DeviceProperty(entry, value == "True");
  if (known && IsNumber(row)) {
    const auto number = ReadNumber(value, row->isSigned);
    return number ? DeviceProperty(entry, *number) : DeviceProperty(entry);
  }
  if (IsBytes(entry.kind)) return DeviceProperty(entry, ByteView(BytesOfHex(value)));
  return DeviceProperty(entry, std::string_view(value));
}

}  // namespace Morvu
