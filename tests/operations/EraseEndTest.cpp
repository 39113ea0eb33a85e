// The ends of the erases: what is told beside a good code, on both faces.
#include <algorithm>
#include <string>
#include <vector>

#include "cli/QRKCLI.h"
#include "frame/status/Erase.h"
#include "support/EraseScene.h"
#include "support/LogLines.h"
#include "support/Sweep.h"

namespace Morvu {
namespace {

using namespace EraseTesting;
using namespace Testing;
using Simulator::Fault;

// The command ends well, and nothing was done.
const Fault kIdleAta = Fault::AtaError(0x50, 0x00);
const Fault kIdleNvme = Fault::NvmeStatus(0);

constexpr std::string_view kHaveChanged = "have changed";
constexpr std::string_view kAreTheSame = "are the same";

bool Holds(std::string_view text, std::string_view part) { return text.find(part) != text.npos; }

// A text as it stands on one line.
std::string Unfold(std::string text) {
  std::ranges::replace(text, '\n', ' ');
  return text;
}

struct EraseKind {
  const char* name;
  Simulator::DriveSpec (*spec)();
  std::vector<std::string> words;
  std::string_view method;
  MethodParameters parameters;
  Fault idle;  // makes the erasing command do nothing
};

void PrintTo(const EraseKind& kind, std::ostream* out) { *out << kind.name; }

Fault Idle(Fault fault, int opcode) { return fault.OnOpcode(static_cast<std::uint8_t>(opcode)); }

// A sanitize that does nothing tells a status as if it had done it.
const EraseKind kKinds[] = {
    {"SecureErase", &SataSpec, {"-secure_erase"}, "SecureErase", {}, Idle(kIdleAta, kEraseUnit)},
    {"Sanitize",
     &SataSpec,
     {"-sanitize", "block"},
     "Sanitize",
     {{"SanitizeType", "block"}},
     Idle(Fault::AtaError(0x50, 0x00).OnFeature(kBlockErase), kSanitize)},
    {"FormatSata", &SataSpec, {"-format"}, "Delete", {}, Idle(kIdleAta, kEraseUnit)},
    {"FormatNvme", &NvmeSpec, {"-format", "1"}, "Format", {}, Idle(kIdleNvme, kFormatNvm)},
};

class EraseKinds : public ::testing::TestWithParam<EraseKind> {
 protected:
  LineScene MakeLine() const { return LineScene(GetParam().spec(), GetParam().words); }
  MethodScene MakeMethod() const {
    return MethodScene(GetParam().spec(), GetParam().method, GetParam().parameters);
  }
};
INSTANTIATE_TEST_SUITE_P(All, EraseKinds, ::testing::ValuesIn(kKinds),
                         [](const auto& test) { return std::string(test.param.name); });

TEST_P(EraseKinds, TellThatTheDataHaveChanged) {
  auto scene = MakeLine();
  EXPECT_EQ(scene.Run(), 0);
  EXPECT_TRUE(Holds(Unfold(scene.outcome.output), kHaveChanged)) << scene.outcome.output;
  EXPECT_EQ(scene.outcome.sideResult, 0);
}

// The code is the drive's word; what was read is ours.
TEST_P(EraseKinds, WarnOfDataThatAreStillThere) {
  auto line = MakeLine();
  line.drive.Inject(GetParam().idle);
  EXPECT_EQ(line.Run(), 0);
  EXPECT_TRUE(Holds(Unfold(line.outcome.output), kAreTheSame)) << line.outcome.output;
  EXPECT_FALSE(Holds(Unfold(line.outcome.output), kHaveChanged));
  EXPECT_EQ(line.outcome.sideResult, kWarned);
  EXPECT_TRUE(line.IsUntouched());
}

TEST_P(EraseKinds, WarnAHostOfDataThatAreStillThere) {
  auto method = MakeMethod();
  method.Prepare();
  EXPECT_EQ(method.Run(NoReporter()), 0);
  EXPECT_EQ(method.GetWarnings(), "");
  method.drive.WriteMedium(0, method.content);
  method.drive.Inject(GetParam().idle);
  EXPECT_EQ(method.Run(NoReporter()), 0);
  EXPECT_TRUE(Holds(method.GetWarnings(), kAreTheSame)) << method.GetWarnings();
}

TEST_P(EraseKinds, SayNothingOfADriveThatWasEmpty) {
  for (const std::uint8_t blank : {0x00, 0xFF}) {
    auto scene = MakeLine();
    scene.drive.WriteMedium(0, Bytes(scene.content.size(), blank));
    scene.drive.Inject(GetParam().idle);
    EXPECT_EQ(scene.Run(), 0);
    EXPECT_FALSE(Holds(Unfold(scene.outcome.output), kAreTheSame)) << scene.outcome.output;
    EXPECT_FALSE(Holds(Unfold(scene.outcome.output), kHaveChanged));
  }
}

// One place that has not changed is enough.
TEST_P(EraseKinds, SeeASingleSectorThatHasStayed) {
  auto scene = MakeMethod();
  scene.Prepare();
  scene.drive.WriteMedium(0, Bytes(scene.content.size()));
  scene.drive.WriteMedium(scene.content.size() - 512, Bytes(512, 0x5A));
  scene.drive.Inject(GetParam().idle);
  EXPECT_EQ(scene.Run(NoReporter()), 0);
  EXPECT_TRUE(Holds(scene.GetWarnings(), kAreTheSame));
}

// A read that fails ends no erase and proves nothing.
TEST_P(EraseKinds, GoOnWithoutTheirReads) {
  for (const auto& fault : {Fault::Fail(), Fault::ShortData(0), Fault::Hang()}) {
    auto scene = MakeMethod();
    scene.Prepare();
    auto read = fault;
    const bool isNvme = scene.drive.State().kind == Simulator::Kind::Nvme;
    if (isNvme) {
      read.OnOpcode(0x02, Simulator::CommandClass::NvmeIo);
    } else {
      read.OnOpcode(kReadDma);
    }
    scene.drive.Inject(read);
    EXPECT_EQ(scene.Run(NoReporter()), 0);
    EXPECT_EQ(scene.GetWarnings(), "");
    EXPECT_TRUE(scene.IsErased());
  }
}

TEST_P(EraseKinds, WarnOfAMountedFileSystem) {
  for (const auto* point : {"/data", ""}) {
    SCOPED_TRACE(point);
    LineScene scene(GetParam().spec(), [] {
      auto words = GetParam().words;
      words.emplace_back("-force");
      return words;
    }());
    const auto node = scene.drive.AddPartition(1 << 20, point);
    EXPECT_EQ(scene.Run(), 0);
    const bool isMounted = *point != '\0';
    const auto warning = node + " was mounted on " + point;
    EXPECT_EQ(Holds(Unfold(scene.outcome.output), warning), isMounted) << scene.outcome.output;
    EXPECT_EQ(scene.outcome.sideResult, isMounted ? kWarned : StatusCode(0));
  }
}

// ---- Where the reads stand ----

TEST(EraseReads, StandOutsideOfTheSecureErasesCommands) {
  MethodScene scene(SataSpec(), "SecureErase");
  const auto run = RunScene(scene, nullptr, 0);
  std::vector<int> opcodes;
  for (const auto& command : run.commands) opcodes.push_back(command.Opcode());
  const auto at = [&](int opcode) { return std::ranges::find(opcodes, opcode) - opcodes.begin(); };
  // All before the password is set, none between prepare and erase, and the look at the
  // password right behind its end.
  EXPECT_EQ(std::count(opcodes.begin(), opcodes.begin() + at(kSetPassword), kReadDma), 5);
  EXPECT_EQ(
      std::count(opcodes.begin() + at(kSetPassword), opcodes.begin() + at(kDisable), kReadDma), 0);
  EXPECT_EQ(at(kEraseUnit), at(kPrepare) + 1);
  EXPECT_EQ(opcodes.at(static_cast<std::size_t>(at(kDisable)) + 1), kIdentify);
  EXPECT_EQ(std::ranges::count(opcodes, kReadDma), 10);
}

// Addresses behind 128 GiB do not fit the 28-bit command.
TEST(EraseReads, ReachTheEndOfALargeDrive) {
  Simulator::TestFleet fleet;
  auto drive = fleet.Add({.model = "MORVU SSDSC2BB480G4", .serial = "BTWL1"});
  const auto size = static_cast<std::uint64_t>(drive.State().sectors) * 512;
  drive.WriteMedium(size - 512, Bytes(512, 0x5A));
  const auto outcome = RunLine({"-drive_index", "0", "-secure_erase", "-force"});
  EXPECT_EQ(outcome.code, 0);
  EXPECT_TRUE(Holds(Unfold(outcome.output), kHaveChanged)) << outcome.output;
}

// The blocks of the new layout are another size; the place is the same.
TEST(EraseReads, FollowANewSectorSize) {
  for (const bool isIdle : {false, true}) {
    MethodScene scene(NvmeSpec(), "Format", {{"LBAFormat", "3"}, {"SecureEraseSetting", "1"}});
    scene.Prepare();
    if (isIdle) scene.drive.Inject(Idle(kIdleNvme, kFormatNvm));
    LogLines log;
    EXPECT_EQ(scene.Run(NoReporter()), 0);
    EXPECT_TRUE(log.Has(isIdle ? "ERROR" : "INFO", "Of 5 places with data"));
    EXPECT_EQ(Holds(log.GetText(),
                    isIdle ? "0 have changed and 5 have not" : "5 have changed and 0 have not"),
              true)
        << log.GetText();
  }
}

// A drive that does not tell its new sector size: what the kernel moves must fit the buffer.
TEST(EraseReads, AreNotSentInASectorSizeThatIsOutOfDate) {
  MethodScene mute(NvmeSpec(), "Format", {{"LBAFormat", "3"}, {"SecureEraseSetting", "1"}});
  mute.Prepare();
  mute.drive.Inject(
      Fault::Fail().OnOpcode(0x06, Simulator::CommandClass::NvmeAdmin).OnFeature(0x00));
  LogLines log;
  EXPECT_EQ(mute.Run(NoReporter()), 0);
  EXPECT_EQ(mute.GetWarnings(), "");
  EXPECT_TRUE(log.Has("INFO", "Of 5 places with data"));
  EXPECT_TRUE(Holds(log.GetText(), "0 have changed and 0 have not"));
}

// ---- The sanitize's own word ----

TEST(SanitizeEnd, WithoutTheWordOfTheDriveIsLoggedAndTold) {
  MethodScene scene(SataSpec(), "Sanitize", {{"SanitizeType", "block"}});
  scene.Prepare();
  // Neither at work nor completed: Count 15:14 is clear.
  scene.drive.Inject(
      Fault::AtaError(0x50, 0x00, 0xFFFF).OnOpcode(kSanitize).OnFeature(kSanitizeStatus));
  LogLines log;
  EXPECT_EQ(scene.Run(NoReporter()), 0);
  constexpr std::string_view kText =
      "The drive does not say that the sanitize was completed without error.";
  EXPECT_TRUE(log.Has("WARNING", kText));
  EXPECT_TRUE(Holds(scene.GetWarnings(), kText));
}

// ---- The password ----

constexpr std::string_view kIsLocked = "The password could not be taken off";
constexpr std::string_view kMayBeLocked = "Whether the password was taken off again";

struct PasswordCase {
  const char* name;
  std::vector<Fault> faults;
  StatusCode code;
  std::string_view warning;
  bool isLeft;  // on the drive
};
void PrintTo(const PasswordCase& row, std::ostream* out) { *out << row.name; }

// clang-format off
const PasswordCase kPasswordCases[] = {
    {"TakenOff", {}, 0, "", false},
    {"TakenOffAtTheSecondTry", {Fault::Fail().OnOpcode(kEraseUnit), Fault::Fail().OnOpcode(kDisable).Times(1)}, Status::EraseUnitFailed, "", false},
    // The erase proper takes it off as well.
    {"LeftBehindAnErase", {Idle(kIdleAta, kEraseUnit), Fault::Fail().OnOpcode(kDisable)}, 0, kIsLocked, true},
    {"LeftBehindAFailure", {Fault::Fail().OnOpcode(kEraseUnit), Fault::Fail().OnOpcode(kDisable)}, Status::EraseUnitFailed, kIsLocked, true},
    {"LeftBehindAPrepare", {Fault::Fail().OnOpcode(kPrepare), Fault::Fail().OnOpcode(kDisable)}, Status::ErasePrepareFailed, kIsLocked, true},
    {"LeftAlthoughTheDriveSaysItIsOff", {Fault::Fail().OnOpcode(kEraseUnit), Idle(kIdleAta, kDisable)}, Status::EraseUnitFailed, kIsLocked, true},
    {"NotSeen", {Fault::Fail().OnOpcode(kEraseUnit), Fault::Fail().OnOpcode(kIdentify)}, Status::EraseUnitFailed, kMayBeLocked, false},
    {"NotSeenInDataOfNoDrive", {Fault::Fail().OnOpcode(kEraseUnit), Fault::GarbageData(Simulator::Garbage::Zeros).OnOpcode(kIdentify)}, Status::EraseUnitFailed, kMayBeLocked, false},
    {"NotSeenOfADriveThatIsGone", {Fault::Vanish().OnOpcode(kEraseUnit)}, Status::EraseUnitFailed, kMayBeLocked, true},
};
// clang-format on

class PasswordEnd : public ::testing::TestWithParam<PasswordCase> {};
INSTANTIATE_TEST_SUITE_P(Cases, PasswordEnd, ::testing::ValuesIn(kPasswordCases),
                         [](const auto& test) { return std::string(test.param.name); });

// Injects the faults. Those of IDENTIFY DEVICE meet the look at the password alone, not those
// before it is set, which a good run like this one counts.
template <typename Scene>
void InjectFaults(Scene& scene, const std::vector<Fault>& faults,
                  const std::vector<Simulator::JournalEntry>& good) {
  const auto set = std::ranges::find_if(
      good, [](const auto& command) { return command.Opcode() == kSetPassword; });
  const auto before = std::count_if(
      good.begin(), set, [](const auto& command) { return command.Opcode() == kIdentify; });
  for (auto fault : faults) {
    if (fault.Slot().opcode == kIdentify) {
      fault.OnCommand(static_cast<std::uint32_t>(before) + 1).Times(0);
    }
    scene.drive.Inject(fault);
  }
}

TEST_P(PasswordEnd, IsToldAHost) {
  const auto& row = GetParam();
  std::vector<Simulator::JournalEntry> good;
  {
    MethodScene scene(SataSpec(), "SecureErase");
    good = RunScene(scene, nullptr, 0).commands;
  }
  MethodScene scene(SataSpec(), "SecureErase");
  scene.Prepare();
  InjectFaults(scene, row.faults, good);
  LogLines log;
  EXPECT_EQ(scene.Run(NoReporter()), row.code);
  EXPECT_EQ(scene.drive.State().ata.security.enabled != 0, row.isLeft);
  if (row.warning.empty()) {
    EXPECT_FALSE(Holds(scene.GetWarnings(), "quillfen"));
    EXPECT_FALSE(log.Has("ERROR", kIsLocked) || log.Has("ERROR", kMayBeLocked));
    return;
  }
  EXPECT_TRUE(Holds(scene.GetWarnings(), row.warning)) << scene.GetWarnings();
  EXPECT_TRUE(Holds(scene.GetWarnings(), "'quillfen'"));
  EXPECT_TRUE(log.Has("ERROR", row.warning));
}

// A format of a SATA drive is a secure erase, and tells what that one tells.
TEST_P(PasswordEnd, IsToldAtThePrompt) {
  const auto& row = GetParam();
  for (const auto* option : {"-secure_erase", "-format"}) {
    SCOPED_TRACE(option);
    std::vector<Simulator::JournalEntry> good;
    {
      LineScene scene(SataSpec(), {option});
      EXPECT_EQ(scene.Run(), 0);
      good = scene.drive.Journal();
    }
    LineScene scene(SataSpec(), {option});
    InjectFaults(scene, row.faults, good);
    EXPECT_EQ(scene.Run(), row.code);
    const auto output = Unfold(scene.outcome.output);
    EXPECT_EQ(Holds(output, "'quillfen'"), !row.warning.empty()) << scene.outcome.output;
    EXPECT_TRUE(Holds(output, row.warning)) << scene.outcome.output;
    EXPECT_EQ(scene.outcome.sideResult == kWarned,
              Holds(output, "WARNING! The") || Holds(output, "WARNING! Whether"));
  }
}

}  // namespace
}  // namespace Morvu
