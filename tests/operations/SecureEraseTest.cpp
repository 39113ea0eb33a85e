// Secure erase: the order of its commands, and what becomes of the password.
#include <algorithm>

#include "devices/commands/CommandSet_ATA.h"
#include "frame/status/Erase.h"
#include "operations/erase/SecureErase.h"
#include "support/EraseScene.h"
#include "support/Sweep.h"

namespace Morvu {
namespace {

using namespace EraseTesting;
using namespace Testing;
using DeviceManagement::CommandSet_ATA;
using Simulator::Fault;
using Simulator::JournalEntry;

// ACS-3's opcodes.
constexpr int kIdentify = 0xEC, kStandby = 0xE0, kSetPassword = 0xF1, kUnlock = 0xF2,
              kPrepare = 0xF3, kErase = 0xF4, kDisable = 0xF6;

Bytes PasswordBlock(bool enhanced) {
  Bytes block(512);
  block[0] = enhanced ? 2 : 0;
  std::ranges::copy(std::string_view("quillfen"), block.begin() + 2);
  return block;
}

struct MethodErase : MethodScene {
  explicit MethodErase(MethodParameters parameters = {})
      : MethodScene(SataSpec(), "SecureErase", std::move(parameters)) {}
};

// The very next command, whatever it is.
int NextOpcode(const std::vector<JournalEntry>& commands, int opcode) {
  const auto found = std::ranges::find_if(
      commands, [&](const JournalEntry& command) { return command.Opcode() == opcode; });
  const bool isThere = found != commands.end() && found + 1 != commands.end();
  return isThere ? (found + 1)->Opcode() : -1;
}

TEST(SecureErase, SendsItsCommandsInOrder) {
  for (const bool enhanced : {false, true}) {
    SCOPED_TRACE(enhanced ? "enhanced" : "normal");
    MethodErase scene(MethodParameters{{"EnhancedErase", enhanced ? "True" : "False"}});
    const auto run = RunScene(scene, nullptr, 0);
    EXPECT_EQ(run.code, 0);
    EXPECT_EQ(GetOpcodes(run.commands),
              (std::vector{kSetPassword, kStandby, kPrepare, kErase, kStandby, kUnlock, kDisable}));
    EXPECT_EQ(run.percents, (std::vector{1, 3, 10, 20, 40, 90, 95, 100}));
    const auto block = PasswordBlock(enhanced);
    for (const int opcode : {kSetPassword, kErase, kUnlock, kDisable}) {
      const auto& command = FindCommand(run.commands, opcode);
      EXPECT_EQ(command.transferLength, 512u);
      EXPECT_EQ(command.dataDigest, Simulator::Digest(block.data(), block.size())) << opcode;
      EXPECT_EQ(command.timeoutMs, opcode == kErase ? 7'200'000u : 5'000u) << opcode;
    }
    EXPECT_EQ(NextOpcode(run.commands, kPrepare), kErase);
    EXPECT_TRUE(scene.IsErased());
    EXPECT_FALSE(scene.drive.State().ata.security.enabled);
  }
}

TEST(SecureErase, PausesBeforePrepareAndBeforeErase) {
  MethodErase scene;
  scene.Prepare();
  const auto start = scene.fleet.Now();
  EXPECT_EQ(scene.Run(NoReporter()), 0);
  EXPECT_GE(scene.fleet.Now() - start, 2000u);
}

TEST(SecureErase, GivesTheEraseTwoHours) {
  MethodErase scene;
  scene.Prepare();
  scene.drive.Inject(Fault::Hang().OnOpcode(kErase));
  const auto start = scene.fleet.Now();
  EXPECT_EQ(scene.Run(NoReporter()), Status::EraseUnitFailed);
  EXPECT_GE(scene.fleet.Now() - start, 7'200'000u);
}

// ---- Faults ----

// What docs/recovery.md tells the owner of a drive to do.
void UnlockAgain(MethodErase& scene) {
  scene.drive.PowerCycle();
  auto* ata = scene.device()->GetCommandSetAs<CommandSet_ATA>("ATA");
  ASSERT_NE(ata, nullptr);
  auto block = PasswordBlock(false);
  EXPECT_EQ(ata->ataSecurityUnlock(block), 0);
  EXPECT_EQ(ata->ataSecurityDisablePassword(block), 0);
}

// Nothing works any more from some command on, the cleaning up neither.
TEST(SecureEraseFaults, EveryCommandFailsFromThereOn) {
  SweepFaults<MethodErase>(Fault::Fail(), [](MethodErase& scene, const SweptRun& run) {
    const auto wasSent = [&](int opcode) {
      return std::ranges::any_of(run.commands, [&](const JournalEntry& command) {
        return command.Opcode() == opcode && command.Succeeded();
      });
    };
    const auto isAnswer = [](const JournalEntry& command) {
      return command.Opcode() == kIdentify && command.Succeeded();
    };
    // A drive that does not say who it is gets no password.
    if (std::ranges::count_if(run.commands, isAnswer) < 4) {
      EXPECT_EQ(run.code, Status::NoCommunication);
      EXPECT_EQ(std::ranges::count(GetOpcodes(run.commands), kSetPassword), 0);
      EXPECT_TRUE(scene.IsUntouched());
      return;
    }
    const auto expected = !wasSent(kSetPassword) ? Status::SetPasswordFailed
                          : !wasSent(kPrepare)   ? Status::ErasePrepareFailed
                          : !wasSent(kErase)     ? Status::EraseUnitFailed
                                                 : Status::Completed;
    EXPECT_EQ(run.code, expected);
    EXPECT_EQ(GetOpcodes(run.commands).back(), kDisable);
    const bool isLocked = scene.drive.State().ata.security.enabled != 0;
    EXPECT_EQ(isLocked, wasSent(kSetPassword) && !wasSent(kErase));
    if (isLocked) {
      UnlockAgain(scene);
    }
    EXPECT_FALSE(scene.drive.State().ata.security.enabled);
    EXPECT_TRUE(wasSent(kErase) ? scene.IsErased() : scene.IsUntouched());
  });
}

TEST(SecureEraseFaults, ACancelLeavesTheDriveAsItWas) {
  std::size_t runs = 0;
  SweepCancels<MethodErase>([&](MethodErase& scene, const SweptRun& run) {
    ++runs;
    EXPECT_EQ(run.code, Status::Canceled);
    EXPECT_TRUE(scene.IsUntouched());
    EXPECT_FALSE(scene.drive.State().ata.security.enabled);
    const auto opcodes = GetOpcodes(run.commands);
    if (run.index == 1) {
      EXPECT_TRUE(opcodes.empty());
    } else {
      EXPECT_EQ(opcodes, (std::vector{kSetPassword, kStandby, kUnlock, kDisable}));
    }
  });
  EXPECT_EQ(runs, 3u);
}

// ---- The process dies ----

TEST(SecureEraseFaults, AKilledRunLeavesADriveThatThePasswordUnlocks) {
  for (const bool afterwards : {false, true}) {
    std::uint32_t n = 0;
    bool wasKilled = true;
    int locked = 0;
    while (wasKilled) {
      MethodErase scene;
      SCOPED_TRACE(std::string(afterwards ? "after" : "before") + " command " +
                   std::to_string(++n));
      scene.Prepare();
      scene.drive.ClearJournal();
      auto fault = afterwards ? Fault::KillAfter() : Fault::KillBefore();
      wasKilled = RunKilled(scene, fault.OnCommand(n));
      const auto& security = scene.drive.State().ata.security;
      const bool wasLocked = security.enabled != 0;
      if (wasLocked) {
        ++locked;
        UnlockAgain(scene);
      }
      EXPECT_FALSE(security.enabled);
      EXPECT_TRUE(scene.IsErased() || scene.IsUntouched());
      // A locked drive is not erased yet, and loses nothing.
      if (wasLocked) {
        EXPECT_TRUE(scene.IsUntouched());
      }
    }
    // Three tests of the connection, two permits of two questions, five reads, seven commands, a
    // look at the password, five reads, one good run.
    EXPECT_EQ(n, 26u);
    EXPECT_EQ(locked, 3);
  }
}

}  // namespace
}  // namespace Morvu
