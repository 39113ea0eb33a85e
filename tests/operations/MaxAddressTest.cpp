// The maximum address: which commands reach a drive, in which order, and what is refused before
// data are lost.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "devices/properties/BasicProperties.h"
#include "devices/properties/ProductProperties.h"
#include "frame/status/Drives.h"
#include "frame/status/Partitions.h"
#include "frame/status/Selection.h"
#include "frame/status/Settings.h"
#include "operations/settings/GetMaxAddress.h"
#include "support/SettingScene.h"
#include "support/Sweep.h"

namespace Morvu {
namespace {

using namespace EraseTesting;
using Simulator::Fault;
using ::testing::HasSubstr;
using ::testing::Not;
using Testing::SettingScene;
using Testing::SweepFaults;
using Testing::SweptRun;

constexpr int kReadMaxExt = 0x27, kReadMax = 0xF8, kSetMaxExt = 0x37, kSetMax = 0xF9;
constexpr int kNvmeSetFeatures = 0x09, kNvmeGetFeatures = 0x0A;
constexpr std::uint64_t kNative = 4'000'000;

Simulator::DriveSpec Sata() {
  auto spec = LogSpec();
  spec.sectors = kNative + 1;
  return spec;
}
// 4,000,008 sectors of 512 bytes, or as many bytes in blocks of 4096.
Simulator::DriveSpec Nvme(std::uint32_t sectorSize = 512) {
  auto spec = NvmeSpec();
  spec.sectorSize = sectorSize;
  spec.sectors = 4'000'008 * std::uint64_t{512} / sectorSize;
  return spec;
}

bool HasErased(const SettingScene& scene) {
  return !scene.Commands(kEraseUnit).empty() || !scene.Commands(kFormatNvm).empty();
}
bool HasSet(const SettingScene& scene) {
  return !scene.Commands(kSetMaxExt).empty() || !scene.Commands(kSetMax).empty() ||
         !scene.Commands(kNvmeSetFeatures).empty();
}

// ---- Which address ----

struct Target {
  std::string text;                  // of the property
  std::uint64_t last = 0;            // 0: refused
  bool isTouched = true;             // the drive had to be asked for it
  std::vector<std::string> words{};  // the same at the prompt, where it can be said
};
void PrintTo(const Target& target, std::ostream* out) { *out << '"' << target.text << '"'; }
class MaxAddressTargets : public ::testing::TestWithParam<Target> {};

TEST_P(MaxAddressTargets, AreFoundOrRefused) {
  const auto& target = GetParam();
  SettingScene scene(Sata());
  scene.drive.ClearJournal();
  EXPECT_EQ(scene.Set("MaximumLBA", target.text),
            target.last != 0 ? Status::Completed : Status::InvalidArguments);
  EXPECT_EQ(scene.drive.State().ata.maxLba, target.last != 0 ? target.last : kNative);
  EXPECT_EQ(HasSet(scene), target.last != 0);
  EXPECT_FALSE(HasErased(scene));
  if (!target.isTouched) {
    EXPECT_TRUE(scene.drive.Journal().empty());
  }
  if (target.words.empty()) return;

  scene.drive.PowerCycle();
  scene.drive.ClearJournal();
  std::vector<std::string> line = {"-max_address"};
  line.insert(line.end(), target.words.begin(), target.words.end());
  line.push_back("-force");
  const auto outcome = scene.Line(line);
  EXPECT_EQ(outcome.code, target.last != 0 ? Status::Completed : Status::InvalidArguments);
  EXPECT_EQ(HasErased(scene), target.last != 0) << outcome.output;
  EXPECT_EQ(scene.drive.State().ata.maxLba, target.last != 0 ? target.last : kNative);
}

// clang-format off
INSTANTIATE_TEST_SUITE_P(MaxAddress, MaxAddressTargets, ::testing::Values(
    Target{"native",  kNative, true, {"native"}},
    Target{"NATIVE",  kNative},
    Target{"100%",    kNative, true, {"percent", "100"}},
    Target{"50%",     2'000'000, true, {"percent", "50"}},
    Target{"1%",      40'000},
    Target{"0%",      0, false, {"percent", "0"}},
    Target{"101%",    0, false, {"percent", "101"}},
    Target{"2GB",     3'906'250, true, {"capacity", "2"}},
    Target{"1gb",     1'953'125},
    Target{"3gb",     0, true, {"capacity", "3"}},
    Target{"18446744073gb", 0},
    Target{"0gb",     0, false, {"capacity", "0"}},
    Target{"2097151", 2'097'151, true, {"value", "2097151"}},
    Target{"2097150", 0, false, {"value", "2097150"}},
    Target{"4000000", kNative, true, {"value", "4000000"}},
    Target{"4000001", 0, true, {"value", "4000001"}},
    Target{"-5gb",    0, false, {"capacity", "-5"}},
    Target{"5 gb",    0, false, {"capacity", "5", "gb"}},
    Target{"0x200000", 0, false, {"value", "0x200000"}},
    Target{"1e7",     0, false, {"value", "1e7"}},
    Target{"%",       0, false, {"percent"}},
    Target{"gb",      0, false, {"capacity"}},
    Target{"",        0, false, {"value"}},
    Target{" native", 0, false, {"native", "1"}},
    Target{"18446744073709551616", 0, false, {"Native"}}));
// clang-format on

// A whole number of gigabytes must not end behind the last sector.
TEST(MaxAddress, OfAWholeDriveInGigabytesIsItsNativeOne) {
  auto spec = Sata();
  spec.sectors = 3'906'250;
  SettingScene scene(spec);
  EXPECT_EQ(scene.Set("MaximumLBA", "2gb"), Status::Completed);
  EXPECT_EQ(scene.drive.State().ata.maxLba, 3'906'249U);
}

// ---- SATA ----

TEST(MaxAddress, IsSetDirectlyBehindItsReadAndKept) {
  SettingScene scene(Sata());
  scene.drive.ClearJournal();
  EXPECT_EQ(scene.Set("MaximumLBA", "50%"), Status::Completed);
  const auto sent = scene.drive.Journal();
  ASSERT_EQ(sent.size() >= 3, true);
  const auto set = std::ranges::find(sent, kSetMaxExt, [](const auto& c) { return c.Opcode(); });
  ASSERT_NE(set, sent.end());
  EXPECT_EQ((set - 1)->Opcode(), kReadMaxExt);
  EXPECT_EQ(set->Lba(), 2'000'000U);
  EXPECT_EQ(set->Count(), 1);
  EXPECT_EQ(sent.back().Opcode(), kIdentify);  // nothing that resets the link follows
  EXPECT_EQ(scene.request->GetAttribute("powercycle"), "True");
  EXPECT_EQ(scene.request->GetAttribute("shows"), "2000000");
  EXPECT_EQ(scene.request->GetAttribute("remainingSaves"), "1000");
  EXPECT_THAT(scene.request->GetAttribute("detail"), HasSubstr("2048000512 bytes"));
  scene.drive.PowerCycle();
  EXPECT_EQ(scene.drive.State().ata.maxLba, 2'000'000U);
  EXPECT_EQ(scene.GetText("NativeMaxLBA"), "4000000");
}

TEST(MaxAddress, IsTakenOnceInAPowerCycle) {
  SettingScene scene(Sata());
  EXPECT_EQ(scene.Set("MaximumLBA", "50%"), Status::Completed);
  EXPECT_EQ(scene.Set("MaximumLBA", "native"), Status::SetNativeMaxFailed);
  EXPECT_THAT(scene.request->GetAttribute("detail"), HasSubstr("once in a power cycle"));
  EXPECT_EQ(scene.request->GetAttribute("powercycle"), "");
  EXPECT_TRUE(scene.Commands(kSetMax).empty()) << "the low bits of a large value";
  scene.drive.PowerCycle();
  EXPECT_EQ(scene.Set("MaximumLBA", "native"), Status::Completed);
  EXPECT_EQ(scene.drive.State().ata.maxLba, kNative);
}

TEST(MaxAddress, TellsASetThatWasNotKept) {
  SettingScene scene(Sata());
  scene.drive.State().ata.forgetsMaximum = 1;
  EXPECT_EQ(scene.Set("MaximumLBA", "50%"), Status::Completed);
  EXPECT_EQ(scene.request->GetAttribute("shows"), "4000000");
  EXPECT_THAT(scene.request->GetAttribute("detail"), HasSubstr("not what was set"));
  scene.drive.PowerCycle();
  const auto line = scene.Line({"-max_address", "percent", "50", "-force"});
  EXPECT_EQ(line.code, Status::Completed);
  EXPECT_THAT(line.output, HasSubstr("WARNING! The drive has 4000001 sectors"));
  EXPECT_NE(line.sideResult, Status::Completed);
}

TEST(MaxAddress, OfADriveWithout48BitCommandsIsSetByTheOthers) {
  auto spec = Sata();
  spec.sectors = 0x2345679;
  SettingScene scene(spec);
  scene.drive.State().ata.supports48Bit = 0;
  EXPECT_EQ(scene.GetText("NativeMaxLBA"), std::to_string(0x2345678));
  scene.drive.ClearJournal();
  EXPECT_EQ(scene.Set("MaximumLBA", "native"), Status::Completed);
  const auto set = scene.Commands(kSetMax);
  ASSERT_EQ(set.size(), 1U);
  EXPECT_EQ(set[0].Lba() & 0xFFFFFF, 0x345678U);
  EXPECT_EQ(set[0].Device() & 0x0F, 0x02);
  EXPECT_TRUE(scene.Commands(kSetMaxExt).empty());
}

// ---- What stands against it, on both faces ----

struct Obstacle {
  std::string name;
  StatusCode code;
  void (*put)(SettingScene& scene);
  std::string told{};  // at the prompt
  Simulator::DriveSpec (*spec)() = &Sata;
};
void PrintTo(const Obstacle& obstacle, std::ostream* out) { *out << obstacle.name; }
class MaxAddressObstacles : public ::testing::TestWithParam<Obstacle> {};

TEST_P(MaxAddressObstacles, AreSeenBeforeDataAreLost) {
  SettingScene scene(GetParam().spec());
  GetParam().put(scene);
  scene.Prepare();
  scene.drive.ClearJournal();
  for (const auto* text : {"native", "50%", "1gb", "2097151"}) {
    EXPECT_EQ(scene.Set("MaximumLBA", text), GetParam().code) << text;
  }
  const std::vector<std::string> lines[] = {
      {"native"}, {"percent", "50"}, {"capacity", "1"}, {"value", "2097151"}};
  for (auto words : lines) {
    words.insert(words.begin(), {"-drive_index", "0", "-max_address"});
    words.push_back("-force");
    const auto line = RunLine(words);
    EXPECT_EQ(line.code, GetParam().code) << line.output;
    EXPECT_THAT(line.output, HasSubstr(GetParam().told));
  }
  EXPECT_FALSE(HasErased(scene));
  EXPECT_FALSE(HasSet(scene));
}

void ClearWordBit(SettingScene& scene, int word, int bit) {
  auto& value = scene.drive.State().ata.identify[word];
  value = static_cast<std::uint16_t>(value & ~(1u << bit));
}

Simulator::DriveSpec Sas() {
  return {.kind = Simulator::Kind::Scsi, .model = "MORVU SSDSC2BB480G4", .serial = "SAS1"};
}
Simulator::DriveSpec TwoSpaces() {
  auto spec = Nvme();
  spec.namespaces = 2;
  return spec;
}
Simulator::DriveSpec Large() {
  auto spec = Sata();
  spec.sectors = 0x12345678;
  return spec;
}

// clang-format off
const Obstacle kObstacles[] = {
    {"NoSetMax", Status::ReadNativeMaxFailed, [](SettingScene& s) { ClearWordBit(s, 82, 10); }, "no commands to set its maximum"},
    {"AccessibleMax", Status::ReadNativeMaxFailed, [](SettingScene& s) { ClearWordBit(s, 82, 10); s.drive.State().ata.identify[119] |= 1 << 8; }, "Accessible Max Address"},
    {"SetMaxOff", Status::SetNativeMaxFailed, [](SettingScene& s) { ClearWordBit(s, 85, 10); }, "feature set is off"},
    {"SetMaxLocked", Status::SetNativeMaxFailed, [](SettingScene& s) { s.drive.State().ata.identify[86] |= 1 << 8; }, "password locks"},
    {"SavesUnread", Status::CanceledByUser, [](SettingScene& s) { s.drive.Inject(Fault::AtaError().OnOpcode(0xB0)); }},
    {"NativeUnread", Status::ReadNativeMaxFailed, [](SettingScene& s) { s.drive.Inject(Fault::AtaError().OnOpcode(kReadMaxExt)); }},
    {"NativeZero", Status::ReadNativeMaxFailed, [](SettingScene& s) { s.drive.State().ata.nativeMaxLba = 0; }},
    {"NativeCut", Status::ReadNativeMaxFailed, [](SettingScene& s) { s.drive.State().senseFormat = Simulator::SenseFormat::FixedSat3; }, "", &Large},
    {"Partition", Status::HasPartition, [](SettingScene& s) { s.drive.AddPartition(); }, "Nothing was done: the drive has partitions"},
    {"WholeDisk", Status::HasPartition, [](SettingScene& s) { s.fleet.SetRoot("/dev/sda"); }, "Nothing was done: the drive is in use"},
    {"Fault", Status::DisableLogical, [](SettingScene& s) { s.drive.State().ata.identify[140] = 'B' << 8 | 'A'; }},
    {"Sas", Status::NotSupportedByDrive, [](SettingScene&) {}, "", &Sas},
    {"TwoNamespaces", Status::NotSupportedByDrive, [](SettingScene&) {}, "this one has 2", &TwoSpaces},
    {"NvmeUnread", Status::ReadNativeMaxFailed, [](SettingScene& s) { s.drive.State().nvme.features[0xC2].supported = 0; }, "NVMe status 0x002", [] { return Nvme(); }},
};
// clang-format on
INSTANTIATE_TEST_SUITE_P(MaxAddress, MaxAddressObstacles, ::testing::ValuesIn(kObstacles),
                         [](const auto& test) { return test.param.name; });

TEST(MaxAddress, IsRefusedToASkuOfTheAdapters) {
  SettingScene scene(Sata());
  scene.device()->AddProperty(DeviceManagement::Properties::LSI, true);
  scene.device()->AddProperty(DeviceManagement::Properties::OEM, "Lenovo");
  scene.device()->AddProperty(DeviceManagement::Properties::RAID, true);
  EXPECT_EQ(scene.Set("MaximumLBA", "native"), Status::InvalidSku);
}

// ---- The erase before it ----

TEST(MaxAddress, SaysInTheQuestionThatItWillNotLast) {
  SettingScene scene(Sata());
  scene.drive.State().ata.sct.savesLeft = 0;
  const std::vector<std::string> words = {"-drive_serial", scene.drive.State().serial,
                                          "-max_address", "native"};
  const auto no = RunLine(words, "n\n");
  EXPECT_EQ(no.code, Status::CanceledByUser);
  const auto question = no.output.find("Proceed with the format?");
  ASSERT_NE(question, no.output.npos);
  EXPECT_LT(no.output.find("will NOT"), question) << no.output;
  EXPECT_FALSE(HasErased(scene));
  EXPECT_EQ(RunLine(words, "y\n").code, Status::Completed);
  EXPECT_TRUE(HasErased(scene));
}

TEST(MaxAddress, SaysWhatIsLostWhenTheSetFailsBehindTheErase) {
  SettingScene scene(Sata());
  scene.drive.Inject(Fault::AtaError().OnOpcode(kSetMaxExt));
  auto line = scene.Line({"-max_address", "percent", "50", "-force"});
  EXPECT_EQ(line.code, Status::SetNativeMaxFailed);
  EXPECT_THAT(line.output, HasSubstr("The data are gone, the maximum is unchanged."));
  EXPECT_TRUE(HasErased(scene));
  EXPECT_TRUE(scene.Commands(kSetMax).empty());

  // The set went well and its answer was lost; what the drive has now is not known.
  scene.drive.ClearFaults();
  scene.drive.Inject(Fault::Vanish().OnOpcode(kSetMaxExt));
  line = scene.Line({"-max_address", "percent", "50", "-force"});
  EXPECT_EQ(line.code, Status::SetNativeMaxFailed);
  EXPECT_THAT(line.output, HasSubstr("does not tell which maximum it has now."));
}

// ---- NVMe ----

struct NvmeTarget {
  std::uint32_t sectorSize;
  std::string text;
  std::uint32_t sent;  // in units of 512 bytes
  std::uint64_t last;  // in sectors of the drive
};
void PrintTo(const NvmeTarget& target, std::ostream* out) {
  *out << target.text << " of " << target.sectorSize;
}
class NvmeMaxAddress : public ::testing::TestWithParam<NvmeTarget> {};

TEST_P(NvmeMaxAddress, CountsSectorsOfTheDriveAndSendsUnitsOf512Bytes) {
  SettingScene scene(Nvme(GetParam().sectorSize));
  EXPECT_EQ(scene.GetText("NativeMaxLBA"), GetParam().sectorSize == 4096 ? "500000" : "4000007");
  scene.drive.ClearJournal();
  EXPECT_EQ(scene.Set("MaximumLBA", GetParam().text), Status::Completed);
  const auto sent = scene.Commands(kNvmeSetFeatures);
  ASSERT_EQ(sent.size(), 1U);
  EXPECT_EQ(sent[0].Cdw(10) & 0xFF, 0xC1U);
  EXPECT_EQ(sent[0].Cdw(11), GetParam().sent);
  EXPECT_EQ(sent[0].Cdw(12), 0U);
  EXPECT_EQ(scene.request->GetAttribute("shows"), std::to_string(GetParam().last));
  EXPECT_THAT(scene.request->GetAttribute("detail"), Not(HasSubstr("not what was set")));
  scene.drive.PowerCycle();
  EXPECT_EQ(scene.drive.State().nvme.namespaces[0].bytes,
            (GetParam().last + 1) * GetParam().sectorSize);
}
INSTANTIATE_TEST_SUITE_P(MaxAddress, NvmeMaxAddress,
                         ::testing::Values(NvmeTarget{512, "native", 4'000'007, 4'000'007},
                                           NvmeTarget{512, "50%", 2'000'003, 2'000'003},
                                           NvmeTarget{4096, "native", 4'000'007, 500'000},
                                           NvmeTarget{4096, "100%", 4'000'007, 500'000},
                                           NvmeTarget{4096, "50%", 2'000'007, 250'000},
                                           NvmeTarget{4096, "1gb", 1'953'127, 244'140}));

TEST(MaxAddress, OfAControllerMayComeWithItsReset) {
  SettingScene scene(Nvme());
  scene.drive.State().nvme.features[0xC1].forgets = 1;
  EXPECT_EQ(scene.Set("MaximumLBA", "50%"), Status::Completed);
  EXPECT_THAT(scene.request->GetAttribute("detail"), HasSubstr("comes with its power cycle"));
}

// ---- Faults ----

// The write of the property, with the drive's data in view.
class WriteScene : public EraseScene {
 public:
  using EraseScene::EraseScene;
  StatusCode Run(ProgressReporter&) override {
    XmlMessaging::Property request("MaximumLBA", "50%");
    return FindDriveProperty("MaximumLBA")->Apply(request, *device());
  }
};

struct SataWrite : WriteScene {
  SataWrite() : WriteScene(SataSpec()) {}
};
struct NvmeWrite : WriteScene {
  NvmeWrite() : WriteScene(NvmeSpec()) {}
};

template <typename AScene>
void CheckWrite(AScene& scene, const SweptRun& run, std::uint64_t now) {
  EXPECT_TRUE(scene.IsUntouched());
  const bool isSet = now == (512 - 1) / 2;
  EXPECT_TRUE(isSet || now == 512 - 1) << now;
  if (run.code == Status::Completed) {
    EXPECT_TRUE(isSet);
  }
  if (isSet) {
    // Its own answer or the look behind it was met.
    EXPECT_TRUE(run.code == Status::Completed || run.index + 2 > run.good.size()) << run.code;
  }
}

TEST(MaxAddressSweep, NoWriteLosesData) {
  const auto garbage = Fault::GarbageData(Simulator::Garbage::Random).Times(1);
  for (const auto& fault : {Fault::Fail().Times(1), garbage}) {
    SweepFaults<SataWrite>(fault, [](SataWrite& scene, const SweptRun& run) {
      CheckWrite(scene, run, scene.drive.State().ata.maxLba);
    });
  }
  SweepFaults<NvmeWrite>(Fault::Fail().Times(1), [](NvmeWrite& scene, const SweptRun& run) {
    CheckWrite(scene, run, scene.drive.State().nvme.namespaces[0].bytes / 512 - 1);
  });
}

}  // namespace
}  // namespace Morvu
