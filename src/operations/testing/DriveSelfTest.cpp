#include "operations/testing/DriveSelfTest.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <memory>
#include <numeric>
#include <vector>

#include "devices/commands/CommandSet_ATA.h"
#include "devices/properties/IdentityProperties.h"
#include "frame/Logger.h"
#include "frame/Platform.h"
#include "frame/Text.h"
#include "frame/status/Commands.h"
#include "frame/status/Drives.h"
#include "frame/status/Health.h"
#include "frame/status/Requests.h"
#include "frame/status/Testing.h"
#include "messaging/XmlMessaging.h"
#include "messaging/features/JobContext.h"
#include "operations/Operation.h"

namespace Morvu {

using DeviceManagement::Device;
using DeviceManagement::TimeoutGuard;
namespace Properties = DeviceManagement::Properties;

namespace {

constexpr std::chrono::seconds kTestTimeout{1800};
constexpr std::chrono::seconds kPollPause{1};

constexpr std::size_t kSmartDataSize = 512;
constexpr std::size_t kStatusOffset = 363;  // ATA8-ACS, table 55
constexpr std::uint8_t kStatusUnread = 0xFF;
constexpr std::uint8_t kStateRunning = 15;

// By bits 7:4 of the status byte.
// clang-format off
constexpr std::string_view kStateTexts[] = {
    "Previous self-test routine completed without error.",
    "The self-test routine was aborted by the host.",
    "The self-test routine was interrupted by the host with a hardware or software reset.",
    "A fatal error or unknown test error occurred while the device was executing its self-test routine and the device was unable to complete the self - test routine.",
    "The previous self-test completed having a test element that failed and the test element that failed is not known.",
    "The previous self-test completed having the electrical element of the test failed.",
    "The previous self-test completed having the servo and/or seek test element of the test failed.",
    "The previous self-test completed having the read element of the test failed.",
    "The previous self-test completed having a test element that failed and the device is suspected of having handling damage.",
    "Reserved status.",
    "Reserved status.",
    "Reserved status.",
    "Reserved status.",
    "Reserved status.",
    "Reserved status.",
    "The self-test routine is in progress.",
};
// clang-format on
static_assert(std::size(kStateTexts) == 16);
// The states in which the test found a fault, or could not be ended for one.
constexpr int kFirstFault = 3, kLastFault = 8;

struct ModeName {
  std::string_view name;
  SelfTestMode mode;
};
constexpr ModeName kModes[] = {
    {"", SelfTestMode::Offline},
    {"offline", SelfTestMode::Offline},
    {"captive", SelfTestMode::Captive},
    {"captiveOffline", SelfTestMode::CaptiveOffline},
};

using TestMaker = std::unique_ptr<DriveSelfTest> (*)(Device& device, SelfTestMode mode,
                                                     ProgressReporter& reporter);
template <typename Test>
std::unique_ptr<DriveSelfTest> Make(Device& device, SelfTestMode mode, ProgressReporter& reporter) {
  return std::make_unique<Test>(&device, mode, reporter);
}

struct TestName {
  std::string_view name;
  std::string_view selected;  // for the log
  TestMaker make;
};
constexpr TestName kTests[] = {
    {"short", "Short self-test routine selected.", Make<ShortSelfTest>},
    {"extended", "Extended self-test routine selected.", Make<ExtendedSelfTest>},
    {"conveyance", "Conveyance self-test routine selected.", Make<ConveyanceSelfTest>},
};
constexpr std::string_view kStatus = "status";

constexpr std::string_view kTestArgument = "SelfTest";
constexpr std::string_view kModeArgument = "Mode";

constexpr std::string_view kTestWords[] = {"short", "extended", "conveyance", kStatus};
constexpr std::string_view kModeWords[] = {"offline", "captive", "captiveOffline"};

constexpr std::string_view kDescriptions[] = {
    "Execute a drive self test routine on the selected drive. Note: self tests can take several "
    "minutes to complete."};
constexpr ArgumentDeclaration kArguments[] = {
    {"(action)",
     "(Required) Specify the type of self_test to run, or request status. Supported actions are: "
     "short, extended, conveyance, and status.",
     kTestArgument, kTestWords},
    {"[mode]",
     "(Optional) Used to specify mode of the self_test. Available options are offline and captive. "
     "Default is offline.",
     kModeArgument, kModeWords},
};
constexpr std::string_view kExamples[] = {"-drive_index 1 -self_test short"};

// The test of this name; null, and the log tells why, for a name that starts none.
std::unique_ptr<DriveSelfTest> MakeTest(Device& device, std::string_view test, SelfTestMode mode,
                                        ProgressReporter& reporter) {
  if (test == kStatus) return std::make_unique<DriveSelfTest>(&device, 0, mode, reporter);
  const auto* row = std::ranges::find(kTests, test, &TestName::name);
  if (row == std::end(kTests)) {
    MORVU_LOG(kLogInfo, "Runner", "Unkown self-test routine selected: " + std::string(test));
    return nullptr;
  }
  MORVU_LOG(kLogInfo, "Runner", row->selected);
  return row->make(device, mode, reporter);
}

void Announce(Face& face, std::string_view test, SelfTestMode mode) {
  face.Say("Executing " + std::string(test) + " self-test routine.");
  face.Say("This can take several minutes to complete.");
  if (mode != SelfTestMode::Offline) return;
  face.Say(
      "self-test routine is running in offline mode.\n"
      "Use '-self_test status' to query status of the self-test routine.");
}

}  // namespace

struct DriveSelfTest::Rules {
  static bool Unsupported(DriveSelfTest& test) {
    return !test.device_->GetBool(Properties::SMARTSelfTestSupported);
  }

  // clang-format off
  static constexpr Refusal<DriveSelfTest> kTable[] = {
      {OfDevice<Refuse::NotConnected>,    Status::NoCommunication},
      {OfDevice<Refuse::RaidVolume>,      Status::RaidVolume},
      {OfDevice<Refuse::NotMorvu>,        Status::NotAMorvuDrive},
      {OfDevice<Refuse::RaidMember>,      Status::RaidMemberRefused},
      {OfDevice<Refuse::NoAta>,           Status::NotSupportedByDrive},
      {OfDevice<Refuse::DeviceFault>,     Status::DeviceFault},
      {Unsupported,                       Status::SelfTestUnsupported},
      {OfDevice<Refuse::FailureReported>, Status::DisableLogical},
  };
  // clang-format on
};

DriveSelfTest::DriveSelfTest(Device* device, std::uint8_t subcommand, SelfTestMode mode,
                             ProgressReporter& reporter)
    : Function(device, reporter), subcommand_(subcommand), mode_(mode) {
  DriveSelfTest::Initialize();
}

void DriveSelfTest::Initialize() {
  EndInitialize(FirstRefusal<DriveSelfTest>(Rules::kTable, *this));
}

std::uint8_t DriveSelfTest::GetSelfTestStatus() {
  if (ata_ == nullptr) return kStatusUnread;
  std::array<std::uint8_t, kSmartDataSize> data;
  data.fill(kStatusUnread);  // what the drive does not give stays unread
  const auto result = ata_->ataSmartReadData(data);
  if (result != Status::Completed) {
    MORVU_LOG(kLogError, "GetSelfTestStatus",
              "SMART Read data failed with an error code = " + std::to_string(result.Value()));
    SetErrorCode(Status::SmartDataFailed);
    return kStatusUnread;
  }
  // No residual can be trusted behind a SATA layer: the sector's checksum is the witness.
  if (std::accumulate(data.begin(), data.end(), 0u) % 256 != 0) {
    MORVU_LOG(kLogError, "GetSelfTestStatus", "SMART data failed their checksum.");
    SetErrorCode(Status::SmartDataFailed);
    return kStatusUnread;
  }
  SetErrorCode(Status::Completed);
  return data[kStatusOffset];
}

bool DriveSelfTest::ReportSelfTestStatus(ResultTable& table) {
  const auto status = GetSelfTestStatus();
  if (status == kStatusUnread) {
    table.AppendRow({"Unable to read self-test status."});
    return true;
  }
  SetPercent(std::max(0, 100 - 10 * (status & 0x0F)));
  const auto state = status >> 4;
  table.AppendRow({std::string(kStateTexts[state])});
  if (state >= kFirstFault && state <= kLastFault) Warn("The drive failed its self-test.");
  if (state != kStateRunning) return true;
  table.AppendRow({"Progress = " + std::to_string(GetPercent()) + "%"});
  return false;
}

std::int32_t DriveSelfTest::Execute() {
  if (!BeginExecute()) return false;
  const TimeoutGuard timeout(device_->GetCommandPath(), kTestTimeout);
  return RunTest();
}

bool DriveSelfTest::RunTest() {
  const auto result = ata_->ataSmartExecuteOffline(subcommand_);
  if (result != Status::Completed) {
    MORVU_LOG(kLogError, "Execute",
              "SMART Execute offline immediate failed with an error code = " +
                  std::to_string(result.Value()));
    return Fail(Status::SmartExecuteOfflineFailed);
  }
  MORVU_LOG(kLogInfo, "Execute", "SMART Execute offline immediate successful.");
  if (mode_ == SelfTestMode::Offline) {
    End(Status::Completed);
    return true;
  }
  if (mode_ == SelfTestMode::CaptiveOffline && !Watch()) return false;
  return CheckResult();
}

// A drive that is at its test takes the time that it takes: an extended one, hours.
bool DriveSelfTest::Watch() {
  for (;;) {
    ResultTable unseen;
    if (ReportSelfTestStatus(unseen)) return true;
    if (IsCancelRequested()) {
      SetErrorCode(Status::Canceled);
      SetState(FeatureState::Running);
      return false;
    }
    SleepFor(kPollPause);
  }
}

bool DriveSelfTest::CheckResult() {
  const auto status = GetSelfTestStatus();
  if (GetErrorCode() != Status::Completed) return Fail(GetErrorCode());
  if (status != 0) {
    MORVU_LOG(kLogError, "Execute",
              "SMART test failed. Self-test status byte = " + std::to_string(status));
    return Fail(Status::SelfTestFailed);
  }
  End(Status::Completed);
  return true;
}

bool DriveSelfTest::Fail(StatusCode code) {
  End(code);
  return false;
}

StatusCode DriveSelfTest::Runner(Device& device, std::string_view test, std::string_view mode,
                                 Face& face) {
  const auto* row = std::ranges::find(kModes, mode, &ModeName::name);
  if (row == std::end(kModes)) return Status::InvalidArguments;
  const auto selfTest = MakeTest(device, test, row->mode, face.GetReporter());
  if (selfTest == nullptr) return Status::InvalidSelfTest;
  if (selfTest->GetErrorCode() != Status::ReadyToRun) return selfTest->GetErrorCode();

  if (test == kStatus) {
    MORVU_LOG(kLogInfo, "Runner", "Getting status of self-test routine.");
    ResultTable table;
    selfTest->ReportSelfTestStatus(table);
    face.Show(table);
    TellRemarks(*selfTest, face);
    return selfTest->GetErrorCode();
  }
  MORVU_LOG(kLogInfo, "Runner", "Executing " + std::string(test) + " self-test routine.");
  Announce(face, test, row->mode);
  selfTest->Execute();
  return selfTest->GetErrorCode();
}

namespace {

StatusCode RunSelfTest(const FeatureCall& call) {
  return DriveSelfTest::Runner(call.GetDevice(), call.arguments.GetText(kTestArgument),
                               call.arguments.GetText(kModeArgument), call.face);
}

// What the prompt shows stands in the reply.
StatusCode TellStatus(const FeatureCall& call, JobContext& context) {
  DriveSelfTest test(&call.GetDevice(), 0, SelfTestMode::Offline, call.face.GetReporter());
  if (test.GetErrorCode() != Status::ReadyToRun) return test.GetErrorCode();
  ResultTable table;
  test.ReportSelfTestStatus(table);
  TellRemarks(test, call.face);
  if (context.reply != nullptr && test.GetErrorCode() == Status::Completed) {
    std::vector<std::string> lines;
    for (const auto* row : table.GetDataRows()) lines.push_back(row->cells.front().text);
    auto property = std::make_unique<XmlMessaging::Property>("SelfTestStatus", Join(lines, " "));
    property->SetAttribute("type", "string");
    context.reply->properties.push_back(std::move(property));
  }
  return test.GetErrorCode();
}

StatusCode RunSelfTestMethod(const FeatureCall& call, JobContext& context) {
  const auto test = call.arguments.GetText(kTestArgument, "extended");
  if (test == kStatus) return TellStatus(call, context);
  return DriveSelfTest::Runner(call.GetDevice(), test, "captiveOffline", call.face);
}

StatusCode AssessSelfTest(Device& device) {
  return DriveSelfTest(&device, 0, SelfTestMode::Offline, NoReporter()).GetErrorCode();
}

constexpr MethodParameter kParameters[] = {{kTestArgument, "string", true}};
constexpr StatusCode kHiddenCodes[] = {Status::RaidVolume, Status::NotSupportedByDrive};
constexpr CimMethod kMethods[] = {
    {.name = "DriveSelfTest",
     .displayName = "Drive Self Test",
     .category = "advanced",
     .targetType = "device",
     .parameters = kParameters,
     .hiddenCodes = kHiddenCodes,
     .assess = &AssessSelfTest,
     .run = &RunSelfTestMethod},
};
constexpr OptionDeclaration kOptions[] = {
    {.name = "-self_test",
     .kind = OptionKind::Texts,
     .category = OptionCategory::Feature,
     .descriptions = kDescriptions,
     .arguments = kArguments,
     .examples = kExamples,
     .run = &RunSelfTest},
};

}  // namespace

extern constexpr FeatureRecord DriveSelfTestRecord = {
    .name = "DriveSelfTest",
    .group = HelpGroup::Test,
    .needsDrive = true,
    .isSequence = true,
    .methods = kMethods,
    .options = kOptions,
};

}  // namespace Morvu
