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
using Testing::LineOutcome;
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
  bool isLine;  // degrees; of a property whole ones
  std::string text;
  std::uint32_t kelvin;  // 0: refused
};
void PrintTo(const Threshold& threshold, std::ostream* out) { *out << threshold.text; }
class Thresholds : public ::testing::TestWithParam<Threshold> {};

TEST_P(Thresholds, ReachTheDriveInKelvinOrNotAtAll) {
  const auto& [isLine, text, kelvin] = GetParam();
  SettingScene scene(NvmeSpec());
  LineOutcome outcome;
  if (isLine) {
    outcome = scene.Line({"-set_temp_threshold", text});
  } else {
    outcome.code = scene.Set("TempThreshold", text);
  }
  const auto sent = scene.Commands(kSetFeatures);
  EXPECT_EQ(outcome.code, kelvin == 0 ? Status::InvalidArguments : Status::Completed);
  ASSERT_EQ(sent.size(), kelvin == 0 ? 0U : 1U);
  EXPECT_EQ(sent.empty() ? 0 : sent[0].Cdw(11), kelvin);
  const auto told =
      outcome.output.find("Invalid value for threshold. Value must be between 0 and 75.");
  EXPECT_EQ(told != std::string::npos, isLine && kelvin == 0);
}
// clang-format off
INSTANTIATE_TEST_SUITE_P(SetFeature, Thresholds, ::testing::Values(
    Threshold{false, "0", 273}, Threshold{false, "75", 348}, Threshold{false, "76", 0},
    Threshold{false, "65536", 0}, Threshold{false, "-1", 0}, Threshold{false, "1e9", 0},
    Threshold{false, "", 0}, Threshold{false, "4.5", 0}, Threshold{false, " 5", 0},
    Threshold{true, "0", 273}, Threshold{true, "75", 348}, Threshold{true, "74.9", 347},
    Threshold{true, "75.5", 0}, Threshold{true, "76", 0}, Threshold{true, "nan", 0},
    Threshold{true, "inf", 0}, Threshold{true, "0x40", 0}, Threshold{true, "", 0},
    Threshold{true, ".", 0}, Threshold{true, "1.2.3", 0}, Threshold{true, "1e1", 0}));
// clang-format on

}  // namespace
}  // namespace Morvu
