// The firmware update as a host and a user meet it: the drive method, the option, and
// the drive property that tells whether there is an update.
#include <algorithm>
#include <set>
#include <string_view>

#include "devices/model/DriveHold.h"
#include "devices/properties/BasicProperties.h"
#include "devices/properties/FirmwareProperties.h"
#include "devices/system/DiskUse.h"
#include "devices/system/SystemFacts.h"
#include "frame/status/Drives.h"
#include "frame/status/Files.h"
#include "frame/status/Firmware.h"
#include "frame/status/Health.h"
#include "frame/status/NvmeStatus.h"
#include "frame/status/Requests.h"
#include "frame/status/Selection.h"
#include "frame/status/Testing.h"
#include "messaging/XmlMessaging.h"
#include "messaging/features/FeatureRecord.h"
#include "messaging/features/JobContext.h"
#include "operations/firmware/AttributeCollection.h"
#include "operations/firmware/FirmwareUpdate.h"

namespace Morvu {

using DeviceManagement::Device;
namespace Properties = DeviceManagement::Properties;

namespace {

constexpr std::string_view kMethodName = "FirmwareUpdate";
constexpr std::string_view kFileArgument = "file";
constexpr std::string_view kAudienceOption = "-firmware_module_audience";
constexpr std::int32_t kModuleType = 0;
constexpr std::size_t kRuleWidth = 75;
// Of an image that the drive has taken and does not run yet.
constexpr std::string_view kCommitted = "committed, runs after a reset";

// What the log of a notification sorts by.
constexpr std::uint32_t kFirmwareNotification = 0;
constexpr std::uint32_t kImportant = 1, kInformative = 3;

using Lines = std::string_view[1];
constexpr Lines kText = {"Update the firmware of the selected drive (if possible)."};
constexpr ArgumentDeclaration kArguments[] = {
    {"[filename]",
     "(Optional) Firmware binary file used to update the drive. The Tool will prompt prior to "
     "issuing the firmware update",
     kFileArgument},
};
constexpr std::string_view kExamples[] = {"-drive_index 1 -firmware_update",
                                          "-drive_index 1 -firmware_update firmwareBinaryFile.bin"};
constexpr Lines kAudienceText = {"Use only firmware modules that were made for this audience."};
constexpr ArgumentDeclaration kAudienceArguments[] = {
    {"(audience)", "The audience as the modules give it."}};
constexpr Lines kAudienceExamples = {
    "-drive_index 1 -firmware_update -firmware_module_audience [audience]"};

// Whether a code is one of a few.
bool IsOneOf(StatusCode code, std::initializer_list<StatusCode> codes) {
  return std::ranges::find(codes, code) != codes.end();
}

// The summary of a walk over all drives, once a drive was refused: one whose firmware
// is current or cannot be updated counts as current.
StatusCode AddRefusal(StatusCode summary, StatusCode outcome) {
  using namespace Status;
  if (summary != Completed) return summary;
  if (IsOneOf(outcome, {FirmwareCurrent, FirmwarePreproduction, FirmwareUnsupported, ContactSupport,
                        FirmwareNeedsOtherTool, ContactRepresentative})) {
    return FirmwareCurrent;
  }
  const bool told = IsOneOf(
      outcome, {NotAMorvuDrive, RaidVolume, ControllerIdeMode, FirmwareSecurityEnabled, DriveHeld});
  return told ? outcome : summary;
}

// The same once a drive's update was run: a failure outweighs every refusal.
StatusCode AddRun(StatusCode summary, StatusCode outcome) {
  using namespace Status;
  if (outcome == Completed) return summary == FirmwareCurrent ? Completed : summary;
  const bool failed = IsOneOf(
      outcome, {FirmwareUpdateFailed, SmartEnableFailed, SmartDisableFailed, StandbyFailed});
  const bool milder = IsOneOf(
      summary, {Completed, FirmwareCurrent, ControllerIdeMode, FirmwareSecurityEnabled, DriveHeld});
  return failed && milder ? outcome : summary;
}

std::unique_ptr<FirmwareUpdate> MakeUpdate(Device* device, const FirmwareUpdate::Request& request,
                                           ProgressReporter& reporter) {
  if (!request.file.empty() && request.driveSelected) {
    return std::make_unique<FirmwareUpdate>(device, false, request.file, reporter);
  }
  return std::make_unique<FirmwareUpdate>(device, false, kModuleType, request.audience,
                                          request.moduleDirectories, reporter);
}

void ShowHeader(Face& face, const Device& device, const FirmwareUpdate::Request& request,
                bool isFirst) {
  if (!request.file.empty()) return;
  if (!isFirst) face.Say("\n" + std::string(kRuleWidth, '=') + "\n");
  if (!request.driveSelected) face.Say(device.ToText() + "\n");
}

// Whose firmware each device's is: the namespaces of an NVMe subsystem share it.
std::vector<std::string> FindFirmwareOwners(std::span<Device* const> devices) {
  std::vector<std::string> owners;
  for (const auto* device : devices) {
    const auto& path = device->GetCommandPath().GetDevicePath();
    const bool isNvme = device->HasCommandSet(DeviceManagement::Protocol::Nvme);
    const auto subsystem =
        isNvme ? DeviceManagement::SystemFacts::FindSubsystem(path) : std::string();
    owners.push_back(subsystem.empty() ? path : subsystem);
  }
  return owners;
}

std::size_t CountDistinct(const std::vector<std::string>& owners) {
  return std::set<std::string_view>(owners.begin(), owners.end()).size();
}

void SayWhatCameOfIt(Face& face, const FirmwareUpdate& update) {
  if (update.GetErrorCode() == Status::Completed) {
    face.Say("Firmware Update Successful.\nPlease reboot the system.");
  }
  const auto fault =
      update.GetErrorCode() == Status::FileNotRead ? update.FindFileFault() : std::string();
  if (!fault.empty()) face.Say("Reason: " + fault);
  const auto committed = "Firmware " + std::string(kCommitted);
  if (update.GetNvmeStatus() != Status::Completed) {
    face.Warn(committed + ": " + DescribeNvmeStatus(update.GetNvmeStatus()) + ".");
  } else if (update.RunsAfterReset()) {
    face.Say(committed + ".");
  }
}

// What a user should know of a RAID member: it is allowed to take firmware while its volume is in
// use. Empty for any other drive.
std::string DescribeMembership(const Device& device) {
  if (!device.GetBool(Properties::RAIDMember)) return {};
  std::string text =
      "The drive is, or may be, a member of a RAID volume, which may lose it while it takes the "
      "firmware.";
  const auto facts = DeviceManagement::SystemFacts::Read();
  for (const auto& node : device.GetVolumeNodes()) {
    const auto disks = facts.FindWholeDisks(node);
    const auto use = disks ? DeviceManagement::ReadDiskUse(*disks) : std::nullopt;
    if (!use) continue;
    for (const auto& line : use->Describe()) text += "\n" + line;
  }
  return text;
}

// Runs an update; false when the user declines it.
bool RunUpdate(Face& face, FirmwareUpdate& update, const FirmwareUpdate::Request& request) {
  const auto membership = DescribeMembership(*update.GetDevice());
  if (request.driveSelected && !face.IsForced()) {
    std::string warning = "WARNING! You have selected to update the drives firmware! ";
    if (!membership.empty()) warning += "\n" + membership;
    if (face.Ask(warning, "Proceed with the update?") == Answer::No) return false;
  } else if (!membership.empty()) {
    face.Say(membership);
  }
  if (update.HasFile()) face.Say("Given firmware binary: " + request.file);
  face.Begin("Updating the drive's firmware...");
  update.Execute();
  SayWhatCameOfIt(face, update);
  return true;
}

// The outcome of a drive whose firmware stays.
FirmwareUpdate::Outcome LeaveAlone(Device& device, StatusCode code) {
  const auto revision = device.GetString(Properties::Firmware);
  return {.device = &device, .code = code, .oldRevision = revision, .newRevision = revision};
}

// The outcome for one drive, and what it makes of the summary.
FirmwareUpdate::Outcome UpdateDevice(Device& device, const FirmwareUpdate::Request& request,
                                     Face& face, ProgressReporter& reporter, StatusCode& summary) {
  const auto refuse = [&](StatusCode code) {
    summary = request.driveSelected ? code : AddRefusal(summary, code);
    return LeaveAlone(device, code);
  };
  const auto hold = HoldDrive(device, face, request.job);
  if (hold == nullptr) return refuse(Status::DriveHeld);
  const auto update = MakeUpdate(&device, request, reporter);
  if (update->GetErrorCode() != Status::ReadyToRun) return refuse(update->GetErrorCode());
  auto outcome = LeaveAlone(device, Status::CanceledByUser);
  if (!RunUpdate(face, *update, request)) {
    summary = outcome.code;
    return outcome;
  }
  outcome.code = update->GetErrorCode();
  outcome.newRevision = device.GetString(Properties::Firmware);
  outcome.runsAfterReset = update->RunsAfterReset();
  outcome.nvmeStatus = update->GetNvmeStatus();
  const bool decides = request.driveSelected || outcome.code == Status::Canceled;
  summary = decides ? outcome.code : AddRun(summary, outcome.code);
  return outcome;
}

// The drives of one run, in their order.
class DriveWalk {
 public:
  DriveWalk(std::span<Device* const> devices, const FirmwareUpdate::Request& request, Face& face)
      : devices_(devices),
        request_(request),
        face_(face),
        owners_(FindFirmwareOwners(devices)),
        progress_(face.GetReporter()) {}

  FirmwareUpdate::Outcomes Run() {
    outcomes_.summary = Status::Completed;
    const auto count = CountDistinct(owners_);
    const bool isOne = !request_.file.empty();
    for (std::size_t i = 0; i < devices_.size(); ++i) {
      if (isOne && owners_[i] != owners_.front()) continue;
      face_.Turn(*devices_[i]);
      ShowHeader(face_, *devices_[i], request_, i == 0);
      outcomes_.drives.push_back(Visit(i, isOne ? 1 : count));
      face_.Tell(outcomes_.drives.back().code);
    }
    return std::move(outcomes_);
  }

 private:
  FirmwareUpdate::Outcome Visit(std::size_t at, std::size_t count) {
    auto& device = *devices_[at];
    const auto known = std::ranges::find_if(outcomes_.drives, [&](const auto& drive) {
      return owners_[IndexOf(drive.device)] == owners_[at];
    });
    if (known != outcomes_.drives.end()) return TakeOver(device, *known);
    if (at > 0 && progress_.IsCancelRequested()) outcomes_.summary = Status::Canceled;
    if (outcomes_.summary == Status::Canceled) return LeaveAlone(device, Status::Canceled);
    progress_.Begin(begun_++, count);
    const auto outcome = UpdateDevice(device, request_, face_, progress_, outcomes_.summary);
    progress_.SetPercent(100);
    return outcome;
  }

  FirmwareUpdate::Outcome TakeOver(Device& device, FirmwareUpdate::Outcome outcome) {
    face_.Say("The firmware is the one of " + outcome.device->GetString(Properties::DevicePath) +
              ".");
    device.AddProperty(Properties::Firmware, outcome.newRevision);
    outcome.device = &device;
    if (request_.driveSelected) outcomes_.summary = outcome.code;
    return outcome;
  }

  std::size_t IndexOf(const Device* device) const {
    return static_cast<std::size_t>(std::ranges::find(devices_, device) - devices_.begin());
  }

  std::span<Device* const> devices_;
  const FirmwareUpdate::Request& request_;
  Face& face_;
  std::vector<std::string> owners_;
  InnerReporter progress_;
  FirmwareUpdate::Outcomes outcomes_;
  std::size_t begun_ = 0;
};

void AddText(XmlMessaging::Object& object, std::string_view name, std::string_view text) {
  object.AddProperty(name, text).SetAttribute("type", "string");
}

// The reply's list: the one code of a job cannot tell of several drives.
std::unique_ptr<XmlMessaging::List> DescribeOutcomes(
    std::span<const FirmwareUpdate::Outcome> outcomes) {
  auto list = std::make_unique<XmlMessaging::List>();
  list->SetAttribute("name", kMethodName);
  list->SetAttribute("direction", "o");
  for (const auto& outcome : outcomes) {
    auto object = std::make_unique<XmlMessaging::Object>();
    for (const auto* entry : {&Properties::SerialNumber, &Properties::DevicePath}) {
      AddText(*object, entry->name, outcome.device->GetString(*entry));
    }
    object->AddProperty("ErrorCode", std::to_string(outcome.code.Value()))
        .SetAttribute("type", "sint32");
    AddText(*object, "OldFirmware", outcome.oldRevision);
    AddText(*object, Properties::Firmware.name, outcome.newRevision);
    if (outcome.runsAfterReset) AddText(*object, "Activation", kCommitted);
    if (outcome.nvmeStatus != Status::Completed) {
      AddText(*object, "NVMeStatus", DescribeNvmeStatus(outcome.nvmeStatus));
    }
    list->objects.push_back(std::move(object));
  }
  return list;
}

// The directories that a request names beside the program's own.
std::vector<std::string> GetModuleDirectories(const XmlMessaging::Message* request) {
  std::vector<std::string> directories;
  if (request == nullptr) return directories;
  for (const auto& object : request->objects) {
    if (object->GetAttribute("name") != "FirmwareModulesDirectories") continue;
    for (const auto& property : object->properties) directories.push_back(property->value);
    break;
  }
  return directories;
}

void Notify(JobContext& context, Device& device, std::string_view text, std::uint32_t level) {
  context.services->PostNotification(
      {.type = kFirmwareNotification,
       .value = DeviceProperty(Properties::FirmwareUpdateAvailable, text),
       .objectPath = context.subject + "." + device.GetString(Properties::SerialNumber),
       .status = level});
}

}  // namespace

FirmwareUpdate::Outcomes FirmwareUpdate::Runner(std::span<Device* const> devices,
                                                const Request& request, Face& face) {
  if (devices.empty()) {
    return {.summary =
                request.driveSelected ? Status::InvalidArguments : Status::NoSupportedDevices};
  }
  if (!request.file.empty() && !request.driveSelected) {
    face.Say("Firmware binary left aside, as no drive is selected: " + request.file);
  }
  const FirmwareModulesScope modules;
  return DriveWalk(devices, request, face).Run();
}

std::unique_ptr<XmlMessaging::Property> FirmwareUpdate::GetUpdateAvailable(
    JobContext* context, const PropertyEntry& entry, Device* device) {
  auto property = DeviceProperty(entry).ToXml();
  if (device == nullptr) return property;
  const Request request{.moduleDirectories =
                            GetModuleDirectories(context == nullptr ? nullptr : context->request)};
  const auto update = MakeUpdate(device, request, NoReporter());

  constexpr std::string_view kNone = "No update available";
  const auto code = update->GetErrorCode();
  const auto verdict = update->GetMappingStatus();
  const auto destination = update->GetMapping().GetString(FirmwareMapping::Destination);
  const bool ready = code == Status::ReadyToRun;
  const bool available = ready && verdict == FirmwareMapping::kUpdateAvailable;
  if (available) property->value = destination;
  if (ready && verdict == 0) property->value = kNone;
  property->SetAttribute("status", std::to_string((ready ? Status::Completed : code).Value()));

  const bool hidden = code == Status::RaidVolume || code == Status::NotAMorvuDrive;
  if (context != nullptr && !hidden) {
    Notify(*context, *device, available ? destination : std::string(kNone),
           available ? kImportant : kInformative);
  }
  return property;
}

namespace {

StatusCode RunFirmwareUpdate(const FeatureCall& call) {
  const FirmwareUpdate::Request request{.file = call.arguments.GetText(kFileArgument),
                                        .audience = call.arguments.GetText(kAudienceOption),
                                        .driveSelected = call.areChosen,
                                        .job = call.job};
  return FirmwareUpdate::Runner(call.devices, request, call.face).summary;
}

// A request without an Object of a drive is for all drives, as if each were chosen. A file is
// for one.
StatusCode RunFirmwareUpdateMethod(const FeatureCall& call, JobContext& context) {
  const FirmwareUpdate::Request request{.file = call.arguments.GetText(kFileArgument),
                                        .driveSelected = true,
                                        .moduleDirectories = GetModuleDirectories(context.request),
                                        .job = call.job};
  if (!request.file.empty() && CountDistinct(FindFirmwareOwners(call.devices)) > 1)
    return Status::NoDeviceSelected;
  const auto outcomes = FirmwareUpdate::Runner(call.devices, request, call.face);
  if (context.reply != nullptr) context.reply->lists.push_back(DescribeOutcomes(outcomes.drives));
  return outcomes.summary;
}

StatusCode AssessFirmwareUpdate(Device& device) {
  return MakeUpdate(&device, {}, NoReporter())->GetErrorCode();
}

constexpr MethodParameter kParameters[] = {{kFileArgument, "string"}};
constexpr StatusCode kHiddenCodes[] = {Status::NotAMorvuDrive, Status::RaidVolume};
constexpr CimMethod kMethods[] = {
    {.name = kMethodName,
     .displayName = "Firmware Update",
     .category = "standard",
     .targetType = "device",
     .prompt = true,
     .parameters = kParameters,
     .hasStatus = true,
     .hiddenCodes = kHiddenCodes,
     .assess = &AssessFirmwareUpdate,
     .run = &RunFirmwareUpdateMethod},
};
constexpr OptionDeclaration kOptions[] = {
    {.name = "-firmware_update",
     .kind = OptionKind::Texts,
     .category = OptionCategory::Feature,
     .descriptions = kText,
     .arguments = kArguments,
     .examples = kExamples,
     .run = &RunFirmwareUpdate},
    {.name = kAudienceOption,
     .kind = OptionKind::Text,
     .category = OptionCategory::Modifier,
     .descriptions = kAudienceText,
     .arguments = kAudienceArguments,
     .examples = kAudienceExamples,
     .scan = OptionScan::Any},
};

}  // namespace

extern constexpr FeatureRecord FirmwareUpdateRecord = {
    .name = "FirmwareUpdate",
    .group = HelpGroup::Update,
    .isSequence = true,
    .onSeveral = OnSeveral::AskFirst,
    .methods = kMethods,
    .options = kOptions,
};

}  // namespace Morvu
