// Sanitize: the watching of a drive that erases itself.
#include <algorithm>

#include "frame/status/Erase.h"
#include "operations/erase/Sanitize.h"
#include "support/EraseScene.h"
#include "support/Sweep.h"

namespace Morvu {
namespace {

using namespace EraseTesting;
using namespace Testing;
using Simulator::Fault;
using Simulator::JournalEntry;

// ACS-3's opcode, and its features.
constexpr int kSanitize = 0xB4;
constexpr int kStatus = 0x00, kCrypto = 0x11, kBlock = 0x12;

struct MethodSanitize : MethodScene {
  explicit MethodSanitize(const std::string& type = "block", MethodParameters more = {})
      : MethodScene(SataSpec(), "Sanitize", With(type, std::move(more))) {
    drive.State().ata.sanitize.durationMs = 10'000;
  }
  static MethodParameters With(const std::string& type, MethodParameters more) {
    more.push_back({"SanitizeType", type});
    return more;
  }
  bool IsRunning() { return drive.State().ata.sanitize.running != 0; }
};

bool IsFeature(const JournalEntry& command, int feature) {
  return command.Opcode() == kSanitize && (command.Features() & 0xFF) == feature;
}

std::ptrdiff_t CountOf(const std::vector<JournalEntry>& commands, int feature) {
  return std::ranges::count_if(commands,
                               [&](const auto& command) { return IsFeature(command, feature); });
}

TEST(Sanitize, ErasesAndWaitsForTheDrive) {
  const std::pair<const char*, int> kTypes[] = {{"block", kBlock}, {"crypto", kCrypto}};
  for (const auto& [type, feature] : kTypes) {
    SCOPED_TRACE(type);
    MethodSanitize scene(type);
    const auto run = RunScene(scene, nullptr, 0);
    EXPECT_EQ(run.code, 0);
    EXPECT_EQ(CountOf(run.commands, feature), 1);
    EXPECT_TRUE(scene.IsErased());
    EXPECT_FALSE(scene.IsRunning());
    // One percent a second from where it stood, and then the end.
    EXPECT_EQ(run.percents, (std::vector{1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 100}));
  }
}

TEST(Sanitize, ThePercentStopsAtEightyUntilTheEnd) {
  MethodSanitize scene;
  scene.drive.State().ata.sanitize.durationMs = 200'000;
  const auto run = RunScene(scene, nullptr, 0);
  EXPECT_EQ(run.code, 0);
  ASSERT_EQ(run.percents.size(), 81u);
  EXPECT_EQ(run.percents[79], 80);
  EXPECT_EQ(run.percents[80], 100);
}

TEST(Sanitize, GivesUpAfterFiveMinutesAndTheDriveGoesOn) {
  MethodSanitize scene;
  scene.drive.State().ata.sanitize.durationMs = 600'000;
  const auto run = RunScene(scene, nullptr, 0);
  EXPECT_EQ(run.code, Status::SanitizeTimedOut);
  EXPECT_TRUE(scene.IsRunning());
  EXPECT_EQ(run.percents.back(), 80);
  // One status before, for the freeze, and two of the refusal's rows; one more that Linux's
  // SATA layer did not pass on.
  EXPECT_EQ(CountOf(run.commands, kStatus), 303);
}

// Fixed-format sense brings no upper half of the count: a drive that is at work must
// not be taken for one that is done.
TEST(Sanitize, WaitsInEverySenseFormat) {
  using Simulator::SenseFormat;
  for (const auto format :
       {SenseFormat::Descriptor, SenseFormat::FixedSat3, SenseFormat::FixedOldKernel}) {
    MethodSanitize scene;
    scene.drive.State().senseFormat = format;
    scene.Prepare();
    EXPECT_EQ(scene.Run(NoReporter()), 0) << static_cast<int>(format);
    EXPECT_TRUE(scene.IsErased()) << static_cast<int>(format);
  }
}

// Linux's own SATA layer does not pass on the protocol that the command first goes by;
// others do.
TEST(Sanitize, RunsThroughEachLayer) {
  for (const std::uint8_t refuses : {0, 1}) {
    MethodSanitize scene;
    scene.drive.State().ata.refusesDiagnosticProtocol = refuses;
    scene.Prepare();
    EXPECT_EQ(scene.Run(NoReporter()), 0);
    EXPECT_TRUE(scene.IsErased());
  }
}

// Once the layer has refused the protocol, nothing is sent by it again.
TEST(Sanitize, RemembersWhatTheLayerRefuses) {
  MethodSanitize scene;
  const auto run = RunScene(scene, nullptr, 0);
  EXPECT_EQ(run.code, 0);
  constexpr std::uint8_t kDeviceDiagnostic = 8;
  EXPECT_EQ(1, std::ranges::count_if(run.commands, [](const auto& entry) {
              return entry.IsAta() && entry.Protocol() == kDeviceDiagnostic;
            }));
  // Nor by a later job, whose clone of the drive is another.
  scene.drive.ClearJournal();
  EXPECT_EQ(scene.Run(NoReporter()), 0);
  EXPECT_TRUE(std::ranges::none_of(scene.drive.Journal(), [](const auto& entry) {
    return entry.IsAta() && entry.Protocol() == kDeviceDiagnostic;
  }));
}

// A command that ended without registers may have begun its work: it is not repeated.
TEST(Sanitize, IsSentOnceWithoutRegisters) {
  const std::uint8_t kParityError[18] = {0x70, 0, 0x0B, 0, 0, 0, 0, 10, 0, 0, 0, 0, 0x47};
  for (const auto& fault : {Fault::RawSense(0x02, kParityError), Fault::RawSense(0x02, {}),
                            Fault::RawSense(0x00, {}), Fault::Hang()}) {
    for (const std::uint8_t refuses : {0, 1}) {
      MethodSanitize scene;
      scene.drive.State().ata.refusesDiagnosticProtocol = refuses;
      auto once = fault;
      scene.drive.Inject(once.OnOpcode(0xB4).OnFeature(0x12).Times(1));
      const auto run = RunScene(scene, nullptr, 0);
      EXPECT_EQ(1, CountOf(run.commands, 0x12)) << run.commands.size();
    }
  }
}

TEST(Sanitize, TellsWhyItFailed) {
  MethodSanitize failing;
  failing.drive.State().ata.sanitize.willFail = 1;
  failing.Prepare();
  EXPECT_EQ(failing.Run(NoReporter()), Status::SanitizeUnsuccessful);
  EXPECT_TRUE(failing.IsUntouched());
}

// The drive refuses the status with each reason. The first two statuses are those of
// the refusals.
TEST(Sanitize, TellsTheReasonOfTheDrive) {
  const std::pair<std::uint32_t, std::int32_t> kReasons[] = {{0, 292}, {1, 293}, {2, 296},
                                                             {3, 294}, {4, 295}, {255, 295}};
  for (const auto& [reason, code] : kReasons) {
    MethodSanitize scene;
    scene.Prepare();
    scene.drive.Inject(
        Fault::AtaError(0x51, 0x04, reason).OnOpcode(kSanitize).OnFeature(kStatus).OnCommand(5));
    EXPECT_EQ(scene.Run(NoReporter()), code) << reason;
  }
}

TEST(Sanitize, ACancelEndsTheWatchingNotTheSanitize) {
  std::size_t runs = 0;
  SweepCancels<MethodSanitize>([&](MethodSanitize& scene, const SweptRun& run) {
    ++runs;
    EXPECT_EQ(run.code, Status::Canceled);
    EXPECT_EQ(CountOf(run.commands, kBlock), 1);
    // Only the question behind the end finds a drive that is done.
    const bool isLast = run.index == 11;
    EXPECT_EQ(scene.IsRunning(), !isLast);
  });
  EXPECT_EQ(runs, 11u);
}

TEST(Sanitize, TheLineAsksFirst) {
  LineScene scene(SataSpec(), {"-sanitize", "block"}, "n\n");
  EXPECT_EQ(scene.Run(), Status::CanceledByUser);
  EXPECT_EQ(RunLine({"-sanitize", "block"}, "y\n").code, 73);
  EXPECT_EQ(RunLine({"-drive_index", "0", "-sanitize", "all"}, "y\n").code, 291);
  EXPECT_EQ(RunLine({"-drive_index", "0", "-sanitize"}, "y\n").code, 73);
  EXPECT_TRUE(scene.IsUntouched());
  EXPECT_EQ(RunLine({"-drive_index", "0", "-sanitize", "crypto"}, "Y\n").code, 0);
  EXPECT_TRUE(scene.IsErased());
}

}  // namespace
}  // namespace Morvu
