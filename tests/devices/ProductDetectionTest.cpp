// Which product a drive is: the table, and the rules behind it.
#include <gmock/gmock.h>

#include <map>
#include <set>

#include "devices/identification/ProductDetection.h"
#include "devices/identification/ProductTable.h"
#include "devices/identification/Products.h"
#include "devices/properties/BasicProperties.h"
#include "devices/properties/ProductProperties.h"
#include "devices/properties/SecurityProperties.h"

namespace Morvu::DeviceManagement {
namespace {

// ---- The table ----

// A serial number that a row's expression takes: the first of each set, "0" for any.
std::string SerialFor(std::string_view expression) {
  std::string serial;
  for (std::size_t i = 0; i < expression.size(); ++i) {
    if (expression[i] == '[') {
      serial += expression[i + 1];
      i = expression.find(']', i);
    } else if (expression.substr(i, 2) == ".*") {
      ++i;
    } else {
      serial += expression[i] == '.' ? '0' : expression[i];
    }
  }
  return serial;
}

TEST(ProductTable, EachModelOfEachRowIsReached) {
  for (const auto& row : GetProductRows()) {
    std::string serial = "ZZZZZZZZ", firmware = "ZZZZ";
    if (row.test.kind == ProductTest::Kind::SerialMatches) serial = SerialFor(row.test.text);
    if (row.test.kind == ProductTest::Kind::SerialBegins) serial = std::string(row.test.text) + "1";
    if (row.test.kind == ProductTest::Kind::FirmwareBegins) firmware = row.test.text;
    for (const auto model : row.Models()) {
      EXPECT_EQ(&row, FindProductRow(model, firmware, serial)) << model << ' ' << serial;
    }
  }
}

TEST(ProductTable, AModelIsOneProductWhateverItsSerialNumber) {
  std::map<std::string_view, std::pair<std::string_view, std::string_view>> seen;
  for (const auto& row : GetProductRows()) {
    for (const auto model : row.Models()) {
      const auto [place, first] = seen.emplace(model, std::pair(row.product, row.protocol));
      EXPECT_EQ(place->second, std::pair(row.product, row.protocol)) << model;
    }
  }
}

TEST(ProductTable, ConfigurationNumbersTellRowsApart) {
  std::set<std::string_view> seen;
  for (const auto& row : GetProductRows()) {
    if (row.configId.empty()) continue;
    EXPECT_TRUE(seen.insert(row.configId).second) << row.configId;
  }
}

TEST(ProductTable, SasModelsFitAnInquiry) {
  for (const auto& row : GetProductRows()) {
    const std::size_t room = row.protocol == "SCSI" ? 16 : 40;
    for (const auto model : row.Models()) EXPECT_LE(model.size(), room) << model;
  }
}

TEST(ProductTable, EachSerialFamilyIsReached) {
  for (const auto& row : GetSerialFamilies()) {
    const auto version = row.versions.empty() ? "Z" : std::string(row.versions.substr(0, 1));
    const auto serial = "CV" + std::string(row.family) + "00000000" +
                        std::string(row.capacities.substr(0, 3)) + version + "GN";
    EXPECT_EQ(&row, FindSerialFamily(serial)) << serial;
    EXPECT_EQ(nullptr, FindSerialFamily(serial + "0"));
  }
}

// ---- Models that are cut ----

TEST(ProductTable, EachLongSataModelIsKnownCut) {
  std::size_t unique = 0;
  for (const auto& row : GetProductRows()) {
    for (const auto model : row.Models()) {
      auto cut = model.substr(0, 16);
      while (cut.ends_with(' ')) cut.remove_suffix(1);
      const bool isLong = model.size() > 16 && row.protocol == "ATA";
      const auto found = FindCutModel(cut);
      ASSERT_TRUE(found || !isLong) << model;
      if (!isLong) continue;
      EXPECT_EQ(found->protocol, "ATA") << model;
      if (found->product.empty()) continue;
      EXPECT_EQ(found->product, row.product) << model;
      ++unique;
    }
  }
  EXPECT_GT(unique, 0u);
  for (const auto* model : {"", "MORVU", "MORVU SSDSC2BB480G4", "MORVU SSDPE2MD80", "SSD400SAS"}) {
    EXPECT_FALSE(FindCutModel(model)) << model;
  }
}

// ---- Traits ----

struct TraitCase {
  bool Product::*trait;
  std::vector<std::string_view> with, without;
};

// Products that have a trait, and the nearest that do not.
TEST(Products, HaveTheirTraits) {
  const TraitCase kCases[] = {
      {&Product::isShown,
       {"Caldrome", "Tovarik", "Vorsham", "Vorsham3", "Cobbenrath", "Cobbenrath HD",
        "Cobbenrath M2", "Cobbenrath Lisk", "Oxbrenn 10", "Oxbrenn 3", "OxbrennSE L95", "Wyndrake",
        "Aldwreth"},
       {"Caldrome X8", "OxbrennSE HD", "Marrow Fell", "Ruskaven", "Fennimoor", "Brastow"}},
      {&Product::hasOemAttributes,
       {"Vorsham", "Vorsham3", "Cobbenrath", "Cobbenrath HD", "Cobbenrath M2", "Cobbenrath Lisk",
        "Marrow Fell", "Oxbrenn 10", "Oxbrenn 3", "OxbrennSE L95"},
       {"OxbrennSE HD", "Caldrome", "Drennick", "Plinthway"}},
      {&Product::hasNvmeAttributes,
       {"Caldrome", "Tovarik", "Aldwreth", "Wyndrake", "Ruskaven"},
       {"Caldrome X8", "Vorsham", "Ostrane"}},
      {&Product::hidesLife, {"Yarrowick", "Yarrowick SLC"}, {"Yarrowick 2", "Dunmere"}},
      {&Product::takesFirstBlockTwice, {"Dunmere"}, {"Ruskaven", "Yarrowick"}},
  };
  for (const auto& each : kCases) {
    for (const auto name : each.with) EXPECT_TRUE(FindProduct(name).*each.trait) << name;
    for (const auto name : each.without) {
      EXPECT_EQ(FindProduct(name).name, name);
      EXPECT_FALSE(FindProduct(name).*each.trait) << name;
    }
  }
}

TEST(Products, AreToldApartByTheWholeName) {
  for (const auto* name : {"", "Vorsham2", "vorsham", "Cobbenrath "}) {
    EXPECT_FALSE(OemAttributeFamily(name)) << name;
    EXPECT_EQ(FindProduct(name).name, "");
  }
}

// ---- Detection ----

struct Source {
  std::string_view model, firmware = "ABC10001", serial = "BTWL407301AB480QGN";

  PropertyList ToProperties() const {
    PropertyList properties;
    properties.Add(DeviceProperty(Properties::ModelNumber, model));
    properties.Add(DeviceProperty(Properties::Firmware, firmware));
    properties.Add(DeviceProperty(Properties::SerialNumber, serial));
    return properties;
  }
};

PropertyList Detect(PropertyList source) { return ProductDetection(source).GetOutput(); }
PropertyList Detect(const Source& source) { return Detect(source.ToProperties()); }

struct Known {
  Source source;
  std::string_view product, oem, protocol;
  bool lsi = false;
};

TEST(ProductDetection, KnowsDrives) {
  constexpr Known kKnown[] = {
      {{"MORVU SSDSC2BB480G4"}, "Cobbenrath", "Generic", "ATA"},
      {{"morvu ssdsc2bb480g4"}, "Cobbenrath", "Generic", "ATA"},
      {{"MORVU SSDSC2BB480G4", "D2010370", "BTTS407301AB480BGN"}, "Cobbenrath", "Dell", "ATA"},
      {{"MORVU SSDSC2BB480G4", "D2010370", "btts407301ab480bgn"}, "Cobbenrath", "Dell", "ATA"},
      {{"MORVU SSDSC2BB480G4", "D2010370", "BTTS407301AB480QGN"}, "Cobbenrath", "Generic", "ATA"},
      {{"MORVU SSDSC2BB480G4", "D2010370", "FJ1"}, "Cobbenrath", "Fujitsu", "ATA"},
      {{"MORVU SSDSC2BA200G3"}, "Vorsham", "Generic", "ATA"},
      {{"VK0480GMVCO"}, "Cobbenrath", "HP", "ATA"},
      {{"MORVU SSDSC2CF240F3", "LCW10001"}, "Fennimoor", "Generic", "ATA", true},
      {{"MORVU SSDSC2CF240F3", "LCV10001"}, "Fennimoor", "Lenovo", "ATA", true},
      {{"MORVU SSDPE2MD800G4", "8DV10171"}, "Caldrome", "Generic", "NVME"},
      {{"MORVU SSDPEDMD400G4", "8DV10171"}, "Caldrome", "Generic", "NVME"},
      {{"SSD400SAS", "A001", "SAS00012"}, "Ulmersand", "Generic", "SCSI"},
      {{"SSD400SAS", "DU01", "SAS00012"}, "Ulmersand", "Dell", "SCSI"},
  };
  for (const auto& known : kKnown) {
    SCOPED_TRACE(known.source.model);
    const auto output = Detect(known.source);
    EXPECT_TRUE(output.GetBool(Properties::Morvu));
    EXPECT_EQ(known.product, output.GetString(Properties::Product));
    EXPECT_EQ(known.oem, output.GetString(Properties::OEM));
    EXPECT_EQ(known.protocol, output.GetString(Properties::ProductProtocol));
    EXPECT_EQ(known.lsi, output.GetBool(Properties::LSI));
    EXPECT_EQ(known.lsi, output.Has(Properties::LSI));
    EXPECT_EQ(5u, output.GetString(Properties::ConfigID).size());
    EXPECT_TRUE(output.GetString(Properties::ProductFamily).starts_with("Morvu SSD "));
  }
}

TEST(ProductDetection, LeavesForeignDrivesAlone) {
  constexpr Source kForeign[] = {
      {""}, {"", "", ""}, {"QEMU HARDDISK"}, {"SSD400"}, {"XSSDSC2BB480G4", "D2010370", "BTTS4"},
  };
  for (const auto& source : kForeign) {
    EXPECT_TRUE(Detect(source).IsEmpty()) << source.model;
  }
  EXPECT_TRUE(Detect(PropertyList()).IsEmpty());
}

TEST(ProductDetection, TakesAnUnknownModelForAnUnnamedDrive) {
  const auto output = Detect({"a Morvu of tomorrow"});
  EXPECT_TRUE(output.GetBool(Properties::Morvu));
  EXPECT_EQ("Morvu SSD", output.GetString(Properties::ProductFamily));
  EXPECT_FALSE(output.Has(Properties::Product));
}

TEST(ProductDetection, OfACutModelTellsProductAndProtocolAlone) {
  const auto output = Detect({"MORVU SSDSC2BB48", "0370", ""});
  EXPECT_TRUE(output.GetBool(Properties::Morvu));
  EXPECT_EQ("Cobbenrath", output.GetString(Properties::Product));
  EXPECT_EQ("ATA", output.GetString(Properties::ProductProtocol));
  EXPECT_EQ("Morvu SSD", output.GetString(Properties::ProductFamily));
  EXPECT_FALSE(output.Has(Properties::OEM));
}

TEST(ProductDetection, KnowsOlderDrivesByTheirSerialNumber) {
  struct Case {
    std::string_view serial, product;
  };
  constexpr Case kCases[] = {
      {"CVEM12345678080AGN", "Yarrowick"},
      {"CVEM12345678080HGN", "Yarrowick"},
      {"CVEM12345678080KGN", "Yarrowick 2"},
      {"CVEM12345678160TGN", "Yarrowick 2"},
      {"cvem12345678160tgn", "Yarrowick 2"},
      {"CVEM12345678080XGN", ""},
      {"CVEM12345678999AGN", ""},
      {"CVEM1234567080AGN", ""},
      {"CVEM123456789080AGN", ""},
      {"CVXX12345678080AGN", ""},
      {"CVTW12345678160AGN", "Tarnwell"},
      {"CVTW12345678160KGN", "Tarnwell Refresh"},
      {"CVEX12345678032QGN", "Yarrowick SLC"},
  };
  for (const auto& row : kCases) {
    const auto output = Detect({"SSD", "", row.serial});
    EXPECT_EQ(row.product, output.GetString(Properties::Product)) << row.serial;
    EXPECT_EQ(!row.product.empty(), output.GetBool(Properties::Morvu)) << row.serial;
  }
  EXPECT_EQ(
      "Cobbenrath",
      Detect({"MORVU SSDSC2BB480G4", "", "CVEM12345678080AGN"}).GetString(Properties::Product));
}

TEST(ProductDetection, TellsOpalInTheSeries) {
  struct Case {
    std::string_view model;
    bool hasText, hasRemoteErase;
  };
  constexpr Case kCases[] = {
      {"MORVU SSDSC2BN240N5", true, false},   // Nolvaine
      {"MORVU SSDSC2DK240D5", true, true},    // Drennick
      {"MORVU SSDSC2DR240D5", true, true},    // DrennickRefresh
      {"MORVU SSDSC2DW240D5", false, false},  // DrennickRefresh2
      {"MORVU SSDSC2DW240H6", false, false},  // DrennickRefresh535
  };
  for (const auto& row : kCases) {
    SCOPED_TRACE(row.model);
    auto source = Source{row.model}.ToProperties();
    for (const bool opal : {false, true}) {
      source.Add(DeviceProperty(Properties::TCGSupported, opal));
      const auto output = Detect(source);
      const auto series = output.GetString(Properties::ProductFamily);
      EXPECT_EQ(row.hasText && opal, series.ends_with(" Opal Ready")) << series;
      EXPECT_EQ(row.hasText && !opal, series.ends_with(" No Opal")) << series;
      EXPECT_EQ(row.hasText, output.GetBool(Properties::DigitalFenceSupported));
      EXPECT_EQ(row.hasRemoteErase, output.GetBool(Properties::RemoteSecureEraseSupported));
    }
  }
}

TEST(ProductDetection, IsNotDoubledWhenItRunsAgain) {
  auto properties = Source{"MORVU SSDSC2DK240D5"}.ToProperties();
  for (int i = 0; i < 3; ++i) ProductDetection(properties).Merge(properties);
  EXPECT_EQ("Morvu SSD Business D70 Series No Opal",
            properties.GetString(Properties::ProductFamily));
}

TEST(ProductDetection, TakesASharedModelOnlyWithItsSerialNumbersLength) {
  for (const auto* model : {"AHSLC016MSA", "AHMLC064MSA"}) {
    EXPECT_TRUE(Detect({model, "", "12345678"}).GetBool(Properties::Morvu));
    for (const auto* serial : {"", "1234567", "123456789"}) {
      const auto output = Detect({model, "", serial});
      EXPECT_FALSE(output.Has(Properties::Morvu));
      EXPECT_FALSE(output.Has(Properties::Product));
      EXPECT_FALSE(output.Has(Properties::ProductFamily));
    }
  }
}

TEST(ProductDetection, OfALogicalVolumeIsNoProduct) {
  auto source = Source{"MORVU SSDSC2BB480G4"}.ToProperties();
  source.Add(DeviceProperty(Properties::RAID, true));
  source.Add(DeviceProperty(Properties::Product, "Cobbenrath"));
  source.Add(DeviceProperty(Properties::ProductFamily, "Morvu SSD"));
  ProductDetection(source).Merge(source);
  EXPECT_FALSE(source.Has(Properties::Product));
  EXPECT_FALSE(source.Has(Properties::ProductFamily));
  EXPECT_TRUE(source.GetBool(Properties::Morvu));

  auto unknown = Source{"MORVU VOLUME"}.ToProperties();
  unknown.Add(DeviceProperty(Properties::RAID, true));
  EXPECT_TRUE(Detect(unknown).IsEmpty());
}

TEST(ProductDetection, SurvivesAnyText) {
  const std::string longText(100000, '.');
  const std::string bytes("\x00\xFF[(*\n", 6);
  for (const auto& text : {longText, bytes}) {
    for (const auto* model : {"MORVU SSDSC2BB480G4", ""}) Detect({model, text, text});
    Detect({text, text, text});
  }
}

}  // namespace
}  // namespace Morvu::DeviceManagement
