// The firmware update as a host and a user meet it.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>

#include "devices/properties/BasicProperties.h"
#include "devices/properties/FirmwareProperties.h"
#include "devices/properties/SecurityProperties.h"
#include "frame/Files.h"
#include "frame/status/Files.h"
#include "frame/status/Firmware.h"
#include "messaging/features/CimClass.h"
#include "operations/firmware/AttributeCollection.h"
#include "support/FirmwareScene.h"
#include "support/Sweep.h"

namespace Morvu {
namespace {

using namespace Testing;
using DeviceManagement::Device;
using ::testing::EndsWith;
using ::testing::HasSubstr;
using ::testing::Not;
namespace Properties = DeviceManagement::Properties;

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
