// What stands against an operation: each obstacle before each method, one row a method. A drive
// that is refused keeps every byte and gets no command that changes it, and its description tells
// the same code beforehand.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <map>
#include <string>
#include <vector>

#include "devices/properties/AdapterProperties.h"
#include "devices/properties/BasicProperties.h"
#include "devices/properties/IdentityProperties.h"
#include "devices/properties/ScanProperties.h"
#include "devices/properties/SecurityProperties.h"
#include "frame/status/Drives.h"
#include "frame/status/Erase.h"
#include "frame/status/Partitions.h"
#include "frame/status/Requests.h"
#include "frame/status/Testing.h"
#include "operations/Operation.h"
#include "support/EraseScene.h"

namespace Morvu {
namespace {

using namespace EraseTesting;
using DeviceManagement::Device;
using Simulator::Fault;
using Simulator::JournalEntry;
namespace Properties = DeviceManagement::Properties;

// A drive that was scanned, and the method called on it.
class RefusalScene : public EraseScene {
 public:
  using EraseScene::EraseScene;

  template <typename Value>
  void Has(const PropertyEntry& entry, Value value) {
    device()->AddProperty(entry, value);
  }
};
using Shape = void (*)(RefusalScene& scene);

// A command that takes data, sets a password, starts a test or sends the drive to sleep.
bool Changes(const JournalEntry& command) {
  if (!command.IsAta()) {
    return command.ioctl == Simulator::Ioctl::NvmeAdmin && command.Opcode() == 0x80;
  }
  const auto feature = command.Features() & 0xFF;
  switch (command.Opcode()) {
    case 0xB4:
      return feature != 0;  // the status of a sanitize
    case 0xB0:
      return feature == 0xD4;
    default:
      return std::ranges::count(std::array{0xE0, 0xF1, 0xF3, 0xF4, 0x92}, command.Opcode()) > 0;
  }
}

bool IsRead(const JournalEntry& command) {
  return command.IsRaw() || command.ioctl == Simulator::Ioctl::NvmeIo ||
         (command.IsAta() && (command.AtaOpcode() == 0xC8 || command.AtaOpcode() == 0x25));
}

// Whether the drive is described to have the method, with its code; nothing is done for it.
void CheckDescription(std::string_view method, RefusalScene& scene, StatusCode code,
                      bool isHidden) {
  const auto object = Testing::DescribeMethod(method, scene.device());
  ASSERT_EQ(object == nullptr, isHidden);
  EXPECT_TRUE(std::ranges::none_of(scene.drive.Journal(), Changes));
  EXPECT_TRUE(scene.fleet.Events().empty());
  if (method == "ReadScan") {
    EXPECT_TRUE(scene.drive.Journal().empty());
  }
  if (isHidden || object->Find("List", "type", "status", 2).empty()) return;
  EXPECT_NE(object->ToText().find(">" + std::to_string(code.Value()) + "</Property>"),
            std::string::npos)
      << object->ToText();
}

// ---- The obstacles that many share ----

struct Obstacle {
  std::string_view name;
  Shape put;
};

// clang-format off
const Obstacle kObstacles[] = {
    {"gone",               [](RefusalScene& s) { s.drive.State().vanished = 1; }},
    {"RAID volume",        [](RefusalScene& s) { s.Has(Properties::RAID, true); }},
    {"other make",         [](RefusalScene& s) { s.Has(Properties::Morvu, false); }},
    {"RAID member",        [](RefusalScene& s) { s.Has(Properties::RAIDMember, true); }},
    {"storage space",      [](RefusalScene& s) { s.Has(Properties::StorageSpaceMember, true); }},
    {"failure",            [](RefusalScene& s) { s.Has(Properties::ErrorString, "ASSERT"); }},
    // The test of the connection, which comes first, reads the status.
    {"device fault",       [](RefusalScene& s) { s.drive.Inject(Fault::AtaError(0x71, 0x04).OnOpcode(0x00)); s.device()->GetPath().SetDeviceFault(true); }},
    {"partition",          [](RefusalScene& s) { s.drive.AddPartition(); }},
    {"partition of scan",  [](RefusalScene& s) { s.device()->GetPartitions().emplace_back("/dev/sda1"); }},
    {"unknown partitions", [](RefusalScene& s) { HidePartitions(s); }},
};

struct MethodRow {
  std::string_view method;
  Simulator::DriveSpec (*spec)();
  MethodParameters parameters;
  // The code at each obstacle; 0: it runs all the same.
  std::array<std::int32_t, std::size(kObstacles)> codes;
  std::vector<StatusCode> hides{};  // the codes at which the drive has no such method
};

const MethodRow kMethods[] = {
    // A RAID member is asked by ATA commands alone.
    //                                                        gone RAID make memb space fail fault part scan hidden
    {"SecureErase",      &SataSpec, {},                        {4, 97, 45, 255, 152,   0, 188, 13, 13, 128}, {45, 97}},
    {"Sanitize",         &SataSpec, {{"SanitizeType", "block"}}, {4, 97, 45, 255, 152, 252, 188, 13, 13, 128}},
    {"Delete",           &SataSpec, {},                        {4, 97, 45, 255, 152, 252, 188, 13, 13, 128}, {45, 97}},
    {"Delete",           &NvmeSpec, {},                        {4, 97, 45,   4, 152, 252, 188, 13, 13, 128}, {45, 97}},
    {"Format",           &NvmeSpec, {},                        {4, 97, 45,   4, 152, 252, 188, 13, 13, 128}},
    {"DriveSelfTest",    &SataSpec, {{"SelfTest", "short"}},   {4, 97, 45, 255,   0, 252, 188,  0,  0,   0}, {97}},
    {"StandbyImmediate", &SataSpec, {},                        {4, 97, 45, 255,   0, 252, 188,  0,  0,   0}, {97}},
    {"FirmwareUpdate",   &SataSpec, {},                        {4, 97, 45, 301, 301, 301, 301, 301, 301, 301}, {45, 97}},  // no image
    {"ReadScan",         &SataSpec, {{"full", "True"}},        {4, 97, 45,   0,   0,   0, 188,  0,  0,   0}, {45, 97}},
};
// clang-format on

TEST(Refusals, OfEachMethodAtEachObstacle) {
  for (const auto& row : kMethods) {
    for (std::size_t i = 0; i < std::size(kObstacles); ++i) {
      SCOPED_TRACE(std::string(row.method) + " " + row.spec().serial + ": " +
                   std::string(kObstacles[i].name));
      RefusalScene scene(row.spec());
      scene.Prepare();
      kObstacles[i].put(scene);
      scene.drive.ClearJournal();
      const auto code = StatusCode::FromValue(row.codes[i]);
      CheckDescription(row.method, scene, code == 0 ? Status::ReadyToRun : code,
                       std::ranges::find(row.hides, code) != row.hides.end());
      EXPECT_EQ(CallMethod(*scene.device(), row.method, row.parameters), code);
      if (code == 0) continue;
      EXPECT_TRUE(scene.IsUntouched());
      for (const auto& command : scene.drive.Journal()) {
        EXPECT_FALSE(Changes(command) || IsRead(command)) << command.Text();
      }
      // To force is to answer for partitions, and for nothing else.
      auto forced = row.parameters;
      forced.emplace_back("force", "True");
      const bool isAnswered = code == Status::HasPartition;
      EXPECT_EQ(CallMethod(*scene.device(), row.method, forced),
                isAnswered ? StatusCode(Status::Completed) : code);
      EXPECT_EQ(scene.IsUntouched(), !isAnswered);
    }
  }
}

// ---- Those of one method ----

struct OwnObstacle {
  std::string_view method, name;
  MethodParameters parameters;
  Shape put;
  StatusCode code;  // Completed: it runs all the same
  Simulator::DriveSpec (*spec)() = &SataSpec;
  bool isHidden = false;  // in the drive's description
};

void SetPasswordBehindAPartition(RefusalScene& scene) {
  scene.drive.AddPartition();
  scene.drive.State().ata.security.enabled = 1;
}
void Freeze(RefusalScene& scene) {
  scene.drive.State().ata.security.frozen = 1;
  scene.drive.State().ata.sanitize.frozen = 1;
  scene.Has(Properties::SecurityFrozen, true);
}
void FreezeAwake(RefusalScene& scene) {
  Freeze(scene);
  scene.drive.Inject(Fault::Fail().OnOpcode(0xE0));
}
void Claim(RefusalScene& scene) { scene.Has(Properties::Morvu, true); }
void DoNothing(RefusalScene&) {}

const MethodParameters kForce = {{"force", "True"}};
const MethodParameters kBlock = {{"SanitizeType", "block"}, {"force", "True"}};
const MethodParameters kFull = {{"full", "True"}};
const MethodParameters kShort = {{"SelfTest", "short"}};

// clang-format off
const OwnObstacle kOwnObstacles[] = {
    {"SecureErase", "no security",          {}, [](RefusalScene& s) { s.Has(Properties::SecuritySupported, false); }, Status::EraseSecurityUnsupported},
    {"SecureErase", "no security, failure", {}, [](RefusalScene& s) { s.Has(Properties::SecuritySupported, false); s.Has(Properties::ErrorString, "ASSERT"); }, Status::Completed},
    {"SecureErase", "Opal activated",       kForce, [](RefusalScene& s) { s.Has(Properties::OpalState, "Opal Activated"); }, Status::OpalActiveOrUnknown},
    {"SecureErase", "Opal session",         kForce, [](RefusalScene& s) { s.Has(Properties::OpalState, "Session Started"); }, Status::OpalActiveOrUnknown},
    {"SecureErase", "Opal unknown",         kForce, [](RefusalScene& s) { s.Has(Properties::OpalState, "Unknown"); }, Status::OpalActiveOrUnknown},
    {"SecureErase", "Opal ready",           {}, [](RefusalScene& s) { s.Has(Properties::OpalState, "Opal Ready"); }, Status::Completed},
    {"SecureErase", "no Opal",              {}, [](RefusalScene& s) { s.Has(Properties::OpalState, "No Opal"); }, Status::Completed},
    {"SecureErase", "security on",          {}, [](RefusalScene& s) { s.Has(Properties::SecurityEnabled, true); }, Status::EraseSecurityEnabled},
    {"SecureErase", "security behind a partition", kForce, SetPasswordBehindAPartition, Status::EraseSecurityEnabled},
    {"SecureErase", "partition, no",        {{"force", "no"}}, [](RefusalScene& s) { s.drive.AddPartition(); }, Status::HasPartition},
    {"SecureErase", "frozen",               kForce, Freeze, Status::SecurityFrozen},
    {"SecureErase", "frozen, awake",        {}, FreezeAwake, Status::EraseStandbyFailed},
    {"SecureErase", "NVMe",                 kForce, DoNothing, Status::NoAtaDriver, &NvmeSpec, true},
    {"Delete",      "security behind a partition", kForce, SetPasswordBehindAPartition, Status::EraseSecurityEnabled},
    {"Delete",      "frozen, no sanitize",  {}, [](RefusalScene& s) { Freeze(s); s.Has(Properties::SanitizeSupported, false); }, Status::SecurityFrozen},
    {"Delete",      "SAS",                  kForce, Claim, Status::NotSupportedByDrive, &SasSpec, true},
    {"Format",      "fault and failure",    kForce, [](RefusalScene& s) { s.device()->GetPath().SetDeviceFault(true); s.Has(Properties::ErrorString, "ASSERT"); }, Status::DeviceFault, &NvmeSpec},
    {"Format",      "SATA",                 kForce, DoNothing, Status::NotSupportedByDrive},
    {"Sanitize",    "no sanitize",          kBlock, [](RefusalScene& s) { s.Has(Properties::SanitizeSupported, false); }, Status::SanitizeUnsupported},
    {"Sanitize",    "no crypto scramble",   {{"SanitizeType", "crypto"}}, [](RefusalScene& s) { s.Has(Properties::SanitizeCryptoScrambleSupported, false); }, Status::SanitizeCommandUnsupported},
    {"Sanitize",    "no block erase",       kBlock, [](RefusalScene& s) { s.Has(Properties::SanitizeBlockEraseSupported, false); }, Status::SanitizeCommandUnsupported},
    {"Sanitize",    "another type",         {{"SanitizeType", "overwrite"}}, DoNothing, Status::SanitizeCommandUnsupported},
    {"Sanitize",    "no type",              kForce, DoNothing, Status::SanitizeCommandUnsupported},
    {"Sanitize",    "frozen",               kBlock, Freeze, Status::SanitizeFrozen},
    {"Sanitize",    "frozen, awake",        kBlock, FreezeAwake, Status::StandbyFailed},
    {"Sanitize",    "NVMe",                 kBlock, DoNothing, Status::NoAtaDriver, &NvmeSpec},
    {"DriveSelfTest", "no self-tests",      kShort, [](RefusalScene& s) { s.Has(Properties::SMARTSelfTestSupported, false); }, Status::SelfTestUnsupported},
    {"DriveSelfTest", "no test of that name", {{"SelfTest", "long"}}, DoNothing, Status::InvalidSelfTest},
    {"DriveSelfTest", "NVMe",               kShort, DoNothing, Status::NotSupportedByDrive, &NvmeSpec, true},
    {"StandbyImmediate", "NVMe",            {}, DoNothing, Status::NotSupportedByDrive, &NvmeSpec, true},
    {"ReadScan",    "no size",              kFull, [](RefusalScene& s) { s.device()->GetProperties().Remove(Properties::MaximumLBA); }, Status::NoCommunication},
    {"ReadScan",    "one block",            kFull, [](RefusalScene& s) { s.Has(Properties::MaximumLBA, 1); }, Status::NoCommunication},
    {"ReadScan",    "odd blocks",           kFull, [](RefusalScene& s) { s.Has(Properties::SectorSize, 520); }, Status::NoCommunication},
    {"ReadScan",    "huge blocks",          kFull, [](RefusalScene& s) { s.Has(Properties::SectorSize, 131072); }, Status::NoCommunication, &NvmeSpec},
    {"ReadScan",    "another drive's disk", kFull, [](RefusalScene& s) { s.Has(Properties::SerialNumber, "OTHER"); }, Status::NoCommunication, &NvmeSpec},
    {"ReadScan",    "no disk",              kFull, [](RefusalScene& s) { Claim(s); HidePartitions(s); }, Status::NoCommunication, &SasSpec},
};
// clang-format on

TEST(Refusals, OfOneMethodByItsOwnObstacle) {
  for (const auto& row : kOwnObstacles) {
    SCOPED_TRACE(std::string(row.method).append(": ").append(row.name));
    RefusalScene scene(row.spec());
    scene.Prepare();
    row.put(scene);
    scene.drive.ClearJournal();
    const auto described = Testing::DescribeMethod(row.method, scene.device());
    EXPECT_EQ(described == nullptr, row.isHidden);
    EXPECT_TRUE(std::ranges::none_of(scene.drive.Journal(), Changes));
    EXPECT_EQ(CallMethod(*scene.device(), row.method, row.parameters), row.code);
    if (row.code == Status::Completed) continue;
    EXPECT_TRUE(scene.IsUntouched());
    // A frozen drive is sent to sleep, which lets go of it at its next power-on.
    const bool isFrozen = row.name.starts_with("frozen");
    for (const auto& command : scene.drive.Journal()) {
      EXPECT_TRUE(!Changes(command) || (isFrozen && command.Opcode() == 0xE0)) << command.Text();
      EXPECT_TRUE(row.method != "ReadScan" || !IsRead(command)) << command.Text();
    }
    const auto isAsleep = [](const JournalEntry& command) {
      return command.IsAta() && command.Opcode() == 0xE0 && command.Succeeded();
    };
    EXPECT_EQ(std::ranges::count_if(scene.drive.Journal(), isAsleep),
              isFrozen && !row.name.ends_with("awake"));
  }
}

TEST(Refusals, OfEachMethodWithoutADrive) {
  const std::map<std::string_view, StatusCode> kOthers = {
      {"FirmwareUpdate", Status::InvalidArguments}, {"SmartParser", Status::NotRun}};
  for (const auto& row : GetDriveMethods()) {
    const auto name = row.method->name;
    const auto other = kOthers.find(name);
    const auto code = other == kOthers.end() ? StatusCode(Status::NoDeviceSelected) : other->second;
    JobContext context;
    EXPECT_EQ(Testing::CallMethod(context, name, {}, {}), code) << name;
  }
}

TEST(Refusals, WithoutADeviceEachTestHolds) {
  struct Refusable {
    static Device* GetDevice() { return nullptr; }
  } operation;
  constexpr Refusal<Refusable> kTable[] = {{OfDevice<Refuse::RaidVolume>, Status::RaidVolume}};
  EXPECT_EQ(FirstRefusal(kTable, operation), Status::RaidVolume);
}

}  // namespace
}  // namespace Morvu
