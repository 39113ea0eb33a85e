// What QRKCLI does for each option that is no feature.

#include <cerrno>
#include <map>
#include <optional>

#include "cli/DriveInformation.h"
#include "cli/QRKCLI.h"
#include "cli/Report.h"
#include "cli/SavedFile.h"
#include "cli/ToolOptions.h"
#include "devices/discovery/AdapterManager.h"
#include "devices/properties/AdapterProperties.h"
#include "devices/properties/BasicProperties.h"
#include "devices/properties/IdentityProperties.h"
#include "frame/FileHandle.h"
#include "frame/Logger.h"
#include "frame/Platform.h"
#include "frame/Text.h"
#include "frame/status/Files.h"
#include "frame/status/Selection.h"

namespace Morvu {
namespace {

using DeviceManagement::Device;
namespace Properties = DeviceManagement::Properties;

constexpr std::int64_t kDescriptionWidth = 70;
constexpr std::int64_t kNamesWidth = 56;  // beside the titles of groups

// A file of this second, which this process made: two runs do not share one. The last name stands
// where none can be made.
std::string MakeLog() {
  constexpr int kMostOfASecond = 1000;
  const auto stem = FormatLocalTime("LOG_%Y-%m-%d_%H-%M-%S");
  auto name = stem + ".txt";
  for (int number = 2; number <= kMostOfASecond; ++number) {
    if (OpenFile(name, O_WRONLY | O_CREAT | O_EXCL, 0666).IsOpen() || errno != EEXIST) return name;
    name = stem + "_" + std::to_string(number) + ".txt";
  }
  return name;
}

bool Matches(const CLIParameter& parameter, std::string_view keyword) {
  if (parameter.IsHidden()) return false;
  if (IContains(parameter.GetName(), keyword)) return true;
  for (const auto& text : parameter.GetDescriptions()) {
    if (IContains(text, keyword)) return true;
  }
  return false;
}

std::string FirstValue(const CLIParameter& parameter) {
  return parameter.GetValues().empty() ? std::string() : parameter.GetValues().front();
}

}  // namespace

StatusCode QRKCLI::Handle(const CLIParameter& parameter) {
  const auto* option = FindToolOption(parameter.GetName());
  if (option == nullptr || option->handle == nullptr) return Status::ReadyToRun;
  return (this->*option->handle)(parameter);
}

StatusCode QRKCLI::ShowHelp(const CLIParameter& parameter) {
  const auto keyword = Join(parameter.GetValues(), " ");
  if (keyword.empty() && report_ == nullptr) {
    ResultTable table;
    table.AppendRow({GetToolName() + " Description"}, true);
    for (const auto& row : Split(toolConfig_.description, ';')) table.AppendRow({row});
    table.SetColumnWidth(0, kDescriptionWidth);
    Print(table.ToText(false, false) + "\n\n" + DescribeOptionGroups());
  }
  bool found = keyword.empty();
  for (const auto& candidate : GetParameters()) {
    if (!Matches(*candidate, keyword)) continue;
    found = true;
    if (report_ != nullptr) {
      report_->options.push_back(candidate.get());
      continue;
    }
    Print(GetParameterHelp(*candidate));
  }
  if (!found) PrintLine("No matches found for: " + keyword);
  return Status::Completed;
}

std::string QRKCLI::DescribeOptionGroups() const {
  struct Group {
    std::string_view title;
    OptionCategory category;
    HelpGroup group = HelpGroup::Read;  // of a feature
  };
  static constexpr Group kGroups[] = {
      {"Select drives", OptionCategory::DriveSelection},
      {"Read", OptionCategory::Feature, HelpGroup::Read},
      {"Test", OptionCategory::Feature, HelpGroup::Test},
      {"Update firmware", OptionCategory::Feature, HelpGroup::Update},
      {"Change settings", OptionCategory::Feature, HelpGroup::Change},
      {"Erase all data", OptionCategory::Feature, HelpGroup::Erase},
      {"Beside a feature", OptionCategory::Modifier},
      {"The tool itself", OptionCategory::Tool},
  };
  ResultTable table;
  table.AppendRow({"Options", ""}, true);
  for (const auto& [title, category, group] : kGroups) {
    std::string names;
    for (const auto& option : GetParameters()) {
      if (option->IsHidden() || option->GetCategory() != category) continue;
      const auto handler = handlers_.find(option.get());
      if (handler != handlers_.end() && category == OptionCategory::Feature &&
          handler->second.feature->group != group) {
        continue;
      }
      names += (names.empty() ? "" : " ") + option->GetName();
    }
    if (!names.empty()) table.AppendRow({std::string(title), names});
  }
  table.SetColumnWidth(1, kNamesWidth);
  return table.ToText(false, false) + "\n\n" + WrapText(toolConfig_.helpNote) + "\n\n";
}

StatusCode QRKCLI::ShowLicense(const CLIParameter&) {
  if (report_ != nullptr) {
    report_->license = toolConfig_.license;
    return Status::Completed;
  }
  PrintLine(std::string(toolConfig_.productName) + ", Version " + std::string(toolConfig_.version));
  Print(toolConfig_.license.empty() ? "UNDEFINED LICENSE!!!\n" : toolConfig_.license);
  return Status::Completed;
}

StatusCode QRKCLI::StartLog(const CLIParameter& parameter) {
  const auto path = parameter.GetValues().empty() ? MakeLog() : FirstValue(parameter);
  // Whoever asks for a log does not want the run without one.
  if (EnableLog(path, kLogAll, false) != Status::Completed) {
    (void)PrintSaved(SavedFile::Describe(path, errno));
    return Status::FileNotWritten;
  }
  isLogging_ = true;
  return Status::ReadyToRun;
}

StatusCode QRKCLI::ShowDriveList(const CLIParameter& parameter) {
  const auto& drives = adapterManager_->GetDrives();
  const auto& values = parameter.GetValues();
  if (values.size() > 1) {
    PrintLine("Error: Too many arguments given for -drive_list. See -help for proper usage.");
    return Status::InvalidArguments;
  }
  if (values.empty() && report_ != nullptr) return Status::Completed;  // it has the drives anyway
  if (values.empty()) {
    std::vector<std::string> none;  // a list asks no drive for its state
    PrintLine(DescribeDrives(drives, toolConfig_.driveListTitle, DriveDetail::List, none));
    return Status::Completed;
  }
  const bool isSaved = SaveTable(TabulateDrives(drives), values.front());
  if (isSaved && report_ != nullptr) report_->files.push_back(values.front());
  return isSaved ? Status::Completed : Status::FileNotWritten;
}

StatusCode QRKCLI::Pick(Device* drive, StatusCode notFound) {
  if (drive == nullptr) return notFound;
  devices_.push_back(drive);
  drivePicked_ = true;
  return Status::ReadyToRun;
}

template <typename Test>
Device* QRKCLI::FindDrive(Test test) {
  Device* found = nullptr;
  for (auto* drive : adapterManager_->GetDrives()) {
    if (!test(*drive)) continue;
    isSelectionShared_ = isSelectionShared_ || found != nullptr;
    if (found == nullptr) found = drive;
  }
  return found;
}

StatusCode QRKCLI::PickByIndex(const CLIParameter& parameter) {
  // Two numbers name no drive: guessing which one is meant could cost a drive's data.
  if (parameter.GetValues().size() > 1) return Status::InvalidArguments;
  const auto index = ParseDecimal(FirstValue(parameter));
  const auto& drives = adapterManager_->GetDrives();
  const bool exists = index && *index < drives.size();
  return Pick(exists ? drives[static_cast<std::size_t>(*index)] : nullptr,
              Status::InvalidDriveIndex);
}

StatusCode QRKCLI::PickByLetter(const CLIParameter& parameter) {
  const auto name = FirstValue(parameter);
  const auto hasPartition = [&](const Device& drive) {
    for (const auto& partition : drive.GetPartitions()) {
      if (partition.GetName() == name || partition.GetName() == "/dev/" + name) return true;
    }
    return false;
  };
  return Pick(name.empty() ? nullptr : FindDrive(hasPartition), Status::InvalidDriveLetter);
}

StatusCode QRKCLI::PickBySerial(const CLIParameter& parameter) {
  const auto serial = FirstValue(parameter);
  auto* drive = FindDrive(
      [&](const Device& each) { return each.GetString(Properties::SerialNumber) == serial; });
  return Pick(serial.empty() ? nullptr : drive, Status::InvalidDriveSerial);
}

StatusCode QRKCLI::PickSeveral(const CLIParameter& parameter) {
  const auto& serials = parameter.GetValues();
  if (serials.empty()) {
    PrintLine("Error: Nothing was done: -drives names no drive.");
    return Status::InvalidArguments;
  }
  const bool areAll = serials.size() == 1 && serials.front() == kAllDrives;
  std::map<std::string_view, std::size_t> found;
  for (const auto& serial : serials) {
    if (!found.emplace(serial, 0).second) {
      PrintLine("Error: Nothing was done: the serial number stands twice: " + serial);
      return Status::InvalidArguments;
    }
  }
  for (auto* drive : adapterManager_->GetDrives()) {
    const auto serial = drive->GetString(Properties::SerialNumber);
    const auto wanted = found.find(serial);
    if (wanted != found.end()) ++wanted->second;
    if (areAll || wanted != found.end()) devices_.push_back(drive);
  }
  for (const auto& serial : serials) {
    // No name is nobody's, though drives that do not answer have none.
    const auto count = serial.empty() ? 0 : found[serial];
    if (areAll || count == 1) continue;
    PrintLine("Error: Nothing was done: " +
              std::string(count == 0 ? "no drive has" : "several drives have") +
              " the serial number " + serial);
    return count == 0 ? Status::InvalidDriveSerial : Status::InvalidArguments;
  }
  drivePicked_ = !devices_.empty();
  return devices_.empty() ? Status::NoDrivesFound : Status::ReadyToRun;
}

StatusCode QRKCLI::PickByPath(const CLIParameter& parameter) {
  const auto path = FirstValue(parameter);
  const auto nodes =
      path.empty() ? std::vector<std::string>() : DeviceManagement::FindNodesByPath(path);
  const auto findNode = [&](const std::string& node) {
    return FindDrive(
        [&](const Device& each) { return each.GetString(Properties::DevicePath) == node; });
  };
  // A controller with several namespaces names none of them. A drive behind a RAID controller has
  // a name and no node.
  auto* drive = nodes.size() == 1 ? findNode(nodes.front())
                : path.empty()    ? nullptr
                                  : findNode(path);
  return Pick(drive, Status::InvalidDrivePath);
}

StatusCode QRKCLI::PickByIdentifier(const CLIParameter& parameter) {
  // The World Wide Name, sixteen hexadecimal digits.
  const auto identifier = FirstValue(parameter);
  auto* drive = FindDrive([&](const Device& each) {
    const auto name = each.GetUInt(Properties::WWID);
    return name != 0 && IEquals(ToHexNumber(name, 16), identifier);
  });
  return Pick(drive, Status::InvalidDeviceId);
}

StatusCode QRKCLI::PickByAddress(const CLIParameter& parameter) {
  const auto& values = parameter.GetValues();
  if (values.size() != 2) return Status::InvalidArguments;
  const auto port = ParseDecimal(values[0]);
  const auto number = ParseDecimal(values[1]);
  if (!port || !number) return Status::InvalidArguments;
  auto* drive = FindDrive([&](const Device& each) {
    return each.GetBool(Properties::CSMI) && each.GetUInt(Properties::PortNumber) == *port &&
           each.GetUInt(Properties::PathID) == *number;
  });
  return Pick(drive, Status::InvalidDrivePath);
}

}  // namespace Morvu
