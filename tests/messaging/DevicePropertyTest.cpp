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

TEST(DeviceProperty, TakesNumbersAloneForNumbers) {
  const auto read = [](std::string_view type, std::string_view value) {
    XmlMessaging::Property element;
    element.SetAttribute("name", "A");
    element.SetAttribute("type", type);
    element.SetAttribute("value", value);
    const auto property = DeviceProperty::FromXml(element);
    return property.HasValue() ? property.ToText() : "refused";
  };
  for (const auto* text : {"", "abc", "12 ", "0x12", "--1", "-", "99999999999999999999"}) {
    EXPECT_EQ("refused", read("uint16", text)) << text;
    EXPECT_EQ("refused", read("sint64", text)) << text;
  }
  EXPECT_EQ("refused", read("uint16", "-5"));
  EXPECT_EQ("-5", read("sint16", "-5"));
  EXPECT_EQ("-9223372036854775808", read("sint64", "-9223372036854775808"));
  EXPECT_EQ("4464", read("uint16", "70000"));
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
