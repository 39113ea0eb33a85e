#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "devices/model/Drive.h"
#include "devices/properties/BasicProperties.h"
#include "devices/properties/ProductProperties.h"
#include "messaging/XmlMessaging.h"
#include "parsers/smart/SmartAttribute_ATA.h"

namespace Morvu {
namespace {

using DeviceManagement::Drive;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::Pair;
namespace Properties = DeviceManagement::Properties;

struct Make {
  std::string_view product;
  std::string_view oem;
};

void PrintTo(const Make& make, std::ostream* out) { *out << make.product << ' ' << make.oem; }

void Become(Drive& drive, const Make& make) {
  drive.AddProperty(Properties::SerialNumber, "BTWL402600K4480QGN");
  drive.AddProperty(Properties::Product, make.product);
  drive.AddProperty(Properties::OEM, make.oem);
}

constexpr Make kPlain{"Tarnwell", ""};
constexpr Make kDell{"Cobbenrath HD", "Dell"};
constexpr Make kEmc{"Oxbrenn 10", "EMC"};
constexpr Make kIbm{"Marrow Fell", "IBM"};
constexpr Make kNvme{"Tovarik", ""};

struct NameCase {
  std::string_view id;
  Make make;
  std::string_view name;
};

TEST(SmartAttribute, IsNamedByIdProductAndOem) {
  constexpr NameCase kCases[] = {
      {"05", kPlain, "Re-allocated Sector Count"},
      {"05", kEmc, "Reallocated Flash Block Count"},
      {"05", kDell, "Re-allocated Sector Count"},
      {"01", kDell, "Raw Read Error Rate"},
      {"E9", kDell, "Number of write count"},
      {"AD", kEmc, "Per Block Max Erase Count"},
      {"AD", kNvme, "Wear Leveling Count"},
      {"AD", kPlain, "Vendor Specific"},
      {"F5", kNvme, "Host Bytes Written"},
      {"0E", kEmc, "Device Capacity"},
      {"0E", kDell, "Unknown"},
      {"0E", kPlain, "Unknown"},
      {"B2", kPlain, "Unknown"},
      {"FF", kPlain, "Unknown"},
      {"", kPlain, "Unknown"},
      {"5", kPlain, "Unknown"},  // one digit is no name of the catalogue's
      // The OEM alone makes no other name.
      {"01", {"Tarnwell", "Dell"}, "Vendor Specific"},
      {"01", {"", "EMC"}, "Vendor Specific"},
  };
  for (const auto& each : kCases) {
    Drive drive;
    Become(drive, each.make);
    EXPECT_EQ(LookUpAttributeName(drive, each.id), each.name)
        << each.id << " on " << ::testing::PrintToString(each.make);
  }
}

struct RawCase {
  std::string_view id;
  Make make;
  std::uint64_t raw;
  std::string_view text;
};

TEST(SmartAttribute, ShowsItsRawValueByNameAndId) {
  constexpr RawCase kCases[] = {
      {"09", kPlain, 1234, "1234"},
      {"01", kPlain, 0xABC, "0xABC"},  // vendor specific
      {"01", kDell, 0xABC, "2748"},    // the same under a name
      {"0E", kPlain, 0xABC, "2748"},   // unknown
      {"AF", kEmc, 0x1F, "0x1F"},
      {"BE", kPlain, 0, "0x0"},
      {"EA", kPlain, 0xFFFFFFFFFFFF, "0xFFFFFFFFFFFF"},
      {"F1", kPlain, 0xFFFFFFFFFFFF, "281474976710655"},
      {"C2", kPlain, 31, "31 degree C (direct from PCB without offset)"},
  };
  for (const auto& each : kCases) {
    Drive drive;
    Become(drive, each.make);
    const std::string id(each.id);
    const SmartAttribute attribute(drive, id, LookUpAttributeName(drive, id), each.raw, 100);
    EXPECT_EQ(attribute.GetRawText(), each.text)
        << each.id << " on " << ::testing::PrintToString(each.make);
  }
}

SmartAttribute::Breakdown BreakDown(const Make& make, std::string_view id) {
  Drive drive;
  Become(drive, make);
  // Each byte is its place: 6 5 4 3 2 1.
  return SmartAttribute(drive, std::string(id), "", 0x060504030201, 0).GetBreakdown();
}

TEST(SmartAttribute, BreaksItsRawValueDown) {
  EXPECT_THAT(BreakDown(kPlain, "AD"),
              ElementsAre(Pair("Minimum erase cycles", "513"), Pair("Maximum erase cycles", "1027"),
                          Pair("Average erase cycles", "1541")));
  EXPECT_THAT(BreakDown(kEmc, "AF"), ElementsAre(Pair("Last test result (microseconds)", "513"),
                                                 Pair("Minutes since last test", "1027"),
                                                 Pair("Total number of tests", "1541")));
  EXPECT_THAT(BreakDown(kPlain, "EA"),
              ElementsAre(Pair("Throttle status (%)", "1"),
                          Pair("Throttling event count", "262914"), Pair("Reserved", "5")));
  EXPECT_THAT(BreakDown(kPlain, "09"), IsEmpty());
}

TEST(SmartAttribute, BreaksTheTemperatureDownByProductThenByOem) {
  const auto ownProduct =
      ElementsAre(Pair("Current degree C", "513"), Pair("Highest degree C", "1027"),
                  Pair("Lowest degree C", "1541"));
  for (const auto* product :
       {"Fennimoor", "Ickmoor", "Nolvaine", "Drennick", "DrennickRefresh", "DrennickRefresh535"}) {
    EXPECT_THAT(BreakDown({product, "IBM"}, "BE"), ownProduct) << product;
  }
  EXPECT_THAT(BreakDown(kIbm, "BE"),
              ElementsAre(Pair("Current degree C", "513"), Pair("Highest degree C", "1541"),
                          Pair("Lowest degree C", "1027")));
  for (const auto& make : {kDell, kEmc, Make{"Vorsham3", ""}}) {
    EXPECT_THAT(BreakDown(make, "BE"),
                ElementsAre(Pair("Current degree C", "1"), Pair("Highest degree C", "4"),
                            Pair("Lowest degree C", "3"), Pair("Over Temperature Counter", "1541")))
        << ::testing::PrintToString(make);
  }
  for (const auto& make : {kPlain, kNvme, Make{"DrennickRefresh2", "IBM"}, Make{"", "IBM"}}) {
    EXPECT_THAT(BreakDown(make, "BE"), IsEmpty()) << ::testing::PrintToString(make);
  }
}

TEST(SmartAttribute, TellsAHostItsValues) {
  Drive drive;
  Become(drive, kIbm);
  const SmartAttribute_ATA attribute(drive, "BE", "Temperature", 0x002800150022, 66, 5, 60, 0x22,
                                     "Pass");
  EXPECT_EQ(attribute.ToObject()->ToText(),
            R"(<?xml version="1.0" encoding="utf-8"?>)"
            "\n"
            R"(<Object cimClass="SMARTAttribute" name="SMART Attribute">)"
            R"(<Property name="Name" type="string">BTWL402600K4480QGN.BE</Property>)"
            R"(<Property column="0" displayName="ID" name="ID" type="string">BE</Property>)"
            R"(<Property column="1" displayName="Description" name="Description" type="string">)"
            R"(Temperature</Property>)"
            R"(<Property column="2" displayName="Raw" name="Raw" type="uint64">171800068130)"
            R"(</Property>)"
            R"(<Property column="3" displayName="Normalized" name="Normalized" type="uint8">66)"
            R"(</Property>)"
            R"(<Property column="4" displayName="Threshold" name="Threshold" type="uint8">5)"
            R"(</Property>)"
            R"(<Property name="Worst" type="uint8">60</Property>)"
            R"(<Property name="Status" type="uint16">34</Property>)"
            R"(<Property column="5" displayName="Action" name="Action" type="string">Pass)"
            R"(</Property>)"
            R"(<List direction="o" name="breakdown" type="table">)"
            R"(<Object><Property column="0" type="string"/>)"
            R"(<Property column="1" type="string">Current degree C</Property>)"
            R"(<Property column="2" type="string">34</Property></Object>)"
            R"(<Object><Property column="0" type="string"/>)"
            R"(<Property column="1" type="string">Highest degree C</Property>)"
            R"(<Property column="2" type="string">40</Property></Object>)"
            R"(<Object><Property column="0" type="string"/>)"
            R"(<Property column="1" type="string">Lowest degree C</Property>)"
            R"(<Property column="2" type="string">21</Property></Object></List></Object>)");
}

}  // namespace
}  // namespace Morvu
