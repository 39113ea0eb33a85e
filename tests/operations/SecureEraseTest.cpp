// Secure erase: the order of its commands, and what becomes of the password.
#include <pthread.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <thread>

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

struct LineErase : LineScene {
  LineErase() : LineScene(SataSpec(), {"-secure_erase"}) {}
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

// How the drive stands after a run in which one command met a fault.
template <typename Scene>
void CheckAfterFault(Scene& scene, const SweptRun& run) {
  const auto reached = [&](int opcode) {
    return std::ranges::any_of(run.commands, [&](const auto& command) {
      return command.Opcode() == opcode && command.Succeeded();
    });
  };
  const auto& security = scene.drive.State().ata.security;
  EXPECT_TRUE(reached(kErase) ? scene.IsErased() : scene.IsUntouched());
  // A set password is tried to be taken off, whatever went wrong behind it.
  const auto opcodes = GetOpcodes(run.commands);
  if (std::ranges::count(opcodes, kSetPassword) != 0) {
    ASSERT_GE(opcodes.size(), 2u);
    EXPECT_EQ(opcodes[opcodes.size() - 2], kUnlock);
    EXPECT_EQ(opcodes.back(), kDisable);
  }
  // One that failed to disable it is told once more.
  if (scene.drive.State().vanished == 0) {
    EXPECT_FALSE(security.enabled);
  }
}

// The opcode of the command that the fault met; -1 for the look at the password behind the erase.
int MetOpcode(const SweptRun& run) {
  const int met = run.Met().Opcode();
  const auto opcodes = GetOpcodes(run.commands);
  const bool isLook = met == kIdentify && std::ranges::count(opcodes, kSetPassword) != 0;
  return isLook ? -1 : met;
}

StatusCode ExpectedCode(int met, StatusCode otherwise) {
  switch (met) {
    case kIdentify:
      return Status::NoCommunication;
    case kSetPassword:
      return Status::SetPasswordFailed;
    case kPrepare:
      return Status::ErasePrepareFailed;
    case kErase:
      return Status::EraseUnitFailed;
    default:
      return otherwise;
  }
}

TEST(SecureEraseFaults, EachCommandFailsByTheMethod) {
  SweepFaults<MethodErase>(Fault::Fail().Times(1), [](MethodErase& scene, const SweptRun& run) {
    EXPECT_EQ(run.code, ExpectedCode(MetOpcode(run), 0));
    CheckAfterFault(scene, run);
  });
}

TEST(SecureEraseFaults, EachCommandFailsByTheLine) {
  SweepFaults<LineErase>(Fault::Fail().Times(1), [](LineErase& scene, const SweptRun& run) {
    const auto& security = scene.drive.State().ata.security;
    if (run.code != 0) {
      EXPECT_NE(scene.outcome.output.find("rror"), std::string::npos);
    }
    EXPECT_FALSE(security.enabled);
    const int met = run.Met().Opcode();
    if (met != kIdentify) {
      EXPECT_EQ(run.code, ExpectedCode(met, run.code));
    }
    EXPECT_TRUE(run.code == 0 ? scene.IsErased() : scene.IsUntouched());
  });
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

// The adapter fails: no answer of the drive comes back.
TEST(SecureEraseFaults, TheAdapterFailsAtEachCommand) {
  SweepFaults<MethodErase>(
      Fault::HostError(0x07).Times(1), [](MethodErase& scene, const SweptRun& run) {
        const bool isTest = run.Met().Opcode() == 0;
        EXPECT_EQ(run.code, ExpectedCode(MetOpcode(run), isTest ? Status::NoCommunication : 0));
        CheckAfterFault(scene, run);
      });
}

TEST(SecureEraseFaults, TheDriveVanishesAtEachCommand) {
  SweepFaults<MethodErase>(Fault::Vanish(), [](MethodErase& scene, const SweptRun& run) {
    const int met = MetOpcode(run);
    const bool isErased = std::ranges::any_of(run.commands, [](const JournalEntry& command) {
      return command.Opcode() == kErase && command.Succeeded();
    });
    if (met == 0 || met == kIdentify) {
      EXPECT_EQ(run.code, Status::NoCommunication);
    }
    if (met == kSetPassword) {
      EXPECT_EQ(run.code, Status::SetPasswordFailed);
    }
    if (isErased) {
      EXPECT_EQ(run.code, 0);
    }
    EXPECT_TRUE(isErased ? scene.IsErased() : scene.IsUntouched());
    // Nothing is sent twice, and the password is tried to be taken off to the last.
    if (std::ranges::count(GetOpcodes(run.commands), kSetPassword) != 0) {
      EXPECT_EQ(GetOpcodes(run.commands).back(), kDisable);
    }
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

// Signals the thread once the drive has the password. The drive takes its time then:
// rests of less than a tenth of a second are real.
void PressCtrlC(LineErase& scene, pthread_t tool) {
  for (int i = 0; i < 20'000 && scene.drive.State().ata.security.enabled == 0; ++i) {
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  pthread_kill(tool, SIGINT);
}

// Ctrl-C while the drive has the password asks to stop, and ends the tool no sooner.
TEST(SecureEraseFaults, CtrlCOnTheLineLeavesTheDriveAsItWas) {
  if (MORVU_IS_EMULATED) GTEST_SKIP() << "signals end in another thread's storage";
  struct sigaction harmless {
  }, before{};
  harmless.sa_handler = [](int) {};
  sigaction(SIGINT, &harmless, &before);
  LineErase scene;
  scene.drive.Inject(Fault::Delay(95).OnOpcode(kStandby));
  scene.drive.Inject(Fault::Delay(95).OnOpcode(kPrepare));
  std::thread user(PressCtrlC, std::ref(scene), pthread_self());
  const auto code = scene.Run();
  user.join();
  sigaction(SIGINT, &before, nullptr);

  EXPECT_EQ(code, Status::Canceled);
  EXPECT_TRUE(scene.IsUntouched());
  EXPECT_FALSE(scene.drive.State().ata.security.enabled);
  const auto opcodes = GetOpcodes(scene.drive.Journal());
  EXPECT_EQ(opcodes.back(), kDisable);
  EXPECT_EQ(std::ranges::count(opcodes, kErase), 0);
  EXPECT_NE(scene.outcome.output.find("Canceled."), std::string::npos) << scene.outcome.output;
}

// ---- The process dies ----

// The process is killed at the n-th command. False when the run has none.
bool KillAt(MethodErase& scene, Fault fault, std::uint32_t n) {
  scene.Prepare();
  scene.drive.ClearJournal();
  scene.drive.Inject(fault.OnCommand(n));
  const pid_t child = fork();
  if (child == 0) {
    (void)scene.Run(NoReporter());
    _exit(0);
  }
  int status = 0;
  waitpid(child, &status, 0);
  scene.drive.ClearFaults();
  return WIFSIGNALED(status);
}

TEST(SecureEraseFaults, AKilledRunLeavesADriveThatThePasswordUnlocks) {
  for (const bool afterwards : {false, true}) {
    std::uint32_t n = 0;
    bool wasKilled = true;
    int locked = 0;
    while (wasKilled) {
      MethodErase scene;
      SCOPED_TRACE(std::string(afterwards ? "after" : "before") + " command " +
                   std::to_string(++n));
      wasKilled = KillAt(scene, afterwards ? Fault::KillAfter() : Fault::KillBefore(), n);
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
