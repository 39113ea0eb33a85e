// "-health" over fleets: what it tells, what it asks, and what the tool ends with.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <unistd.h>

#include <cstring>

#include "ExitStatus.h"
#include "TestFleet.h"
#include "support/CommandLine.h"

namespace Morvu::Testing {
namespace {

using Simulator::DriveState;
using Simulator::Kind;
using testing::ContainsRegex;
using testing::HasSubstr;

// A drive with one thing wrong, or none: what its row holds, and the bits of the exit status.
struct Case {
  std::string_view name;
  Kind kind;
  void (*shape)(DriveState& state);
  std::string row;
  int found;
};

Simulator::SmartAttribute& Find(DriveState& state, std::uint8_t id) {
  return *std::ranges::find(state.ata.attributes, id, &Simulator::SmartAttribute::id);
}

constexpr auto kAta = Kind::Ata, kNvme = Kind::Nvme, kScsi = Kind::Scsi;
// clang-format off
const Case kCases[] = {
    // life, temperature, errors, hours, self-test, firmware, firmware after a reset
    {"sata",        kAta,  [](DriveState&) {}, "Passed .*99% .*28 C .*0 .*1234 .*No fault .*FW01", 0},
    {"failing",     kAta,  [](DriveState& s) { s.ata.smartFailing = 1; }, "FAILING .*99%", 1},
    {"worn",        kAta,  [](DriveState& s) { Find(s, 0xE9).value = 10; }, "Passed .*10%", 2},
    {"errors",      kAta,  [](DriveState& s) { Find(s, 0xBB).raw = 7; }, "28 C .*7 .*1234", 4},
    {"test_failed", kAta,  [](DriveState& s) { s.ata.selfTest.status = 0x70; }, "Failed", 4},
    {"smart_off",   kAta,  [](DriveState& s) { s.ata.smartEnabled = 0; }, "SMART off.*- .*- .*- .*- .*- .*FW01", 4},
    {"cold",        kAta,  [](DriveState& s) { Find(s, 0xBE).raw = 0xFB; }, "-5 C", 0},
    {"hours",       kAta,  [](DriveState& s) { Find(s, 0x09).raw = 0x0100'0000'0005; }, "0 .*5 .*No fault", 0},
    {"statistics",  kAta,  [](DriveState& s) { s.ata.hasStatistics = 1; Find(s, 0xBB).raw = 9; }, "28 C .*9 ", 4},
    // What the standard's page says outweighs an attribute that has not moved.
    {"statistics_life", kAta, [](DriveState& s) { s.ata.hasStatistics = 1; Find(s, 0xE8) = Find(s, 0xE9); Find(s, 0xE9).value = 5; }, "Passed .* 5%", 2},
    {"nvme",        kNvme, [](DriveState&) {}, "Passed .*99% .*28 C .*0 .*1234 .*- .*FW01 .*-", 0},
    {"warning",     kNvme, [](DriveState& s) { s.nvme.health[0] = 4; }, "FAILING", 1},
    {"used",        kNvme, [](DriveState& s) { s.nvme.health[5] = 130; }, "Passed .* 0%", 2},
    {"no_spare",    kNvme, [](DriveState& s) { s.nvme.health[3] = 4; }, "Passed .* 99%", 2},
    {"media",       kNvme, [](DriveState& s) { s.nvme.health[160] = 3; }, "C .*3 ", 4},
    {"huge",        kNvme, [](DriveState& s) { s.nvme.health[136] = 1; }, "0 .* - .* - .*FW01", 0},
    {"many_errors", kNvme, [](DriveState& s) { s.nvme.health[168] = 1; }, "28 C .* 18446744073709551615 .*1234", 4},
    {"no_sensor",   kNvme, [](DriveState& s) { s.nvme.health[1] = s.nvme.health[2] = 0; }, "99% .* - .* 0 .*1234", 0},
    {"waits",       kNvme, [](DriveState& s) { std::strcpy(s.nvme.slots[1], "FW02"); s.nvme.nextSlot = 2; }, "FW01 .*FW02", 0},
    {"waits_there", kNvme, [](DriveState& s) { std::strcpy(s.nvme.slots[0], "FW02"); s.nvme.nextSlot = 1; }, "FW01 .*FW02", 0},
    {"same_slot",   kNvme, [](DriveState& s) { s.nvme.nextSlot = 1; }, "FW01 .*-", 0},
    {"sas",         kScsi, [](DriveState&) {}, "Passed .*99% .*28 C .*0 .*1234 .*- .*FW01", 0},
    {"predicts",    kScsi, [](DriveState& s) { s.scsi.predictsFailure = 1; s.scsi.selfTestResult = 0; }, "FAILING .*No fault", 1},
    {"sas_faults",  kScsi, [](DriveState& s) { s.scsi.selfTestResult = 6; s.scsi.mediaErrors = 2; }, "2 .*Failed", 4},
};
// clang-format on

class Health : public testing::TestWithParam<Case> {};

TEST_P(Health, ARowTellsWhatTheDriveTells) {
  const auto& row = GetParam();
  Simulator::TestFleet fleet;
  auto drive =
      fleet.Add({.kind = row.kind,
                 .model = row.kind == kNvme ? "MORVU SSDPEDMD400G4" : "MORVU SSDSC2BB480G4",
                 .serial = "S1",
                 .firmware = "FW01"});
  row.shape(drive.State());
  const auto outcome = RunToolLine({"-health"});
  EXPECT_EQ(outcome.code, 0);
  EXPECT_THAT(outcome.output, ContainsRegex("S1 .*" + row.row));
  EXPECT_EQ(MorvuTool::ToExitStatus(outcome.code, outcome.sideResult),
            row.found == 0 ? 0 : 208 + row.found);
  // What a drive does not have it is not asked for: its error log would tell of each time.
  for (const auto& command : drive.Journal()) {
    if (row.kind != kAta || row.name == "smart_off" || command.AtaOpcode() == 0x00) continue;
    EXPECT_EQ(command.ataStatus & 1, 0) << int{command.AtaOpcode()};
  }
}
INSTANTIATE_TEST_SUITE_P(Cases, Health, testing::ValuesIn(kCases),
                         [](const auto& test) { return std::string(test.param.name); });

TEST(HealthOfMany, SortsTheWorstFirstAndTellsOfThoseThatAreNotAsked) {
  Simulator::TestFleet fleet;
  fleet.Add({.model = "MORVU SSDSC2BB480G4", .serial = "GOOD"});
  auto held = fleet.Add({.model = "MORVU SSDSC2BB480G4", .serial = "HELD"});
  auto worn = fleet.Add({.model = "MORVU SSDSC2BB480G4", .serial = "WORN"});
  auto bad = fleet.Add({.kind = kNvme, .model = "MORVU SSDPEDMD400G4", .serial = "BAD"});
  Find(worn.State(), 0xE9).value = 5;
  bad.State().nvme.health[0] = 1;
  const int holder = open((fleet.Folder() + "/dev/sdb").c_str(), O_RDONLY | O_CLOEXEC);
  ASSERT_EQ(flock(holder, LOCK_EX | LOCK_NB), 0);

  const auto outcome = RunToolLine({"-health", "worst"});
  EXPECT_THAT(outcome.output, ContainsRegex("BAD(.|\n)*WORN(.|\n)*HELD .*In use(.|\n)*GOOD"));
  EXPECT_THAT(outcome.output,
              HasSubstr("4 drives: 1 failing, 1 nearly worn out, 1 without a verdict."));
  EXPECT_EQ(outcome.sideResult, 912 + 11);
  EXPECT_TRUE(held.Journal().empty());
  EXPECT_THAT(RunToolLine({"-health", "-json"}).output, HasSubstr("\"Findings\": 11\n"));
  close(holder);
  EXPECT_EQ(RunToolLine({"-drive_serial", "GOOD", "-health"}).sideResult, 0);
  EXPECT_EQ(RunToolLine({"-health", "best", "file"}).code, 73);
}

// A command that fails takes its own values away, and makes none 0.
TEST(HealthOfMany, AFailedCommandIsNoNumber) {
  constexpr std::uint8_t kOpcodes[] = {0xB0, 0x02, 0x4D};
  const Kind kinds[] = {kAta, kNvme, kScsi};
  for (std::size_t i = 0; i < std::size(kinds); ++i) {
    Simulator::TestFleet fleet;
    auto drive = fleet.Add({.kind = kinds[i], .model = "MORVU SSDPEDMD400G4", .serial = "S1"});
    drive.Inject(Simulator::Fault::Fail().OnOpcode(kOpcodes[i]));
    const auto outcome = RunToolLine({"-health"});
    EXPECT_THAT(outcome.output, ContainsRegex("S1 +. Unknown . - +. - +. - +. - +. - "));
    EXPECT_EQ(outcome.sideResult, 912 + 8);
  }
}

}  // namespace
}  // namespace Morvu::Testing
