// docs/raid-controllers.md shows what each drive method does on each kind of drive. This test runs
// them all and compares. To write the table anew, and then read the difference:
//
//   MORVU_UPDATE_GOLDEN=1 build/x86_64/tests/operations_tests --gtest_filter='OperationTable*'
#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>
#include <map>
#include <sstream>

#include "devices/discovery/AdapterManager.h"
#include "devices/properties/BasicProperties.h"
#include "frame/status/StatusCode.h"
#include "messaging/drive_class/MorvuSSD.h"
#include "support/EraseScene.h"
#include "support/FirmwareModules.h"

namespace Morvu {
namespace {

using namespace DeviceManagement;
using Testing::MethodParameters;

// The kinds of drives, by the serial number that each has here.
struct DriveKind {
  const char* name;
  const char* serial;
};
constexpr DriveKind kKinds[] = {
    {"SATA", "BTWL0001"},
    {"SAS", "SAS00001"},
    {"NVMe", "CVFT0001"},
    {"LSI SATA", "BTWL0002"},
    {"LSI SAS", "SAS00002"},
    {"volume", ""},
    {"LSI SATA member", "BTWL0003"},
    {"LSI SAS member", "SAS00003"},
};

// What a method is called with, where it needs anything.
constexpr std::string_view kImage = "IMAGE", kOutput = "OUTPUT";  // stand for paths
const std::map<std::string_view, MethodParameters> kParameters = {
    {"DriveSelfTest", {{"SelfTest", "short"}}},
    {"FirmwareUpdate", {{"file", std::string(kImage)}}},
    {"NVMeLogParser", {{"LogID", "2"}, {"file", std::string(kOutput)}}},
    {"ReadScan", {{"full", "True"}}},
    {"Sanitize", {{"SanitizeType", "block"}}},
};

// A machine with a drive of each kind, none of which holds anything.
class Machine {
 public:
  Machine() {
    const int controller = fleet_.AddController();
    Simulator::DriveSpec sata{
        .model = "MORVU SSDSC2BB480G4", .firmware = "D2010370", .sectors = 2048};
    Simulator::DriveSpec sas{
        .kind = Simulator::Kind::Scsi, .model = "SSD400SAS", .firmware = "OLD1", .sectors = 2048};
    Simulator::DriveSpec nvme{.kind = Simulator::Kind::Nvme,
                              .model = "MORVU SSDPEDMD400G4",
                              .firmware = "OLD1",
                              .sectors = 2048};
    std::vector<std::string> members;
    for (int i = 1; i <= 3; ++i) {
      sata.serial = "BTWL000" + std::to_string(i);
      sas.serial = "SAS0000" + std::to_string(i);
      sata.controller = sas.controller = i == 1 ? -1 : controller;
      for (const auto* spec : {&sata, &sas}) {
        const auto node = fleet_.Add(*spec).Node();
        if (i == 3) members.push_back(node);
      }
    }
    nvme.serial = "CVFT0001";
    fleet_.Add(nvme);
    disk_ = fleet_.AddVolume(members);
    EXPECT_TRUE(SaveBinary(GetFolder() + "/" + std::string(kImage),
                           Testing::MakeSimulatedImage("NEW2", 140'000), false));
    manager_.Scan({.identify = true, .findLogical = true, .scanLsi = true});
  }

  const std::string& GetFolder() const { return fleet_.Folder(); }
  Device* Find(const DriveKind& kind) const {
    for (auto* drive : manager_.GetDrives()) {
      const bool isVolume = drive->GetString(Properties::DevicePath) == disk_;
      const bool isWanted = *kind.serial == '\0'
                                ? isVolume
                                : drive->GetString(Properties::SerialNumber) == kind.serial;
      if (isWanted) return drive;
    }
    ADD_FAILURE() << kind.name << " is not listed";
    return nullptr;
  }

 private:
  Simulator::TestFleet fleet_;
  AdapterManager manager_;
  std::string disk_;
};

std::string MakeTable() {
  std::map<std::int32_t, std::string> texts;
  std::string text = "| Method |", rule = "|---|";
  for (const auto& kind : kKinds) {
    text += " " + std::string(kind.name) + " |";
    rule += "---|";
  }
  text += "\n" + rule + "\n";
  for (const auto& method : GetDriveMethods()) {
    if (method.method->targetType == "partition") continue;  // none of the drives has one
    const Machine machine;
    text += "| " + std::string(method.method->name) + " |";
    for (const auto& kind : kKinds) {
      auto* drive = machine.Find(kind);
      if (drive == nullptr) continue;
      const auto found = kParameters.find(method.method->name);
      auto parameters = found == kParameters.end() ? MethodParameters() : found->second;
      for (auto& [name, value] : parameters) {
        if (value == kImage || value == kOutput) value = machine.GetFolder() + "/" + value;
      }
      const auto code = EraseTesting::CallMethod(*drive, method.method->name, parameters);
      texts[code.Value()] = GetStatusText(code);
      text += " " + (code == Status::Completed ? "done" : std::to_string(code.Value())) + " |";
    }
    text += "\n";
  }
  text += "\n";
  for (const auto& [code, meaning] : texts) {
    if (code != 0) text += "- " + std::to_string(code) + ": " + meaning + "\n";
  }
  return text;
}

TEST(OperationTable, IsWhatTheDocumentSays) {
  constexpr std::string_view kBegin = "<!-- made by: operations_tests OperationTable -->\n\n";
  constexpr std::string_view kEnd = "\n<!-- end -->\n";
  std::ostringstream read;
  read << std::ifstream(MORVU_RAID_DOCUMENT, std::ios::binary).rdbuf();
  auto document = read.str();
  const auto begin = document.find(kBegin), end = document.find(kEnd);
  ASSERT_NE(begin, document.npos);
  ASSERT_NE(end, document.npos);
  const auto first = begin + kBegin.size();
  const auto table = MakeTable();
  if (std::getenv("MORVU_UPDATE_GOLDEN") != nullptr) {
    document.replace(first, end - first, table);
    std::ofstream(MORVU_RAID_DOCUMENT, std::ios::binary) << document;
  } else {
    EXPECT_EQ(document.substr(first, end - first), table);
  }
}

}  // namespace
}  // namespace Morvu
