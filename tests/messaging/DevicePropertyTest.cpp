// Typed values, and how a class's properties show them.
#include <gtest/gtest.h>

#include "devices/model/Drive.h"
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

struct Value {
  DeviceProperty property;
  std::uint32_t size;
  std::string text;
};

class DevicePropertyText : public ::testing::TestWithParam<Value> {};

TEST_P(DevicePropertyText, IsTheWireForm) {
  const auto& [property, size, text] = GetParam();
  EXPECT_EQ(text, property.ToText());
  EXPECT_EQ(size, property.GetSize());
  const auto element = property.ToXml();
  EXPECT_EQ(text, element->GetAttribute("value"));
  EXPECT_EQ(std::to_string(size), element->GetAttribute("size"));
  EXPECT_EQ(text, DeviceProperty::FromXml(*element).ToText());
}

INSTANTIATE_TEST_SUITE_P(
    Kinds, DevicePropertyText,
    ::testing::Values(Value{{kText, "ABC"}, 4, "ABC"}, Value{{kText, ""}, 1, ""},
                      Value{DeviceProperty(kText), 0, ""}, Value{{kFlag, true}, 1, "True"},
                      Value{DeviceProperty(kFlag), 0, "False"}, Value{{kSigned, -1}, 4, "-1"},
                      Value{{kSigned, std::int64_t{1} << 31}, 4, "-2147483648"},
                      Value{{kWord, std::uint32_t{0x12345}}, 2, "9029"},
                      Value{{kLong, ~std::uint64_t{0}}, 8, "18446744073709551615"},
                      Value{{kBytes, ByteView(kThreeBytes)}, 3, "01ABFF"}));

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
