// docs/recovery.md tells what a drive is like after each end of an erase. Each row of its table
// has its run here.
#include <algorithm>
#include <fstream>
#include <functional>
#include <string>
#include <vector>

#include "devices/properties/SecurityProperties.h"
#include "frame/Text.h"
#include "frame/status/Drives.h"
#include "frame/status/Erase.h"
#include "frame/status/NvmeStatus.h"
#include "frame/status/Requests.h"
#include "support/EraseScene.h"
#include "support/Sweep.h"

namespace Morvu {
namespace {

using namespace EraseTesting;
using namespace Testing;
using Simulator::Fault;
namespace Properties = DeviceManagement::Properties;

MethodScene MakeErase() { return {SataSpec(), "SecureErase"}; }
MethodScene MakeSanitize() { return {SataSpec(), "Sanitize", {{"SanitizeType", "block"}}}; }
MethodScene MakeFormat() { return {NvmeSpec(), "Format", {{"SecureEraseSetting", "1"}}}; }

StatusCode RunWith(MethodScene& scene, const Fault& fault) {
  scene.Prepare();
  scene.drive.ClearJournal();
  scene.drive.Inject(fault);
  return scene.Run(NoReporter());
}

bool HasPassword(MethodScene& scene) { return scene.drive.State().ata.security.enabled != 0; }

void ExpectAsItWas(MethodScene& scene) {
  EXPECT_TRUE(scene.IsUntouched());
  EXPECT_FALSE(HasPassword(scene));
  EXPECT_FALSE(scene.drive.State().ata.sanitize.running);
  EXPECT_EQ(scene.GetWarnings(), "");
}

void EraseEndsWell() {
  auto scene = MakeErase();
  scene.Prepare();
  EXPECT_EQ(scene.Run(NoReporter()), 0);
  EXPECT_TRUE(scene.IsErased());
  EXPECT_FALSE(HasPassword(scene));
}

void EraseIsRefused() {
  auto scene = MakeErase();
  scene.drive.AddPartition();
  EXPECT_EQ(RunWith(scene, Fault::Delay(0)), 13);
  ExpectAsItWas(scene);
  EXPECT_TRUE(GetOpcodes(scene.drive.Journal()).empty());
  auto frozen = MakeErase();
  frozen.shape = [](auto& device) { device.AddProperty(Properties::SecurityFrozen, true); };
  EXPECT_EQ(RunWith(frozen, Fault::Delay(0)), Status::SecurityFrozen);
  ExpectAsItWas(frozen);
  EXPECT_EQ(frozen.drive.State().ata.powerMode, Simulator::PowerMode::Standby);
}

void EraseIsCanceled() {
  auto scene = MakeErase();
  const auto run = RunScene(scene, nullptr, 2);
  EXPECT_EQ(run.code, Status::Canceled);
  EXPECT_EQ(std::ranges::count(GetOpcodes(run.commands), kSetPassword), 1);
  ExpectAsItWas(scene);
}

void EraseFailsAt(int opcode, StatusCode code) {
  auto scene = MakeErase();
  EXPECT_EQ(RunWith(scene, Fault::Fail().OnOpcode(static_cast<std::uint8_t>(opcode))), code);
  ExpectAsItWas(scene);
}

void EraseHasNoAnswer() {
  auto scene = MakeErase();
  EXPECT_EQ(RunWith(scene, Fault::Vanish().OnOpcode(kEraseUnit)), Status::EraseUnitFailed);
  EXPECT_TRUE(HasPassword(scene));
  EXPECT_NE(scene.GetWarnings(), "");
}

void EraseLeavesThePassword() {
  auto scene = MakeErase();
  scene.Prepare();
  scene.drive.Inject(Fault::Fail().OnOpcode(kDisable));
  scene.drive.Inject(Fault::Fail().OnOpcode(kPrepare));
  EXPECT_EQ(scene.Run(NoReporter()), Status::ErasePrepareFailed);
  EXPECT_TRUE(HasPassword(scene));
  scene.drive.PowerCycle();
  EXPECT_TRUE(scene.drive.State().ata.security.locked);
  EXPECT_NE(scene.GetWarnings().find("quillfen"), std::string::npos);
}

// SignalTest runs each of them.
void EraseMeetsASignal() {
  auto scene = MakeErase();
  const auto run = RunScene(scene, nullptr, 3);
  EXPECT_EQ(run.code, Status::Canceled);
  EXPECT_EQ(std::ranges::count(GetOpcodes(run.commands), kEraseUnit), 0);
  ExpectAsItWas(scene);
}

void EraseDies() {
  auto scene = MakeErase();
  scene.Prepare();
  EXPECT_TRUE(RunKilled(scene, Fault::KillAfter().OnOpcode(kSetPassword)));
  EXPECT_TRUE(HasPassword(scene));
  EXPECT_TRUE(scene.IsUntouched());
}

void SanitizeEndsWell() {
  auto scene = MakeSanitize();
  scene.Prepare();
  EXPECT_EQ(scene.Run(NoReporter()), 0);
  EXPECT_TRUE(scene.IsErased());
}

void SanitizeIsRefused() {
  auto scene = MakeSanitize();
  scene.drive.State().ata.sanitize.frozen = 1;
  EXPECT_EQ(RunWith(scene, Fault::Delay(0)), Status::SanitizeFrozen);
  ExpectAsItWas(scene);
  EXPECT_EQ(scene.drive.State().ata.powerMode, Simulator::PowerMode::Standby);
}

void SanitizeGoesOn() {
  auto scene = MakeSanitize();
  scene.drive.State().ata.sanitize.durationMs = 3'600'000;
  EXPECT_EQ(RunWith(scene, Fault::Delay(0)), Status::SanitizeTimedOut);
  EXPECT_TRUE(scene.drive.State().ata.sanitize.running);
  scene.drive.PowerCycle();
  EXPECT_TRUE(scene.drive.State().ata.sanitize.running);
  auto killed = MakeSanitize();
  killed.drive.State().ata.sanitize.durationMs = 3'600'000;
  killed.Prepare();
  EXPECT_TRUE(RunKilled(killed, Fault::KillAfter().OnOpcode(kSanitize).OnFeature(kBlockErase)));
  EXPECT_TRUE(killed.drive.State().ata.sanitize.running);
}

void SanitizeDoesNotBegin() {
  auto scene = MakeSanitize();
  EXPECT_EQ(RunWith(scene, Fault::Fail().OnOpcode(kSanitize).OnFeature(kBlockErase)),
            Status::SanitizeUnsuccessful);
  ExpectAsItWas(scene);
}

void SanitizeFails() {
  auto scene = MakeSanitize();
  scene.drive.State().ata.sanitize.willFail = 1;
  EXPECT_EQ(RunWith(scene, Fault::Delay(0)), Status::SanitizeUnsuccessful);
  EXPECT_TRUE(scene.drive.State().ata.sanitize.failed);
  EXPECT_TRUE(scene.IsUntouched());
  // And once more, as the page says.
  EXPECT_EQ(scene.Run(NoReporter()), 0);
  EXPECT_TRUE(scene.IsErased());
}

void FormatEndsWell() {
  MethodScene scene(NvmeSpec(), "Format", {{"SecureEraseSetting", "1"}, {"LBAFormat", "3"}});
  scene.Prepare();
  EXPECT_EQ(scene.Run(NoReporter()), 0);
  EXPECT_TRUE(scene.IsErased());
  EXPECT_EQ(scene.drive.State().nvme.namespaces[0].format, 3);
}

void FormatIsRefused() {
  auto scene = MakeFormat();
  EXPECT_EQ(RunWith(scene, Fault::NvmeStatus(0x10A).OnOpcode(kFormatNvm)), FromNvmeStatus(0x10A));
  EXPECT_TRUE(scene.IsUntouched());
}

// The command went out, and nobody knows what came of it.
void FormatHasNoAnswer() {
  auto scene = MakeFormat();
  const auto code = RunWith(scene, Fault::Vanish().OnOpcode(kFormatNvm));
  EXPECT_TRUE(code.IsSystemError()) << code;
}

void TheDataAreStillThere() {
  auto scene = MakeFormat();
  EXPECT_EQ(RunWith(scene, Fault::NvmeStatus(0).OnOpcode(kFormatNvm)), 0);
  EXPECT_TRUE(scene.IsUntouched());
  EXPECT_NE(scene.GetWarnings().find("are the same"), std::string::npos);
}

void AFileSystemIsMounted() {
  MethodScene scene(SataSpec(), "SecureErase", {{"force", "True"}});
  scene.drive.AddPartition(1 << 20, "/data");
  scene.Prepare();
  EXPECT_EQ(scene.Run(NoReporter()), 0);
  EXPECT_NE(scene.GetWarnings().find("was mounted on /data"), std::string::npos);
}

struct RecoveryRow {
  std::string_view operation;
  std::string_view ended;
  void (*run)();
};

// clang-format off
const RecoveryRow kRows[] = {
    {"secure erase",  "0",                                       EraseEndsWell},
    {"secure erase",  "refused, or answered with no",            EraseIsRefused},
    {"secure erase",  "canceled (2)",                            EraseIsCanceled},
    {"secure erase",  "17",                                      [] { EraseFailsAt(kSetPassword, 17); }},
    {"secure erase",  "16",                                      [] { EraseFailsAt(kPrepare, 16); }},
    {"secure erase",  "15, refused by the drive",                [] { EraseFailsAt(kEraseUnit, 15); }},
    {"secure erase",  "15, without an answer",                   EraseHasNoAnswer},
    {"secure erase",  "any code, and a warning of the password", EraseLeavesThePassword},
    {"secure erase",  "any signal but SIGKILL",                  EraseMeetsASignal},
    {"secure erase",  "the program died",                        EraseDies},
    {"sanitize",      "0",                                       SanitizeEndsWell},
    {"sanitize",      "refused, or answered with no",            SanitizeIsRefused},
    {"sanitize",      "canceled (2), 297, the program died",     SanitizeGoesOn},
    {"sanitize",      "293, refused by the drive",               SanitizeDoesNotBegin},
    {"sanitize",      "292 to 296, while it was at work",        SanitizeFails},
    {"format (NVMe)", "0",                                       FormatEndsWell},
    {"format (NVMe)", "an NVMe status",                          FormatIsRefused},
    {"format (NVMe)", "an error of the system",                  FormatHasNoAnswer},
    {"any of them",   "0, and a warning of the data",            TheDataAreStillThere},
    {"any of them",   "0, and a warning of a mount",             AFileSystemIsMounted},
};
// clang-format on

// The first two cells of each row below the table's head.
std::vector<std::pair<std::string, std::string>> ReadTable() {
  std::ifstream in(MORVU_RECOVERY_DOCUMENT);
  std::vector<std::pair<std::string, std::string>> rows;
  bool isTable = false;
  for (std::string line; std::getline(in, line);) {
    if (line.starts_with("| Operation |")) isTable = true;
    if (!isTable || line.starts_with("| Operation |") || line.starts_with("|---")) continue;
    if (!line.starts_with('|')) break;
    const auto cells = Split(line, '|');
    rows.emplace_back(Trim(cells.at(1)), Trim(cells.at(2)));
  }
  return rows;
}

TEST(Recovery, TheTablesRowsAreThoseThatAreRunHere) {
  const auto table = ReadTable();
  ASSERT_EQ(table.size(), std::size(kRows));
  for (std::size_t i = 0; i < table.size(); ++i) {
    EXPECT_EQ(table[i].first, kRows[i].operation) << i;
    EXPECT_EQ(table[i].second, kRows[i].ended) << i;
  }
}

TEST(Recovery, ADriveIsAfterEachEndAsItsRowSays) {
  for (const auto& row : kRows) {
    SCOPED_TRACE(std::string(row.operation).append(": ").append(row.ended));
    row.run();
  }
}

}  // namespace
}  // namespace Morvu
