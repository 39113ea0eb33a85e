// Typed values, and how a class's properties show them.
#include <gtest/gtest.h>

#include "devices/model/Drive.h"
#include "devices/properties/BasicProperties.h"
#include "messaging/DeviceProperty.h"
#include "messaging/XmlMessaging.h"
#include "messaging/features/CimClass.h"

namespace Morvu {
namespace {

constexpr PropertyEntry kText{"Text", "A Text", PropertyKind::String};
constexpr PropertyEntry kFlag{"Flag", "A Flag", PropertyKind::Boolean};
constexpr PropertyEntry kSigned{"Signed", "Signed", PropertyKind::Sint32};
constexpr PropertyEntry kWord{"Word", "Word", PropertyKind::Uint16};
constexpr PropertyEntry kLong{"Long", "Long", PropertyKind::Uint64};
constexpr PropertyEntry kBytes{"Bytes", "Bytes", PropertyKind::BytePointer};

constexpr std::uint8_t kThreeBytes[] = {0x01, 0xAB, 0xFF};

// Written with the word of its kind, and read again by it.
TEST(DeviceProperty, HasATypedForm) {
  using enum PropertyKind;
  struct Form {
    DeviceProperty property;
    std::string_view type, text;
    std::uint32_t size;
  };
  const auto of = [](PropertyKind kind, auto... value) {
    return DeviceProperty(PropertyEntry{"Name", "Display name", kind}, value...);
  };
  const Form kForms[] = {
      {of(String, "ABC"), "string", "ABC", 4},
      {of(String, ""), "string", "", 1},
      {of(String), "string", "", 0},
      {of(Sint16, -2), "sint16", "-2", 2},
      {of(Sint32, -2), "sint32", "-2", 4},
      {of(Sint32, std::int64_t{1} << 31), "sint32", "-2147483648", 4},
      {of(Sint64, INT64_MIN), "sint64", "-9223372036854775808", 8},
      {of(Uint16, 0x12345u), "uint16", "9029", 2},
      {of(Uint32, 4294967295u), "uint32", "4294967295", 4},
      {of(Uint64, UINT64_MAX), "uint64", "18446744073709551615", 8},
      {of(Uint64), "uint64", "0", 0},
      {of(Boolean, true), "boolean", "True", 1},
      {of(Boolean, false), "boolean", "False", 1},
      {of(Boolean), "boolean", "False", 0},
      {of(BytePointer, ByteView(kThreeBytes)), "bytepointer", "01ABFF", 3},
      {of(ListUint64, ByteView(kThreeBytes)), "list_uint64", "01ABFF", 3},
  };
  for (const auto& [property, type, text, size] : kForms) {
    SCOPED_TRACE(std::string(type) + " " + std::string(text));
    EXPECT_EQ(text, property.ToText());
    EXPECT_EQ(size, property.GetSize());
    const auto element = property.ToXml();
    EXPECT_EQ("Name", element->GetAttribute("name"));
    EXPECT_EQ("Display name", element->GetAttribute("displayName"));
    EXPECT_EQ(type, element->GetAttribute("type"));
    EXPECT_EQ(text, element->GetAttribute("value"));
    EXPECT_EQ(std::to_string(size), element->GetAttribute("size"));
    EXPECT_EQ("", element->value);
    EXPECT_EQ(text, DeviceProperty::FromXml(*element).ToText());
  }
}

std::int32_t produced = 0;
DeviceProperty Produce(const void*) { return {kSigned, ++produced}; }
DeviceProperty ProduceNothing(const void*) { return DeviceProperty(kSigned); }

TEST(DynamicProperty, IsComputedAtEachRead) {
  produced = 0;
  const DeviceProperty property(kSigned, &Produce, nullptr);
  const auto copy = property;
  EXPECT_EQ(1, property.AsSigned());
  EXPECT_EQ(2, copy.AsSigned());
  EXPECT_EQ("3", property.ToText());
  EXPECT_EQ(4u, property.GetSize());
  EXPECT_EQ("string", property.ToXml()->GetAttribute("type"));
}

constexpr PropertyEntry kDynamic{"Dynamic", "Dynamic", PropertyKind::Dynamic};
DeviceProperty ProduceItself(const void*) { return {kSigned, &ProduceItself, nullptr}; }

TEST(DynamicProperty, WithoutAValueIsEmpty) {
  for (const auto& property : {DeviceProperty(kDynamic), DeviceProperty(kSigned, nullptr, nullptr),
                               DeviceProperty(kSigned, &ProduceItself, nullptr)}) {
    EXPECT_EQ(0u, property.AsUnsigned());
    EXPECT_EQ(0, property.AsSigned());
    EXPECT_EQ("", property.AsString());
    EXPECT_EQ("", property.ToText());
    EXPECT_FALSE(property.Resolve().HasValue());
  }
  EXPECT_FALSE(DeviceProperty(kDynamic).HasValue());
}

DeviceProperty ProduceIndex(const void* context) {
  const auto* drive = static_cast<const DeviceManagement::Device*>(context);
  return {kSigned, drive->GetProperties().GetSigned(DeviceManagement::Properties::Index)};
}

TEST(DynamicProperty, OfACloneAsksTheClone) {
  using DeviceManagement::Properties::Index;
  auto drive = std::make_unique<DeviceManagement::Drive>();
  const DeviceManagement::Device* owner = drive.get();
  drive->GetProperties().Add(DeviceProperty(kSigned, &ProduceIndex, owner));
  drive->AddProperty(Index, 5);
  const auto clone = drive->Clone();
  clone->AddProperty(Index, 6);
  EXPECT_EQ(5, drive->GetProperties().GetSigned(kSigned));
  drive.reset();
  EXPECT_EQ(6, clone->GetProperties().GetSigned(kSigned));
}

// ---- Values of another kind ----

TEST(DeviceProperty, WidensWithItsSignAndIsOfNoOtherKind) {
  const DeviceProperty property(kSigned, -2);
  EXPECT_EQ(-2, property.AsSigned());
  EXPECT_EQ("", property.AsString());
  EXPECT_EQ(0u, DeviceProperty(kText, "7").AsUnsigned());
}

TEST(DeviceProperty, RefusesAValueOfAnotherKind) {
  const DeviceProperty refused[] = {
      {kWord, "500"},
      {kFlag, "True"},
      {kBytes, "01"},
      {kFlag, 1},
      {kText, 1},
      {kBytes, 1},
      {kDynamic, 1},
      {kText, true},
      {kWord, true},
      {kDynamic, "ABC"},
      {kText, ByteView(kThreeBytes)},
      {kWord, ByteView(kThreeBytes)},
  };
  for (const auto& property : refused) {
    EXPECT_FALSE(property.HasValue()) << property.GetName();
    EXPECT_EQ(0u, property.AsUnsigned());
    EXPECT_EQ("", property.AsString());
  }
}

TEST(DeviceProperty, IsReadByItsTypeAndNumbersFromNumbersAlone) {
  const auto read = [](std::string_view type, std::string_view value) {
    XmlMessaging::Property element;
    element.SetAttribute("name", "A");
    element.SetAttribute("type", type);
    element.SetAttribute("value", value);
    return DeviceProperty::FromXml(element);
  };
  for (const auto* text : {"", "abc", "12 ", "0x12", "--1", "-", "99999999999999999999"}) {
    EXPECT_FALSE(read("uint16", text).HasValue()) << text;
    EXPECT_FALSE(read("sint64", text).HasValue()) << text;
  }
  EXPECT_FALSE(read("uint16", "-5").HasValue());
  EXPECT_EQ("0", read("uint16", "-5").ToText());
  struct Wire {
    std::string_view type, value;
    PropertyKind kind;
    std::string_view text;
  };
  constexpr Wire kWires[] = {
      {"boolean", "True", PropertyKind::Boolean, "True"},
      {"boolean", "true", PropertyKind::Boolean, "False"},
      {"sint16", "-5", PropertyKind::Sint16, "-5"},
      {"sint64", "-9223372036854775808", PropertyKind::Sint64, "-9223372036854775808"},
      {"uint16", "70000", PropertyKind::Uint16, "4464"},
      {"uint32", "5", PropertyKind::Uint32, "5"},
      {"uint64", "18446744073709551615", PropertyKind::Uint64, "18446744073709551615"},
      {"bytepointer", "AB01", PropertyKind::BytePointer, "AB01"},
      {"no such type", "x", PropertyKind::String, "x"},
      {"", "", PropertyKind::String, ""},
  };
  for (const auto& [type, value, kind, text] : kWires) {
    const auto property = read(type, value);
    EXPECT_EQ("A", property.GetName());
    EXPECT_EQ(kind, property.GetKind()) << type;
    EXPECT_TRUE(property.HasValue()) << type;
    EXPECT_EQ(text, property.ToText()) << type;
  }
}

TEST(GenericProperty, DescribesWithoutADevice) {
  const auto element = GetGenericProperty(nullptr, kWord, nullptr);
  EXPECT_EQ("", element->value);
  EXPECT_EQ("Word", element->GetAttribute("name"));
  EXPECT_EQ("uint16", element->GetAttribute("type"));
  EXPECT_EQ("0", element->GetAttribute("size"));
}

TEST(GenericProperty, ShowsTheValueOfADevice) {
  DeviceManagement::Drive drive;
  const auto show = [&](const PropertyEntry& entry) {
    const auto element = GetGenericProperty(nullptr, entry, &drive);
    return element == nullptr ? "left out" : element->value;
  };
  EXPECT_EQ("left out", show(kWord));
  drive.AddProperty(kWord, 500);
  EXPECT_EQ("500", show(kWord));
  drive.AddProperty(kFlag, true);
  EXPECT_EQ("True", show(kFlag));
  // A number that the drive has but cannot give.
  drive.GetProperties().Add(DeviceProperty(kLong));
  EXPECT_EQ("18446744073709551615", show(kLong));
  drive.GetProperties().Add(DeviceProperty(kSigned, &Produce, nullptr));
  produced = 6;
  EXPECT_EQ("7", show(kSigned));
  drive.GetProperties().Add(DeviceProperty(kSigned, &ProduceNothing, nullptr));
  EXPECT_EQ("18446744073709551615", show(kSigned));
}

}  // namespace
}  // namespace Morvu
