// The typed form of values: written with the word of each kind, and read by it.
#include <gtest/gtest.h>

#include "messaging/DeviceProperty.h"
#include "messaging/XmlMessaging.h"

namespace Morvu {
namespace {

using Kind = PropertyKind;

constexpr PropertyEntry Entry(Kind kind) { return {"Name", "Display name", kind}; }

struct Case {
  DeviceProperty property;
  std::string_view type, text, size;
};

class Values : public ::testing::TestWithParam<Case> {};

TEST_P(Values, HaveATypedForm) {
  const auto& [property, type, text, size] = GetParam();
  const auto element = property.ToXml();
  EXPECT_EQ("Name", element->GetAttribute("name"));
  EXPECT_EQ("Display name", element->GetAttribute("displayName"));
  EXPECT_EQ(type, element->GetAttribute("type"));
  EXPECT_EQ(text, element->GetAttribute("value"));
  EXPECT_EQ(size, element->GetAttribute("size"));
  EXPECT_EQ("", element->value);
}

const std::uint8_t kTwoBytes[] = {0xAB, 0x01};

const Case kCases[] = {
    {{Entry(Kind::String), "ABC"}, "string", "ABC", "4"},
    {{Entry(Kind::String), ""}, "string", "", "1"},
    {DeviceProperty(Entry(Kind::String)), "string", "", "0"},
    {{Entry(Kind::Sint16), -2}, "sint16", "-2", "2"},
    {{Entry(Kind::Sint32), -2}, "sint32", "-2", "4"},
    {{Entry(Kind::Sint64), INT64_MIN}, "sint64", "-9223372036854775808", "8"},
    {{Entry(Kind::Uint16), 65537u}, "uint16", "1", "2"},
    {{Entry(Kind::Uint32), 4294967295u}, "uint32", "4294967295", "4"},
    {{Entry(Kind::Uint64), UINT64_MAX}, "uint64", "18446744073709551615", "8"},
    {DeviceProperty(Entry(Kind::Uint64)), "uint64", "0", "0"},
    {{Entry(Kind::Boolean), true}, "boolean", "True", "1"},
    {{Entry(Kind::Boolean), false}, "boolean", "False", "1"},
    {DeviceProperty(Entry(Kind::Boolean)), "boolean", "False", "0"},
    {{Entry(Kind::BytePointer), ByteView(kTwoBytes)}, "bytepointer", "AB01", "2"},
    {{Entry(Kind::ListUint64), ByteView(kTwoBytes)}, "list_uint64", "AB01", "2"},
};
INSTANTIATE_TEST_SUITE_P(Kinds, Values, ::testing::ValuesIn(kCases));

TEST(Values, WidenWithTheirSign) {
  const DeviceProperty property(Entry(Kind::Sint16), -2);
  EXPECT_EQ(-2, property.AsSigned());
  EXPECT_EQ(0u, DeviceProperty(Entry(Kind::String), "7").AsUnsigned());
  EXPECT_EQ("", property.AsString());
}

struct Wire {
  std::string_view type, value;
  Kind kind;
  std::string_view text;
};

class WireValues : public ::testing::TestWithParam<Wire> {};

TEST_P(WireValues, AreReadByTheirType) {
  XmlMessaging::Property element;
  element.SetAttribute("name", "N");
  element.SetAttribute("type", GetParam().type);
  element.SetAttribute("value", GetParam().value);
  const auto property = DeviceProperty::FromXml(element);
  EXPECT_EQ("N", property.GetName());
  EXPECT_EQ(GetParam().kind, property.GetKind());
  EXPECT_EQ(GetParam().text, property.ToText());
}

const Wire kWires[] = {
    {"boolean", "True", Kind::Boolean, "True"},
    {"boolean", "true", Kind::Boolean, "False"},
    {"sint16", "-5", Kind::Sint16, "-5"},
    {"sint64", "-5", Kind::Sint64, "-5"},
    {"uint32", "5", Kind::Uint32, "5"},
    {"uint64", "18446744073709551615", Kind::Uint64, "18446744073709551615"},
    {"uint16", "garbage", Kind::Uint16, "0"},
    {"bytepointer", "AB01", Kind::BytePointer, "AB01"},
    {"no such type", "x", Kind::String, "x"},
    {"", "", Kind::String, ""},
};
INSTANTIATE_TEST_SUITE_P(Types, WireValues, ::testing::ValuesIn(kWires));

}  // namespace
}  // namespace Morvu
