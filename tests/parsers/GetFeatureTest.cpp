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

TEST(FeatureTables, ShowWhatTheDriveTells) {
  // clang-format off
  const FeatureTable kRows[] = {
    {1, 0x04030205, "Arbitration",
        "Raw Value,0x04030205\nArbitration Burst,5\nLow Priority Weight,2\n"
        "Medium Priority Weight,3\nHigh Priority Weight,4"},
    {1, 0xFFFFFFFF, "Arbitration",
        "Raw Value,0xFFFFFFFF\nArbitration Burst,7\nLow Priority Weight,255\n"
        "Medium Priority Weight,255\nHigh Priority Weight,255"},
    {2, 0x0000003F, "Power Management", "Raw Value,0x0000003F\nPower State,31"},
    {4, 0x00010157, "Temperature Threshold",
        "Raw Value,0x00010157\nTemperature Threshold,70 degree C"},
    {4, 0, "Temperature Threshold",
        "Raw Value,0x00000000\nTemperature Threshold,65263 degree C"},
    {5, 0x00010007, "Error Recovery",
        "Raw Value,0x00010007\nTime Limited Error Recovery (100 ms),7"},
    {6, 3, "Volatile Write Cache",
        "Raw Value,0x00000003\nVolatile Write Cache Enable,1"},
    {7, 0x001F0007, "Number of Queues",
        "Raw Value,0x001F0007\nNumber of IO Completion Queues Requested,31\n"
        "Number of IO Submission Queues Requested,7"},
    {8, 0x00000A05, "Interrupt Coalescing",
        "Raw Value,0x00000A05\nAggregation Threshold,5\nAggregation Time,10"},
    {9, 0x00010003, "Interrupt Vector Config",
        "Raw Value,0x00010003\nInterrupt Vector,3\nCoalescing Disable,1"},
    {10, 1, "Write Atomicity", "Raw Value,0x00000001\nDisable Normal,1"},
    {11, 0x0000011F, "Async Event Config",
        "Raw Value,0x0000011F\nSMART / Health Critical Warnings,31"},
    {194, 0, "Native Max LBA", "Native Max LBA,0x1FF"},
    {198, 1, "Power Governor", "Power Governor Setting,1 (20W)"},
    {198, 0x103, "Power Governor", "Power Governor Setting,3 (Unknown)"},
  };
  // clang-format on
  for (const auto& row : kRows) {
    SCOPED_TRACE(row.title);
    SettingScene scene(NvmeSpec());
    scene.drive.State().nvme.features[row.id].value = row.value;
    scene.drive.ClearJournal();
    GetFeature_NVMe get(scene.device(), *FindNvmeFeature(row.id));
    ASSERT_EQ(get.GetErrorCode(), Status::ReadyToRun);
    EXPECT_TRUE(get.Execute());
    EXPECT_EQ(get.GetErrorCode(), Status::Completed);
    EXPECT_EQ(get.GetTitle(), row.title);
    EXPECT_EQ(get.GetTable().ToSeparated(), "'Field','Value'\n" + std::string(row.rows));
    const auto sent = scene.Commands(kGetFeatures);
    ASSERT_EQ(sent.size(), 1U);
    EXPECT_EQ(sent[0].NvmeNamespace(), 0U);
    EXPECT_EQ(sent[0].Cdw(10), row.id);
    EXPECT_EQ(sent[0].Cdw(11), 0U);
    EXPECT_EQ(sent[0].transferLength, row.id == 194 ? 64U : 0U);
  }
}

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
// Namespace 3 has the first node: what the kernel calls it counts.
TEST(FeatureNamespaces, AreTriedOnceMore) {
  const AimedFeature kRows[] = {
      {FeatureScope::Any, 0, {0}},          {FeatureScope::Controller, 0, {0}},
      {FeatureScope::Namespace, 0, {0, 3}}, {FeatureScope::Any, 0x10F, {0, 3}},
      {FeatureScope::Any, 0x002, {0}},
  };
  for (const auto& row : kRows) {
    auto spec = NvmeSpec();
    spec.nsids = {3};
    SettingScene scene(spec);
    scene.drive.State().nvme.features[5].scope = row.scope;
    scene.drive.ClearJournal();
    if (row.fault != 0) scene.drive.Inject(Fault::NvmeStatus(row.fault).Times(1));
    GetFeature_NVMe get(scene.device(), *FindNvmeFeature(5));
    get.Execute();
    const bool isRetried = row.namespaces.size() == 2;
    EXPECT_EQ(get.GetErrorCode() == Status::Completed, row.fault == 0 || isRetried);
    std::vector<std::uint32_t> namespaces;
    for (const auto& sent : scene.Commands(kGetFeatures))
      namespaces.push_back(sent.NvmeNamespace());
    EXPECT_EQ(namespaces, row.namespaces);
  }
}

// ---- Properties ----

struct FeatureProperty {
  std::string_view name;
  std::uint8_t id;
  std::uint32_t value;
  std::string_view text;
};

TEST(FeatureProperties, AreReadFromTheirFeatureAlone) {
  // clang-format off
  const FeatureProperty kRows[] = {
    {"ArbitrationBurst",                1, 0x04030205, "5"},
    {"LowPriorityWeightArbitration",    1, 0x04030205, "2"},
    {"MediumPriorityWeightArbitration", 1, 0x04030205, "3"},
    {"HighPriorityWeightArbitration",   1, 0x04030205, "4"},
    {"NVMePowerState",                  2, 2,          "2"},
    {"TempThreshold",                   4, 0x0157,     "70"},
    {"TimeLimitedErrorRecovery",        5, 9,          "9"},
    {"IOCompletionQueuesRequested",     7, 0x001F0007, "31"},
    {"IOSubmissionQueuesRequested",     7, 0x001F0007, "7"},
    {"AggregationThreshold",            8, 0x00000A05, "5"},
    {"Aggregation Time",                8, 0x00000A05, "10"},
    {"WriteAtomicityDisableNormal",     10, 1,         "1"},
    {"AsynchronousEventConfiguration",  11, 0x1F,      "31"},
  };
  // clang-format on
  for (const auto& row : kRows) {
    SCOPED_TRACE(row.name);
    SettingScene scene(NvmeSpec());
    scene.drive.State().nvme.features[row.id].value = row.value;
    scene.drive.ClearJournal();
    EXPECT_EQ(scene.GetText(row.name), row.text);
    const auto sent = scene.drive.Journal();
    ASSERT_EQ(sent.size(), 1U);
    EXPECT_EQ(sent[0].Opcode(), kGetFeatures);
    EXPECT_EQ(sent[0].Cdw(10), row.id);

    scene.drive.Inject(Fault::NvmeStatus(0x002).OnOpcode(kGetFeatures));
    const auto failed = scene.Get(row.name);
    EXPECT_EQ(failed->value, "");
    EXPECT_EQ(failed->GetAttribute("status"), "2");
    EXPECT_EQ(failed->GetAttribute("detail"), "NVMe status 0x002 (Invalid Field in Command)");
  }
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
TEST(FeatureLines, ReadWhatTheyNameOrNothing) {
  const FeatureLine kRows[] = {
      {"1", Status::Completed},          {"198", Status::Completed},
      {"6", Status::InvalidFeatureId},   {"3", Status::InvalidFeatureId},
      {"257", Status::InvalidFeatureId}, {"99999999999999999999", Status::InvalidFeatureId},
      {"0x1", Status::InvalidArguments}, {"one", Status::InvalidArguments},
      {"", Status::InvalidArguments},
  };
  for (const auto& row : kRows) {
    SCOPED_TRACE(row.id);
    SettingScene scene(NvmeSpec());
    scene.drive.ClearJournal();
    std::vector<std::string> words = {"-get_feature"};
    if (!row.id.empty()) words.push_back(row.id);
    EXPECT_EQ(scene.Line(words).code, row.code);
    std::size_t reads = 0;
    for (const auto& sent : scene.Commands(kGetFeatures)) reads += (sent.Cdw(10) & 0xFF) != 0xC2;
    EXPECT_EQ(reads, row.code == Status::Completed ? 1U : 0U);
  }
}

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
