// A drive whose settings are read and written: by properties, as the drive class does, and by
// command lines.
#pragma once

#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "messaging/XmlMessaging.h"
#include "messaging/drive_class/MorvuSSD.h"
#include "support/EraseScene.h"

namespace Morvu::Testing {

class SettingScene : public DriveScene {
 public:
  explicit SettingScene(const Simulator::DriveSpec& spec) : DriveScene(spec) { Prepare(); }
  StatusCode Run(ProgressReporter&) override { return Status::NotRun; }

  // The element as a listing of the context's request shows it; null where it is left out.
  std::unique_ptr<XmlMessaging::Property> Get(std::string_view name, JobContext& context) {
    return FindDriveProperty(name)->Describe(&context, device());
  }
  std::unique_ptr<XmlMessaging::Property> Get(std::string_view name) {
    JobContext context;
    return Get(name, context);
  }
  // "7", "status 4", or "none" for a property that is left out.
  std::string GetText(std::string_view name) {
    const auto property = Get(name);
    if (property == nullptr) return "none";
    const auto& status = property->GetAttribute("status");
    if (status.empty() || status == "0") return property->value;
    EXPECT_EQ(property->value, "") << "a value that is not known";
    return "status " + status;
  }

  StatusCode Set(std::string_view name, std::string_view text) {
    request = std::make_unique<XmlMessaging::Property>(name, text);
    return FindDriveProperty(name)->Apply(*request, *device());
  }

  // A line on this drive.
  LineOutcome Line(std::vector<std::string> words) {
    words.insert(words.begin(), {"-drive_serial", drive.State().serial});
    return RunToolLine(words);
  }

  // The commands with this opcode, of those since the last ClearJournal.
  std::vector<Simulator::JournalEntry> Commands(int opcode) const {
    auto commands = drive.Journal();
    std::erase_if(commands, [&](const auto& command) { return command.Opcode() != opcode; });
    return commands;
  }

  std::unique_ptr<XmlMessaging::Property> request;  // of the last Set, with what the setter told
};

}  // namespace Morvu::Testing
