// The features of NVMe drives: their tables, properties, method and option.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "frame/status/Drives.h"
#include "frame/status/NvmeStatus.h"
#include "frame/status/Selection.h"
#include "parsers/nvme/GetFeature_NVMe.h"
#include "support/SettingScene.h"

namespace Morvu {
namespace {

using EraseTesting::NvmeSpec;
using EraseTesting::SataSpec;
using Simulator::Fault;
using Simulator::FeatureScope;
using ::testing::HasSubstr;
using ::testing::Not;
using Testing::SettingScene;

constexpr int kGetFeatures = 0x0A;

// ---- Tables ----

struct FeatureTable {
  std::uint8_t id;
  std::uint32_t value;
  std::string_view title;
  std::string_view rows;  // behind the header
};
void PrintTo(const FeatureTable& table, std::ostream* out) { *out << table.title; }
class FeatureTables : public ::testing::TestWithParam<FeatureTable> {};

TEST_P(FeatureTables, ShowWhatTheDriveTells) {
  SettingScene scene(NvmeSpec());
  scene.drive.State().nvme.features[GetParam().id].value = GetParam().value;
  scene.drive.ClearJournal();
  GetFeature_NVMe get(scene.device(), *FindNvmeFeature(GetParam().id));
  ASSERT_EQ(get.GetErrorCode(), Status::ReadyToRun);
  EXPECT_TRUE(get.Execute());
  EXPECT_EQ(get.GetErrorCode(), Status::Completed);
  EXPECT_EQ(get.GetTitle(), GetParam().title);
  EXPECT_EQ(get.GetTable().ToSeparated(), "'Field','Value'\n" + std::string(GetParam().rows));
  const auto sent = scene.Commands(kGetFeatures);
  ASSERT_EQ(sent.size(), 1U);
  EXPECT_EQ(sent[0].NvmeNamespace(), 0U);
  EXPECT_EQ(sent[0].Cdw(10), GetParam().id);
  EXPECT_EQ(sent[0].Cdw(11), 0U);
  EXPECT_EQ(sent[0].transferLength, GetParam().id == 194 ? 64U : 0U);
}

// clang-format off
INSTANTIATE_TEST_SUITE_P(GetFeature, FeatureTables, ::testing::Values(
    FeatureTable{1, 0x04030205, "Arbitration",
        "Raw Value,0x04030205\nArbitration Burst,5\nLow Priority Weight,2\n"
        "Medium Priority Weight,3\nHigh Priority Weight,4"},
    FeatureTable{1, 0xFFFFFFFF, "Arbitration",
        "Raw Value,0xFFFFFFFF\nArbitration Burst,7\nLow Priority Weight,255\n"
        "Medium Priority Weight,255\nHigh Priority Weight,255"},
    FeatureTable{2, 0x0000003F, "Power Management", "Raw Value,0x0000003F\nPower State,31"},
    FeatureTable{4, 0x00010157, "Temperature Threshold",
        "Raw Value,0x00010157\nTemperature Threshold,70 degree C"},
    FeatureTable{4, 0, "Temperature Threshold",
        "Raw Value,0x00000000\nTemperature Threshold,65263 degree C"},
    FeatureTable{5, 0x00010007, "Error Recovery",
        "Raw Value,0x00010007\nTime Limited Error Recovery (100 ms),7"},
    FeatureTable{6, 3, "Volatile Write Cache",
        "Raw Value,0x00000003\nVolatile Write Cache Enable,1"},
    FeatureTable{7, 0x001F0007, "Number of Queues",
        "Raw Value,0x001F0007\nNumber of IO Completion Queues Requested,31\n"
        "Number of IO Submission Queues Requested,7"},
    FeatureTable{8, 0x00000A05, "Interrupt Coalescing",
        "Raw Value,0x00000A05\nAggregation Threshold,5\nAggregation Time,10"},
    FeatureTable{9, 0x00010003, "Interrupt Vector Config",
        "Raw Value,0x00010003\nInterrupt Vector,3\nCoalescing Disable,1"},
    FeatureTable{10, 1, "Write Atomicity", "Raw Value,0x00000001\nDisable Normal,1"},
    FeatureTable{11, 0x0000011F, "Async Event Config",
        "Raw Value,0x0000011F\nSMART / Health Critical Warnings,31"},
    FeatureTable{194, 0, "Native Max LBA", "Native Max LBA,0x1FF"},
    FeatureTable{198, 1, "Power Governor", "Power Governor Setting,1 (20W)"},
    FeatureTable{198, 0x103, "Power Governor", "Power Governor Setting,3 (Unknown)"}));
// clang-format on

// Eight bytes of data, in sectors of 512; the family with sectors of 4,096 counts otherwise.
TEST(GetFeature, ShiftsTheNativeMaximumOfLargeSectors) {
  auto spec = NvmeSpec();
  spec.sectorSize = 4096;
  spec.sectors = 1 << 20;
  SettingScene scene(spec);
  GetFeature_NVMe get(scene.device(), *FindNvmeFeature(194));
  get.Execute();
  EXPECT_THAT(get.GetTable().ToSeparated(), HasSubstr("Native Max LBA,0x3FFF"));
}

// ---- Namespaces ----

struct AimedFeature {
  FeatureScope scope;
  std::uint16_t fault;  // that meets the first command
  std::vector<std::uint32_t> namespaces;
};
class FeatureNamespaces : public ::testing::TestWithParam<AimedFeature> {};

// Namespace 3 has the first node: what the kernel calls it counts.
TEST_P(FeatureNamespaces, AreTriedOnceMore) {
  auto spec = NvmeSpec();
  spec.nsids = {3};
  SettingScene scene(spec);
  scene.drive.State().nvme.features[5].scope = GetParam().scope;
  scene.drive.ClearJournal();
  if (GetParam().fault != 0) scene.drive.Inject(Fault::NvmeStatus(GetParam().fault).Times(1));
  GetFeature_NVMe get(scene.device(), *FindNvmeFeature(5));
  get.Execute();
  const bool isRetried = GetParam().namespaces.size() == 2;
  EXPECT_EQ(get.GetErrorCode() == Status::Completed, GetParam().fault == 0 || isRetried);
  std::vector<std::uint32_t> namespaces;
  for (const auto& sent : scene.Commands(kGetFeatures)) namespaces.push_back(sent.NvmeNamespace());
  EXPECT_EQ(namespaces, GetParam().namespaces);
}

INSTANTIATE_TEST_SUITE_P(GetFeature, FeatureNamespaces,
                         ::testing::Values(AimedFeature{FeatureScope::Any, 0, {0}},
                                           AimedFeature{FeatureScope::Controller, 0, {0}},
                                           AimedFeature{FeatureScope::Namespace, 0, {0, 3}},
                                           AimedFeature{FeatureScope::Any, 0x10F, {0, 3}},
                                           AimedFeature{FeatureScope::Any, 0x002, {0}}));

// ---- Properties ----

struct FeatureProperty {
  std::string_view name;
  std::uint8_t id;
  std::uint32_t value;
  std::string_view text;
};
void PrintTo(const FeatureProperty& property, std::ostream* out) { *out << property.name; }
class FeatureProperties : public ::testing::TestWithParam<FeatureProperty> {};

TEST_P(FeatureProperties, AreReadFromTheirFeatureAlone) {
  SettingScene scene(NvmeSpec());
  scene.drive.State().nvme.features[GetParam().id].value = GetParam().value;
  scene.drive.ClearJournal();
  EXPECT_EQ(scene.GetText(GetParam().name), GetParam().text);
  const auto sent = scene.drive.Journal();
  ASSERT_EQ(sent.size(), 1U);
  EXPECT_EQ(sent[0].Opcode(), kGetFeatures);
  EXPECT_EQ(sent[0].Cdw(10), GetParam().id);

  scene.drive.Inject(Fault::NvmeStatus(0x002).OnOpcode(kGetFeatures));
  const auto failed = scene.Get(GetParam().name);
  EXPECT_EQ(failed->value, "");
  EXPECT_EQ(failed->GetAttribute("status"), "2");
  EXPECT_EQ(failed->GetAttribute("detail"), "NVMe status 0x002 (Invalid Field in Command)");
}

// clang-format off
INSTANTIATE_TEST_SUITE_P(GetFeature, FeatureProperties, ::testing::Values(
    FeatureProperty{"ArbitrationBurst",                1, 0x04030205, "5"},
    FeatureProperty{"LowPriorityWeightArbitration",    1, 0x04030205, "2"},
    FeatureProperty{"MediumPriorityWeightArbitration", 1, 0x04030205, "3"},
    FeatureProperty{"HighPriorityWeightArbitration",   1, 0x04030205, "4"},
    FeatureProperty{"NVMePowerState",                  2, 2,          "2"},
    FeatureProperty{"TempThreshold",                   4, 0x0157,     "70"},
    FeatureProperty{"TimeLimitedErrorRecovery",        5, 9,          "9"},
    FeatureProperty{"IOCompletionQueuesRequested",     7, 0x001F0007, "31"},
    FeatureProperty{"IOSubmissionQueuesRequested",     7, 0x001F0007, "7"},
    FeatureProperty{"AggregationThreshold",            8, 0x00000A05, "5"},
    FeatureProperty{"Aggregation Time",                8, 0x00000A05, "10"},
    FeatureProperty{"WriteAtomicityDisableNormal",     10, 1,         "1"},
    FeatureProperty{"AsynchronousEventConfiguration",  11, 0x1F,      "31"}));
// clang-format on

TEST(GetFeature, ReadsEachFeatureOnceAListing) {
  SettingScene scene(NvmeSpec());
  scene.drive.ClearJournal();
  JobContext context;
  for (const auto& row : GetDriveProperties()) row.Describe(&context, scene.device());
  std::vector<std::uint32_t> ids;
  for (const auto& sent : scene.Commands(kGetFeatures)) ids.push_back(sent.Cdw(10) & 0xFF);
  std::ranges::sort(ids);
  EXPECT_EQ(std::ranges::adjacent_find(ids), ids.end());
  EXPECT_GE(ids.size(), 8U);
}

TEST(GetFeature, LeavesItsPropertiesOutOfASataDrive) {
  SettingScene scene(SataSpec());
  scene.drive.ClearJournal();
  EXPECT_EQ(scene.Get("ArbitrationBurst"), nullptr);
  EXPECT_EQ(scene.drive.Journal().size(), 0U);
}

// ---- Method and option ----

TEST(GetFeature, MethodGivesTheTablesThatTheDriveTells) {
  SettingScene scene(NvmeSpec());
  XmlMessaging::Message reply;
  JobContext context;
  context.reply = &reply;
  DeviceManagement::SelectedDevices devices;
  devices.devices.push_back(scene.device()->Clone());
  EXPECT_EQ(Testing::CallMethod(context, "GetFeatureNVMe", {}, devices), Status::Completed);
  ASSERT_EQ(reply.lists.size(), 12U);
  EXPECT_EQ(reply.lists[4]->GetAttribute("name"), "Volatile Write Cache");
  EXPECT_EQ(reply.lists[4]->GetAttribute("type"), "table");
  EXPECT_EQ(reply.lists[4]->objects.size(), 2U);

  reply.lists.clear();
  scene.drive.State().nvme.features[5].supported = 0;
  EXPECT_EQ(Testing::CallMethod(context, "GetFeatureNVMe", {}, devices), FromNvmeStatus(0x002));
  EXPECT_EQ(reply.lists.size(), 11U);
}

TEST(GetFeature, MethodIsHiddenOnASataDrive) {
  SettingScene scene(SataSpec());
  EXPECT_EQ(Testing::DescribeMethod("GetFeatureNVMe", scene.device()), nullptr);
}

struct FeatureLine {
  std::string id;
  StatusCode code;
};
class FeatureLines : public ::testing::TestWithParam<FeatureLine> {};

TEST_P(FeatureLines, ReadWhatTheyNameOrNothing) {
  SettingScene scene(NvmeSpec());
  scene.drive.ClearJournal();
  std::vector<std::string> words = {"-get_feature"};
  if (!GetParam().id.empty()) words.push_back(GetParam().id);
  EXPECT_EQ(scene.Line(words).code, GetParam().code);
  std::size_t reads = 0;
  for (const auto& sent : scene.Commands(kGetFeatures)) reads += (sent.Cdw(10) & 0xFF) != 0xC2;
  EXPECT_EQ(reads, GetParam().code == Status::Completed ? 1U : 0U);
}

INSTANTIATE_TEST_SUITE_P(
    GetFeature, FeatureLines,
    ::testing::Values(FeatureLine{"1", Status::Completed}, FeatureLine{"198", Status::Completed},
                      FeatureLine{"6", Status::InvalidFeatureId},
                      FeatureLine{"3", Status::InvalidFeatureId},
                      FeatureLine{"257", Status::InvalidFeatureId},
                      FeatureLine{"99999999999999999999", Status::InvalidFeatureId},
                      FeatureLine{"0x1", Status::InvalidArguments},
                      FeatureLine{"one", Status::InvalidArguments},
                      FeatureLine{"", Status::InvalidArguments}));

TEST(GetFeature, OptionShowsTheTableOrTheStatus) {
  SettingScene scene(NvmeSpec());
  EXPECT_THAT(scene.Line({"-get_feature", "4"}).output, HasSubstr("70 degree C"));
  scene.drive.Inject(Fault::NvmeStatus(0x002).OnOpcode(kGetFeatures).OnFeature(4));
  const auto outcome = scene.Line({"-get_feature", "4"});
  EXPECT_EQ(outcome.code, FromNvmeStatus(0x002));
  EXPECT_THAT(outcome.output, HasSubstr("NVMe status 0x002 (Invalid Field in Command)"));
  EXPECT_THAT(outcome.output, Not(HasSubstr("degree C")));
}

TEST(GetFeature, RefusesDrivesThatAreNotItsOwn) {
  SettingScene scene(SataSpec());
  EXPECT_EQ(scene.Line({"-get_feature", "1"}).code, Status::NotSupportedByDrive);
}

}  // namespace
}  // namespace Morvu
