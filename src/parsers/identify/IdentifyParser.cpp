#include "parsers/identify/IdentifyParser.h"

#include <boost/property_tree/ptree.hpp>
#include <vector>

#include "devices/commands/CommandSet_NVME.h"
#include "devices/identification/DeviceIdentification.h"
#include "devices/model/Drive.h"
#include "devices/model/DriveHold.h"
#include "frame/Logger.h"
#include "frame/status/Commands.h"
#include "frame/status/Drives.h"
#include "frame/status/Files.h"
#include "frame/status/NvmeStatus.h"
#include "messaging/XmlMessaging.h"
#include "messaging/features/FeatureRecord.h"
#include "messaging/features/JobContext.h"
#include "messaging/features/ParserReply.h"
#include "operations/Operation.h"

namespace Morvu {

using DeviceManagement::Device;
using DeviceManagement::DeviceKind;
using DeviceManagement::DriveHold;
namespace Protocol = DeviceManagement::Protocol;

IdentifyParser::IdentifyParser(Device* device, ProgressReporter& reporter, IdentifyTarget target)
    : Parser(device, reporter), target_(target) {
  IdentifyParser::Initialize();
}

void IdentifyParser::Initialize() {
  table_.Clear();
  EndInitialize(ChooseCore());
}

StatusCode IdentifyParser::ChooseCore() {
  core_.reset();
  if (deviceType_ != DeviceKind::Drive && deviceType_ != DeviceKind::Adapter) {
    return Status::NotRead;
  }
  if (deviceType_ == DeviceKind::Adapter || target_ == IdentifyTarget::Controller) {
    MORVU_LOG(kLogInfo, "Initialize", "Controller Initialize");
    if (nvme_ != nullptr) core_ = std::make_unique<ParseIdentify_NVMe_Controller>(device_);
  } else {
    if (Refuse::NotConnected(*device_)) return Status::NoCommunication;
    if (Refuse::RaidVolume(*device_)) return Status::RaidVolume;
    if (ata_ != nullptr || smart_ != nullptr) {
      core_ = std::make_unique<ParseIdentify_ATA>(device_);
    } else if (nvme_ != nullptr) {
      core_ = std::make_unique<ParseIdentify_NVMe_Namespace>(device_);
    }
  }
  return core_ ? core_->GetErrorCode() : Status::NotSupportedByDrive;
}

bool IdentifyParser::Connect() {
  const bool isDrive = drive_ != nullptr && target_ == IdentifyTarget::Drive;
  if (!isDrive && core_ != nullptr) {
    MORVU_LOG(kLogInfo, "Execute", "Executing...");
    return true;
  }
  if (!BeginExecute()) return false;
  (void)DeviceManagement::UpdateProperties(*device_);
  return true;
}

std::int32_t IdentifyParser::Execute() {
  table_.Clear();
  if (!Connect()) return 0;
  std::vector<std::uint8_t> buffer(ParseIdentify::kSize);
  const auto status = core_ ? core_->ReadIdentify(buffer) : Status::IdentifyFailed;
  if (status != Status::Completed) {
    MORVU_LOG(kLogError, "Execute", "IDENTIFY DEVICE failed.");
    if (const auto told = DescribeNvmeStatus(status); !told.empty()) Note(told);
    End(status == Status::NotSupportedByDrive ? status : Status::IdentifyFailed);
    return 0;
  }
  MORVU_LOG(kLogInfo, "Execute", "IDENTIFY DEVICE successful. Parsing.");
  End(Status::Completed);
  core_->SetErrorCode(GetErrorCode());
  core_->SetState(GetState());
  core_->ParseIdentifyData(buffer);
  table_.Append(core_->GetTable());
  for (const auto& remark : core_->GetRemarks()) Tell(remark);
  MORVU_LOG(kLogInfo, "Execute", "Passed.");
  return 1;
}

void IdentifyParser::WriteData(boost::property_tree::ptree& tree) const {
  if (core_) core_->WriteData(tree);
}

// ---- The family ----

namespace {

constexpr std::string_view kControllerOption = "-controller";
constexpr std::size_t kDescriptionColumn = 1;  // gives way where a line is short

StatusCode RunOption(const FeatureCall& call) {
  auto target = IdentifyTarget::Drive;
  if (call.arguments.Has(kControllerOption)) {
    MORVU_LOG(kLogInfo, "RunCLI", "NVMe Controller Identify selected.");
    target = IdentifyTarget::Controller;
  }
  const DriveHold hold(call.GetDevice(), DriveHold::Kind::Moment);
  if (!hold.IsTaken()) return hold.GetStatus();
  IdentifyParser parser(&call.GetDevice(), call.face.GetReporter(), target);
  if (parser.GetErrorCode() == Status::ReadyToRun && parser.Execute() != 0) {
    const auto file = call.arguments.GetText(kFileArgument);
    if (call.arguments.Has(kFileArgument)) {
      MORVU_LOG(kLogDebug, "RunCLI", "Saving Identify Device data to: " + file);
      // A table that could not be saved is told beside the run's own end.
      (void)call.face.Save(parser.GetTable(), file);
    } else {
      parser.GetTable().SetColumnWidth(kDescriptionColumn, 0);
      call.face.Say();
      call.face.Show(parser.GetTable());
    }
  }
  TellRemarks(parser, call.face);
  return parser.GetErrorCode();
}

// One of the method's passes: its table goes into the file, behind what stands there, or into the
// reply.
StatusCode RunPass(const FeatureCall& call, JobContext& context, IdentifyTarget target,
                   bool append) {
  // Without the job's reporter: the job is not at its end with the first pass.
  IdentifyParser parser(&call.GetDevice(), NoReporter(), target);
  if (parser.GetErrorCode() == Status::ReadyToRun) parser.Execute();
  TellRemarks(parser, call.face);
  if (parser.GetErrorCode() != Status::Completed) return parser.GetErrorCode();
  const auto file = call.arguments.GetText(kFileArgument);
  if (!file.empty()) {
    const bool isSaved = parser.GetTable().SaveSeparated(file, ",", append);
    return isSaved ? Status::Completed : Status::FileNotWritten;
  }
  AddToReply(context, parser.ToXml(false),
             target == IdentifyTarget::Controller ? "Controller" : "Device");
  return Status::Completed;
}

StatusCode RunMethod(const FeatureCall& call, JobContext& context) {
  const DriveHold hold(call.GetDevice(), DriveHold::Kind::Moment);
  if (!hold.IsTaken()) return hold.GetStatus();
  const bool hasController = call.GetDevice().HasCommandSet(Protocol::Nvme);
  if (hasController) {
    const auto code = RunPass(call, context, IdentifyTarget::Controller, false);
    if (code != Status::Completed) return code;
    if (call.face.GetReporter().IsCancelRequested()) return Status::Canceled;
  }
  return RunPass(call, context, IdentifyTarget::Drive, hasController);
}

constexpr MethodParameter kParameters[] = {{kFileArgument, "string", true}};
constexpr CimMethod kMethods[] = {
    {.name = "IdentifyParser",
     .displayName = "Identify Parser",
     .description = "Parse identify device data and save it to a file.",
     .category = "standard",
     .targetType = "device",
     .parameters = kParameters,
     .hasTable = true,
     .run = &RunMethod},
};

constexpr std::string_view kDescriptions[] = {
    "Display selected drive's Identify Device data to the screen."};
constexpr ArgumentDeclaration kArguments[] = {
    {"[filename]",
     "(Optional) Save the Identify Device data to the given file. Data is saved in CSV format.",
     kFileArgument}};
constexpr std::string_view kExamples[] = {"-drive_index 1 -identify"};
constexpr OptionDeclaration kOptions[] = {
    {.name = "-identify",
     .kind = OptionKind::Texts,
     .category = OptionCategory::Feature,
     .descriptions = kDescriptions,
     .arguments = kArguments,
     .examples = kExamples,
     .run = &RunOption},
};

}  // namespace

extern constexpr FeatureRecord IdentifyRecord = {
    .name = "Identify",
    .needsDrive = true,
    .onSeveral = OnSeveral::Each,
    .methods = kMethods,
    .options = kOptions,
};

}  // namespace Morvu
