// The firmware update as a host and a user meet it: the drive method, the option, and
// the drive property that tells whether there is an update.
#include <algorithm>
#include <string_view>

#include "devices/model/DriveHold.h"
#include "devices/properties/BasicProperties.h"
#include "devices/properties/FirmwareProperties.h"
#include "frame/status/Drives.h"
#include "frame/status/Firmware.h"
#include "frame/status/Health.h"
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

constexpr std::string_view kFileArgument = "file";
constexpr std::string_view kAudienceOption = "-firmware_module_audience";
constexpr std::int32_t kModuleType = 0;
constexpr std::size_t kRuleWidth = 75;

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

// Runs an update; false when the user declines it.
bool RunUpdate(Face& face, FirmwareUpdate& update, const FirmwareUpdate::Request& request) {
  if (request.driveSelected && !face.IsForced() &&
      face.Ask("WARNING! You have selected to update the drives firmware! ",
               "Proceed with the update?") == Answer::No) {
    return false;
  }
  if (!request.file.empty()) face.Say("Given firmware binary: " + request.file);
  face.Say("Updating the drive's firmware...");
  update.Execute();
  if (update.GetErrorCode() == Status::Completed) {
    face.Say("Firmware Update Successful.\nPlease reboot the system.");
  }
  return true;
}

// The outcome for one drive, and what it makes of the summary.
StatusCode UpdateDevice(Device* device, const FirmwareUpdate::Request& request, Face& face,
                        StatusCode& summary) {
  const auto hold = HoldDrive(*device, face, request.job);
  if (hold == nullptr) {
    summary = request.driveSelected ? Status::DriveHeld : AddRefusal(summary, Status::DriveHeld);
    return Status::DriveHeld;
  }
  const auto update = MakeUpdate(device, request, face.GetReporter());
  if (update->GetErrorCode() != Status::ReadyToRun) {
    const auto outcome = update->GetErrorCode();
    summary = request.driveSelected ? outcome : AddRefusal(summary, outcome);
    return outcome;
  }
  if (!RunUpdate(face, *update, request)) return summary = Status::CanceledByUser;
  const auto outcome = update->GetErrorCode();
  summary = request.driveSelected ? outcome : AddRun(summary, outcome);
  return outcome;
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

StatusCode FirmwareUpdate::Runner(std::span<Device* const> devices, const Request& request,
                                  Face& face) {
  if (devices.empty()) {
    return request.driveSelected ? Status::InvalidArguments : Status::NoSupportedDevices;
  }
  StatusCode summary = Status::Completed;
  for (auto* device : devices) {
    ShowHeader(face, *device, request, device == devices.front());
    face.Tell(UpdateDevice(device, request, face, summary));
    if (!request.file.empty()) break;
  }
  return summary;
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
  return FirmwareUpdate::Runner(call.devices, request, call.face);
}

// A request without an Object of a drive is for all drives, as if each were chosen.
StatusCode RunFirmwareUpdateMethod(const FeatureCall& call, JobContext& context) {
  const FirmwareUpdate::Request request{.file = call.arguments.GetText(kFileArgument),
                                        .driveSelected = true,
                                        .moduleDirectories = GetModuleDirectories(context.request),
                                        .job = call.job};
  return FirmwareUpdate::Runner(call.devices, request, call.face);
}

StatusCode AssessFirmwareUpdate(Device& device) {
  return MakeUpdate(&device, {}, NoReporter())->GetErrorCode();
}

constexpr MethodParameter kParameters[] = {{kFileArgument, "string"}};
constexpr StatusCode kHiddenCodes[] = {Status::NotAMorvuDrive, Status::RaidVolume};
constexpr CimMethod kMethods[] = {
    {.name = "FirmwareUpdate",
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
    .isSequence = true,
    .methods = kMethods,
    .options = kOptions,
};

}  // namespace Morvu
