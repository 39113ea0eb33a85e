#include "operations/endurance/EnduranceAnalyzer.h"

#include <algorithm>
#include <cstdio>

#include "devices/properties/BasicProperties.h"
#include "devices/properties/SettingProperties.h"
#include "frame/Logger.h"
#include "frame/Text.h"
#include "frame/status/Drives.h"
#include "frame/status/Endurance.h"
#include "frame/status/Requests.h"
#include "frame/status/Testing.h"
#include "messaging/XmlMessaging.h"
#include "messaging/features/JobContext.h"
#include "operations/Operation.h"
#include "operations/SettingProperty.h"
#include "operations/endurance/EnduranceRules.h"
#include "operations/endurance/ResetTimedWorkloadAttributes.h"
#include "parsers/smart/SmartParser.h"

namespace Morvu {

using DeviceManagement::Device;
namespace Properties = DeviceManagement::Properties;
namespace Protocol = DeviceManagement::Protocol;

namespace {

constexpr double kMinutesPerYear = 525948.766;
constexpr double kPercentPerUnit = 1.0 / 1024;
constexpr std::uint64_t kNoWear = 0, kResetValue = 0xFFFF;
constexpr std::uint64_t kLeastMinutes = 60;

constexpr std::string_view kReset = "reset";

std::string YearsText(double years) {
  char text[64];
  std::snprintf(text, sizeof text, "%.2f", years);
  return std::string(text) + " Years";
}

}  // namespace

struct EnduranceAnalyzer::Rules {
  // clang-format off
  static constexpr Refusal<EnduranceAnalyzer> kTable[] = {
      {OfDevice<Refuse::NotConnected>,       Status::NoCommunication},
      {OfDevice<Refuse::RaidVolume>,         Status::RaidVolume},
      {OfDevice<Refuse::NotMorvu>,           Status::NotAMorvuDrive},
      {OfDevice<Refuse::DeviceFault>,        Status::DeviceFault},
      {OfDevice<Refuse::NoWorkloadCounters>, Status::EnduranceGenerationUnsupported},
      {OfDevice<Refuse::TooOldForCounters>,  Status::EnduranceFirmwareTooOld},
      {OfDevice<Refuse::FailureReported>,    Status::DisableLogical},
  };
  // clang-format on
};

EnduranceAnalyzer::EnduranceAnalyzer(Device* device, ProgressReporter& reporter)
    : Function(device, reporter), smartParser_(std::make_unique<SmartParser>(device)) {
  EnduranceAnalyzer::Initialize();
}

EnduranceAnalyzer::~EnduranceAnalyzer() = default;

void EnduranceAnalyzer::Initialize() {
  auto code = FirstRefusal<EnduranceAnalyzer>(Rules::kTable, *this);
  if (code == Status::ReadyToRun) {
    if (ata_ != nullptr) {
      resetter_ = std::make_unique<ResetTimedWorkloadAttributes_ATA>(device_, GetReporter());
    } else if (nvme_ != nullptr) {
      resetter_ = std::make_unique<ResetTimedWorkloadAttributes_NVMe>(device_, GetReporter());
    }
    code = resetter_ == nullptr ? Status::NotSupportedByDrive : resetter_->GetErrorCode();
  }
  EndInitialize(code);
}

StatusCode EnduranceAnalyzer::ReadSmartAttributes() {
  if (smartParser_->GetErrorCode().Value() <= Status::ReadyToRun.Value()) {
    MORVU_LOG(kLogDebug, "readSmartAttributes", "Reading SMART data from the drive.");
    if (smartParser_->Execute()) {
      MORVU_LOG(kLogInfo, "readSmartAttributes", "Successfully read the drives SMART data.");
    }
  }
  const auto code = smartParser_->GetErrorCode();
  MORVU_LOG(kLogInfo, "readSmartAttributes", "SMART status code = " + std::to_string(code.Value()));
  if (code != Status::Completed) return code;

  const auto& attributes = smartParser_->GetAttributes();
  const auto find = [&](const char* id) -> std::optional<std::uint64_t> {
    const auto found = attributes.find(id);
    if (found == attributes.end()) return std::nullopt;
    return found->second->GetRaw();
  };
  hostWrites_ = find("E1");
  const auto wear = find("E2"), ratio = find("E3"), time = find("E4");
  if (!wear || !ratio || !time) {
    MORVU_LOG(kLogError, "readSmartAttributes", "Could not find SMART attribute E2, E3, or E4.");
    return Status::EnduranceGenerationUnsupported;
  }
  workloadMediaWear_ = *wear;
  readWriteRatio_ = *ratio;
  workloadTime_ = *time;
  const auto tell = [](std::string_view what, std::uint64_t value) {
    MORVU_LOG(kLogInfo, "readSmartAttributes",
              "Found " + std::string(what) + " = " + std::to_string(value));
  };
  tell("Workload Media Wear", workloadMediaWear_);
  tell("Workload Host Read/Write ratio", readWriteRatio_);
  tell("Workload Time", workloadTime_);
  return Status::Completed;
}

std::int32_t EnduranceAnalyzer::Execute() {
  MORVU_LOG(kLogInfo, "Execute", "Executing...");
  if (const auto code = ReadSmartAttributes(); code != Status::Completed) {
    End(code);
    return false;
  }
  MORVU_LOG(kLogInfo, "Execute", "Successfully read the drives SMART attributes.");
  MORVU_LOG(kLogInfo, "Execute", "Workload Time = " + std::to_string(workloadTime_));
  MORVU_LOG(kLogInfo, "Execute", "workload Media Wear = " + std::to_string(workloadMediaWear_));
  const bool isReset = workloadMediaWear_ == kResetValue;
  const bool isWorn = workloadMediaWear_ != kNoWear && !isReset;
  const auto percent = static_cast<double>(workloadMediaWear_) * kPercentPerUnit;
  const double years =
      isWorn ? static_cast<double>(workloadTime_) * 100.0 / percent / kMinutesPerYear : 0;
  statusText_ = YearsText(years);
  MORVU_LOG(kLogInfo, "Execute", "Calculated life span = " + statusText_);
  if (isWorn && workloadTime_ < kLeastMinutes) {
    Warn("The workload ran for " + std::to_string(workloadTime_) +
         " minutes only: the life span is to be trusted after 60.");
  }
  SetPercent(100);
  End(isReset  ? Status::WorkloadIndicatorsReset
      : isWorn ? Status::Completed
               : Status::NoWearMeasured);
  return isWorn;
}

StatusCode EnduranceAnalyzer::ResetSmartAttributes() {
  MORVU_LOG(kLogDebug, "ResetSmartAttributes", "Resetting SMART attributes.");
  if (resetter_ == nullptr) {
    MORVU_LOG(kLogError, "ResetSmartAttributes", "Drive connection failed.");
    return EndReset(Status::NoCommunication);
  }
  const bool isReset = resetter_->GetErrorCode() == Status::ReadyToRun && resetter_->Execute();
  for (const auto& remark : resetter_->GetRemarks()) Tell(remark);
  if (!isReset) return EndReset(resetter_->GetErrorCode());
  if (const auto code = ReadSmartAttributes(); code != Status::Completed) {
    Note("The counters are reset all the same; they could not be read afterwards.");
    return EndReset(code);
  }
  // In standby the drive writes the counters away.
  if (ata_ != nullptr) {
    MORVU_LOG(kLogDebug, "ResetSmartAttributes", "Execute stand by immediate.");
    if (!StandbyImmediate()) {
      MORVU_LOG(kLogError, "ResetSmartAttributes", "Stand by immediate failed.");
      Note("The counters are reset all the same; a loss of power now may bring the old ones back.");
      return EndReset(Status::StandbyFailed);
    }
    MORVU_LOG(kLogInfo, "ResetSmartAttributes", "Stand by immediate completed successfully.");
  }
  SetPercent(100);
  return EndReset(Status::Completed);
}

StatusCode EnduranceAnalyzer::EndReset(StatusCode code) {
  End(code);
  return code;
}

ResultTable EnduranceAnalyzer::MakeTable() const {
  ResultTable table;
  table.AppendRow({"SMART Attribute", "Description", "Raw Value"}, true);
  table.AppendRow(
      {"E1", "Host Writes", hostWrites_ ? std::to_string(*hostWrites_) : std::string("Unknown")});
  table.AppendRow({"E2", "Workload Media Wear", std::to_string(workloadMediaWear_)});
  table.AppendRow({"E3", "Workload Host Read/Write", std::to_string(readWriteRatio_)});
  table.AppendRow({"E4", "Workload Time", std::to_string(workloadTime_)});
  return table;
}

StatusCode EnduranceAnalyzer::Runner(Device& device, const std::string& value, Face& face) {
  const bool isReset = IEquals(value, kReset);
  if (!isReset && !value.empty()) return Status::InvalidArguments;
  EnduranceAnalyzer analyzer(&device, face.GetReporter());
  if (analyzer.GetErrorCode() != Status::ReadyToRun) return analyzer.GetErrorCode();
  if (isReset) {
    face.Begin("Resetting SMART attributes...");
    if (analyzer.ResetSmartAttributes() == Status::Completed) {
      face.Show(analyzer.MakeTable());
      face.Say("Timed workload SMART attributes reset. Now run a 1+ hour workload on the drive.");
    }
  } else {
    analyzer.Execute();
    const auto code = analyzer.GetErrorCode();
    if (code == Status::Completed || code == Status::NoWearMeasured) {
      face.Say("SMART Data after user workload");
      face.Show(analyzer.MakeTable());
      face.Say("\nExpected Life Span: " + analyzer.GetLifeSpanText());
    }
  }
  TellRemarks(analyzer, face);
  return analyzer.GetErrorCode();
}

// ---- The property ----

namespace {

bool IsNamed(const JobContext* context, const PropertyEntry& entry) {
  if (context == nullptr || context->request == nullptr) return false;
  for (const auto& object : context->request->objects) {
    if (object->GetAttribute("name") != "cimProperties") continue;
    for (const auto& named : object->properties) {
      if (IEquals(named->GetAttribute("name"), entry.name)) return true;
    }
  }
  return false;
}

SettingReading ReadLifeSpan(Device& device) {
  EnduranceAnalyzer analyzer(&device);
  if (analyzer.GetErrorCode() == Status::ReadyToRun) analyzer.Execute();
  return {analyzer.GetErrorCode(), analyzer.GetLifeSpanText(), JoinRemarks(analyzer)};
}

}  // namespace

std::unique_ptr<XmlMessaging::Property> GetEnduranceProperty(JobContext* context,
                                                             const PropertyEntry& entry,
                                                             Device* device) {
  if (device != nullptr && !IsNamed(context, entry)) return nullptr;
  return DescribeSetting(entry, device, ReadLifeSpan);
}

StatusCode SetEnduranceProperty(XmlMessaging::Property& request, Device& device) {
  const bool isReset = request.GetAttribute("name") == Properties::EnduranceAnalyzer.name &&
                       IEquals(request.value, kReset);
  if (!isReset) return Status::InvalidArguments;
  EnduranceAnalyzer analyzer(&device);
  if (analyzer.GetErrorCode() == Status::ReadyToRun) (void)analyzer.ResetSmartAttributes();
  const auto detail = JoinRemarks(analyzer);
  if (!detail.empty()) request.SetAttribute("detail", detail);
  return analyzer.GetErrorCode();
}

// ---- The option ----

namespace {

constexpr std::string_view kAction = "action";

constexpr std::string_view kDescriptions[] = {
    "Run the endurance analyzer calculation to determine drives life expectancy. Follow these "
    "steps to run the Endurance Analyzer:",
    "Step 1: Reset Timed Workload SMART Attributes using [reset] option.",
    "Step 2: Install the SSD into a test system if it is not already.",
    "Step 3: Apply minimum 60 minute workload to SSD.",
    "Step 4: Compute expected life span using -endurance_analyzer.",
};
constexpr ArgumentDeclaration kArguments[] = {
    {"[reset]",
     "(Optional) Specify 'reset' to reset the necessary SMART attributes to run a new Endurance "
     "Analyzer calculation.",
     kAction},
};
constexpr std::string_view kExamples[] = {"-drive_index 1 -endurance_analyzer",
                                          "-drive_index 1 -endurance_analyzer reset"};

StatusCode RunEndurance(const FeatureCall& call) {
  return EnduranceAnalyzer::Runner(call.GetDevice(), call.arguments.GetText(kAction), call.face);
}

constexpr OptionDeclaration kOptions[] = {
    {.name = "-endurance_analyzer",
     .kind = OptionKind::Texts,
     .category = OptionCategory::Feature,
     .descriptions = kDescriptions,
     .arguments = kArguments,
     .examples = kExamples,
     .run = &RunEndurance},
};

}  // namespace

extern constexpr FeatureRecord EnduranceAnalyzerRecord = {
    .name = "EnduranceAnalyzer",
    .group = HelpGroup::Test,
    .needsDrive = true,
    .isSequence = true,
    .options = kOptions,
};

}  // namespace Morvu
