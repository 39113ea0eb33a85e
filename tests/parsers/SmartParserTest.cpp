#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <boost/property_tree/ptree.hpp>

#include "devices/model/Drive.h"
#include "devices/properties/BasicProperties.h"
#include "devices/properties/ProductProperties.h"
#include "frame/status/Drives.h"
#include "frame/status/Health.h"
#include "messaging/XmlMessaging.h"
#include "messaging/drive_class/MorvuSSD.h"
#include "parsers/smart/Smart.h"
#include "parsers/smart/SmartAttribute_ATA.h"
#include "parsers/smart/SmartParser.h"
#include "parsers/smart/SmartParserCore_ATA.h"
#include "parsers/smart/SmartParserCore_NVMe.h"
#include "support/LogLines.h"
#include "support/Sweep.h"

namespace Morvu {
namespace {

using namespace Testing;
using DeviceManagement::Drive;
using DeviceManagement::SelectedDevices;
using Simulator::Fault;
using Simulator::Kind;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
namespace Properties = DeviceManagement::Properties;

// ---- What sectors mean, without a drive ----

struct Entry {
  std::uint8_t id;
  std::uint16_t flags;
  std::uint8_t normalized;
  std::uint8_t threshold;
  std::uint64_t raw = 0;
};

constexpr std::uint16_t kOldAge = 0x0032;
constexpr std::uint16_t kPreFailure = 0x0033;

class AtaSectors : public ::testing::Test {
 protected:
  // The core after it has read the entries, one behind the other.
  SmartParserCore_ATA& Parse(std::initializer_list<Entry> entries) {
    std::array<std::uint8_t, 512> data{};
    std::array<std::uint8_t, 512> thresholds{};
    std::size_t offset = 2;
    for (const auto& entry : entries) {
      data[offset] = entry.id;
      WriteLittle16(entry.flags, offset + 1, data);
      data[offset + 3] = entry.normalized;
      data[offset + 4] = 77;
      WriteLittle(entry.raw, offset + 5, 6, data);
      data[offset + 11] = 0xEE;
      thresholds[offset] = 0x33;  // not the attribute's ID
      thresholds[offset + 1] = entry.threshold;
      offset += 12;
    }
    core_ = std::make_unique<SmartParserCore_ATA>(&drive_);
    core_->ParseSectors(data, thresholds);
    return *core_;
  }
  const SmartAttribute_ATA& Get(const std::string& id) const {
    return dynamic_cast<const SmartAttribute_ATA&>(*core_->GetAttributes().at(id));
  }

  Drive drive_;
  std::unique_ptr<SmartParserCore_ATA> core_;
};

TEST_F(AtaSectors, OfZerosHoldNothingAndAreHealthy) {
  const auto& core = Parse({});
  EXPECT_THAT(core.GetAttributes(), IsEmpty());
  EXPECT_THAT(core.GetTable().GetDataRows(), IsEmpty());
  EXPECT_EQ(core.SmartHealth(), 100);
  EXPECT_EQ(core.SmartLife(), 100);
}

TEST_F(AtaSectors, TakeAThresholdByItsPlace) {
  // The empty slot's threshold belongs to nobody.
  Parse({{0x05, kPreFailure, 100, 36}, {0, 0, 0, 99}, {0x0C, kOldAge, 90, 12}});
  EXPECT_EQ(Get("05").GetThreshold(), 36);
  EXPECT_EQ(Get("05").GetWorst(), 77);
  EXPECT_EQ(Get("05").GetStatus(), kPreFailure);
  EXPECT_EQ(Get("0C").GetThreshold(), 12);
}

TEST_F(AtaSectors, JudgePreFailureAttributesAndEndToEndErrors) {
  Parse({{0x01, kPreFailure, 51, 50},      // above
         {0x02, kPreFailure, 50, 50},      // at it
         {0x03, kPreFailure, 0, 0},        // at a threshold of zero
         {0x04, kOldAge, 1, 50},           // below, but only old
         {0xB8, kOldAge, 90, 90},          // end-to-end errors count in any case
         {0x05, kPreFailure, 200, 255}});  // unsigned
  EXPECT_EQ(Get("01").GetResult(), "Pass");
  EXPECT_EQ(Get("02").GetResult(), "Fail");
  EXPECT_EQ(Get("03").GetResult(), "Fail");
  EXPECT_EQ(Get("04").GetResult(), "Pass");
  EXPECT_EQ(Get("B8").GetResult(), "Fail");
  EXPECT_EQ(Get("05").GetResult(), "Fail");
}

TEST_F(AtaSectors, TellHealthAndLife) {
  EXPECT_EQ(Parse({{0x04, kOldAge, 1, 50}}).SmartHealth(), 100);
  EXPECT_EQ(Parse({{0x05, kPreFailure, 1, 50}}).SmartHealth(), 50);
  EXPECT_EQ(Parse({{0xE9, kOldAge, 99, 0}}).SmartLife(), 99);
  EXPECT_EQ(Parse({{0xE9, kOldAge, 99, 0}}).SmartHealth(), 100);
  // Worn out: also where another attribute failed, before or behind it.
  EXPECT_EQ(Parse({{0x05, kPreFailure, 1, 50}, {0xE9, kOldAge, 1, 0}}).SmartHealth(), 5);
  EXPECT_EQ(Parse({{0xE9, kOldAge, 1, 0}, {0xEA, kPreFailure, 1, 50}}).SmartHealth(), 5);
  EXPECT_EQ(core_->SmartLife(), 1);
  // By way of a fraction, cut to an integer; the same in both widths.
  EXPECT_EQ(Parse({{0xE9, kOldAge, 100, 0}}).SmartLife(), 100);
  EXPECT_EQ(Parse({{0xE9, kOldAge, 29, 0}}).SmartLife(), 28);
  EXPECT_EQ(Parse({{0xE9, kOldAge, 58, 0}}).SmartLife(), 57);
  EXPECT_EQ(Parse({{0xE9, kOldAge, 0, 0}}).SmartLife(), 0);
}

TEST_F(AtaSectors, CutThePowerOnHoursBehindTheRaidAdapterAlone) {
  Parse({{0x09, kOldAge, 100, 0, 0x123400001000}, {0x0C, kOldAge, 100, 0, 0x123400001000}});
  EXPECT_EQ(Get("09").GetRaw(), 0x123400001000U);
  drive_.AddProperty(Properties::LSI, true);
  Parse({{0x09, kOldAge, 100, 0, 0x123400001000}, {0x0C, kOldAge, 100, 0, 0x123400001000}});
  EXPECT_EQ(Get("09").GetRaw(), 0x1000U);
  EXPECT_EQ(Get("0C").GetRaw(), 0x123400001000U);
}

TEST_F(AtaSectors, HideTheWorkloadOfOneProduct) {
  struct Case {
    const char* product;
    std::size_t left;
  };
  for (const auto& each :
       {Case{"Yarrowick", 1}, Case{"Yarrowick SLC", 1}, Case{"Yarrowick 2", 4}, Case{"", 4}}) {
    drive_.AddProperty(Properties::Product, each.product);
    const auto& core = Parse({{0xE2, kOldAge, 100, 0},
                              {0xE3, kOldAge, 100, 0},
                              {0xE4, kPreFailure, 0, 10},
                              {0xE5, kOldAge, 100, 0}});
    EXPECT_EQ(core.GetAttributes().size(), each.left) << each.product;
    EXPECT_EQ(core.SmartHealth(), each.left == 1 ? 100 : 50) << each.product;
  }
}

TEST_F(AtaSectors, KeepTheLaterOfTwoEntriesAndOrderByIdText) {
  const auto& core = Parse({{0xC5, kOldAge, 1, 0}, {0x0C, kOldAge, 2, 0}, {0xC5, kOldAge, 3, 0}});
  std::vector<std::string> ids;
  for (const auto* row : core.GetTable().GetDataRows()) ids.push_back(row->cells.at(0).text);
  EXPECT_THAT(ids, ElementsAre("0C", "C5"));
  EXPECT_EQ(Get("C5").GetNormalized(), 3);
}

TEST_F(AtaSectors, MayBeShortOrFull) {
  SmartParserCore_ATA core(&drive_);
  core.ParseSectors({}, {});
  EXPECT_THAT(core.GetAttributes(), IsEmpty());
  const std::array<std::uint8_t, 20> small{0, 0, 0x05};
  core.ParseSectors(small, {});
  EXPECT_EQ(core.GetAttributes().size(), 1U);
  std::array<std::uint8_t, 512> ones;
  ones.fill(0xFF);
  core.ParseSectors(ones, ones);  // 30 times the same ID
  EXPECT_EQ(core.GetAttributes().size(), 2U);
  EXPECT_EQ(core.GetAttributes().at("FF")->GetRaw(), 0xFFFFFFFFFFFFU);
}

class NvmeList : public ::testing::Test {
 protected:
  NvmeList() { drive_.AddProperty(Properties::Product, "Caldrome"); }
  // `count` entries with IDs from 1 on, in a list of 512 bytes.
  bool Parse(std::size_t count) {
    std::array<std::uint8_t, 512> list{};
    for (std::size_t i = 0; i < count && i * 12 < list.size(); ++i) {
      list[i * 12] = static_cast<std::uint8_t>(i + 1);
    }
    core_ = std::make_unique<SmartParserCore_NVMe>(&drive_);
    return core_->ParseList(list);
  }
  Drive drive_;
  std::unique_ptr<SmartParserCore_NVMe> core_;
};

TEST_F(NvmeList, EndsWithTheFirstZero) {
  EXPECT_TRUE(Parse(0));
  EXPECT_TRUE(Parse(20));
  EXPECT_EQ(core_->GetAttributes().size(), 20U);
  EXPECT_TRUE(core_->GetAttributes().contains("F"));  // no digit in front of it
  EXPECT_TRUE(core_->GetAttributes().contains("10"));
  EXPECT_EQ(core_->SmartHealth(), 100);
}

TEST_F(NvmeList, HoldsWholeEntriesOnly) {
  EXPECT_TRUE(Parse(42));  // the zero stands in the last 8 bytes
  EXPECT_EQ(core_->GetAttributes().size(), 42U);
  EXPECT_FALSE(Parse(43));  // the 43rd has no room
  EXPECT_EQ(core_->GetAttributes().size(), 42U);
  EXPECT_EQ(core_->GetErrorCode(), Status::ReadyToRun);
}

// ---- Drives ----

constexpr std::uint8_t kReadDma = 0xC8;
constexpr std::uint8_t kSmart = 0xB0;
constexpr std::uint8_t kReadData = 0xD0;
constexpr std::uint8_t kReadThresholds = 0xD1;

struct SmartScene : DriveScene {
  using DriveScene::DriveScene;
  StatusCode Run(ProgressReporter& reporter) override {
    parser = std::make_unique<SmartParser>(device(), reporter);
    if (parser->GetErrorCode() == Status::ReadyToRun) parser->Execute();
    return parser->GetErrorCode();
  }
  std::unique_ptr<SmartParser> parser;
};

struct AtaScene : SmartScene {
  AtaScene() : SmartScene({.model = "MORVU SSDSC2BB480G4", .serial = "BTWL402600K4480QGN"}) {}
};

struct NvmeScene : SmartScene {
  NvmeScene() : SmartScene({.kind = Kind::Nvme, .model = "MORVU SSDPE2MD800G4"}) {}
  void Prepare() override {
    SmartScene::Prepare();
    if (device() != nullptr) device()->AddProperty(Properties::Product, "Tovarik");
  }
};

TEST(SmartParser, ReadsTheFirstSectorThenDataThenThresholds) {
  AtaScene scene;
  const auto run = RunScene(scene, nullptr, 0);
  EXPECT_EQ(run.code, 0);
  ASSERT_GE(run.commands.size(), 3U);
  const auto* last = &run.commands.back();
  EXPECT_EQ(last[-2].AtaOpcode(), kReadDma);
  EXPECT_EQ(last[-2].Lba(), 0U);
  EXPECT_EQ(last[-2].Count(), 1);
  EXPECT_EQ(last[-1].AtaOpcode(), kSmart);
  EXPECT_EQ(last[-1].Features(), kReadData);
  EXPECT_EQ(last[0].Features(), kReadThresholds);
  EXPECT_EQ(scene.parser->GetAttributes().size(), 18U);
  EXPECT_EQ(scene.parser->SmartLife(), 99);
  EXPECT_EQ(scene.parser->SmartHealth(), 100);
  EXPECT_EQ(scene.parser->GetState(), FeatureState::Finished);
}

TEST(SmartParser, ReadsAgainAfresh) {
  AtaScene scene;
  ASSERT_EQ(RunScene(scene, nullptr, 0).code, 0);
  const auto text = scene.parser->GetTable().Render();
  scene.drive.State().ata.attributes[0].id = 0;
  ASSERT_TRUE(scene.parser->Execute());
  EXPECT_EQ(scene.parser->GetAttributes().size(), 17U);
  EXPECT_EQ(scene.parser->GetTable().GetHeaderRows().size(), 1U);
  EXPECT_LT(scene.parser->GetTable().Render().size(), text.size());
}

TEST(SmartParser, WritesTheDriveAndItsAttributesAsATree) {
  AtaScene scene;
  boost::property_tree::ptree before;
  scene.Prepare();
  SmartParser(scene.device()).WriteData(before);
  EXPECT_FALSE(before.get_child("data").get_child_optional("smart_attributes"));

  ASSERT_EQ(scene.Run(NoReporter()), 0);
  boost::property_tree::ptree tree;
  scene.parser->WriteData(tree);
  EXPECT_EQ(tree.get<std::string>("data.drive.serial"), "BTWL402600K4480QGN");
  const auto& attributes = tree.get_child("data.smart_attributes");
  EXPECT_EQ(attributes.size(), 18U);
  const auto& temperature = std::next(attributes.begin(), 10)->second;
  EXPECT_EQ(temperature.get<std::string>("id"), "BE");
  EXPECT_EQ(temperature.get<std::string>("raw"), "0x1C");
  EXPECT_EQ(temperature.get<std::string>("worst"), "60");
  EXPECT_EQ(temperature.get<std::string>("pass"), "Pass");
  EXPECT_EQ(temperature.get<std::string>("breakdown.field.description"), "Current degree C");
  EXPECT_EQ(temperature.get<std::string>("breakdown.field.value"), "28");
}

TEST(SmartParser, SurvivesGarbage) {
  for (const auto garbage :
       {Simulator::Garbage::Zeros, Simulator::Garbage::Ones, Simulator::Garbage::Random}) {
    AtaScene scene;
    auto fault = Fault::GarbageData(garbage).OnOpcode(kSmart);
    EXPECT_EQ(RunScene(scene, &fault, 0).code, 0);
    EXPECT_LE(scene.parser->GetAttributes().size(), 30U);
    EXPECT_FALSE(scene.parser->GetTable().Render().empty());
  }
}

// A sector of which fewer bytes came, with nothing said of it.
TEST(SmartParser, RefusesAShortSector) {
  struct Case {
    std::uint8_t feature;
    std::uint32_t bytes;
    StatusCode code;
  };
  constexpr Case kCases[] = {
      {kReadData, 1, Status::SmartDataFailed},    // nothing that would fail
      {kReadData, 17, Status::SmartDataFailed},   // an attribute without its value
      {kReadData, 361, Status::SmartDataFailed},  // attributes alone
      {kReadThresholds, 0, Status::SmartThresholdsFailed},
      {kReadThresholds, 2, Status::SmartThresholdsFailed},
      {kReadThresholds, 100, Status::SmartThresholdsFailed},
  };
  for (const auto& each : kCases) {
    AtaScene scene;
    auto fault = Fault::ShortData(each.bytes).OnOpcode(kSmart).OnFeature(each.feature);
    EXPECT_EQ(RunScene(scene, &fault, 0).code, each.code) << each.bytes;
    EXPECT_EQ(scene.parser->GetState(), FeatureState::Failed);
    EXPECT_THAT(scene.parser->GetTable().GetRows(), IsEmpty());
  }
}

TEST(SmartParser, ReadsADriveThatKeepsNoChecksum) {
  for (const auto feature : {kReadData, kReadThresholds}) {
    AtaScene scene;
    auto fault = Fault::ShortData(511).OnOpcode(kSmart).OnFeature(feature);
    const LogLines log;
    EXPECT_EQ(RunScene(scene, &fault, 0).code, 0);
    EXPECT_EQ(scene.parser->GetAttributes().size(), 18U);
    const auto text =
        feature == kReadData ? "SMART data sector is wrong" : "SMART threshold sector";
    EXPECT_THAT(log.GetText(), ::testing::HasSubstr(text));
  }
}

TEST(SmartParser, ReadsTheListOfAnNvmeDrive) {
  NvmeScene scene;
  const auto run = RunScene(scene, nullptr, 0);
  EXPECT_EQ(run.code, 0);
  const auto& last = run.commands.back();
  EXPECT_EQ(last.Opcode(), 0x02);
  EXPECT_EQ(last.Cdw(10), 0x008000CAU);
  EXPECT_EQ(last.NvmeNamespace(), 1U);
  EXPECT_THAT(scene.parser->GetAttributes().at("AD")->GetDescription(), "Wear Leveling Count");
  EXPECT_EQ(scene.parser->SmartHealth(), 100);
}

TEST(SmartParser, AsksForNoNamespaceWithoutALogicalUnit) {
  NvmeScene scene;
  scene.Prepare();
  scene.device()->GetProperties().Remove(Properties::Lun);
  scene.drive.ClearJournal();
  EXPECT_EQ(scene.Run(NoReporter()), 0);
  EXPECT_EQ(scene.drive.Journal().back().NvmeNamespace(), 0U);
}

TEST(SmartParser, LeavesTheCodeOfAListWithoutAnEnd) {
  NvmeScene scene;
  auto fault = Fault::GarbageData(Simulator::Garbage::Ones).OnOpcode(0x02);
  EXPECT_EQ(RunScene(scene, &fault, 0).code, Status::ReadyToRun);
  EXPECT_EQ(scene.parser->GetState(), FeatureState::Running);
}

// ---- Refusals ----

struct RefusalCase {
  std::string_view name;
  bool isRaid, hasFault;
  std::string_view error;
  StatusCode code;
};

TEST(SmartParser, RefusesInOrder) {
  constexpr RefusalCase kCases[] = {
      {"RAID volume", true, false, "", Status::RaidVolume},
      {"RAID volume with a fault", true, true, "ASSERT_1", Status::RaidVolume},
      {"device fault", false, true, "", Status::DeviceFault},
      {"device fault before a failure", false, true, "ASSERT_1", Status::DeviceFault},
      {"failure reported", false, false, "ASSERT_1", Status::DisableLogical},
  };
  for (const auto& each : kCases) {
    AtaScene scene;
    scene.Prepare();
    scene.device()->AddProperty(Properties::RAID, each.isRaid);
    scene.device()->AddProperty(Properties::ErrorString, each.error);
    // The test of the connection, which comes first, reads the status anew.
    if (each.hasFault) scene.drive.Inject(Fault::AtaError(0x71, 0x04).OnOpcode(0x00).Times(0));
    SmartParser parser(scene.device());
    EXPECT_EQ(parser.GetErrorCode(), each.code) << each.name;
    EXPECT_EQ(parser.SmartHealth(), 0);
    EXPECT_EQ(parser.SmartLife(), 0);
    EXPECT_THAT(parser.GetAttributes(), IsEmpty());
    EXPECT_FALSE(parser.Execute());
    EXPECT_EQ(parser.GetErrorCode(), Status::NoCommunication);
  }
}

TEST(SmartParser, RefusesOtherProductsAndTransports) {
  NvmeScene other;
  other.Prepare();
  other.device()->AddProperty(Properties::Product, "Tarnwell");
  EXPECT_EQ(SmartParser(other.device()).GetErrorCode(), Status::NotSupportedByDrive);
  EXPECT_EQ(FindDriveMethod("SmartParser")->method->Describe(other.device()), nullptr);
  EXPECT_EQ(SmartParser(nullptr).GetErrorCode(), Status::NoCommunication);
}

TEST(Smart, TellsTheLastDrivesCodeUnlessOneWasGood) {
  AtaScene scene;
  scene.Prepare();
  JobContext context;
  const auto read = [&](std::initializer_list<bool> good) {
    SelectedDevices devices;
    for (const bool isGood : good) {
      devices.devices.push_back(scene.device()->Clone());
      devices.devices.back()->AddProperty(Properties::RAID, !isGood);
    }
    return Smart::ReadDrives(context, devices.GetDevices());
  };
  EXPECT_EQ(read({true, false}), 0);
  EXPECT_EQ(read({false, true}), 0);
  EXPECT_EQ(read({false}), Status::RaidVolume);
}

}  // namespace
}  // namespace Morvu
