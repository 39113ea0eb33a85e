// Every method and option of every family, under faults and cancels: whatever happens, the
// end that is told is true, data are gone only where a command that takes them was carried
// out, and nothing is left behind. The list of the records is the list of what is swept: a
// new family stands here by itself, and one that destroys has to have its scenes below.
#include <algorithm>
#include <cerrno>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "frame/status/Commands.h"
#include "frame/status/Drives.h"
#include "frame/status/Erase.h"
#include "frame/status/Firmware.h"
#include "frame/status/Health.h"
#include "frame/status/NvmeStatus.h"
#include "frame/status/Testing.h"
#include "gtest/gtest.h"
#include "messaging/drive_class/Features.h"
#include "support/EraseScene.h"
#include "support/FirmwareModules.h"
#include "support/Sweep.h"

namespace Morvu {
namespace {

using namespace EraseTesting;
using Simulator::Fault;
using Simulator::JournalEntry;
using Testing::SweepCancels;
using Testing::SweepFaults;
using Testing::SweptRun;

// ---- Scenes ----

constexpr std::string_view kImage = "IMAGE";  // stands for the path of a firmware image
constexpr std::string_view kNewRevision = "NEW2";
constexpr std::string_view kOutput = "OUTPUT";  // and for that of a file to be written

Simulator::DriveSpec ScsiSpec() {
  auto spec = SataSpec();
  spec.kind = Simulator::Kind::Scsi;
  return spec;
}

// Behind a RAID controller: by ATA PASS-THROUGH, and where that brings no registers by frames.
Simulator::DriveSpec LsiSpec() {
  auto spec = SataSpec();
  spec.controller = 0;
  return spec;
}
Simulator::DriveSpec LsiFrameSpec() {
  auto spec = LsiSpec();
  spec.senseFormat = Simulator::SenseFormat::None;
  return spec;
}

Simulator::DriveSpec DunmereSpec() {
  return {.model = "MORVU SSDSA2DM200G3", .serial = "CVDM1234", .sectors = 512};
}

// How a method or an option is run well.
struct FeatureScene {
  std::string_view name;  // of the method or the option
  std::string_view label{};
  Simulator::DriveSpec (*spec)() = &SataSpec;
  MethodParameters parameters{};
  std::vector<std::string> words{};
  bool erases = false;          // the good run leaves nothing on the medium
  bool canCancel = false;       // it asks whether it is to stop
  bool isSilent = false;        // it sends no command
  bool countsWorkload = false;  // its drive has the timed workload attributes
  bool hasPartition = false;    // with room for a test file
  bool printsNoEnd = false;     // of a good run
};

const FeatureScene kScenes[] = {
    {.name = "Delete", .label = "Sata", .erases = true},
    {.name = "Delete", .label = "Nvme", .spec = &NvmeSpec, .erases = true},
    {.name = "Format", .spec = &NvmeSpec, .erases = true},
    {.name = "SecureErase", .erases = true, .canCancel = true},
    {.name = "SecureErase",
     .label = "LsiFrames",
     .spec = &LsiFrameSpec,
     .erases = true,
     .canCancel = true},
    {.name = "Sanitize",
     .parameters = {{"SanitizeType", "block"}},
     .erases = true,
     .canCancel = true},
    {.name = "-format", .label = "Sata", .erases = true, .canCancel = true},
    {.name = "-format", .label = "Nvme", .spec = &NvmeSpec, .erases = true},
    {.name = "-secure_erase", .erases = true, .canCancel = true},
    {.name = "-secure_erase",
     .label = "Lsi",
     .spec = &LsiSpec,
     .words = {"-lsi"},
     .erases = true,
     .canCancel = true},
    {.name = "-sanitize", .words = {"block"}, .erases = true, .canCancel = true},
    {.name = "-max_address",
     .label = "Sata",
     .words = {"percent", "50"},
     .erases = true,
     .canCancel = true},
    {.name = "-max_address",
     .label = "Nvme",
     .spec = &NvmeSpec,
     .words = {"percent", "50"},
     .erases = true},

    {.name = "DriveSelfTest", .parameters = {{"SelfTest", "short"}}, .canCancel = true},
    {.name = "-self_test", .label = "Watched", .words = {"short", "captiveOffline"}},
    {.name = "-self_test", .label = "Started", .words = {"short"}},
    {.name = "FirmwareUpdate", .parameters = {{"file", std::string(kImage)}}, .canCancel = true},
    {.name = "FirmwareUpdate",
     .label = "LsiFrames",
     .spec = &LsiFrameSpec,
     .parameters = {{"file", std::string(kImage)}},
     .canCancel = true},
    {.name = "FirmwareUpdate",
     .label = "Dunmere",
     .spec = &DunmereSpec,
     .parameters = {{"file", std::string(kImage)}},
     .canCancel = true},
    {.name = "FirmwareUpdate",
     .label = "Nvme",
     .spec = &NvmeSpec,
     .parameters = {{"file", std::string(kImage)}}},
    {.name = "FirmwareUpdate",
     .label = "Sas",
     .spec = &SasSpec,
     .parameters = {{"file", std::string(kImage)}}},
    {.name = "-firmware_update", .words = {std::string(kImage), "-force"}, .canCancel = true},
    {.name = "-firmware_update",
     .label = "Nvme",
     .spec = &NvmeSpec,
     .words = {std::string(kImage), "-force"}},
    {.name = "-firmware_update",
     .label = "Sas",
     .spec = &SasSpec,
     .words = {std::string(kImage), "-force"}},
    {.name = "ReadScan", .label = "Sata", .parameters = {{"full", "True"}}, .canCancel = true},
    {.name = "ReadScan",
     .label = "Nvme",
     .spec = &NvmeSpec,
     .parameters = {{"full", "True"}},
     .canCancel = true},
    {.name = "-read_scan", .words = {"full"}, .canCancel = true},
    {.name = "-endurance_analyzer",
     .label = "Sata",
     .words = {"reset"},
     .canCancel = false,
     .countsWorkload = true},
    {.name = "-endurance_analyzer",
     .label = "Nvme",
     .spec = &NvmeSpec,
     .words = {"reset"},
     .countsWorkload = true},
    {.name = "DataIntegrity", .canCancel = true, .hasPartition = true},
    {.name = "-data_integrity", .canCancel = true, .hasPartition = true},
    {.name = "SmartParser", .label = "Sata"},
    {.name = "SmartParser", .label = "Nvme", .spec = &NvmeSpec},
    {.name = "GetFeatureNVMe", .spec = &NvmeSpec, .canCancel = true},
    {.name = "HostController", .isSilent = true},
    {.name = "IdentifyParser", .label = "Sata"},
    {.name = "IdentifyParser", .label = "Nvme", .spec = &NvmeSpec, .canCancel = true},
    {.name = "NVMeLogParser", .spec = &NvmeSpec, .parameters = {{"LogID", "2"}}},
    {.name = "-get_log", .spec = &NvmeSpec, .words = {"1"}},
    {.name = "-identify", .label = "Sata"},
    {.name = "-identify", .label = "Nvme", .spec = &NvmeSpec},
    {.name = "-identify", .label = "Controller", .spec = &NvmeSpec, .words = {"-controller"}},
    {.name = "-health", .label = "Sata"},
    {.name = "-health", .label = "Nvme", .spec = &NvmeSpec},
    {.name = "-health", .label = "Scsi", .spec = &ScsiSpec},
    {.name = "-metrics", .label = "Sata", .printsNoEnd = true},
    {.name = "-metrics", .label = "Nvme", .spec = &NvmeSpec, .printsNoEnd = true},
    {.name = "-smart", .label = "Sata"},
    {.name = "-smart", .label = "Nvme", .spec = &NvmeSpec},
    {.name = "-set_phy_config", .words = {"1"}},
    {.name = "-set_phy_speed", .words = {"3"}},
    {.name = "-physical_sector_size", .label = "Get"},
    {.name = "-physical_sector_size", .label = "Set", .words = {"0"}},
    {.name = "-wc_state", .label = "Get"},
    {.name = "-wc_state", .label = "Set", .words = {"3"}},
    {.name = "-pg_mode", .label = "Nvme", .spec = &NvmeSpec},
    {.name = "-pg_mode", .label = "NvmeSet", .spec = &NvmeSpec, .words = {"1"}},
    {.name = "-pg_mode", .label = "Sata"},
    {.name = "-error_recovery_control", .label = "Get"},
    {.name = "-error_recovery_control", .label = "Set", .words = {"read_timer", "70"}},
    {.name = "-set_temp_threshold", .spec = &NvmeSpec, .words = {"65"}},
    {.name = "-get_feature", .spec = &NvmeSpec, .words = {"1"}},
    {.name = "ReadLog", .canCancel = true},
    {.name = "ReadEventLog",
     .spec = &NvmeSpec,
     .parameters = {{"file", std::string(kOutput)}},
     .canCancel = true},
    {.name = "ReadNlog",
     .label = "Sata",
     .spec = &LogSpec,
     .parameters = {{"file", std::string(kOutput)}},
     .canCancel = true},
    {.name = "ReadNlog", .label = "Nvme", .spec = &NvmeSpec, .canCancel = true},
    {.name = "-read_gpl", .words = {std::string(kOutput), "17"}},
    {.name = "-read_eventlog", .spec = &NvmeSpec, .words = {std::string(kOutput)}},
    {.name = "-read_nlog", .spec = &LogSpec, .words = {std::string(kOutput)}},
};

// The scenes of a method or an option; of one that has none a plain call, which a family
// that destroys may not rely on.
std::vector<FeatureScene> FindScenes(std::string_view name) {
  std::vector<FeatureScene> found;
  std::ranges::copy_if(kScenes, std::back_inserter(found),
                       [&](const FeatureScene& scene) { return scene.name == name; });
  if (found.empty()) found.push_back({.name = name});
  return found;
}

template <typename Visit>
void VisitRecords(Visit visit) {
  for (const auto* feature : GetFeatures()) {
    for (const auto& method : feature->methods) visit(*feature, method.name);
    for (const auto& option : feature->options) {
      if (option.category == OptionCategory::Feature) visit(*feature, option.name);
    }
  }
}

std::vector<FeatureScene> ListScenes() {
  std::vector<FeatureScene> scenes;
  VisitRecords([&](const FeatureRecord&, std::string_view name) {
    std::ranges::copy(FindScenes(name), std::back_inserter(scenes));
  });
  return scenes;
}

bool IsFirmware(const FeatureScene& scene) {
  return scene.name == "FirmwareUpdate" || scene.name == "-firmware_update";
}
bool IsOption(const FeatureScene& scene) { return scene.name.starts_with('-'); }

void PrintTo(const FeatureScene& scene, std::ostream* out) { *out << scene.name << scene.label; }

// One run of the scene on either face.
class FeatureRunScene : public EraseScene {
 public:
  explicit FeatureRunScene(const FeatureScene& scene) : EraseScene(scene.spec()), scene_(scene) {
    const auto image = Testing::MakeSimulatedImage(
        std::string(kNewRevision), scene.spec().kind == Simulator::Kind::Ata ? 140'000 : 10'000);
    EXPECT_TRUE(SaveBinary(ImagePath(), image, false));
    // A GiB stays free, and all of it is tested that is more.
    constexpr std::uint64_t kBytes = (std::uint64_t{1025} << 20) / 3 * 4 / 2048 * 2048;
    if (scene.hasPartition) partitions_.push_back(drive.AddPartition(kBytes));
    if (scene.countsWorkload) AddWorkload(drive.State(), 60, 1024);
  }

  // The scan of a command line is part of its run.
  void Prepare() override {
    if (!IsOption(scene_)) EraseScene::Prepare();
  }

  StatusCode Run(ProgressReporter& reporter) override {
    if (!IsOption(scene_)) {
      auto parameters = scene_.parameters;
      for (auto& [name, text] : parameters) FillIn(text);
      return CallMethod(*device(), scene_.name, parameters, reporter, nullptr, partitions_);
    }
    std::vector<std::string> words = {"-drive_serial", drive.State().serial,
                                      std::string(scene_.name)};
    words.insert(words.end(), scene_.words.begin(), scene_.words.end());
    for (auto& word : words) FillIn(word);
    const auto outcome = RunLine(words, "y\n");
    output = outcome.output;
    return outcome.code;
  }

  // The revision that the drive runs, or is to run after its next reset.
  std::string GetRevision() {
    const auto& state = drive.State();
    const bool waits = state.kind == Simulator::Kind::Nvme && state.nvme.nextSlot != 0;
    return waits ? state.nvme.slots[state.nvme.nextSlot - 1] : state.firmware;
  }
  bool HasFile() const { return std::filesystem::exists(OutputPath()); }

  std::string output;

 private:
  std::string ImagePath() const { return fleet.Folder() + "/image.bin"; }
  std::string OutputPath() const { return fleet.Folder() + "/output"; }
  void FillIn(std::string& text) const {
    if (text == kImage) text = ImagePath();
    if (text == kOutput) text = OutputPath();
  }

  const FeatureScene& scene_;
  std::vector<std::string> partitions_;
};

// ---- What holds after every run ----

constexpr int kNvmeLog = 0x02, kNvmeIdentify = 0x06, kNvmeRead = 0x02;
constexpr int kSmartLog = 0xCA;
constexpr int kDownload = 0x92, kNvmeActivate = 0x10, kNvmeDownload = 0x11, kInquiry = 0x12,
              kWriteBuffer = 0x3B;
constexpr int kSmartEnable = 0xD8, kSmartDisable = 0xD9;

// A command that takes the data.
bool Takes(const JournalEntry& command) {
  const auto feature = command.Features() & 0xFF;
  if (command.IsAta()) {
    return command.AtaOpcode() == kEraseUnit ||
           (command.AtaOpcode() == kSanitize &&
            (feature == kBlockErase || feature == kCryptoScramble));
  }
  return command.ioctl == Simulator::Ioctl::NvmeAdmin && command.Opcode() == kFormatNvm;
}

// A command that brings the image, or activates it; not the block that Dunmere drives want once
// more.
bool BringsImage(const JournalEntry& command) {
  if (command.IsAta()) return command.AtaOpcode() == kDownload && command.Features() == 0x03;
  if (command.ioctl == Simulator::Ioctl::NvmeAdmin) {
    return command.Opcode() == kNvmeDownload || command.Opcode() == kNvmeActivate;
  }
  return command.Opcode() == kWriteBuffer;
}

// IDENTIFY DEVICE, INQUIRY, and of NVMe that of the controller.
bool IsIdentify(const JournalEntry& command) {
  if (command.ioctl == Simulator::Ioctl::NvmeAdmin) {
    return command.Opcode() == kNvmeIdentify && command.Cdw(10) == 1;
  }
  return command.AtaOpcode() == kIdentify || command.Opcode() == kInquiry;
}

// One was carried out.
bool TookData(const std::vector<JournalEntry>& commands) {
  return std::ranges::any_of(
      commands, [](const auto& command) { return command.Succeeded() && Takes(command); });
}

std::vector<int> ListSecurity(const std::vector<JournalEntry>& commands) {
  auto opcodes = GetOpcodes(commands);
  std::erase_if(opcodes, [](int opcode) { return opcode < kSetPassword || opcode > kDisable; });
  return opcodes;
}

void CheckEnd(const FeatureScene& scene, FeatureRunScene& drive, const SweptRun& run) {
  SCOPED_TRACE(drive.output);
  EXPECT_NE(run.code, Status::ReadyToRun);
  EXPECT_NE(run.code, Status::Running);
  const bool tookData = TookData(run.commands);
  if (!tookData || !scene.erases) {
    EXPECT_TRUE(drive.IsUntouched()) << run.code;
  }
  if (run.code == Status::Completed && scene.erases) {
    EXPECT_TRUE(tookData);
  }
  // A sanitize may still be at work when its watching ends.
  if (tookData && (run.code == Status::Completed || !drive.drive.State().ata.sanitize.running)) {
    EXPECT_TRUE(drive.IsErased());
  }
  // Whoever watches the percents of a format sees its end.
  if (scene.erases && scene.spec == &NvmeSpec && !run.percents.empty()) {
    EXPECT_EQ(run.percents.back(), 100);
  }
  // A password that was set is tried to be taken off to the last, whatever went wrong behind it.
  const auto security = ListSecurity(run.commands);
  if (std::ranges::count(security, kSetPassword) != 0) {
    ASSERT_GE(security.size(), 3u);
    EXPECT_EQ(security[security.size() - 2], kUnlock);
    EXPECT_EQ(security.back(), kDisable);
    EXPECT_EQ(std::ranges::count(security, kSetPassword), 1);
  }
  if (run.code == Status::Completed && IsFirmware(scene)) {
    EXPECT_EQ(drive.GetRevision(), kNewRevision);
  }
  if (run.code != Status::Completed) {
    EXPECT_FALSE(drive.HasFile()) << run.code;
  }
  if (IsOption(scene) && !(scene.printsNoEnd && run.code == Status::Completed)) {
    const auto told = CLIParser::WrapText(GetStatusText(run.code));
    EXPECT_NE(drive.output.find(told), std::string::npos) << run.code;
  }
}

// ---- What the end of a run is called ----

// Where a command stands: before the first that takes the data or brings the image, or behind the
// last.
enum class Place { Any, Before, At, Behind };

constexpr int kAnyOpcode = -1, kAnyFeature = -1;

// The code of a run in which this command fails, and of one in which the drive vanishes at it.
struct FaultCode {
  std::string_view name;
  int opcode, feature;
  Place place;
  std::optional<StatusCode> failed, gone;  // none: nothing is told of the code alone
};

constexpr std::nullopt_t kNone = std::nullopt;
constexpr auto kAny = Place::Any, kBefore = Place::Before, kAt = Place::At, kBehind = Place::Behind;

// The first row that fits holds; those of a firmware update hold on both faces. Behind an erase
// that was carried out the drive is but looked at.
// clang-format off
const FaultCode kFaultCodes[] = {
    {"SecureErase",      kSetPassword,   kAnyFeature,     kAny,    Status::SetPasswordFailed,         Status::SetPasswordFailed},
    {"SecureErase",      kPrepare,       kAnyFeature,     kAny,    Status::ErasePrepareFailed,        Status::ErasePrepareFailed},
    {"SecureErase",      kEraseUnit,     kAnyFeature,     kAny,    Status::EraseUnitFailed,           Status::EraseUnitFailed},
    {"SecureErase",      kIdentify,      kAnyFeature,     kBefore, Status::NoCommunication,           Status::NoCommunication},
    {"SecureErase",      kNop,           kAnyFeature,     kBefore, Status::Completed,                 Status::NoCommunication},
    {"SecureErase",      kAnyOpcode,     kAnyFeature,     kBefore, Status::Completed,                 kNone},
    {"SecureErase",      kAnyOpcode,     kAnyFeature,     kBehind, Status::Completed,                 Status::Completed},
    {"-secure_erase",    kSetPassword,   kAnyFeature,     kAny,    Status::SetPasswordFailed,         Status::SetPasswordFailed},
    {"-secure_erase",    kPrepare,       kAnyFeature,     kAny,    Status::ErasePrepareFailed,        Status::ErasePrepareFailed},
    {"-secure_erase",    kEraseUnit,     kAnyFeature,     kAny,    Status::EraseUnitFailed,           Status::EraseUnitFailed},
    {"-secure_erase",    kAnyOpcode,     kAnyFeature,     kBehind, Status::Completed,                 Status::Completed},
    {"Sanitize",         kSanitize,      kBlockErase,     kAny,    Status::SanitizeUnsuccessful,      Status::SanitizeUnsuccessful},
    {"Sanitize",         kSanitize,      kSanitizeStatus, kBehind, Status::SanitizeReasonNotReported, Status::SanitizeReasonNotReported},
    {"Sanitize",         kIdentify,      kAnyFeature,     kBefore, Status::NoCommunication,           Status::NoCommunication},
    {"Sanitize",         kNop,           kAnyFeature,     kBefore, Status::Completed,                 Status::NoCommunication},
    {"Sanitize",         kAnyOpcode,     kAnyFeature,     kBefore, Status::Completed,                 kNone},
    {"Sanitize",         kAnyOpcode,     kAnyFeature,     kBehind, Status::Completed,                 Status::Completed},
    {"Format",           kFormatNvm,     kAnyFeature,     kAny,    FromNvmeStatus(6),                 StatusCode::FromValue(-ENODEV)},
    {"Format",           kNvmeIdentify,  kAnyFeature,     kBefore, Status::NoCommunication,           Status::NoCommunication},
    {"Format",           kNvmeRead,      kAnyFeature,     kBefore, Status::Completed,                 StatusCode::FromValue(-ENODEV)},
    {"Format",           kAnyOpcode,     kAnyFeature,     kBehind, Status::Completed,                 Status::Completed},
    {"Delete",           kFormatNvm,     kAnyFeature,     kAny,    FromNvmeStatus(6),                 StatusCode::FromValue(-ENODEV)},
    {"Delete",           kSetPassword,   kAnyFeature,     kAny,    Status::SetPasswordFailed,         Status::SetPasswordFailed},
    {"Delete",           kNvmeIdentify,  kAnyFeature,     kBefore, Status::NoCommunication,           Status::NoCommunication},
    {"Delete",           kIdentify,      kAnyFeature,     kBefore, Status::NoCommunication,           Status::NoCommunication},
    {"Delete",           kPrepare,       kAnyFeature,     kAny,    Status::ErasePrepareFailed,        Status::ErasePrepareFailed},
    {"Delete",           kEraseUnit,     kAnyFeature,     kAny,    Status::EraseUnitFailed,           Status::EraseUnitFailed},
    {"Delete",           kAnyOpcode,     kAnyFeature,     kBehind, Status::Completed,                 Status::Completed},
    {"-format",          kAnyOpcode,     kAnyFeature,     kBehind, Status::Completed,                 Status::Completed},
    {"FirmwareUpdate",   kStandby,       kAnyFeature,     kBefore, Status::StandbyFailed,             kNone},
    {"FirmwareUpdate",   kSmart,         kSmartDisable,   kBefore, Status::SmartDisableFailed,        kNone},
    {"FirmwareUpdate",   kAnyOpcode,     kAnyFeature,     kAt,     Status::FirmwareUpdateFailed,      kNone},
    {"FirmwareUpdate",   kIdentify,      kAnyFeature,     kBehind, Status::Completed,                 Status::NoCommunication},
    {"FirmwareUpdate",   kAnyOpcode,     kAnyFeature,     kBehind, Status::Completed,                 kNone},
    {"DriveSelfTest",    kSmart,         kExecute,        kAny,    Status::SmartExecuteOfflineFailed, Status::SmartExecuteOfflineFailed},
    {"DriveSelfTest",    kSmart,         kReadData,       kAny,    kNone,                             Status::SmartDataFailed},
    {"DriveSelfTest",    kNop,           kAnyFeature,     kAny,    Status::Completed,                 Status::NoCommunication},
    {"StandbyImmediate", kStandby,       kAnyFeature,     kAny,    Status::StandbyFailed,             Status::StandbyFailed},
    {"StandbyImmediate", kCheckPower,    kAnyFeature,     kAny,    Status::CheckPowerModeFailed,      Status::CheckPowerModeFailed},
    {"StandbyImmediate", kNop,           kAnyFeature,     kAny,    Status::Completed,                 Status::NoCommunication},
    {"-smart",           kSmart,         kReadData,       kAny,    Status::SmartDataFailed,           kNone},
    {"-smart",           kSmart,         kReadThresholds, kAny,    Status::SmartThresholdsFailed,     kNone},
    {"-smart",           kNvmeLog,       kSmartLog,       kAny,    Status::SmartDataFailed,           kNone},
    {"-smart",           kReadDma,       kAnyFeature,     kAny,    Status::Completed,                 kNone},
};
// clang-format on

std::string_view NameOf(const FeatureScene& scene) {
  return IsFirmware(scene) ? "FirmwareUpdate" : scene.name;
}

// Of the command of the good run with this number, from 1.
Place FindPlace(const FeatureScene& scene, const SweptRun& run, std::size_t number) {
  const auto isCore = IsFirmware(scene) ? &BringsImage : &Takes;
  const auto first = std::ranges::find_if(run.good, isCore);
  const auto last = std::find_if(run.good.rbegin(), run.good.rend(), isCore).base();
  const auto met = run.good.begin() + static_cast<std::ptrdiff_t>(number) - 1;
  return met < first ? kBefore : met >= last ? kBehind : kAt;
}

// The row of the command; null where none is.
const FaultCode* FindFaultCode(const FeatureScene& scene, const SweptRun& run, std::size_t number) {
  const auto& command = run.good.at(number - 1);
  const auto feature =
      static_cast<int>((command.IsAta() ? command.Features() : command.Cdw(10)) & 0xFF);
  const auto place = FindPlace(scene, run, number);
  const auto fits = [](int wanted, int value) { return wanted < 0 || wanted == value; };
  const auto* row = std::ranges::find_if(kFaultCodes, [&](const FaultCode& each) {
    return each.name == NameOf(scene) && fits(each.opcode, command.Opcode()) &&
           fits(each.feature, feature) && (each.place == kAny || each.place == place);
  });
  return row == std::end(kFaultCodes) ? nullptr : row;
}

void CheckCode(const std::optional<StatusCode>& expected, const SweptRun& run) {
  if (expected) {
    EXPECT_EQ(run.code, *expected);
  }
}

// The drive keeps its firmware unless all of the new one came, and SMART is off only meanwhile. Of
// a drive that answers no more, the last command that fails has the last word.
void CheckFirmware(const FeatureScene& scene, FeatureRunScene& drive, const SweptRun& run,
                   bool isForGood) {
  if (!IsFirmware(scene)) return;
  const auto place = FindPlace(scene, run, run.index);
  if (run.code != Status::Completed && !(isForGood && place == kBehind)) {
    EXPECT_NE(drive.GetRevision(), kNewRevision);
  }
  if (isForGood && place == kAt) {
    EXPECT_TRUE(run.code == Status::FirmwareUpdateFailed || run.code == Status::SmartEnableFailed)
        << run.code;
  }
  const auto& state = drive.drive.State();
  if (!isForGood && state.kind == Simulator::Kind::Ata && run.Met().Features() != kSmartEnable) {
    EXPECT_TRUE(state.ata.smartEnabled);
  }
}

bool HasPassword(FeatureRunScene& drive) { return drive.drive.State().ata.security.enabled != 0; }

class FeatureSweep : public ::testing::TestWithParam<FeatureScene> {
 protected:
  std::unique_ptr<FeatureRunScene> Make() { return std::make_unique<FeatureRunScene>(GetParam()); }

  template <typename Check>
  void Sweep(const Fault& fault, Check check) {
    if (GetParam().isSilent) {
      EXPECT_TRUE(
          Testing::RunGoodScene<FeatureRunScene>([this] { return Make(); }, 0).good.empty());
      return;
    }
    SweepFaults<FeatureRunScene>([this] { return Make(); }, fault,
                                 [&](FeatureRunScene& drive, const SweptRun& run) {
                                   CheckEnd(GetParam(), drive, run);
                                   check(drive, run);
                                 });
  }
};

TEST_P(FeatureSweep, EachCommandFails) {
  Sweep(Fault::Fail().Times(1), [](FeatureRunScene& drive, const SweptRun& run) {
    EXPECT_FALSE(HasPassword(drive)) << run.code;
    if (const auto* row = FindFaultCode(GetParam(), run, run.index)) CheckCode(row->failed, run);
    CheckFirmware(GetParam(), drive, run, false);
  });
}

// A drive that is gone cannot be rid of the password.
TEST_P(FeatureSweep, TheDriveVanishes) {
  Sweep(Fault::Vanish(), [](FeatureRunScene& drive, const SweptRun& run) {
    if (const auto* row = FindFaultCode(GetParam(), run, run.index)) CheckCode(row->gone, run);
    CheckFirmware(GetParam(), drive, run, true);
    // One that took the image and did not say who it is afterwards has not been updated.
    const auto met = run.good.begin() + static_cast<std::ptrdiff_t>(run.index) - 1;
    if (IsFirmware(GetParam()) && std::any_of(met, run.good.end(), IsIdentify)) {
      EXPECT_NE(run.code, Status::Completed);
    }
  });
}

// No answer of the drive comes back. Where the connection is tested that is no drive.
TEST_P(FeatureSweep, EachAnswerIsLost) {
  const auto& scene = GetParam();
  const bool isListed =
      std::ranges::find(kFaultCodes, NameOf(scene), &FaultCode::name) != std::end(kFaultCodes);
  const bool isAta = scene.spec().kind == Simulator::Kind::Ata;
  if (!isListed || !(isAta || IsFirmware(scene))) return;
  std::vector<Fault> faults;
  if (isAta) faults.push_back(Fault::HostError(0x07));
  if (!scene.erases) faults.push_back(Fault::Hang());
  for (auto& fault : faults) {
    Sweep(fault.Times(1), [&](FeatureRunScene& drive, const SweptRun& run) {
      EXPECT_FALSE(HasPassword(drive)) << run.code;
      const auto* row = FindFaultCode(scene, run, run.index);
      if (row != nullptr) CheckCode(row->opcode == kNop ? row->gone : row->failed, run);
      CheckFirmware(scene, drive, run, false);
    });
  }
}

// The first failure that counts gives the code, and the cleaning up does not work either.
TEST_P(FeatureSweep, EveryCommandFailsFromThereOn) {
  const auto& scene = GetParam();
  if (IsFirmware(scene)) {
    Sweep(Fault::Fail(), [&](FeatureRunScene& drive, const SweptRun& run) {
      CheckFirmware(scene, drive, run, true);
    });
  } else if (scene.erases && !IsOption(scene)) {
    Sweep(Fault::Fail(), [&](FeatureRunScene& drive, const SweptRun& run) {
      auto expected = StatusCode(Status::Completed);
      for (auto n = run.index; n <= run.good.size() && expected == Status::Completed; ++n) {
        const auto* row = FindFaultCode(scene, run, n);
        if (row != nullptr && row->failed) expected = *row->failed;
      }
      EXPECT_EQ(run.code, expected);
      const auto wasCarriedOut = [&](int opcode) {
        return std::ranges::any_of(run.commands, [&](const auto& command) {
          return command.IsAta() && command.Opcode() == opcode && command.Succeeded();
        });
      };
      EXPECT_EQ(HasPassword(drive), wasCarriedOut(kSetPassword) && !wasCarriedOut(kEraseUnit));
    });
  }
}

// By a host's request, or by Ctrl-C: while the drive is being changed it asks to stop, and
// before that it would end the tool, which a handler keeps it from here.
TEST_P(FeatureSweep, IsCanceled) {
  std::size_t canceled = 0;
  const auto check = [&](FeatureRunScene& drive, const SweptRun& run) {
    CheckEnd(GetParam(), drive, run);
    EXPECT_FALSE(HasPassword(drive));
    EXPECT_TRUE(run.code == Status::Completed || run.code == Status::Canceled) << run.code;
    if (run.code == Status::Canceled) ++canceled;
  };
  if (IsOption(GetParam())) {
    if (MORVU_IS_EMULATED) {
      GTEST_SKIP() << "QEMU's user-mode emulator returns from a signal's handler with the storage "
                      "of another thread";
    }
    struct sigaction harmless {
    }, before{};
    harmless.sa_handler = [](int) {};
    sigaction(SIGINT, &harmless, &before);
    SweepFaults<FeatureRunScene>([this] { return Make(); }, Fault::Signal(SIGINT), check);
    sigaction(SIGINT, &before, nullptr);
  } else if (GetParam().canCancel) {
    SweepCancels<FeatureRunScene>([this] { return Make(); }, check);
  } else {
    const auto good = Testing::RunGoodScene<FeatureRunScene>([this] { return Make(); }, 0);
    EXPECT_EQ(good.questions, 0U);
  }
  EXPECT_EQ(canceled > 0, GetParam().canCancel);
}

INSTANTIATE_TEST_SUITE_P(Families, FeatureSweep, ::testing::ValuesIn(ListScenes()),
                         [](const auto& test) {
                           auto name = std::string(test.param.name) + std::string(test.param.label);
                           std::erase(name, '_');
                           if (name.front() == '-') name.replace(0, 1, "Option");
                           return name;
                         });

TEST(FeatureSweeps, HaveAScenePerMethodAndOptionThatDestroysAndNoneElseErases) {
  VisitRecords([](const FeatureRecord& feature, std::string_view name) {
    for (const auto& scene : FindScenes(name)) {
      EXPECT_EQ(scene.erases, feature.destroys)
          << name << ": one that destroys needs a scene in this test's table";
    }
  });
}

// A scene whose method or option is gone sweeps nothing.
TEST(FeatureSweeps, HaveNoSceneThatNoRecordBears) {
  std::vector<std::string_view> names;
  VisitRecords([&](const FeatureRecord&, std::string_view name) { names.push_back(name); });
  for (const auto& scene : kScenes) {
    EXPECT_NE(std::ranges::find(names, scene.name), names.end()) << scene.name;
  }
}

}  // namespace
}  // namespace Morvu
