// Recordings: what is in the file, and what must not be.
#include <gmock/gmock.h>
#include <sys/stat.h>

#include <filesystem>

#include "devices/commands/CommandRecorder.h"
#include "devices/properties/BasicProperties.h"
#include "frame/Files.h"
#include "support/EraseScene.h"

namespace Morvu {
namespace {

using namespace EraseTesting;
using testing::HasSubstr;
namespace Properties = DeviceManagement::Properties;

struct Recording {
  explicit Recording(const std::string& path)
      : text(ReadFileText(path)), message(XmlMessaging::Message::Parse(text)) {}
  const auto& GetCommands() const { return message->lists.at(0)->objects; }
  std::string text;
  std::unique_ptr<XmlMessaging::Message> message;
};

TEST(Recording, HoldsEachCommandAndNoPassword) {
  LineScene scene(SataSpec(), {});
  const auto path = scene.fleet.Folder() + "/record.xml";
  const auto outcome =
      RunLine({"-drive_serial", "BTWL1234", "-secure_erase", "-force", "-record", path});
  EXPECT_EQ(outcome.code, 0) << outcome.output;
  EXPECT_THAT(outcome.output, HasSubstr("recorded in "));
  const Recording recording(path);
  ASSERT_NE(recording.message, nullptr) << recording.text;
  EXPECT_EQ(recording.message->GetAttribute("name"), "Recording");
  EXPECT_EQ(recording.message->GetAttribute("Begin").size(), 22u);
  EXPECT_EQ(recording.message->GetAttribute("End").size(), 22u);
  EXPECT_EQ(recording.message->GetAttribute("End").find('-'), 2u);
  EXPECT_EQ(Testing::GetText(*recording.message->objects.at(0), "SerialNumber"), "BTWL1234");
  EXPECT_EQ(Testing::GetText(*recording.message->objects.at(0), "CommandSet"), "ATA");
  std::size_t passwords = 0, identities = 0;
  for (const auto& command : recording.GetCommands()) {
    EXPECT_EQ(command->GetAttribute("CommandSet"), "ATA");
    EXPECT_EQ(Testing::GetText(*command, "tf_len"), "16");
    const auto opcode = Testing::GetText(*command, "tf").substr(12, 2);
    const auto data = Testing::GetText(*command, "data");
    if (opcode == "EC") {
      ++identities;
      EXPECT_EQ(data.size(), 1024u);
    }
    if (opcode == "F1" || opcode == "F4") {
      ++passwords;
      EXPECT_EQ(data, "");
    }
  }
  EXPECT_EQ(passwords, 2u);
  EXPECT_GE(identities, 1u);
  struct stat file {};
  EXPECT_EQ(stat(path.c_str(), &file), 0);
  EXPECT_EQ(file.st_mode & 0777u, 0600u);
  EXPECT_TRUE(scene.IsErased());
}

TEST(Recording, HoldsPasswordsWhereTheyAreAskedFor) {
  LineScene scene(SataSpec(), {});
  const auto path = scene.fleet.Folder() + "/record.xml";
  const auto outcome = RunLine(
      {"-drive_serial", "BTWL1234", "-secure_erase", "-force", "-record", path, "-with_passwords"});
  EXPECT_THAT(outcome.output, HasSubstr("Passwords and keys stand in the recording"));
  const Recording recording(path);
  ASSERT_NE(recording.message, nullptr);
  std::size_t passwords = 0;
  for (const auto& command : recording.GetCommands()) {
    if (Testing::GetText(*command, "tf").substr(12, 2) != "F4") continue;
    ++passwords;
    EXPECT_EQ(Testing::GetText(*command, "data").size(), 1024u);
  }
  EXPECT_EQ(passwords, 1u);
}

TEST(Recording, OverwritesNothingAndRefusesWhereItCannotBe) {
  LineScene scene(SataSpec(), {});
  const auto folder = scene.fleet.Folder();
  const auto run = [&](const std::string& path) {
    return RunLine({"-drive_serial", "BTWL1234", "-smart", "-record", path}).code;
  };
  EXPECT_TRUE(SaveFile(folder + "/old.xml", "precious", false));
  EXPECT_EQ(run(folder + "/old.xml"), 0);
  EXPECT_EQ(ReadFileText(folder + "/old.xml"), "precious\n");
  EXPECT_NE(Recording(folder + "/old.xml.1").message, nullptr);
  std::filesystem::create_symlink(folder + "/target", folder + "/link.xml");
  EXPECT_EQ(run(folder + "/link.xml"), 0);
  EXPECT_FALSE(std::filesystem::exists(folder + "/target"));
  EXPECT_EQ(run(folder + "/none/file.xml"), 122);
}

TEST(Recording, IsTheDevicesAndEndsWithIt) {
  for (const auto& spec : {SataSpec(), NvmeSpec()}) {
    EraseScene scene(spec);
    scene.Prepare();
    const auto path = scene.fleet.Folder() + "/record.xml";
    {
      const auto device = scene.device()->Clone();
      EXPECT_TRUE(device->SetRecording(false));
      EXPECT_TRUE(device->SetRecording(true, path));
      EXPECT_TRUE(device->SetRecording(true, path));
      EXPECT_EQ(device->GetRecordingFile(), path);
      EXPECT_EQ(CallMethod(*device, "SmartParser"), 0);  // on a clone of it
    }
    const Recording recording(path);
    ASSERT_NE(recording.message, nullptr);
    EXPECT_TRUE(recording.GetCommands().empty());
    EXPECT_FALSE(std::filesystem::exists(path + ".1"));
  }
}

TEST(Recording, EndsWithANoteBeforeItFillsTheDisk) {
  EraseScene scene(SataSpec());
  const auto path = scene.fleet.Folder() + "/record.xml";
  auto recorder = DeviceManagement::CommandRecorder::Create(path, {}, 3000);
  ASSERT_NE(recorder, nullptr);
  std::array<std::uint8_t, 512> data{};
  const DeviceManagement::TaskFile file{};
  for (int i = 0; i < 100; ++i) {
    recorder->Record("ATA", {.record = file, .flags = DeviceManagement::kRead, .data = data}, {},
                     i % 2 == 0);
  }
  EXPECT_TRUE(recorder->Finish({}, {"ATA"}));
  const Recording recording(path);
  ASSERT_NE(recording.message, nullptr);
  const auto& commands = recording.GetCommands();
  EXPECT_LT(commands.size(), 10u);
  EXPECT_EQ(commands.back()->GetAttribute("name"), "Note");
  EXPECT_EQ(Testing::GetText(*commands[0], "data").size(), 1024u);
  EXPECT_EQ(Testing::GetText(*commands[1], "data"), "") << "of a read that failed";
}

}  // namespace
}  // namespace Morvu
