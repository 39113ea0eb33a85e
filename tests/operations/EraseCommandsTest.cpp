// What each erase sends, in which order, and what becomes of its drive: the secure erase and its
// password, the sanitize that goes on by itself, the format and the erases that stand in for it.
#include <algorithm>

#include "devices/commands/CommandSet_ATA.h"
#include "devices/properties/NamespaceProperties.h"
#include "frame/Text.h"
#include "frame/status/Drives.h"
#include "frame/status/Erase.h"
#include "operations/erase/Format.h"
#include "support/EraseScene.h"
#include "support/Sweep.h"

namespace Morvu {
namespace {

using namespace EraseTesting;
using namespace Testing;
using DeviceManagement::CommandSet_ATA;
using Simulator::Fault;
using Simulator::JournalEntry;
namespace Properties = DeviceManagement::Properties;

// ---- Secure erase ----

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
    EXPECT_EQ(GetOpcodes(run.commands), (std::vector{kSetPassword, kStandby, kPrepare, kEraseUnit,
                                                     kStandby, kUnlock, kDisable}));
    EXPECT_EQ(run.percents, (std::vector{1, 3, 10, 20, 40, 90, 95, 100}));
    const auto block = PasswordBlock(enhanced);
    for (const int opcode : {kSetPassword, kEraseUnit, kUnlock, kDisable}) {
      const auto& command = FindCommand(run.commands, opcode);
      EXPECT_EQ(command.transferLength, 512u);
      EXPECT_EQ(command.dataDigest, Simulator::Digest(block.data(), block.size())) << opcode;
      EXPECT_EQ(command.timeoutMs, opcode == kEraseUnit ? 7'200'000u : 5'000u) << opcode;
    }
    EXPECT_EQ(NextOpcode(run.commands, kPrepare), kEraseUnit);
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
                          : !wasSent(kEraseUnit) ? Status::EraseUnitFailed
                                                 : Status::Completed;
    EXPECT_EQ(run.code, expected);
    EXPECT_EQ(GetOpcodes(run.commands).back(), kDisable);
    const bool isLocked = scene.drive.State().ata.security.enabled != 0;
    EXPECT_EQ(isLocked, wasSent(kSetPassword) && !wasSent(kEraseUnit));
    if (isLocked) {
      UnlockAgain(scene);
    }
    EXPECT_FALSE(scene.drive.State().ata.security.enabled);
    EXPECT_TRUE(wasSent(kEraseUnit) ? scene.IsErased() : scene.IsUntouched());
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

// ---- Sanitize ----

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
  const std::pair<const char*, int> kTypes[] = {{"block", kBlockErase},
                                                {"crypto", kCryptoScramble}};
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

// The percent rises to 80 and waits there. After five minutes the drive is left to itself.
TEST(Sanitize, GivesUpAfterFiveMinutesAndTheDriveGoesOn) {
  for (const std::uint32_t seconds : {200, 600}) {
    MethodSanitize scene;
    scene.drive.State().ata.sanitize.durationMs = seconds * 1000;
    const auto run = RunScene(scene, nullptr, 0);
    const bool isOver = seconds == 200;
    EXPECT_EQ(run.code, isOver ? Status::Completed : Status::SanitizeTimedOut);
    EXPECT_EQ(scene.IsRunning(), !isOver);
    ASSERT_EQ(run.percents.size(), isOver ? 81u : 80u);
    EXPECT_EQ(run.percents[79], 80);
    EXPECT_EQ(run.percents.back(), isOver ? 100 : 80);
    // One status before, for the freeze, and two of the refusal's rows; one more that Linux's
    // SATA layer did not pass on.
    if (!isOver) {
      EXPECT_EQ(CountOf(run.commands, kSanitizeStatus), 303);
    }
  }
}

// Fixed-format sense brings no upper half of the count: a drive that is at work must not be
// taken for one that is done, nor one that is done be doubted. Linux's own SATA layer does not
// pass on the protocol that the command first goes by; others do.
TEST(Sanitize, RunsThroughEachLayer) {
  using Simulator::SenseFormat;
  for (const auto format :
       {SenseFormat::Descriptor, SenseFormat::FixedSat3, SenseFormat::FixedOldKernel}) {
    for (const std::uint8_t refuses : {0, 1}) {
      SCOPED_TRACE(std::to_string(static_cast<int>(format)) + (refuses != 0 ? " refuses" : ""));
      MethodSanitize scene;
      scene.drive.State().senseFormat = format;
      scene.drive.State().ata.refusesDiagnosticProtocol = refuses;
      scene.Prepare();
      EXPECT_EQ(scene.Run(NoReporter()), 0);
      EXPECT_TRUE(scene.IsErased());
      if (format != SenseFormat::FixedOldKernel) {
        EXPECT_EQ(scene.GetWarnings(), "");
      }
    }
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

// The drive refuses the status with each reason. The first two statuses are those of
// the refusals.
TEST(Sanitize, TellsTheReasonOfTheDrive) {
  const std::pair<std::uint32_t, std::int32_t> kReasons[] = {{0, 292}, {1, 293}, {2, 296},
                                                             {3, 294}, {4, 295}, {255, 295}};
  for (const auto& [reason, code] : kReasons) {
    MethodSanitize scene;
    scene.Prepare();
    scene.drive.Inject(Fault::AtaError(0x51, 0x04, reason)
                           .OnOpcode(kSanitize)
                           .OnFeature(kSanitizeStatus)
                           .OnCommand(5));
    EXPECT_EQ(scene.Run(NoReporter()), code) << reason;
  }
}

TEST(Sanitize, ACancelEndsTheWatchingNotTheSanitize) {
  std::size_t runs = 0;
  SweepCancels<MethodSanitize>([&](MethodSanitize& scene, const SweptRun& run) {
    ++runs;
    EXPECT_EQ(run.code, Status::Canceled);
    EXPECT_EQ(CountOf(run.commands, kBlockErase), 1);
    // Only the question behind the end finds a drive that is done.
    const bool isLast = run.index == 11;
    EXPECT_EQ(scene.IsRunning(), !isLast);
  });
  EXPECT_EQ(runs, 11u);
}

// ---- Format ----

// Where a drive of these tests can protect its data: all types, in either place.
constexpr std::uint8_t kAllProtection = 0x1F;

struct MethodFormat : MethodScene {
  explicit MethodFormat(MethodParameters parameters = {})
      : MethodScene(NvmeSpec(), "Format", std::move(parameters)) {
    drive.State().nvme.namespaces[0].endToEnd = kAllProtection;
  }
};

struct MethodDelete : MethodScene {
  explicit MethodDelete(const Simulator::DriveSpec& spec, MethodParameters parameters = {})
      : MethodScene(spec, "Delete", std::move(parameters)) {}
};

TEST(Format, SendsTheSettingsToTheNamespace) {
  MethodFormat scene({{"SecureEraseSetting", "1"},
                      {"ProtectionInformation", "2"},
                      {"LBAFormat", "3"},
                      {"ProtectionInformationLocation", "1"},
                      {"MetadataSetting", "1"}});
  const auto run = RunScene(scene, nullptr, 0);
  EXPECT_EQ(run.code, 0);
  const auto& format = FindCommand(run.commands, kFormatNvm);
  EXPECT_EQ(format.NvmeNamespace(), 1u);
  EXPECT_EQ(format.Cdw(10), 3u | 1u << 4 | 2u << 5 | 1u << 8 | 1u << 9);
  // Longer than the minute that the kernel gives a command by itself.
  EXPECT_EQ(format.timeoutMs, 7'200'000u);
  EXPECT_EQ(run.percents, (std::vector{20, 100, 100}));  // the sender's, and the format's own
  EXPECT_TRUE(scene.IsErased());
}

TEST(Format, LeavesTheOtherNamespacesAlone) {
  auto spec = NvmeSpec();
  // The identifiers go from 1 on, or from 2 on: the node's number is none.
  for (const std::uint32_t first : {1, 2})
    for (const int chosen : {1, 2, 3}) {
      spec.nsids = {first, first + 1, first + 2};
      MethodScene scene(spec, "Format");
      for (int space = 1; space <= 3; ++space) {
        scene.fleet.Drive("/dev/nvme0n" + std::to_string(space)).WriteMedium(0, scene.content);
      }
      const auto node = "/dev/nvme0n" + std::to_string(chosen);
      const auto outcome = RunLine({"-drive_path", node, "-format", "1", "-force"});
      EXPECT_EQ(outcome.code, 0) << outcome.output;
      for (int space = 1; space <= 3; ++space) {
        auto drive = scene.fleet.Drive("/dev/nvme0n" + std::to_string(space));
        const auto medium = drive.ReadMedium(0, scene.content.size());
        EXPECT_EQ(medium, space == chosen ? Bytes(medium.size()) : scene.content) << space;
      }
    }
}

// ---- The settings ----

struct SettingsCase {
  FormatSettings settings;
  std::vector<std::string> errors;
  int capabilities = kAllProtection;  // -1: the drive does not tell
};

const std::string kTypes = "Error: Invalid value for protection information. ";
const std::string kPlace = "Error: Invalid value for protection information location. ";

TEST(FormatSettings, AreCheckedAgainstANvmeDrive) {
  const std::string erase =
      "Error: Invalid value for secure erase setting. Supported values are: 0, 1, and 2.";
  const std::string layout = "Error: Invalid value for LBA Format. Supported values are: 0-3";
  const std::string metadata =
      "Error: Invalid value for metadata settings. Supported values are: 0 and 1.";
  const SettingsCase kCases[] = {
      {{}, {}},
      {{}, {}, 0},
      {{2, 3, 3, 1, 1}, {}},
      {{2, 3, 3, 1, 1}, {}, -1},
      {{.secureErase = 3}, {erase}},
      {{.protectionInformation = 4}, {kTypes + "Selected drive supports type 0, 1, 2, 3"}},
      {{.protectionInformation = 1}, {kTypes + "Selected drive supports type 0"}, 0},
      {{.protectionInformation = 2}, {kTypes + "Selected drive supports type 0, 1, 3"}, 0x05},
      {{.lbaFormat = 3}, {}},
      {{.lbaFormat = 4}, {layout}},
      {{.protectionInfoLocation = 2}, {kPlace + "Supported values are: 0 and 1."}},
      {{.protectionInfoLocation = 1}, {kPlace + "Supported value is: 0"}, 0x07},
      {{.metadata = 2}, {metadata}},
      {{3, 4, 4, 2, 2},
       {erase, kTypes + "Selected drive supports type 0, 1, 2, 3", layout,
        kPlace + "Supported values are: 0 and 1.", metadata}},
  };
  MethodFormat scene;
  scene.Prepare();
  for (const auto& row : kCases) {
    const auto device = scene.device()->Clone();
    if (row.capabilities < 0) {
      device->GetProperties().Remove(Properties::EndToEndDataProtCapabilities);
    } else {
      device->AddProperty(Properties::EndToEndDataProtCapabilities, row.capabilities);
    }
    EXPECT_EQ(CheckFormatSettings(*device, row.settings), row.errors);
  }
  // The command has four bits for the format, whatever a drive says.
  scene.device()->AddProperty(Properties::NumLBAFormats, 40);
  EXPECT_EQ(CheckFormatSettings(*scene.device(), {.lbaFormat = 16}).front(),
            "Error: Invalid value for LBA Format. Supported values are: 0-15");
}

TEST(FormatSettings, AreCheckedAgainstASataDrive) {
  MethodDelete scene(SataSpec());
  scene.Prepare();
  EXPECT_TRUE(CheckFormatSettings(*scene.device(), {1, 9, 9, 9, 9}).empty());
  const auto errors = CheckFormatSettings(*scene.device(), {.secureErase = 2});
  ASSERT_EQ(errors.size(), 1u);
  EXPECT_EQ(errors[0],
            "Error: Invalid value for secure erase setting. Supported values are: 0, and 1 for "
            "ATA drives.");
}

// A slip in a number formats nothing.
TEST(Format, RefusesASettingThatIsNone) {
  for (const auto* value :
       {"3", "255", "256", "258", "-1", "crypto", "1x", "", "0x1", "99999999999999999999999"}) {
    for (const auto* name : {"SecureEraseSetting", "LBAFormat"}) {
      if (std::string_view(name) == "LBAFormat" && std::string_view(value) == "3") continue;
      MethodFormat scene({{name, value}, {"force", "True"}});
      const auto run = RunScene(scene, nullptr, 0);
      EXPECT_EQ(run.code, Status::InvalidArguments) << name << " " << value;
      EXPECT_TRUE(scene.IsUntouched());
    }
  }
}

// ---- The drive methods ----

TEST(Format, DeleteKeepsTheLayoutOfANvmeDrive) {
  for (const bool crypto : {true, false}) {
    MethodDelete scene(NvmeSpec(), {{"Crypto", crypto ? "True" : "False"}});
    auto& space = scene.drive.State().nvme.namespaces[0];
    space.endToEnd = kAllProtection;
    space.format = 1;
    space.metadata = 1;
    space.protection = 0x08 | 2;
    const auto run = RunScene(scene, nullptr, 0);
    EXPECT_EQ(run.code, 0);
    const auto erase = crypto ? 2u : 1u;
    EXPECT_EQ(FindCommand(run.commands, kFormatNvm).Cdw(10),
              1u | 1u << 4 | 2u << 5 | 1u << 8 | erase << 9);
    EXPECT_EQ(space.format, 1);
    EXPECT_EQ(space.protection, 0x08 | 2);
  }
}

TEST(Format, DeleteErasesASataDrive) {
  for (const bool enhanced : {true, false}) {
    MethodDelete scene(SataSpec(), {{"Crypto", enhanced ? "True" : "False"}});
    const auto run = RunScene(scene, nullptr, 0);
    EXPECT_EQ(run.code, 0);
    EXPECT_EQ(FindCommand(run.commands, kEraseUnit).dataHead[0], enhanced ? 2 : 0);
    EXPECT_TRUE(scene.IsErased());
  }
}

TEST(Format, AFrozenSataDriveIsSanitized) {
  MethodDelete scene(SataSpec(), {{"Crypto", "False"}});
  scene.drive.State().ata.security.frozen = 1;
  scene.drive.State().ata.sanitize.durationMs = 3000;
  const auto run = RunScene(scene, nullptr, 0);
  EXPECT_EQ(run.code, 0);
  EXPECT_EQ(std::ranges::count(GetOpcodes(run.commands), kSetPassword), 0);
  EXPECT_TRUE(scene.IsErased());
}

// Its number is no namespace's, and a namespace that has no node is not formatted blindly.
TEST(Format, RefusesAControllerWithoutNamespaces) {
  auto spec = NvmeSpec();
  spec.namespaces = 0;
  spec.serial = "LONELY0";
  MethodScene scene(NvmeSpec(), "Format");
  auto controller = scene.fleet.Add(spec);
  ASSERT_EQ(controller.Node(), "/dev/nvme1");
  auto& hidden = controller.State().nvme.namespaces[1];
  hidden = scene.drive.State().nvme.namespaces[0];
  const auto outcome = RunLine({"-drive_path", "/dev/nvme1", "-format", "1", "-force"});
  EXPECT_EQ(outcome.code, Status::NotSupportedByDrive) << outcome.output;
  for (const auto& entry : controller.Journal()) EXPECT_NE(entry.Opcode(), kFormatNvm);
}

}  // namespace
}  // namespace Morvu
