// Whole runs of morvussd on a simulated fleet, compared with the files in golden/; of what it asks
// and tells when it erases or tests a drive golden/erase holds what stands behind the drive's
// information.
// To write them anew from what the tool prints now, and then read the difference:
//
//   MORVU_UPDATE_GOLDEN=1 build/x86_64/tests/cli_tests --gtest_filter='*Golden*'
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "ExitStatus.h"
#include "TestFleet.h"
#include "Tool.h"
#include "frame/Text.h"
#include "messaging/drive_class/Features.h"
#include "support/JsonDocuments.h"

namespace MorvuTool {
namespace {

using Simulator::Fault;
using Simulator::Kind;
using Simulator::SimulatedDrive;
using Simulator::TestFleet;

// What a run finds.
enum class Host { Mixed, Dell, Emc, Empty, Sata, Nvme };

struct Drives {
  SimulatedDrive sata, scsi, nvme;
};

struct GoldenRun {
  std::string_view name;
  std::vector<std::string> arguments;
  Host host = Host::Mixed;
  void (*shape)(Drives& drives) = nullptr;
  std::string_view file = "";  // written by the run, and recorded behind its output
  std::string_view answer = "";
};

bool IsErase(const GoldenRun& run) { return run.name.starts_with("erase/"); }

void PrintTo(const GoldenRun& run, std::ostream* out) { *out << run.name; }

// ---- Hosts ----

Drives AddMixed(TestFleet& fleet) {
  Drives drives;
  drives.sata = fleet.Add({.model = "MORVU SSDSC2BB480G4",
                           .serial = "BTWL402600K4480QGN",
                           .firmware = "D2010350",
                           .sectors = 937703088});
  drives.sata.State().ata.attributes[17] = {};  // counts the reads of the run
  drives.sata.AddPartition(1 << 30, "/srv");
  drives.sata.AddPartition(1 << 20);
  drives.scsi = fleet.Add({.kind = Kind::Scsi,
                           .model = "SIMULATED SAS",
                           .serial = "S7A00001",
                           .firmware = "A1B2",
                           .sectors = 390625000});
  drives.nvme = fleet.Add({.kind = Kind::Nvme,
                           .model = "MORVU SSDPE2MD800G4",
                           .serial = "CVFT4030004F800CGN",
                           .firmware = "8DV10151",
                           .sectors = 1562824368});
  return drives;
}

// A drive that shows an attribute of each kind: judged, worn, named by its maker, broken
// down, unknown.
Drives AddOem(TestFleet& fleet, const char* model) {
  Drives drives;
  drives.sata = fleet.Add({.model = model, .serial = "BTWL402600K4480QGN", .firmware = "D2010350"});
  // clang-format off
  constexpr Simulator::SmartAttribute kAttributes[] = {
      // id, value, worst, threshold, flags, reserved, raw
      {0x01, 130, 130,  39, 0x000B, 0, 4294967295},
      {0x05, 100, 100,   0, 0x0032, 0, 3},
      {0x0E, 100, 100,   0, 0x0032, 0, 937703088},
      {0xAA,  10,  10,  10, 0x0033, 0, 0},               // at its threshold
      {0xAD,  90,  90,   0, 0x0032, 0, 0x002A00300012},
      {0xAF, 100, 100,  10, 0x0033, 0, 0x000300050271},
      {0xB5, 100, 100,   0, 0x003A, 0, 12884901891},
      {0xB8, 100, 100,  90, 0x0032, 0, 0},
      {0xBE,  72,  60,   0, 0x0022, 0, 0x000228121C1C},
      {0xC2,  28,  28,   0, 0x0022, 0, 28},
      {0xD8, 100, 100,   0, 0x0032, 0, 255},             // no name
      {0xE9,  58,  58,   0, 0x0032, 0, 0},
      {0xEA, 100, 100,   0, 0x0032, 0, 0x000000000A05},
  };
  // clang-format on
  auto& attributes = drives.sata.State().ata.attributes;
  std::fill(std::begin(attributes), std::end(attributes), Simulator::SmartAttribute{});
  std::copy(std::begin(kAttributes), std::end(kAttributes), attributes);
  return drives;
}

Drives AddDrives(TestFleet& fleet, Host host) {
  if (host == Host::Mixed) return AddMixed(fleet);
  if (host == Host::Dell) return AddOem(fleet, "MORVU SSDSC2BB480G4T");
  if (host == Host::Emc) return AddOem(fleet, "MORVU SSDSC2BB480G4E");
  Drives drives;
  if (host == Host::Sata) {
    drives.sata = fleet.Add({.model = "MORVU SSDSC2BB480G4", .serial = "BTWL1234"});
    drives.sata.State().ata.selfTest.extendedMs = 3600'000;
  } else if (host == Host::Nvme) {
    drives.nvme =
        fleet.Add({.kind = Kind::Nvme, .model = "MORVU SSDPEDMD400G4", .serial = "BTWL1234"});
  }
  return drives;
}

// ---- Runs ----

// The drives of a run, and the folder that it works in.
class Scene {
 public:
  explicit Scene(const GoldenRun& run)
      : drives_(AddDrives(fleet_, run.host)),
        folder_(fleet_.Folder() + "/work"),
        before_(std::filesystem::current_path()) {
    std::filesystem::create_directory(folder_);
    std::filesystem::current_path(folder_);
    if (run.shape != nullptr) run.shape(drives_);
  }
  ~Scene() { std::filesystem::current_path(before_); }
  Scene(const Scene&) = delete;
  Scene& operator=(const Scene&) = delete;

  // Of the only drive.
  std::vector<std::uint8_t> ListOpcodes(Host host) const {
    return (host == Host::Nvme ? drives_.nvme : drives_.sata).Opcodes();
  }

 private:
  TestFleet fleet_;
  Drives drives_;
  std::filesystem::path folder_, before_;
};

std::string ReadFile(const std::string& path) {
  std::ostringstream text;
  text << std::ifstream(path, std::ios::binary).rdbuf();
  return text.str();
}

struct Ended {
  Morvu::StatusCode code;
  int exitStatus;
};

Ended RunTool(const std::vector<std::string>& arguments, std::ostream& out,
              std::string_view answer = "") {
  std::vector<const char*> argv = {"morvussd"};
  for (const auto& argument : arguments) argv.push_back(argument.c_str());
  std::istringstream in{std::string(answer)};
  Morvu::QRKCLI cli(Morvu::GetFeatures(), GetToolConfig(), {in, out});
  const auto code = cli.runCLI(static_cast<int>(argv.size()), argv.data());
  return {code, ToExitStatus(code, cli.GetSideResult())};
}

// The command line, what it printed, the exit status, and the file that it wrote.
std::string Record(const GoldenRun& run) {
  const Scene scene(run);
  std::string record = "$ morvussd";
  for (const auto& argument : run.arguments) record += ' ' + (argument.empty() ? "''" : argument);
  std::ostringstream out;
  const int exitStatus = RunTool(run.arguments, out, run.answer).exitStatus;
  auto text = out.str();
  const auto information = text.rfind("\n\n\n");
  if (IsErase(run) && information != text.npos) text.erase(0, information + 3);
  record += '\n' + text + "exit status " + std::to_string(exitStatus) + '\n';
  if (run.file.empty()) return record;
  return record + "$ cat " + std::string(run.file) + '\n' + ReadFile(std::string(run.file));
}

class Golden : public ::testing::TestWithParam<GoldenRun> {};

TEST_P(Golden, RunPrintsWhatItsFileHolds) {
  const auto path = MORVU_GOLDEN_FOLDER "/" + std::string(GetParam().name) + ".txt";
  const auto printed = Record(GetParam());
  if (std::getenv("MORVU_UPDATE_GOLDEN") != nullptr) {
    std::ofstream(path, std::ios::binary) << printed;
    GTEST_SKIP() << "wrote " << path;
  }
  EXPECT_EQ(printed, ReadFile(path)) << path;
}

void FailSmartRead(Drives& drives) {
  drives.sata.Inject(Fault::Fail().OnOpcode(0xB0).OnFeature(0xD0));
}
void FailSmartThresholds(Drives& drives) {
  drives.sata.Inject(Fault::Fail().OnOpcode(0xB0).OnFeature(0xD1));
}
void FillNvmeList(Drives& drives) {
  drives.nvme.SetLog(0xCA, std::vector<std::uint8_t>(4096, 0xFF));
}
void Silence(Drives& drives) { drives.sata.Inject(Fault::IoctlError(ENODEV)); }

const GoldenRun kRuns[] = {
    {.name = "help", .arguments = {"-help"}},
    {.name = "help_drive_index", .arguments = {"-help", "drive_index"}},
    {.name = "help_smart", .arguments = {"-help", "SMART"}},
    {.name = "help_nothing", .arguments = {"-help", "nothing like it"}},
    {.name = "license", .arguments = {"-license"}},

    {.name = "no_arguments", .arguments = {}},
    {.name = "drive_list", .arguments = {"-drive_list"}},
    {.name = "drive_list_file", .arguments = {"-drive_list", "list.csv"}, .file = "list.csv"},
    {.name = "drive_list_unwritable", .arguments = {"-drive_list", "missing/list.csv"}},
    {.name = "drive_list_no_drives", .arguments = {"-drive_list"}, .host = Host::Empty},
    {.name = "no_drives", .arguments = {}, .host = Host::Empty},

    {.name = "information_sata", .arguments = {"-drive_index", "1"}},
    {.name = "information_scsi", .arguments = {"-drive_path", "/dev/sg1"}},
    {.name = "information_nvme", .arguments = {"-drive_serial", "CVFT4030004F800CGN"}},
    {.name = "information_by_partition", .arguments = {"-drive_letter", "/dev/sda1"}},
    {.name = "information_silent", .arguments = {"-drive_index", "1"}, .shape = Silence},
    {.name = "two_drives", .arguments = {"-drive_path", "/dev/sg1", "-drive_index", "0"}},

    {.name = "bad_index", .arguments = {"-drive_index", "7"}},
    {.name = "bad_serial", .arguments = {"-drive_serial", "NONE"}},
    {.name = "bad_path", .arguments = {"-drive_path", "/dev/sg9"}},
    {.name = "bad_letter", .arguments = {"-drive_letter", "/dev/sdz9"}},
    {.name = "bad_index_before_feature", .arguments = {"-drive_index", "7", "-smart"}},
    {.name = "index_no_drives", .arguments = {"-drive_index", "0"}, .host = Host::Empty},

    {.name = "unknown_option", .arguments = {"-bogus"}},
    {.name = "unknown_option_with_drive", .arguments = {"-bogus", "-drive_index", "0"}},
    {.name = "several_errors",
     .arguments = {"-bogus", "x", "-force", "now", "-drive_index", "abc", "-drive_path", "a", "b"}},
    {.name = "negative_index", .arguments = {"-drive_index", "-1"}},
    {.name = "empty_arguments", .arguments = {"", "-drive_index", "0", ""}},
    {.name = "option_twice", .arguments = {"-drive_index", "7", "-drive_index", "1"}},
    {.name = "modifier_alone", .arguments = {"-force"}},

    {.name = "smart", .arguments = {"-drive_index", "1", "-smart"}},
    {.name = "smart_without_selection", .arguments = {"-smart"}},
    {.name = "smart_dell", .arguments = {"-smart"}, .host = Host::Dell},
    {.name = "smart_emc", .arguments = {"-smart"}, .host = Host::Emc},
    {.name = "smart_file",
     .arguments = {"-smart", "smart.csv"},
     .host = Host::Dell,
     .file = "smart.csv"},
    {.name = "smart_unwritable", .arguments = {"-drive_index", "1", "-smart", "missing/smart.csv"}},
    {.name = "smart_two_files", .arguments = {"-smart", "a", "b"}},
    {.name = "smart_scsi", .arguments = {"-drive_path", "/dev/sg1", "-smart"}},
    {.name = "smart_nvme", .arguments = {"-drive_serial", "CVFT4030004F800CGN", "-smart"}},
    {.name = "smart_nvme_file",
     .arguments = {"-drive_serial", "CVFT4030004F800CGN", "-smart", "smart.csv"},
     .file = "smart.csv"},
    {.name = "smart_nvme_no_end",
     .arguments = {"-drive_serial", "CVFT4030004F800CGN", "-smart"},
     .shape = FillNvmeList},
    {.name = "smart_read_failed",
     .arguments = {"-drive_path", "/dev/sg0", "-smart"},
     .shape = FailSmartRead},
    {.name = "smart_thresholds_failed",
     .arguments = {"-drive_path", "/dev/sg0", "-smart"},
     .shape = FailSmartThresholds},
    {.name = "smart_silent", .arguments = {"-drive_path", "/dev/sg0", "-smart"}, .shape = Silence},
    {.name = "smart_no_drives", .arguments = {"-smart"}, .host = Host::Empty},
};
void AddPartition(Drives& drives) { drives.sata.AddPartition(); }
void Freeze(Drives& drives) { drives.sata.State().ata.security.frozen = 1; }
void FreezeSanitize(Drives& drives) { drives.sata.State().ata.sanitize.frozen = 1; }
void FailErase(Drives& drives) { drives.sata.Inject(Fault::Fail().OnOpcode(0xF4)); }
void FailFormat(Drives& drives) { drives.nvme.Inject(Fault::NvmeStatus(0x10A).OnOpcode(0x80)); }
void FailStandby(Drives& drives) { drives.sata.Inject(Fault::Fail().OnOpcode(0xE0)); }
void FailSelfTest(Drives& drives) { drives.sata.State().ata.selfTest.status = 0x70; }
void StayAwake(Drives& drives) { drives.sata.State().ata.standbyStaysActive = 1; }

struct EraseRun {
  std::string_view name;
  std::vector<std::string> arguments;
  std::string_view answer = "";
  bool isNvme = false;
  void (*shape)(Drives& drives) = nullptr;
};

// clang-format off
const EraseRun kEraseRuns[] = {
    {"erase/secure_erase",           {"-secure_erase"}, "y\n"},
    {"erase/secure_erase_no",        {"-secure_erase"}, "n\n"},
    {"erase/secure_erase_end",       {"-secure_erase"}, ""},
    {"erase/secure_erase_partition", {"-secure_erase"}, "Y\n", false, AddPartition},
    {"erase/secure_erase_force",     {"-secure_erase", "-force"}, "", false, AddPartition},
    {"erase/secure_erase_frozen",    {"-secure_erase"}, "y\n", false, Freeze},
    {"erase/secure_erase_failed",    {"-secure_erase"}, "y\n", false, FailErase},
    {"erase/secure_erase_nvme",      {"-secure_erase"}, "y\n", true},
    {"erase/sanitize_block",         {"-sanitize", "block"}, "y\n"},
    {"erase/sanitize_partition_no",  {"-sanitize", "crypto"}, "n\n", false, AddPartition},
    {"erase/sanitize_type",          {"-sanitize", "all"}, "y\n"},
    {"erase/sanitize_frozen",        {"-sanitize", "block"}, "y\n", false, FreezeSanitize},
    {"erase/format_sata",            {"-format"}, "y\n"},
    {"erase/format_nvme",            {"-format", "2"}, "y\n", true},
    {"erase/format_partition",       {"-format", "1"}, "n\n", false, AddPartition},
    {"erase/format_force",           {"-format", "-force"}, "", true},
    {"erase/format_settings",        {"-format", "3", "1", "4", "1", "2"}, "y\n", true},
    {"erase/format_settings_sata",   {"-format", "2"}, "y\n"},
    {"erase/format_word",            {"-format", "crypto"}, "y\n", true},
    {"erase/format_failed",          {"-format"}, "y\n", true, FailFormat},
    {"erase/self_test",              {"-self_test", "extended"}},
    {"erase/self_test_captive",      {"-self_test", "short", "captive"}},
    {"erase/self_test_status",       {"-self_test", "status"}},
    {"erase/self_test_failed",       {"-self_test", "status"}, "", false, FailSelfTest},
    {"erase/self_test_unreadable",   {"-self_test", "status"}, "", false, FailSmartRead},
    {"erase/self_test_unknown",      {"-self_test", "long"}},
    {"erase/standby",                {"-standby_immediate"}},
    {"erase/standby_failed",         {"-standby_immediate"}, "", false, FailStandby},
    {"erase/standby_awake",          {"-standby_immediate"}, "", false, StayAwake},
    {"erase/standby_nvme",           {"-standby_immediate"}, "", true},
};
// clang-format on

std::vector<GoldenRun> ListEraseRuns() {
  std::vector<GoldenRun> runs;
  for (const auto& run : kEraseRuns) {
    runs.push_back({.name = run.name,
                    .arguments = {"-drive_serial", "BTWL1234"},
                    .host = run.isNvme ? Host::Nvme : Host::Sata,
                    .shape = run.shape,
                    .answer = run.answer});
    auto& words = runs.back().arguments;
    words.insert(words.end(), run.arguments.begin(), run.arguments.end());
  }
  return runs;
}

std::string NameOf(const ::testing::TestParamInfo<GoldenRun>& test) {
  return Morvu::ReplaceAll(std::string(test.param.name), "/", "_");
}
INSTANTIATE_TEST_SUITE_P(Runs, Golden, ::testing::ValuesIn(kRuns), NameOf);
INSTANTIATE_TEST_SUITE_P(EraseRuns, Golden, ::testing::ValuesIn(ListEraseRuns()), NameOf);

// ---- The same runs, and more, as data ----

void FailTheMedium(Drives& drives) { drives.sata.AddBadSectors(40); }
// Words that end a JSON text, steer a terminal, are no UTF-8, or end a C string.
void SpeakBadly(Drives& drives) {
  constexpr std::string_view kWords("Q\"\\\x1B[31m\xC3\x28\xFF\n\0\x80<c:RED>", 18);
  for (auto* text : {&drives.nvme.State().model, &drives.sata.State().model}) {
    std::copy(kWords.begin(), kWords.end(), std::begin(*text));
  }
}

const GoldenRun kJsonRuns[] = {
    {.name = "json_hostile", .arguments = {"-drive_list"}, .shape = SpeakBadly},
    {.name = "json_hostile_identify",
     .arguments = {"-drive_path", "/dev/nvme0n1", "-identify", "-controller"},
     .shape = SpeakBadly},
    {.name = "json_hostile_word", .arguments = {"-\"\xFF\xC3(\x1B"}},
    {.name = "json_mistyped", .arguments = {"-drive_lsit"}},
    {.name = "json_several", .arguments = {"-drives", "all", "-smart"}},
    {.name = "json_health", .arguments = {"-health"}},
    {.name = "json_read_scan",
     .arguments = {"-drive_index", "1", "-read_scan", "0", "100"},
     .shape = FailTheMedium},
    {.name = "json_self_test", .arguments = {"-drive_index", "1", "-self_test", "short"}},
    {.name = "json_phy", .arguments = {"-drive_index", "1", "-set_phy_speed", "6"}},
    {.name = "json_get_log", .arguments = {"-drive_index", "0", "-get_log", "2"}},
    {.name = "json_firmware_all", .arguments = {"-firmware_update"}},
};

struct Told {
  std::string text;
  int exitStatus;
  std::vector<std::uint8_t> opcodes;  // of the only drive
};

Told Tell(const GoldenRun& run, const std::vector<std::string>& more = {"-json"}) {
  const Scene scene(run);
  auto arguments = run.arguments;
  arguments.insert(arguments.end(), more.begin(), more.end());
  std::ostringstream out;
  const int exitStatus = RunTool(arguments, out, run.answer).exitStatus;
  return {out.str(), exitStatus,
          IsErase(run) ? scene.ListOpcodes(run.host) : std::vector<std::uint8_t>()};
}

TEST(JsonDocument, OfEachRunKeepsToTheSchema) {
  Morvu::Testing::JsonDocuments documents;
  const auto add = [&](const GoldenRun& run) {
    const auto told = Tell(run);
    documents.Add(run.name, told.text);
    return told.exitStatus;
  };
  for (const auto& run : kRuns) {
    const auto golden = ReadFile(MORVU_GOLDEN_FOLDER "/" + std::string(run.name) + ".txt");
    EXPECT_NE(golden.find("\nexit status " + std::to_string(add(run)) + "\n"), golden.npos)
        << run.name;
  }
  for (const auto& run : kJsonRuns) add(run);
  documents.ExpectValid();
}

// Whoever would be asked at the prompt is refused without -force, whatever stands in the input.
TEST(JsonDocument, OfAnEraseAsksNobodyAndKeepsToTheSchema) {
  constexpr std::uint8_t kErasing[] = {0xF1, 0xF4, 0x80};
  Morvu::Testing::JsonDocuments documents;
  for (const auto& run : ListEraseRuns()) {
    const auto told = Tell(run);
    documents.Add(run.name, told.text);
    auto refused = run;
    refused.answer = "";
    EXPECT_EQ(told.exitStatus, Tell(refused, {}).exitStatus) << run.name;
    if (run.arguments.back() == "-force") continue;
    for (const auto opcode : told.opcodes) {
      EXPECT_EQ(std::ranges::count(kErasing, opcode), 0) << run.name << ": " << int{opcode};
    }
    documents.Add(run.name, Tell(run, {"-json", "-force"}).text);
  }
  documents.ExpectValid();
}

// The disk is full: what cannot be told is not begun.
TEST(JsonDocument, NeedsAnOutputThatTakesIt) {
  TestFleet fleet;
  const auto drive = fleet.Add({.model = "MORVU SSDSC2BB480G4", .serial = "BTWL1234"});
  std::ofstream full("/dev/full");
  EXPECT_EQ(RunTool({"-drive_index", "0", "-secure_erase", "-force", "-json"}, full).code, 122);
  EXPECT_EQ(std::ranges::count(drive.Opcodes(), 0xF4), 0);
}

// A description tells more than what the list knows.
TEST(JsonDocument, TellsValuesWithTheirTypes) {
  const auto told = Tell({.name = "", .arguments = {"-drive_index", "1"}}).text;
  for (const auto* part : {R"("SerialNumber": "BTWL402600K4480QGN")", R"("MaximumLBA": 937703088)",
                           R"("SMARTEnabled": true)", R"("NativeMaxLBA": 937703087)",
                           R"("isFailing": false)", R"("path": "/dev/sda1")", R"("sizeBytes": )"}) {
    EXPECT_NE(told.find(part), told.npos) << part << "\n" << told;
  }
  const auto smart = Tell({.name = "", .arguments = {"-drive_index", "1", "-smart"}}).text;
  EXPECT_NE(smart.find(R"("feature": "smart")"), smart.npos) << smart;
}

// A drive that does not answer is none of 0 bytes that is healthy.
TEST(JsonDocument, HoldsNothingThatIsOnlyAssumed) {
  const auto told = Tell({.name = "", .arguments = {"-drive_index", "1"}, .shape = Silence}).text;
  EXPECT_NE(told.find(R"("answers": false)"), told.npos) << told;
  for (const auto* name : {"PhysicalSize", "SectorSize", "OpalState", "DeviceStatus"}) {
    EXPECT_EQ(told.find(name), told.npos) << told;
  }
}

// docs/json.md shows what the tool prints of these drives.
TEST(JsonDocument, StandsInTheManual) {
  auto manual = ReadFile(MORVU_JSON_DOCUMENT);
  const bool isRenewal = std::getenv("MORVU_UPDATE_GOLDEN") != nullptr;
  constexpr std::string_view kLine = "$ morvussd ";
  std::size_t shown = 0;
  for (auto at = manual.find(kLine); at != manual.npos; at = manual.find(kLine, at + 1), ++shown) {
    const auto end = manual.find('\n', at);
    std::istringstream words(manual.substr(at + kLine.size(), end - at - kLine.size()));
    GoldenRun run{.name = "manual", .arguments = {}};
    for (std::string word; words >> word;) run.arguments.push_back(word);
    run.arguments.pop_back();  // -json
    const auto length = manual.find("```", end) - end - 1;
    const auto text = Tell(run).text;
    if (isRenewal) {
      manual.replace(end + 1, length, text);
    } else {
      EXPECT_EQ(text, manual.substr(end + 1, length));
    }
  }
  if (isRenewal) std::ofstream(MORVU_JSON_DOCUMENT, std::ios::binary) << manual;
  EXPECT_GE(shown, 2U);
}

// ---- Lines that no file should hold ----

Morvu::StatusCode RunLine(const std::vector<std::string>& arguments, std::string& printed) {
  const TestFleet fleet;
  std::ostringstream out;
  const auto code = RunTool(arguments, out).code;
  printed = out.str();
  return code;
}

TEST(LongLine, TellsEachOfTenThousandFaults) {
  std::string printed;
  EXPECT_EQ(RunLine(std::vector<std::string>(10000, "-bogus"), printed), 73);
  std::size_t lines = 0;
  for (auto at = printed.find("not supported: -bogus"); at != printed.npos;
       at = printed.find("not supported: -bogus", at + 1)) {
    ++lines;
  }
  EXPECT_EQ(lines, 10000U);
}

TEST(LongLine, MayHoldTenThousandValuesAndALongOne) {
  std::string printed;
  std::vector<std::string> arguments(10000, "1");
  arguments.front() = "-drive_index";
  EXPECT_EQ(RunLine(arguments, printed), 73);
  arguments.front() = "-smart";
  EXPECT_EQ(RunLine(arguments, printed), 72);
  EXPECT_EQ(RunLine({"-drive_serial", std::string(1 << 20, 'S')}, printed), 115);
  EXPECT_EQ(RunLine({"-help", std::string(1 << 20, '-')}, printed), 0);
  EXPECT_EQ(RunLine({std::string(1 << 20, '-')}, printed), 73);
}

}  // namespace
}  // namespace MorvuTool
