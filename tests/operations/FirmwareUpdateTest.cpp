// Firmware updates by their two faces: refusals, summaries, failures at every command.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>

#include "devices/properties/BasicProperties.h"
#include "devices/properties/FirmwareProperties.h"
#include "devices/properties/ProductProperties.h"
#include "devices/properties/SecurityProperties.h"
#include "frame/Files.h"
#include "frame/status/Files.h"
#include "frame/status/Firmware.h"
#include "frame/status/Health.h"
#include "frame/status/Testing.h"
#include "messaging/features/CimClass.h"
#include "operations/firmware/AttributeCollection.h"
#include "support/FirmwareScene.h"
#include "support/LogLines.h"
#include "support/Sweep.h"

namespace Morvu {
namespace {

using namespace Testing;
using DeviceManagement::Device;
using DeviceManagement::PropertyList;
using Simulator::Fault;
using ::testing::AnyOf;
using ::testing::EndsWith;
using ::testing::HasSubstr;
using ::testing::Not;
namespace Properties = DeviceManagement::Properties;

// ---- Refusals ----

PropertyList Verdict(std::uint64_t status) {
  PropertyList mapping;
  mapping.Add(DeviceProperty(FirmwareMapping::Status, status));
  return mapping;
}

// The code of an update whose mapping has this verdict.
StatusCode CodeFor(Device* device, std::uint64_t status, bool ignoreSecurity = false) {
  FirmwareUpdate update(
      device, ignoreSecurity, [&](const PropertyList&) { return Verdict(status); }, {},
      NoReporter());
  return update.GetErrorCode();
}

TEST(FirmwareUpdate, RefusesByTheFirstTestThatHolds) {
  FirmwareScene scene(SataSpec());
  scene.Prepare();
  auto& device = *scene.device();
  const auto codeWithFile = [&] {
    return FirmwareUpdate(&device, false, scene.ImagePath(), NoReporter()).GetErrorCode();
  };
  EXPECT_EQ(codeWithFile(), 1);
  EXPECT_EQ(FirmwareUpdate(&device, false, "", NoReporter()).GetErrorCode(), 301);
  EXPECT_EQ(CodeFor(&device, 900), 301);
  const std::pair<std::uint64_t, std::int32_t> verdicts[] = {
      {0, 18}, {1, 1}, {2, 67}, {3, 66}, {4, 68}, {5, 69}, {6, 103}, {7, 1}, {1ULL << 32, 1}};
  for (const auto& [verdict, code] : verdicts) EXPECT_EQ(CodeFor(&device, verdict), code);

  // Each row in front of the ones behind it.
  device.AddProperty(Properties::SecurityEnabled, true);
  EXPECT_EQ(codeWithFile(), 136);
  EXPECT_EQ(CodeFor(&device, 1, true), 1);
  EXPECT_EQ(CodeFor(&device, 900), 301);
  device.AddProperty(Properties::LSI, true);
  EXPECT_EQ(codeWithFile(), 1);
  device.AddProperty(Properties::Morvu, false);
  EXPECT_EQ(CodeFor(&device, 0), 45);
  device.AddProperty(Properties::RAID, true);
  EXPECT_EQ(codeWithFile(), 97);
  scene.drive.Inject(Fault::Vanish());
  EXPECT_EQ(codeWithFile(), 4);
  EXPECT_EQ(FirmwareUpdate(nullptr, false, "x", NoReporter()).GetErrorCode(), 4);
  EXPECT_EQ(CodeFor(nullptr, 1), 4);
}

TEST(FirmwareUpdate, AnUpdateThatWasRefusedDoesNotRun) {
  FirmwareScene scene(SataSpec());
  scene.Prepare();
  scene.device()->AddProperty(Properties::RAID, true);
  FirmwareUpdate update(scene.device(), false, scene.ImagePath(), NoReporter());
  EXPECT_EQ(update.Execute(), 0);
  EXPECT_EQ(update.GetErrorCode(), Status::NoCommunication);
  EXPECT_EQ(scene.GetRevision(), kOldRevision);
}

// ---- Images ----

TEST(FirmwareUpdate, SendsTheImagesOfAModuleInOrder) {
  ModuleFolder folder;
  const auto first = folder.AddFile("first", MakeSimulatedImage("MID1", 60'000));
  const auto second = folder.AddFile("second", MakeSimulatedImage("NEW2", 70'000));
  folder.Add("m", "date=1\nmapping=" + MakeMapping("1", "one~two", "NEW2") +
                      "\nbinary.one=" + first + "\nbinary.two=" + second + "\n");
  FirmwareScene scene(SataSpec());
  scene.Prepare();
  RecordingReporter reporter;
  {
    FirmwareUpdate update(scene.device(), false, 0, "", folder.AsDirectories(), reporter);
    EXPECT_EQ(update.Execute(), 1);
    EXPECT_EQ(update.GetErrorCode(), Status::Completed);
  }
  EXPECT_EQ(scene.GetRevision(), "NEW2");
  EXPECT_EQ(scene.drive.State().ata.firmware.activations, 2u);
  // Percents of the whole: it rises, and the second image is the second half.
  EXPECT_EQ(reporter.percents, (std::vector<std::int32_t>{2, 4, 5, 37, 42, 43, 45, 46, 52, 54, 55,
                                                          87, 92, 93, 95, 96, 100}));
  EXPECT_FALSE(folder.IsAnyLoaded());
}

TEST(FirmwareUpdate, AFailedSecondImageLeavesTheFirstInstalled) {
  for (const std::string image : {"binary.two=/absent\n", ""}) {
    ModuleFolder folder;
    const auto first = folder.AddFile("first", MakeSimulatedImage("MID1", 60'000));
    folder.Add("m", "date=1\nmapping=" + MakeMapping("1", "one~two") + "\nbinary.one=" + first +
                        "\n" + image);
    FirmwareScene scene(SataSpec());
    scene.Prepare();
    FirmwareUpdate update(scene.device(), false, 0, "", folder.AsDirectories(), NoReporter());
    EXPECT_EQ(update.Execute(), 0);
    EXPECT_EQ(update.GetErrorCode(), Status::FileNotRead);
    EXPECT_EQ(scene.GetRevision(), "MID1");
  }
}

TEST(FirmwareUpdate, TheModuleThatAnsweredGivesTheImageWhateverLiesInItsPlace) {
  ModuleFolder folder;
  const auto image = folder.AddFile("image", MakeSimulatedImage("NEW2", 60'000));
  const auto path = folder.Add(
      "m", "date=1\nmapping=" + MakeMapping("1", "one") + "\nbinary.one=" + image + "\n");
  FirmwareScene scene(SataSpec());
  scene.Prepare();
  FirmwareUpdate update(scene.device(), false, 0, "", folder.AsDirectories(), NoReporter());
  ASSERT_EQ(update.GetErrorCode(), Status::ReadyToRun);
  std::filesystem::remove(path);
  EXPECT_EQ(update.Execute(), 1);
  EXPECT_EQ(scene.GetRevision(), "NEW2");
}

TEST(FirmwareUpdate, TakesTheImagesOfItsCallbacks) {
  FirmwareScene scene(SataSpec());
  scene.Prepare();
  const auto mapping = [](const PropertyList& drive) {
    auto answer = Verdict(1);
    EXPECT_EQ(drive.GetString(Properties::Firmware), kOldRevision);
    answer.Add(DeviceProperty(FirmwareMapping::Package, "x"));
    return std::optional(answer);
  };
  const auto binary = [&](const std::string& name) {
    EXPECT_EQ(name, "x");
    return scene.image;
  };
  FirmwareUpdate update(scene.device(), false, mapping, binary, NoReporter());
  EXPECT_EQ(update.Execute(), 1);
  EXPECT_EQ(scene.GetRevision(), kNewRevision);
  FirmwareUpdate nothing(scene.device(), false, {}, {}, NoReporter());
  EXPECT_EQ(nothing.GetErrorCode(), Status::NoFirmware);
}

TEST(FirmwareUpdate, ALockedLenovoDriveTellsWhy) {
  FirmwareScene scene({.model = "LEN-M60-120", .serial = "LEN1", .firmware = "OLD1"});
  scene.shape = [](Device& device) {
    ASSERT_EQ(device.GetString(Properties::OEM), "Lenovo");
    ASSERT_TRUE(device.GetBool(Properties::SecurityEnabled));
    device.AddProperty(Properties::LSI, true);  // behind it the security does not refuse
  };
  scene.drive.State().ata.security.supported = 1;
  scene.drive.State().ata.security.enabled = 1;
  scene.drive.State().ata.firmware.refuseImages = 1;
  EXPECT_EQ(RunScene(scene, nullptr, 0).code, Status::FirmwareSecurityEnabled);
}

// ---- Failures at every command ----

enum class Face { Method, CommandLine };

struct SweepCase {
  const char* name;
  Simulator::DriveSpec (*spec)();
  std::size_t imageSize;
  Face face;
};

class FirmwareSweepTest : public testing::TestWithParam<SweepCase> {
 protected:
  static std::unique_ptr<FirmwareScene> Make() {
    const auto& param = GetParam();
    if (param.face == Face::CommandLine) {
      return std::make_unique<CommandLineScene>(param.spec(), param.imageSize);
    }
    return std::make_unique<MethodScene>(param.spec(), param.imageSize);
  }
  // The code tells the truth: the new revision is there exactly when it says so.
  static void Check(FirmwareScene& scene, StatusCode code, bool mayBeUnknown = false) {
    EXPECT_TRUE(scene.IsMediumUntouched());
    if (code == Status::Completed) {
      EXPECT_EQ(scene.GetRevision(), kNewRevision);
    } else if (!mayBeUnknown) {
      EXPECT_EQ(scene.GetRevision(), kOldRevision);
    }
  }
};

// Not the block that Dunmere drives want once more.
bool IsDownload(const Simulator::JournalEntry& entry) {
  if (entry.AtaOpcode() == 0x92) return entry.Features() == 0x03;
  return entry.Opcode() == 0x3B || entry.Opcode() == 0x11 || entry.Opcode() == 0x10;
}

// Whether the command that a fault met lies before or behind the first download.
enum class Part { Before, Download, Behind };

Part PartOf(const SweptRun& run) {
  const auto first = std::ranges::find_if(run.good, IsDownload);
  const auto last = std::find_if(run.good.rbegin(), run.good.rend(), IsDownload).base();
  const auto met = run.good.begin() + static_cast<std::ptrdiff_t>(run.index - 1);
  return met < first ? Part::Before : met < last ? Part::Download : Part::Behind;
}

TEST_P(FirmwareSweepTest, OneCommandFails) {
  SweepFaults<FirmwareScene>(
      Make, Fault::Fail().Times(1), [](FirmwareScene& scene, const SweptRun& run) {
        const bool ata = scene.drive.State().kind == Simulator::Kind::Ata;
        switch (PartOf(run)) {
          case Part::Before:
            // The connection tests allow for refusals, and a scan for drives that fail.
            if (run.Met().AtaOpcode() == 0xE0) {
              EXPECT_EQ(run.code, Status::StandbyFailed);
            }
            if (run.Met().AtaOpcode() == 0xB0 && run.Met().Features() == 0xD9) {
              EXPECT_EQ(run.code, Status::SmartDisableFailed);
            }
            break;
          case Part::Download:
            EXPECT_EQ(run.code, Status::FirmwareUpdateFailed);
            break;
          case Part::Behind:
            EXPECT_EQ(run.code, Status::Completed);
            break;
        }
        Check(scene, run.code);
        if (!ata) return;
        // Off only while the update runs, unless the command that turns it on again failed.
        if (run.Met().Features() != 0xD8) {
          EXPECT_TRUE(scene.drive.State().ata.smartEnabled);
        }
      });
}

// The last command of an ATA update, which turns SMART on again, has the last word.
void CheckLostDownload(StatusCode code) {
  EXPECT_THAT(code, AnyOf(Status::FirmwareUpdateFailed, Status::SmartEnableFailed));
}

TEST_P(FirmwareSweepTest, TheDriveFailsFromACommandOn) {
  SweepFaults<FirmwareScene>(Make, Fault::Fail(), [](FirmwareScene& scene, const SweptRun& run) {
    if (PartOf(run) == Part::Download) CheckLostDownload(run.code);
    Check(scene, run.code, PartOf(run) == Part::Behind);
  });
}

// IDENTIFY DEVICE, INQUIRY, and of NVMe that of the controller.
bool IsIdentify(const Simulator::JournalEntry& entry) {
  if (entry.ioctl == Simulator::Ioctl::NvmeAdmin)
    return entry.Opcode() == 0x06 && entry.Cdw(10) == 1;
  return entry.AtaOpcode() == 0xEC || entry.Opcode() == 0x12;
}

// Dunmere drives want a block once more.
bool IsFollowedByDownload(const SweptRun& run) {
  return std::any_of(run.good.begin() + static_cast<std::ptrdiff_t>(run.index - 1), run.good.end(),
                     [](const auto& entry) { return entry.AtaOpcode() == 0x92; });
}

TEST_P(FirmwareSweepTest, TheDriveVanishes) {
  SweepFaults<FirmwareScene>(Make, Fault::Vanish(), [](FirmwareScene& scene, const SweptRun& run) {
    if (PartOf(run) == Part::Before) {
      EXPECT_NE(run.code, Status::Completed);
    }
    if (PartOf(run) == Part::Download) CheckLostDownload(run.code);
    // A drive that took the image and did not answer afterwards has not been updated.
    const auto last = std::find_if(run.good.rbegin(), run.good.rend(), IsIdentify).base();
    const auto met = run.good.begin() + static_cast<std::ptrdiff_t>(run.index);
    if (PartOf(run) == Part::Behind && met <= last) {
      EXPECT_THAT(run.code, AnyOf(Status::NoCommunication, Status::FirmwareUpdateFailed));
      if (scene.drive.State().kind != Simulator::Kind::Nvme && !IsFollowedByDownload(run)) {
        EXPECT_EQ(run.code, Status::NoCommunication);
      }
    }
    Check(scene, run.code, PartOf(run) == Part::Behind);
  });
}

// A drive that takes its time comes back.
TEST(FirmwareUpdate, WaitsSomeSecondsForTheDrive) {
  FirmwareScene good(SataSpec());
  const auto journal = RunScene(good, nullptr, 0).commands;
  const auto last = std::find_if(journal.rbegin(), journal.rend(), IsIdentify).base();
  const auto identify = static_cast<std::uint32_t>(last - journal.begin());
  const auto runWith = [&](std::uint32_t times) {
    FirmwareScene scene(SataSpec());
    const auto fault = Fault::IoctlError(ENODEV).OnCommand(identify).Times(times);
    const LogLines log;
    const auto run = RunScene(scene, &fault, 0);
    EXPECT_EQ(log.GetText().find("does not answer any more") != std::string::npos,
              run.code == Status::NoCommunication);
    if (run.code == Status::Completed) {
      EXPECT_EQ(scene.device()->GetString(Properties::Firmware), kNewRevision);
    }
    return run.code;
  };
  EXPECT_EQ(runWith(8), Status::Completed);
  EXPECT_EQ(runWith(0), Status::NoCommunication);
}

TEST_P(FirmwareSweepTest, TheAdapterTimesOut) {
  SweepFaults<FirmwareScene>(Make, Fault::Hang().Times(1),
                             [](FirmwareScene& scene, const SweptRun& run) {
                               if (PartOf(run) == Part::Download) {
                                 EXPECT_EQ(run.code, Status::FirmwareUpdateFailed);
                               }
                               Check(scene, run.code);
                             });
}

INSTANTIATE_TEST_SUITE_P(
    Drives, FirmwareSweepTest,
    testing::Values(SweepCase{"SataMethod", SataSpec, 140'000, Face::Method},
                    SweepCase{"SataCommandLine", SataSpec, 140'000, Face::CommandLine},
                    SweepCase{"DunmereMethod", DunmereSpec, 140'000, Face::Method},
                    SweepCase{"NvmeMethod", NvmeSpec, 10'000, Face::Method},
                    SweepCase{"NvmeCommandLine", NvmeSpec, 10'000, Face::CommandLine},
                    SweepCase{"SasMethod", SasSpec, 10'000, Face::Method},
                    SweepCase{"SasCommandLine", SasSpec, 10'000, Face::CommandLine}),
    [](const auto& test) { return test.param.name; });

TEST(FirmwareUpdateCancel, StopsBetweenSegmentsAndWakesTheDrive) {
  SweepCancels<MethodScene>([] { return std::make_unique<MethodScene>(SataSpec(), 400'000); },
                            [](MethodScene& scene, const SweptRun& run) {
                              // Behind the last segment the drive has the new firmware, whoever
                              // cancels.
                              const auto sent = std::ranges::count_if(run.commands, IsDownload);
                              EXPECT_EQ(sent, static_cast<std::ptrdiff_t>(run.index) - 1);
                              const bool whole =
                                  sent == std::ranges::count_if(run.good, IsDownload);
                              EXPECT_EQ(run.code, whole ? Status::Completed : Status::Canceled);
                              EXPECT_EQ(scene.GetRevision(), whole ? kNewRevision : kOldRevision);
                              EXPECT_TRUE(scene.IsMediumUntouched());
                              EXPECT_TRUE(scene.drive.State().ata.smartEnabled);
                            });
}

// ---- As a host and a user meet it ----

// A job's context with a request, whose notifications are kept.
struct Host : NoJobServices {
  explicit Host(const std::vector<std::string>& directories = {}) {
    auto object = std::make_unique<XmlMessaging::Object>();
    object->SetAttribute("name", "FirmwareModulesDirectories");
    for (const auto& directory : directories) object->AddProperty("", directory);
    request.objects.push_back(std::move(object));
    context.request = &request;
    context.subject = "MorvuSSD";
    context.services = this;
    notifications.clear();
  }
  void PostNotification(const Notification& notification) override {
    notifications.push_back(notification);
  }

  XmlMessaging::Message request;
  JobContext context;
  inline static std::vector<Notification> notifications;
};

// ---- Files ----

// Nothing is sent for it, whichever face has it.
TEST(FirmwareUpdateFiles, TellWhatIsWrongWithThem) {
  FirmwareScene scene(SataSpec());
  scene.Prepare();
  const auto folder = scene.fleet.Folder();
  const auto empty = folder + "/empty", huge = folder + "/huge";
  ASSERT_TRUE(SaveBinary(empty, {}, false));
  ASSERT_TRUE(SaveBinary(huge, {}, false));
  std::filesystem::resize_file(huge, 300ull << 20);
  const std::pair<std::string, const char*> kFiles[] = {
      {folder + "/absent", "No such file or directory."},
      {empty, "It is empty."},
      {huge, "It is larger than 256 MiB."},
      {folder, "Is a directory."},
      {"/dev/null", "It is no regular file."},
  };
  for (const auto& [file, reason] : kFiles) {
    SCOPED_TRACE(file);
    const auto outcome = RunToolLine({"-drive_index", "0", "-firmware_update", file, "-force"});
    EXPECT_EQ(outcome.code, Status::FileNotRead);
    EXPECT_THAT(outcome.output, HasSubstr("Reason: " + std::string(reason) + "\n"));

    RecordingReporter reporter;
    FirmwareUpdate update(scene.device(), false, file, reporter);
    ASSERT_EQ(update.GetErrorCode(), Status::ReadyToRun);
    EXPECT_EQ(update.Execute(), 0);
    EXPECT_EQ(update.GetErrorCode(), Status::FileNotRead);
    EXPECT_EQ(update.GetState(), FeatureState::Failed);
    EXPECT_EQ(reporter.percents.back(), 100);
  }
  EXPECT_THAT(scene.drive.Opcodes(), Not(::testing::Contains(0x92)));
}

// ---- The property ----

struct PropertyCase {
  const char* name;
  const char* settings;  // of a module; null for none
  const char* text;
  const char* status;
  const char* notified;
  std::uint32_t level;
};

class FirmwareUpdateAvailableTest : public testing::TestWithParam<PropertyCase> {};

TEST_P(FirmwareUpdateAvailableTest, TellsAndNotifies) {
  const auto& param = GetParam();
  ModuleFolder folder;
  if (param.settings != nullptr) folder.Add("m", param.settings);
  FirmwareScene scene(SataSpec());
  scene.Prepare();
  Host host({folder.Path()});
  const auto property = FirmwareUpdate::GetUpdateAvailable(
      &host.context, Properties::FirmwareUpdateAvailable, scene.device());
  EXPECT_EQ(property->value, param.text);
  EXPECT_EQ(property->GetAttribute("status"), param.status);
  EXPECT_EQ(property->GetAttribute("name"), "FirmwareUpdateAvailable");
  ASSERT_EQ(Host::notifications.size(), 1u);
  const auto& notification = Host::notifications[0];
  EXPECT_EQ(notification.objectPath, "MorvuSSD.BTWL1234");
  EXPECT_EQ(notification.type, 0u);
  EXPECT_EQ(notification.status, param.level);
  EXPECT_EQ(notification.value.GetName(), "FirmwareUpdateAvailable");
  EXPECT_EQ(notification.value.AsString(), param.notified);
}

const std::string kUpdate = "date=1\nmapping=" + MakeMapping("1", "x", "NEW2");
const std::string kCurrent = "date=1\nmapping=" + MakeMapping("0", "x", "OLD1");
const std::string kOther = "date=1\nmapping=" + MakeMapping("12", "x", "NEW2");

INSTANTIATE_TEST_SUITE_P(
    Verdicts, FirmwareUpdateAvailableTest,
    testing::Values(PropertyCase{"Update", kUpdate.c_str(), "NEW2", "0", "NEW2", 1},
                    PropertyCase{"Current", kCurrent.c_str(), "", "18", "No update available", 3},
                    PropertyCase{"OtherVerdict", kOther.c_str(), "", "0", "No update available", 3},
                    PropertyCase{"NoModule", nullptr, "", "301", "No update available", 3}),
    [](const auto& test) { return test.param.name; });

TEST(FirmwareUpdateAvailable, IsNotToldOfDrivesThatAreNotOurs) {
  FirmwareScene scene(SataSpec());
  scene.Prepare();
  scene.device()->AddProperty(Properties::Morvu, false);
  Host host;
  const auto& entry = Properties::FirmwareUpdateAvailable;
  EXPECT_EQ(FirmwareUpdate::GetUpdateAvailable(&host.context, entry, scene.device())
                ->GetAttribute("status"),
            "45");
  EXPECT_TRUE(Host::notifications.empty());
  // Without a context, and without a device.
  EXPECT_NE(FirmwareUpdate::GetUpdateAvailable(nullptr, entry, scene.device()), nullptr);
  EXPECT_EQ(FirmwareUpdate::GetUpdateAvailable(nullptr, entry, nullptr)->GetAttribute("status"),
            "");
}

// ---- The option ----

TEST(FirmwareUpdateOption, AsksFirstAndTellsTheOutcome) {
  CommandLineScene scene(SataSpec());
  const std::vector<std::string> line{"-drive_index", "0", "-firmware_update", scene.ImagePath()};
  EXPECT_EQ(scene.RunLine(line, "n\n"), Status::CanceledByUser);
  EXPECT_THAT(scene.output, HasSubstr("WARNING! You have selected to update the drives firmware!"));
  EXPECT_THAT(scene.output, HasSubstr("Proceed with the update?"));
  EXPECT_THAT(scene.output, Not(HasSubstr("Updating the drive's firmware...")));
  EXPECT_EQ(scene.GetRevision(), kOldRevision);

  EXPECT_EQ(scene.RunLine(line, "y\n"), Status::Completed);
  // The drive's outcome is the run's: it is told once.
  EXPECT_THAT(scene.output, EndsWith("Given firmware binary: " + scene.ImagePath() + "\n" +
                                     "Updating the drive's firmware...\n"
                                     "Firmware Update Successful.\nPlease reboot the system.\n"
                                     "Completed successfully.\n"));
  EXPECT_EQ(scene.GetRevision(), kNewRevision);
  // The next run shows it.
  (void)scene.RunLine({"-drive_list"});
  EXPECT_THAT(scene.output, HasSubstr(std::string(kNewRevision)));
}

TEST(FirmwareUpdateOption, WithoutADriveItLooksAtAllOfThemByTheirModules) {
  CommandLineScene scene(SataSpec());
  // A file is used with a selected drive only.
  EXPECT_EQ(scene.RunLine({"-firmware_update", scene.ImagePath()}), Status::Completed);
  EXPECT_EQ(scene.sideResult, Status::NoFirmware);
  EXPECT_THAT(scene.output, HasSubstr(GetStatusText(Status::NoFirmware).substr(0, 40)));
  EXPECT_THAT(scene.output, HasSubstr("\nFirmware binary left aside, as no drive is selected: " +
                                      scene.ImagePath() + "\n"));
  EXPECT_THAT(scene.output, Not(HasSubstr("Given firmware binary")));
  EXPECT_EQ(scene.GetRevision(), kOldRevision);
  scene.fleet.Add({.model = "MORVU SSDSC2BB480G4", .serial = "BTWL9999"});
  (void)scene.RunLine({"-firmware_update"});
  EXPECT_THAT(scene.output, HasSubstr("\n" + std::string(75, '=') + "\n\n"));
  EXPECT_THAT(scene.output, HasSubstr("BTWL1234"));
  EXPECT_THAT(scene.output, HasSubstr("BTWL9999"));
}

TEST(FirmwareUpdateOption, RefusesWrongLines) {
  CommandLineScene scene(SataSpec());
  EXPECT_EQ(scene.RunLine({"-drive_index", "0", "-firmware_update", "a", "b"}), 73);
  EXPECT_EQ(scene.RunLine({"-drive_index", "0", "-firmware_update", "/absent", "-force"}), 10);
  EXPECT_EQ(scene.RunLine({"-drive_index", "0", "-firmware_update"}), 301);
  Simulator::DriveSpec foreign{.model = "OTHER DRIVE", .serial = "OTHER1"};
  scene.fleet.Add(foreign);
  EXPECT_EQ(scene.RunLine({"-drive_serial", "OTHER1", "-firmware_update", scene.ImagePath()}), 45);
}

// ---- Several drives ----

// Runs over drives that are refused with, or updated to, these codes.
StatusCode Summarize(const std::vector<const char*>& kinds, bool selected) {
  std::vector<Simulator::DriveSpec> specs(kinds.size(), SataSpec());
  for (std::size_t i = 0; i < specs.size(); ++i) specs[i].serial = "BTWL" + std::to_string(i);
  DrivesScene scene(specs);
  const auto clones = scene.Select();
  for (std::size_t i = 0; i < kinds.size(); ++i) {
    const std::string kind = kinds[i];
    auto& device = *clones.devices[i];
    if (kind == "raid") device.AddProperty(Properties::RAID, true);
    if (kind == "foreign") device.AddProperty(Properties::Morvu, false);
    if (kind == "secure") device.AddProperty(Properties::SecurityEnabled, true);
    if (kind == "ide") device.AddProperty(Properties::DownloadMicrocodePossible, false);
    if (kind == "fails") scene.drives[i].Inject(Simulator::Fault::Fail().OnOpcode(0x92));
  }
  ModuleFolder folder;
  const auto image = folder.AddFile("image", MakeSimulatedImage("NEW2", 6000));
  const auto mapping = std::ranges::find(kinds, std::string_view("current")) != kinds.end()
                           ? MakeMapping("0")
                           : MakeMapping("1", "x");
  folder.Add("m", "date=1\nmapping=" + mapping + "\nbinary.x=" + image + "\n");
  const FirmwareUpdate::Request request{.driveSelected = selected,
                                        .moduleDirectories = folder.AsDirectories()};
  MessageFace face(NoReporter(), false);
  return FirmwareUpdate::Runner(clones.GetDevices(), request, face).summary;
}

TEST(FirmwareUpdateRunner, SumsUpAWalkOverAllDrives) {
  EXPECT_EQ(Summarize({}, true), 73);
  EXPECT_EQ(Summarize({}, false), 273);
  EXPECT_EQ(Summarize({"good"}, false), 0);
  EXPECT_EQ(Summarize({"current"}, false), 18);
  EXPECT_EQ(Summarize({"current", "raid"}, false), 18);
  EXPECT_EQ(Summarize({"raid", "current"}, false), 97);
  EXPECT_EQ(Summarize({"raid", "good"}, false), 97);
  EXPECT_EQ(Summarize({"foreign", "raid"}, false), 45);
  EXPECT_EQ(Summarize({"ide", "good"}, false), 98);
  EXPECT_EQ(Summarize({"secure", "fails"}, false), 19);
  EXPECT_EQ(Summarize({"fails", "good"}, false), 19);
  EXPECT_EQ(Summarize({"foreign", "fails"}, false), 45);
  EXPECT_EQ(Summarize({"fails", "good"}, true), 0);
  EXPECT_EQ(Summarize({"good", "raid"}, true), 97);
}

}  // namespace
}  // namespace Morvu
