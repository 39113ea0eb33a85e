// What a drive says of its own health, on every face.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "frame/status/Drives.h"
#include "frame/status/Health.h"
#include "parsers/smart/DriveVerdict.h"
#include "parsers/smart/Smart.h"
#include "support/SettingScene.h"

namespace Morvu {
namespace {

using EraseTesting::CallMethod;
using EraseTesting::NvmeSpec;
using EraseTesting::SataSpec;
using Simulator::DriveState;
using Simulator::Fault;
using Simulator::SenseFormat;
using ::testing::HasSubstr;
using ::testing::Not;
using Kind = DriveVerdict::Kind;
using Testing::SettingScene;

constexpr int kSmartOpcode = 0xB0, kReturnStatus = 0xDA, kHealthOpcode = 0x02;

struct Judged {
  std::string label;
  Simulator::DriveSpec spec;
  void (*shape)(DriveState& state);
  Fault fault;
  Kind kind;
  std::string text;
};

Simulator::DriveSpec SasSpec() {
  return {.kind = Simulator::Kind::Scsi, .model = "SSD400SAS", .serial = "SAS1"};
}

const Fault kNoFault = Fault::Delay(0);
const Fault kStatusRefused = Fault::AtaError().OnOpcode(kSmartOpcode).OnFeature(kReturnStatus);
constexpr auto kFails = [](DriveState& state) { state.ata.smartFailing = 1; };
constexpr auto kSoundDrive = [](DriveState&) {};
template <SenseFormat Format>
constexpr auto kFailsBehind = [](DriveState& state) {
  state.ata.smartFailing = 1;
  state.senseFormat = Format;
};
constexpr std::string_view kBeyond = "FAILING: an attribute is beyond its threshold";
constexpr std::string_view kNoAnswer = "Unknown: the drive's answer did not come";

TEST(Verdicts, AreTheDrivesOwn) {
  // clang-format off
  const Judged kRows[] = {
    {"Sata", SataSpec(), kSoundDrive, kNoFault, Kind::Passed, "Passed"},
    {"SataFails", SataSpec(), kFails, kNoFault, Kind::Failing, std::string(kBeyond)},
    {"Sat3", SataSpec(), kFailsBehind<SenseFormat::FixedSat3>, kNoFault, Kind::Failing, std::string(kBeyond)},
    {"OldKernel", SataSpec(), kFailsBehind<SenseFormat::FixedOldKernel>, kNoFault, Kind::Failing, std::string(kBeyond)},
    // What hands no registers back passes nobody.
    {"NoRegisters", SataSpec(), kFailsBehind<SenseFormat::None>, kNoFault, Kind::Unknown, std::string(kNoAnswer)},
    {"Refused", SataSpec(), kSoundDrive, kStatusRefused, Kind::Unknown, std::string(kNoAnswer)},
    {"SmartOff", SataSpec(), [](DriveState& state) { state.ata.smartEnabled = 0; }, kNoFault,
           Kind::SmartOff, "Unknown: SMART is turned off"},
    {"Nvme", NvmeSpec(), kSoundDrive, kNoFault, Kind::Passed, "Passed"},
    {"NvmeFails", NvmeSpec(), [](DriveState& state) { state.nvme.health[0] = 0x0D; }, kNoFault, Kind::Failing,
           "FAILING: critical warning 0x0D, available spare below its threshold, reliability degraded, media read-only"},
    {"NvmeReserved", NvmeSpec(), [](DriveState& state) { state.nvme.health[0] = 0x80; }, kNoFault, Kind::Failing,
           "FAILING: critical warning 0x80"},
    {"NvmeRefused", NvmeSpec(), kSoundDrive, Fault::NvmeStatus(0x109).OnOpcode(kHealthOpcode), Kind::Unknown, std::string(kNoAnswer)},
    {"NvmeEmpty", NvmeSpec(), kSoundDrive, Fault::GarbageData(Simulator::Garbage::Zeros).OnOpcode(kHealthOpcode), Kind::Unknown, std::string(kNoAnswer)},
    {"Sas", SasSpec(), kSoundDrive, kNoFault, Kind::Passed, "Passed"},
    {"SasFails", SasSpec(), [](DriveState& state) { state.scsi.predictsFailure = 1; }, kNoFault, Kind::Failing,
           "FAILING: a failure predicted, 5Dh/00h"},
    {"SasRefused", SasSpec(), kSoundDrive, Fault::Fail().OnOpcode(0x4D), Kind::Unknown, "Unknown"},
  };
  // clang-format on
  for (const auto& row : kRows) {
    SCOPED_TRACE(row.label);
    SettingScene scene(row.spec);
    row.shape(scene.drive.State());
    scene.drive.Inject(row.fault);
    const auto verdict = ReadVerdict(*scene.device());
    EXPECT_EQ(verdict.kind, row.kind);
    EXPECT_EQ(verdict.text, row.text);
  }
}

std::string PropertiesOf(const XmlMessaging::Message& reply) {
  std::string text;
  for (const auto& property : reply.properties) {
    text += property->GetAttribute("name") + "=" + property->value + "\n";
  }
  return text;
}

// All attributes pass; the drive itself does not.
TEST(DriveVerdict, IsToldOnBothFaces) {
  SettingScene scene(SataSpec());
  const auto told = [&] {
    XmlMessaging::Message reply;
    EXPECT_EQ(CallMethod(*scene.device(), "SmartParser", {}, NoReporter(), &reply),
              Status::Completed);
    return PropertiesOf(reply);
  };
  EXPECT_EQ(told(), "DriveVerdict=Passed\n");
  EXPECT_EQ(scene.Line({"-smart"}).sideResult, Status::Completed);
  EXPECT_EQ(scene.Line({}).sideResult, Status::Completed);

  scene.drive.State().ata.smartFailing = 1;
  EXPECT_THAT(told(), HasSubstr("DriveVerdict=FAILING: an attribute is beyond its threshold\n"));
  EXPECT_THAT(told(), HasSubstr("Warning=The drive says that it is FAILING"));
  for (const auto& words : {std::vector<std::string>{"-smart"}, std::vector<std::string>{}}) {
    const auto line = scene.Line(words);
    EXPECT_EQ(line.code, Status::Completed);
    EXPECT_EQ(line.sideResult, kWarned);
    EXPECT_THAT(line.output, HasSubstr("WARNING! The drive says that it is FAILING"));
  }
}

// An NVMe drive whose product keeps no attributes has a verdict all the same.
TEST(DriveVerdict, IsToldWithoutATableToo) {
  auto spec = NvmeSpec();
  spec.model = "SOME NVME DRIVE";
  SettingScene scene(spec);
  scene.drive.State().nvme.health[0] = 1;
  const auto line = scene.Line({"-smart"});
  EXPECT_EQ(line.code, Status::NotSupportedByDrive);
  EXPECT_THAT(line.output, HasSubstr("WARNING! The drive says that it is FAILING"));
}

TEST(DriveVerdict, SmartThatIsOffIsToldAndTurnedOn) {
  SettingScene scene(SataSpec());
  scene.drive.State().ata.smartEnabled = 0;
  auto line = scene.Line({"-smart"});
  EXPECT_EQ(line.code, Status::SmartDataFailed);
  EXPECT_THAT(line.output, HasSubstr("-enable_smart"));
  EXPECT_EQ(scene.Line({"-enable_smart"}).code, Status::Completed);
  EXPECT_TRUE(scene.drive.State().ata.smartEnabled);
  line = scene.Line({"-smart"});
  EXPECT_EQ(line.code, Status::Completed);
  EXPECT_THAT(line.output, Not(HasSubstr("turned off")));

  // A drive that takes the command and does nothing has not turned it on.
  scene.drive.State().ata.smartEnabled = 0;
  scene.drive.Inject(Fault::AtaError().OnOpcode(kSmartOpcode).OnFeature(0xD8));
  EXPECT_EQ(scene.Line({"-enable_smart"}).code, Status::SmartEnableFailed);
}

TEST(DriveVerdict, OptionRefusesDrivesWithoutSmart) {
  SettingScene scene(NvmeSpec());
  EXPECT_EQ(scene.Line({"-enable_smart"}).code, Status::NotSupportedByDrive);
}

}  // namespace
}  // namespace Morvu
