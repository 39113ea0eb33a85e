// Firmware updates of several drives, of several images, and of controllers with several
// namespaces.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <csignal>

#include "devices/properties/BasicProperties.h"
#include "frame/status/Firmware.h"
#include "frame/status/Requests.h"
#include "support/FirmwareScene.h"
#include "support/Sweep.h"

namespace Morvu {
namespace {

using namespace Testing;
using Simulator::Fault;
using ::testing::AnyOf;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;

constexpr int kAtaDownload = 0x92, kNvmeActivate = 0x10;

std::ptrdiff_t Count(const Simulator::SimulatedDrive& drive, int opcode) {
  return std::ranges::count(drive.Opcodes(), opcode);
}

// A host's call of the method, and what its reply says.
struct Call {
  Call(const DeviceManagement::SelectedDevices& devices, const std::string& file,
       const std::vector<std::string>& directories = {}, std::size_t cancelAt = 0)
      : reporter(cancelAt) {
    XmlMessaging::Message request;
    auto folders = std::make_unique<XmlMessaging::Object>();
    folders->SetAttribute("name", "FirmwareModulesDirectories");
    for (const auto& directory : directories) folders->AddProperty("", directory);
    request.objects.push_back(std::move(folders));
    JobContext context;
    context.request = &request;
    context.reply = &reply;
    context.reporter = &reporter;
    MethodParameters parameters;
    if (!file.empty()) parameters.emplace_back("file", file);
    code = CallMethod(context, "FirmwareUpdate", parameters, devices);
  }
  // The value of each drive's property of this name.
  std::vector<std::string> Told(std::string_view name) const {
    std::vector<std::string> texts;
    for (const auto& list : reply.lists) {
      EXPECT_EQ(list->GetAttribute("name"), "FirmwareUpdate");
      for (const auto& object : list->objects) texts.push_back(GetText(*object, name));
    }
    return texts;
  }
  void CheckPercents() const {
    EXPECT_TRUE(std::ranges::is_sorted(reporter.percents));
    EXPECT_EQ(reporter.percents.back(), 100);
  }

  RecordingReporter reporter;
  XmlMessaging::Message reply;
  StatusCode code = Status::NotRun;
};

std::vector<Simulator::DriveSpec> TwoSataDrives() {
  auto second = SataSpec();
  second.serial = "BTWL9999";
  return {SataSpec(), second};
}

// ---- Several drives ----

TEST(FirmwareDrives, AFileForSeveralDrivesIsRefused) {
  DrivesScene scene(TwoSataDrives());
  const auto image = scene.SaveImage("NEW2", 60'000);
  auto selected = scene.Select();
  const Call call(selected, image);
  EXPECT_EQ(call.code, Status::NoDeviceSelected);
  EXPECT_THAT(call.reply.lists, IsEmpty());
  for (const auto& drive : scene.drives) EXPECT_EQ(Count(drive, kAtaDownload), 0);
  selected.devices.pop_back();
  EXPECT_EQ(Call(selected, image).code, Status::Completed);
  EXPECT_GT(Count(scene.drives[0], kAtaDownload), 0);
}

class ModulesScene : public DrivesScene {
 public:
  // Each drive gets these images.
  ModulesScene(const std::vector<Simulator::DriveSpec>& specs,
               const std::vector<std::string>& revisions)
      : DrivesScene(specs) {
    std::string package, settings;
    for (const auto& revision : revisions) {
      package += (package.empty() ? "" : "~") + revision;
      settings += "binary." + revision + "=" + SaveImage(revision, 200'000) + "\n";
    }
    folder.Add("m", "date=1\nmapping=" + MakeMapping("1", package) + "\n" + settings);
  }
  Call Run(std::size_t cancelAt = 0) const {
    return Call(Select(), "", folder.AsDirectories(), cancelAt);
  }

  ModuleFolder folder;
};

TEST(FirmwareDrives, TheReplyTellsEachDrivesEnd) {
  ModulesScene scene(TwoSataDrives(), {"NEW2"});
  scene.drives[0].Inject(Fault::Fail().OnOpcode(kAtaDownload));
  const auto call = scene.Run();
  EXPECT_EQ(call.code, Status::Completed);  // the last one's
  EXPECT_THAT(call.Told("SerialNumber"), ElementsAre("BTWL1234", "BTWL9999"));
  EXPECT_THAT(call.Told("DevicePath"), ElementsAre(scene.drives[0].Node(), scene.drives[1].Node()));
  EXPECT_THAT(call.Told("ErrorCode"), ElementsAre("19", "0"));
  EXPECT_THAT(call.Told("OldFirmware"), ElementsAre("OLD1", "OLD1"));
  EXPECT_THAT(call.Told("Firmware"), ElementsAre("OLD1", "NEW2"));
  EXPECT_THAT(call.Told("Activation"), ElementsAre("none", "none"));
  call.CheckPercents();
}

TEST(FirmwareDrives, ARefusedDriveIsToldToo) {
  auto specs = TwoSataDrives();
  specs[1].model = "OTHER DRIVE";
  ModulesScene scene(specs, {"NEW2"});
  const auto call = scene.Run();
  EXPECT_EQ(call.code, 45);
  EXPECT_THAT(call.Told("ErrorCode"), ElementsAre("0", "45"));
}

// Two drives, two images: whenever the host cancels, the run ends in 2, no drive is begun any
// more and no image, and the reply tells how far it came.
TEST(FirmwareDrives, ACancelIsHeardBeforeEachNextDriveAndImage) {
  std::size_t questions = 0;
  std::vector<std::vector<std::string>> ends;
  {
    ModulesScene scene(TwoSataDrives(), {"MID1", "NEW2"});
    const auto good = scene.Run();
    ASSERT_EQ(good.code, Status::Completed);
    questions = good.reporter.questions;
    good.CheckPercents();
  }
  ASSERT_GT(questions, 4u);
  for (std::size_t n = 1; n <= questions; ++n) {
    SCOPED_TRACE(n);
    ModulesScene scene(TwoSataDrives(), {"MID1", "NEW2"});
    const auto call = scene.Run(n);
    EXPECT_TRUE(std::ranges::is_sorted(call.reporter.percents));
    ASSERT_EQ(call.Told("ErrorCode").size(), 2u);
    // What was behind its last segment when the cancel came is done; nothing else is begun.
    const bool isDone = call.Told("Firmware") == std::vector<std::string>{"NEW2", "NEW2"};
    EXPECT_EQ(call.code, isDone ? Status::Completed : Status::Canceled);
    if (call.Told("Firmware")[0] != "NEW2") {
      EXPECT_EQ(call.Told("ErrorCode")[1], "2");
      EXPECT_EQ(Count(scene.drives[1], kAtaDownload), 0);
    }
    for (std::size_t i = 0; i < 2; ++i) {
      EXPECT_TRUE(scene.drives[i].State().ata.smartEnabled);
      EXPECT_EQ(call.Told("Firmware")[i], std::string(scene.drives[i].State().firmware));
    }
    ends.push_back(call.Told("Firmware"));
  }
  // It stopped between the images, and between the drives.
  EXPECT_THAT(ends, ::testing::Contains(ElementsAre("MID1", "OLD1")));
  EXPECT_THAT(ends, ::testing::Contains(ElementsAre("NEW2", "OLD1")));
  EXPECT_THAT(ends, ::testing::Contains(ElementsAre("NEW2", "MID1")));
}

// ---- Namespaces and controllers ----

class SubsystemTest : public testing::TestWithParam<unsigned> {
 protected:
  static Simulator::DriveSpec Spec() {
    auto spec = NvmeSpec();
    spec.namespaces = 3;
    spec.controllers = GetParam();
    return spec;
  }
};

TEST_P(SubsystemTest, HasOneUpdate) {
  DrivesScene scene({Spec()});
  const auto selected = scene.Select();
  ASSERT_EQ(selected.devices.size(), 3u);
  const Call call(selected, scene.SaveImage("NEW2", 10'000));
  EXPECT_EQ(call.code, Status::Completed);
  EXPECT_EQ(Count(scene.drives[0], kNvmeActivate), 1);
  EXPECT_THAT(call.Told("ErrorCode"), ElementsAre("0", "0", "0"));
  EXPECT_THAT(call.Told("Firmware"), ElementsAre("OLD1", "OLD1", "OLD1"));
  EXPECT_THAT(call.Told("Activation"), ::testing::Each("committed, runs after a reset"));
}

TEST_P(SubsystemTest, FailsAsOne) {
  DrivesScene scene({Spec()});
  scene.drives[0].Inject(Fault::Fail().OnOpcode(kNvmeActivate).Times(1));
  const Call call(scene.Select(), scene.SaveImage("NEW2", 10'000));
  EXPECT_EQ(call.code, Status::FirmwareUpdateFailed);
  EXPECT_EQ(Count(scene.drives[0], kNvmeActivate), 1);
  EXPECT_THAT(call.Told("ErrorCode"), ElementsAre("19", "19", "19"));
}

TEST_P(SubsystemTest, IsUpdatedOnceByTheWalkOverAllDrivesToo) {
  auto other = NvmeSpec();
  other.serial = "CVFT9999";
  ModulesScene scene({Spec(), other}, {"NEW2"});
  const auto call = scene.Run();
  EXPECT_EQ(call.code, Status::Completed);
  EXPECT_THAT(call.Told("ErrorCode"), ElementsAre("0", "0", "0", "0"));
  for (const auto& drive : scene.drives) EXPECT_EQ(Count(drive, kNvmeActivate), 1);
  call.CheckPercents();
}

INSTANTIATE_TEST_SUITE_P(Controllers, SubsystemTest, testing::Values(1u, 2u));

// ---- Faults at every command of a run over two drives, or two namespaces, with two images ----

struct WalkCase {
  const char* name;
  Simulator::DriveSpec (*spec)();
  unsigned namespaces;
};

// The first drive is the one that goes wrong; the second stands behind it.
class WalkScene : public Scene {
 public:
  explicit WalkScene(const WalkCase& param) : Scene(Spec(param)) {
    auto spec = param.spec();
    spec.serial = "SECOND01";
    second = fleet.Add(spec);
    std::string settings = "date=1\nmapping=" + MakeMapping("1", "MID1~NEW2") + "\n";
    for (const std::string revision : {"MID1", "NEW2"}) {
      const auto image = folder.AddFile(revision, MakeSimulatedImage(revision, 9000));
      settings += "binary." + revision + "=" + image + "\n";
    }
    folder.Add("m", settings);
  }

  void Prepare() override { selected = ScanAndClone(); }
  StatusCode Run(ProgressReporter&) override {
    call = std::make_unique<Call>(selected, "", folder.AsDirectories());
    return call->code;
  }

  ModuleFolder folder;
  Simulator::SimulatedDrive second;
  DeviceManagement::SelectedDevices selected;
  std::unique_ptr<Call> call;

 private:
  static Simulator::DriveSpec Spec(const WalkCase& param) {
    auto spec = param.spec();
    spec.namespaces = param.namespaces;
    return spec;
  }
};

std::string GetRevision(Simulator::SimulatedDrive& drive) {
  const auto& nvme = drive.State().nvme;
  const bool waits = drive.State().kind == Simulator::Kind::Nvme && nvme.nextSlot != 0;
  return waits ? nvme.slots[nvme.nextSlot - 1] : drive.State().firmware;
}

class FirmwareWalkSweep : public testing::TestWithParam<WalkCase> {
 protected:
  static std::unique_ptr<WalkScene> Make() { return std::make_unique<WalkScene>(GetParam()); }
  static void Check(WalkScene& scene, const SweptRun&) {
    const auto codes = scene.call->Told("ErrorCode");
    ASSERT_EQ(codes.size(), GetParam().namespaces + 1);
    // The drive behind it is updated all the same.
    EXPECT_EQ(codes.back(), "0");
    EXPECT_EQ(GetRevision(scene.second), "NEW2");
    // One outcome for its namespaces, and a true one.
    EXPECT_THAT(std::vector(codes.begin(), codes.end() - 1), ::testing::Each(codes.front()));
    if (codes.front() == "0") {
      EXPECT_EQ(GetRevision(scene.drive), "NEW2");
    } else {
      EXPECT_NE(codes.front(), "1");
    }
    scene.call->CheckPercents();
  }
};

TEST_P(FirmwareWalkSweep, ACommandFails) {
  SweepFaults<WalkScene>(Make, Fault::Fail().Times(1), Check);
}

TEST_P(FirmwareWalkSweep, DataComeShort) {
  SweepFaults<WalkScene>(Make, Fault::ShortData(100).Times(1), Check);
}

TEST_P(FirmwareWalkSweep, TheDriveVanishes) {
  SweepFaults<WalkScene>(Make, Fault::Vanish(), [](WalkScene& scene, const SweptRun& run) {
    Check(scene, run);
    const auto codes = scene.call->Told("ErrorCode");
    // No image was whole before the last activation or segment of the second one.
    const auto last = std::find_if(run.good.rbegin(), run.good.rend(), [](const auto& entry) {
                        return entry.AtaOpcode() == kAtaDownload || entry.Opcode() == kNvmeActivate;
                      }).base();
    if (run.good.begin() + static_cast<std::ptrdiff_t>(run.index) <= last) {
      EXPECT_NE(codes.front(), "0");
    }
  });
}

TEST_P(FirmwareWalkSweep, ACommandIsInterrupted) {
  if (MORVU_IS_EMULATED) GTEST_SKIP() << "signals end in another thread's storage";
  struct sigaction harmless {
  }, before{};
  harmless.sa_handler = [](int) {};
  sigaction(SIGUSR1, &harmless, &before);
  SweepFaults<WalkScene>(Make, Fault::Signal(SIGUSR1).Times(1),
                         [](WalkScene& scene, const SweptRun& run) {
                           Check(scene, run);
                           EXPECT_EQ(run.code, Status::Completed);
                           EXPECT_EQ(run.commands.size(), run.good.size());
                         });
  sigaction(SIGUSR1, &before, nullptr);
}

INSTANTIATE_TEST_SUITE_P(Drives, FirmwareWalkSweep,
                         testing::Values(WalkCase{"Sata", SataSpec, 1},
                                         WalkCase{"Nvme", NvmeSpec, 2}),
                         [](const auto& test) { return test.param.name; });

// ---- Images that are committed and do not run yet ----

struct CommittedCase {
  std::uint16_t status;
  const char* words;
};

class CommittedTest : public testing::TestWithParam<CommittedCase> {};

TEST_P(CommittedTest, IsToldByTheReply) {
  DrivesScene scene({NvmeSpec()});
  scene.drives[0].State().nvme.activationStatus = GetParam().status;
  const Call call(scene.Select(), scene.SaveImage("NEW2", 10'000));
  EXPECT_EQ(call.code, Status::FirmwareUpdateFailed);
  EXPECT_THAT(call.Told("ErrorCode"), ElementsAre("19"));
  EXPECT_THAT(call.Told("Activation"), ElementsAre("committed, runs after a reset"));
  EXPECT_THAT(call.Told("NVMeStatus"), ElementsAre(GetParam().words));
  ASSERT_EQ(call.reply.properties.size(), 1u);
  EXPECT_EQ(call.reply.properties[0]->GetAttribute("name"), "Warning");
  EXPECT_EQ(call.reply.properties[0]->value,
            "Firmware committed, runs after a reset: " + std::string(GetParam().words) + ".");
  scene.drives[0].PowerCycle();
  EXPECT_STREQ(scene.drives[0].State().firmware, "NEW2");
}

TEST_P(CommittedTest, IsToldAtThePrompt) {
  CommandLineScene scene(NvmeSpec(), 10'000);
  scene.drive.State().nvme.activationStatus = GetParam().status;
  EXPECT_EQ(scene.Run(NoReporter()), Status::FirmwareUpdateFailed);
  auto output = scene.output;
  std::ranges::replace(output, '\n', ' ');  // lines are cut
  EXPECT_THAT(output, HasSubstr(" WARNING! Firmware committed, runs after a reset: " +
                                std::string(GetParam().words) + ". "));
  EXPECT_THAT(scene.output, Not(HasSubstr("Successful")));
}

INSTANTIATE_TEST_SUITE_P(
    Statuses, CommittedTest,
    testing::Values(
        CommittedCase{0x10B, "NVMe status 0x10B (Firmware Activation Requires Conventional Reset)"},
        CommittedCase{0x110,
                      "NVMe status 0x110 (Firmware Activation Requires NVM Subsystem Reset)"},
        CommittedCase{0x111,
                      "NVMe status 0x111 (Firmware Activation Requires Controller Level Reset)"}),
    [](const auto& test) { return std::to_string(test.param.status); });

TEST(FirmwareActivation, AnyOtherStatusCommitsNothing) {
  DrivesScene scene({NvmeSpec()});
  scene.drives[0].Inject(Fault::NvmeStatus(0x107).OnOpcode(kNvmeActivate));
  const Call call(scene.Select(), scene.SaveImage("NEW2", 10'000));
  EXPECT_EQ(call.code, Status::FirmwareUpdateFailed);
  EXPECT_THAT(call.Told("Activation"), ElementsAre("none"));
  EXPECT_THAT(call.Told("NVMeStatus"), ElementsAre("none"));
}

TEST(FirmwareActivation, AtThePromptAGoodEndTellsThatItRunsLater) {
  CommandLineScene scene(NvmeSpec(), 10'000);
  EXPECT_EQ(scene.Run(NoReporter()), Status::Completed);
  EXPECT_THAT(scene.output, HasSubstr("Please reboot the system.\n"
                                      "Firmware committed, runs after a reset.\n"));
}

}  // namespace
}  // namespace Morvu
