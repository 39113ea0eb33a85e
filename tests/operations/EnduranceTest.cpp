// The endurance analyzer, by the option and by the property.
#include <gmock/gmock.h>

#include "devices/properties/BasicProperties.h"
#include "devices/properties/SettingProperties.h"
#include "operations/endurance/EnduranceAnalyzer.h"
#include "support/EraseScene.h"

namespace Morvu {
namespace {

using namespace EraseTesting;
using Simulator::Fault;
using testing::HasSubstr;
namespace Properties = DeviceManagement::Properties;

struct DriveWithWorkload : EraseScene {
  DriveWithWorkload(const Simulator::DriveSpec& spec, std::uint64_t minutes, std::uint64_t wear)
      : EraseScene(spec) {
    AddWorkload(drive.State(), minutes, wear);
  }
  LineOutcome Call(const std::string& word = {}) {
    std::vector<std::string> words = {"-drive_serial", drive.State().serial, "-endurance_analyzer"};
    if (!word.empty()) words.push_back(word);
    return RunLine(words);
  }
};

TEST(Endurance, CalculatesFromWearAndTime) {
  struct Row {
    std::uint64_t minutes, wear;
    int code;
    const char* line;
    const char* absent;
  };
  const Row kRows[] = {
      {60, 1024, 0, "Expected Life Span: 0.01 Years", "WARNING"},
      {6'000'000, 10, 0, "Expected Life Span: 116817.46 Years", "WARNING"},
      {59, 1024, 0, "59 minutes only", "nothing"},
      {60, 0, 205, "Expected Life Span: 0.00 Years", "WARNING"},
      {60, 0xFFFF, 269, "reset values", "Expected Life Span"},
      // Its lower bits alone are those of the reset value.
      {60, 0x1'0000'FFFF, 0, "Expected Life Span: 0.00 Years", "reset values"},
  };
  for (const auto& spec : {SataSpec(), NvmeSpec()}) {
    for (const auto& row : kRows) {
      SCOPED_TRACE(spec.serial + " " + std::to_string(row.wear));
      DriveWithWorkload scene(spec, row.minutes, row.wear);
      const auto outcome = scene.Call();
      EXPECT_EQ(outcome.code, row.code);
      EXPECT_THAT(outcome.output, HasSubstr(row.line));
      EXPECT_THAT(outcome.output, Not(HasSubstr(row.absent)));
    }
  }
}

TEST(Endurance, ResetsTheCountersAndSaysSoWhateverComesBehind) {
  for (const auto& spec : {SataSpec(), NvmeSpec()}) {
    DriveWithWorkload scene(spec, 60, 1024);
    EXPECT_EQ(scene.Call("RESET").code, 0);
    EXPECT_EQ(scene.Call().code, 269);
    EXPECT_EQ(scene.Call("rest").code, 73);
  }
  struct Row {
    Simulator::DriveSpec spec;
    Fault fault;
    int code;
    const char* line;
  };
  const Row kRows[] = {
      {SataSpec(), Fault::Fail().OnOpcode(0xB0).OnFeature(0xD4), 120, ""},
      {SataSpec(), Fault::Fail().OnOpcode(0xB0).OnFeature(0xD0), 23, "are reset all the same"},
      {SataSpec(), Fault::Fail().OnOpcode(0xE0), 86, "are reset all the same"},
      {NvmeSpec(), Fault::NvmeStatus(0x002).OnOpcode(0x09), 108, "Invalid Field in Command"},
  };
  for (const auto& row : kRows) {
    DriveWithWorkload scene(row.spec, 60, 1024);
    scene.drive.Inject(row.fault);
    const auto outcome = scene.Call("reset");
    EXPECT_EQ(outcome.code, row.code);
    EXPECT_THAT(outcome.output, HasSubstr(row.line)) << row.code;
  }
}

TEST(Endurance, RefusesWhatDoesNotCount) {
  DriveWithWorkload scene(SataSpec(), 60, 1024);
  scene.Prepare();
  const auto code = [&](const PropertyEntry& entry, auto value, std::string_view firmware = {}) {
    const auto clone = scene.device()->Clone();
    clone->AddProperty(entry, value);
    if (!firmware.empty()) clone->AddProperty(Properties::Firmware, firmware);
    return EnduranceAnalyzer(clone.get()).GetErrorCode();
  };
  EXPECT_EQ(code(Properties::RAID, true), 97);
  EXPECT_EQ(code(Properties::Morvu, false), 45);
  EXPECT_EQ(code(Properties::ErrorString, "ASSERT"), 252);
  EXPECT_EQ(code(Properties::RAIDMember, true), 255);
  EXPECT_EQ(code(Properties::Product, "Plinthway"), 113);
  EXPECT_EQ(code(Properties::Product, "Tarnwell", "4PC102M"), 114);
  EXPECT_EQ(code(Properties::Product, "Tarnwell", "4P"), 114);
  EXPECT_EQ(code(Properties::Product, "Tarnwell", "4PC102M0"), 1);
  DriveWithWorkload without(SataSpec(), 0, 0);
  std::ranges::fill(without.drive.State().ata.attributes, Simulator::SmartAttribute{});
  EXPECT_EQ(without.Call().code, 113);
}

TEST(Endurance, IsAskedWhereARequestNamesItAndResetByItsProperty) {
  DriveWithWorkload scene(SataSpec(), 60, 1024);
  scene.Prepare();
  scene.drive.ClearJournal();
  XmlMessaging::Message request;
  JobContext context;
  context.request = &request;
  const auto& row = *FindDriveProperty("EnduranceAnalyzer");
  EXPECT_EQ(row.Describe(&context, scene.device()), nullptr);
  EXPECT_TRUE(scene.drive.Journal().empty());

  auto named = std::make_unique<XmlMessaging::Object>();
  named->SetAttribute("name", "cimProperties");
  named->AddProperty("EnduranceAnalyzer", "");
  request.objects.push_back(std::move(named));
  EXPECT_EQ(row.Describe(&context, scene.device())->value, "0.01 Years");
  XmlMessaging::Property wish("EnduranceAnalyzer", "begin");
  EXPECT_EQ(row.Apply(wish, *scene.device()), 73);
  wish.value = "Reset";
  EXPECT_EQ(row.Apply(wish, *scene.device()), 0);
  EXPECT_EQ(row.Describe(&context, scene.device())->GetAttribute("status"), "269");
}

}  // namespace
}  // namespace Morvu
