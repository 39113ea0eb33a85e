// What morvussd asks and tells when it erases or tests a drive, compared with the files
// in golden/, which hold each run from behind the drive's information. To write them
// anew from what the tool prints now, and then read the difference:
//
//   MORVU_UPDATE_GOLDEN=1 build/x86_64/tests/cli_tests --gtest_filter='*EraseGolden*'
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "ExitStatus.h"
#include "TestFleet.h"
#include "Tool.h"
#include "messaging/drive_class/Features.h"
#include "support/JsonDocuments.h"

namespace MorvuTool {
namespace {

using Simulator::Fault;
using Simulator::Kind;
using Simulator::SimulatedDrive;

struct EraseRun {
  std::string_view name;
  std::vector<std::string> arguments;
  std::string_view answer = "";
  bool isNvme = false;
  void (*shape)(SimulatedDrive& drive) = nullptr;
};

void PrintTo(const EraseRun& run, std::ostream* out) { *out << run.name; }

constexpr std::string_view kSerial = "BTWL1234";

class EraseGolden : public ::testing::TestWithParam<EraseRun> {};

struct EraseOutcome {
  std::string line, text;
  int exitStatus;
  std::vector<std::uint8_t> opcodes;
};

EraseOutcome CarryOut(const EraseRun& run, const std::vector<std::string>& more = {}) {
  Simulator::TestFleet fleet;
  Simulator::DriveSpec spec{.model = "MORVU SSDSC2BB480G4", .serial = std::string(kSerial)};
  if (run.isNvme) {
    spec.kind = Kind::Nvme;
    spec.model = "MORVU SSDPEDMD400G4";
  }
  auto drive = fleet.Add(spec);
  drive.State().ata.selfTest.extendedMs = 3600'000;
  if (run.shape != nullptr) run.shape(drive);

  std::vector<std::string> words = {"morvussd", "-drive_serial", std::string(kSerial)};
  words.insert(words.end(), run.arguments.begin(), run.arguments.end());
  words.insert(words.end(), more.begin(), more.end());
  std::vector<const char*> argv;
  std::string line = "$";
  for (const auto& word : words) {
    argv.push_back(word.c_str());
    line += ' ' + word;
  }
  std::istringstream in{std::string(run.answer)};
  std::ostringstream out;
  Morvu::QRKCLI cli(Morvu::GetFeatures(), GetToolConfig(), {in, out});
  const auto code = cli.runCLI(static_cast<int>(argv.size()), argv.data());
  return {line, out.str(), ToExitStatus(code, cli.GetSideResult()), drive.Opcodes()};
}

// The command line, what it printed behind the drive's information, and the exit status.
std::string Record(const EraseRun& run) {
  auto [line, text, exitStatus, opcodes] = CarryOut(run);
  const auto information = text.rfind("\n\n\n");
  if (information != text.npos) text.erase(0, information + 3);
  return line + '\n' + text + "exit status " + std::to_string(exitStatus) + '\n';
}

TEST_P(EraseGolden, RunPrintsWhatItsFileHolds) {
  const auto path = MORVU_GOLDEN_FOLDER "/erase/" + std::string(GetParam().name) + ".txt";
  const auto printed = Record(GetParam());
  if (std::getenv("MORVU_UPDATE_GOLDEN") != nullptr) {
    std::ofstream(path, std::ios::binary) << printed;
    GTEST_SKIP() << "wrote " << path;
  }
  std::ostringstream text;
  text << std::ifstream(path, std::ios::binary).rdbuf();
  EXPECT_EQ(printed, text.str()) << path;
}

void AddPartition(SimulatedDrive& drive) { drive.AddPartition(); }
void Freeze(SimulatedDrive& drive) { drive.State().ata.security.frozen = 1; }
void FreezeSanitize(SimulatedDrive& drive) { drive.State().ata.sanitize.frozen = 1; }
void FailErase(SimulatedDrive& drive) { drive.Inject(Fault::Fail().OnOpcode(0xF4)); }
void FailFormat(SimulatedDrive& drive) { drive.Inject(Fault::NvmeStatus(0x10A).OnOpcode(0x80)); }
void FailStandby(SimulatedDrive& drive) { drive.Inject(Fault::Fail().OnOpcode(0xE0)); }
void FailSmart(SimulatedDrive& drive) {
  drive.Inject(Fault::Fail().OnOpcode(0xB0).OnFeature(0xD0));
}
void FailSelfTest(SimulatedDrive& drive) { drive.State().ata.selfTest.status = 0x70; }
void StayAwake(SimulatedDrive& drive) { drive.State().ata.standbyStaysActive = 1; }

// clang-format off
const EraseRun kEraseRuns[] = {
    {"secure_erase",           {"-secure_erase"}, "y\n"},
    {"secure_erase_no",        {"-secure_erase"}, "n\n"},
    {"secure_erase_end",       {"-secure_erase"}, ""},
    {"secure_erase_partition", {"-secure_erase"}, "Y\n", false, AddPartition},
    {"secure_erase_force",     {"-secure_erase", "-force"}, "", false, AddPartition},
    {"secure_erase_frozen",    {"-secure_erase"}, "y\n", false, Freeze},
    {"secure_erase_failed",    {"-secure_erase"}, "y\n", false, FailErase},
    {"secure_erase_nvme",      {"-secure_erase"}, "y\n", true},
    {"sanitize_block",         {"-sanitize", "block"}, "y\n"},
    {"sanitize_partition_no",  {"-sanitize", "crypto"}, "n\n", false, AddPartition},
    {"sanitize_type",          {"-sanitize", "all"}, "y\n"},
    {"sanitize_frozen",        {"-sanitize", "block"}, "y\n", false, FreezeSanitize},
    {"format_sata",            {"-format"}, "y\n"},
    {"format_nvme",            {"-format", "2"}, "y\n", true},
    {"format_partition",       {"-format", "1"}, "n\n", false, AddPartition},
    {"format_force",           {"-format", "-force"}, "", true},
    {"format_settings",        {"-format", "3", "1", "4", "1", "2"}, "y\n", true},
    {"format_settings_sata",   {"-format", "2"}, "y\n"},
    {"format_word",            {"-format", "crypto"}, "y\n", true},
    {"format_failed",          {"-format"}, "y\n", true, FailFormat},
    {"self_test",              {"-self_test", "extended"}},
    {"self_test_captive",      {"-self_test", "short", "captive"}},
    {"self_test_status",       {"-self_test", "status"}},
    {"self_test_failed",       {"-self_test", "status"}, "", false, FailSelfTest},
    {"self_test_unreadable",   {"-self_test", "status"}, "", false, FailSmart},
    {"self_test_unknown",      {"-self_test", "long"}},
    {"standby",                {"-standby_immediate"}},
    {"standby_failed",         {"-standby_immediate"}, "", false, FailStandby},
    {"standby_awake",          {"-standby_immediate"}, "", false, StayAwake},
    {"standby_nvme",           {"-standby_immediate"}, "", true},
};
// clang-format on
INSTANTIATE_TEST_SUITE_P(Runs, EraseGolden, ::testing::ValuesIn(kEraseRuns),
                         [](const auto& test) { return std::string(test.param.name); });

// Whoever would be asked at the prompt is refused without -force, whatever stands in the input.
TEST(EraseAsJson, AsksNobodyAndKeepsToTheSchema) {
  constexpr std::uint8_t kErasing[] = {0xF1, 0xF4, 0x80};
  Morvu::Testing::JsonDocuments documents;
  for (const auto& run : kEraseRuns) {
    const auto told = CarryOut(run, {"-json"});
    documents.Add(run.name, told.text);
    auto refused = run;
    refused.answer = "";
    EXPECT_EQ(told.exitStatus, CarryOut(refused).exitStatus) << run.name;
    if (run.arguments.back() == "-force") continue;
    for (const auto opcode : told.opcodes) {
      EXPECT_EQ(std::ranges::count(kErasing, opcode), 0) << run.name << ": " << int{opcode};
    }
    documents.Add(run.name, CarryOut(run, {"-json", "-force"}).text);
  }
  documents.ExpectValid();
}

// The disk is full: what cannot be told is not begun.
TEST(EraseAsJson, NeedsAnOutputThatTakesTheDocument) {
  Simulator::TestFleet fleet;
  auto drive = fleet.Add({.model = "MORVU SSDSC2BB480G4", .serial = std::string(kSerial)});
  std::istringstream in;
  std::ofstream full("/dev/full");
  Morvu::QRKCLI cli(Morvu::GetFeatures(), GetToolConfig(), {in, full});
  const char* argv[] = {"morvussd", "-drive_index", "0", "-secure_erase", "-force", "-json"};
  EXPECT_EQ(cli.runCLI(6, argv), 122);
  EXPECT_EQ(std::ranges::count(drive.Opcodes(), 0xF4), 0);
}

}  // namespace
}  // namespace MorvuTool
