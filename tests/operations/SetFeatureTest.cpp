// Features that are set: what reaches the drive, and what is refused before.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "frame/status/Drives.h"
#include "frame/status/Settings.h"
#include "operations/settings/SetFeature.h"
#include "support/SettingScene.h"

namespace Morvu {
namespace {

using EraseTesting::NvmeSpec;
using EraseTesting::SataSpec;
using Simulator::Fault;
using Simulator::FeatureScope;
using ::testing::HasSubstr;
using Testing::SettingScene;

constexpr int kSetFeatures = 0x09;
constexpr int kTempThreshold = 4;

// Namespace 3 has the first node.
Simulator::DriveSpec ThirdNamespace() {
  auto spec = NvmeSpec();
  spec.nsids = {3};
  return spec;
}

TEST(SetFeature, NamesTheKernelsNamespace) {
  SettingScene scene(ThirdNamespace());
  EXPECT_EQ(scene.Set("TempThreshold", "75"), Status::Completed);
  const auto sent = scene.Commands(kSetFeatures);
  ASSERT_EQ(sent.size(), 1U);
  EXPECT_EQ(sent[0].NvmeNamespace(), 3U);
  EXPECT_EQ(sent[0].Cdw(10), 4U);
  EXPECT_EQ(sent[0].Cdw(11), 348U);
  EXPECT_EQ(sent[0].Cdw(12), 0U);
  EXPECT_EQ(scene.GetText("TempThreshold"), "75");
}

TEST(SetFeature, IsSentOnceMoreForTheController) {
  SettingScene scene(ThirdNamespace());
  scene.drive.State().nvme.features[kTempThreshold].scope = FeatureScope::Controller;
  EXPECT_EQ(scene.Set("TempThreshold", "0"), Status::Completed);
  EXPECT_EQ(scene.Commands(kSetFeatures).size(), 2U);
  EXPECT_EQ(scene.drive.State().nvme.features[kTempThreshold].value, 273U);
}

TEST(SetFeature, TellsTheStatusOfADriveThatRefuses) {
  SettingScene scene(NvmeSpec());
  scene.drive.State().nvme.features[kTempThreshold].changeable = 0;
  EXPECT_EQ(scene.Set("TempThreshold", "40"), Status::SetFeatureFailed);
  EXPECT_EQ(scene.request->GetAttribute("detail"), "NVMe status 0x10E (Feature Not Changeable)");
  const auto outcome = scene.Line({"-set_temp_threshold", "40"});
  EXPECT_EQ(outcome.code, Status::SetFeatureFailed);
  EXPECT_THAT(outcome.output, HasSubstr("NVMe status 0x10E (Feature Not Changeable)"));
}

// What the drive took and forgot is seen at the next get.
TEST(SetFeature, ShowsAtTheNextGetThatADriveForgot) {
  SettingScene scene(NvmeSpec());
  scene.drive.State().nvme.features[kTempThreshold].forgets = 1;
  EXPECT_EQ(scene.Set("TempThreshold", "40"), Status::Completed);
  EXPECT_EQ(scene.GetText("TempThreshold"), "70");
}

TEST(SetFeature, LastsUntilTheNextReset) {
  SettingScene scene(NvmeSpec());
  EXPECT_EQ(scene.Set("TempThreshold", "40"), Status::Completed);
  scene.drive.PowerCycle();
  EXPECT_EQ(scene.GetText("TempThreshold"), "70");
}

TEST(SetFeature, RefusesWhatIsNoNvmeDriveOfOurs) {
  SettingScene sata(SataSpec());
  EXPECT_EQ(sata.Set("TempThreshold", "40"), Status::NotSupportedByDrive);
  EXPECT_EQ(sata.Line({"-set_temp_threshold", "40"}).code, Status::NotSupportedByDrive);
}

TEST(SetFeature, RefusesAForeignDrive) {
  auto spec = NvmeSpec();
  spec.model = "OTHER 1";
  SettingScene scene(spec);
  EXPECT_EQ(scene.Set("TempThreshold", "40"), Status::NotAMorvuDrive);
  EXPECT_EQ(scene.GetText("TempThreshold"), "status 45");
}

struct Threshold {
  std::string text;
  std::uint32_t kelvin;  // 0: refused
};
void PrintTo(const Threshold& threshold, std::ostream* out) { *out << threshold.text; }

class ThresholdTexts : public ::testing::TestWithParam<Threshold> {
 protected:
  // What reached the drive: nothing for a text that is refused.
  void Check(SettingScene& scene, StatusCode code) {
    const auto sent = scene.Commands(kSetFeatures);
    if (GetParam().kelvin == 0) {
      EXPECT_EQ(code, Status::InvalidArguments);
      EXPECT_TRUE(sent.empty());
    } else {
      EXPECT_EQ(code, Status::Completed);
      ASSERT_EQ(sent.size(), 1U);
      EXPECT_EQ(sent[0].Cdw(11), GetParam().kelvin);
    }
  }
};

class ThresholdProperties : public ThresholdTexts {};
TEST_P(ThresholdProperties, AreWholeDegrees) {
  SettingScene scene(NvmeSpec());
  Check(scene, scene.Set("TempThreshold", GetParam().text));
}
INSTANTIATE_TEST_SUITE_P(SetFeature, ThresholdProperties,
                         ::testing::Values(Threshold{"0", 273}, Threshold{"75", 348},
                                           Threshold{"76", 0}, Threshold{"65536", 0},
                                           Threshold{"-1", 0}, Threshold{"1e9", 0},
                                           Threshold{"", 0}, Threshold{"4.5", 0},
                                           Threshold{" 5", 0}));

class ThresholdLines : public ThresholdTexts {};
TEST_P(ThresholdLines, AreDegrees) {
  SettingScene scene(NvmeSpec());
  const auto outcome = scene.Line({"-set_temp_threshold", GetParam().text});
  Check(scene, outcome.code);
  EXPECT_EQ(outcome.output.find("Invalid value for threshold. Value must be between 0 and 75.") !=
                std::string::npos,
            GetParam().kelvin == 0);
}
INSTANTIATE_TEST_SUITE_P(SetFeature, ThresholdLines,
                         ::testing::Values(Threshold{"0", 273}, Threshold{"75", 348},
                                           Threshold{"74.9", 347}, Threshold{"75.5", 0},
                                           Threshold{"76", 0}, Threshold{"nan", 0},
                                           Threshold{"inf", 0}, Threshold{"0x40", 0},
                                           Threshold{"", 0}, Threshold{".", 0},
                                           Threshold{"1.2.3", 0}, Threshold{"1e1", 0}));

TEST(SetFeature, NeedsADriveThatWasChosen) {
  SettingScene scene(NvmeSpec());
  EXPECT_EQ(Testing::RunToolLine({"-set_temp_threshold", "40"}).code, Status::InvalidArguments);
  EXPECT_TRUE(scene.Commands(kSetFeatures).empty());
}

}  // namespace
}  // namespace Morvu
