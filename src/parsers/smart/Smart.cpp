#include "parsers/smart/Smart.h"

#include <algorithm>
#include <array>

#include "devices/model/DeviceList.h"
#include "devices/model/Drive.h"
#include "devices/model/DriveHold.h"
#include "devices/properties/BasicProperties.h"
#include "devices/system/SystemFacts.h"
#include "frame/Logger.h"
#include "frame/Text.h"
#include "frame/status/Drives.h"
#include "frame/status/Requests.h"
#include "messaging/XmlMessaging.h"
#include "messaging/features/FeatureRecord.h"
#include "messaging/features/ParserReply.h"
#include "parsers/smart/DriveVerdict.h"
#include "parsers/smart/SmartParser.h"

namespace Morvu {
namespace Smart {

using DeviceManagement::Device;
using DeviceManagement::DriveHold;
using DeviceManagement::SelectedDevices;
using XmlMessaging::List;
using XmlMessaging::Message;
using XmlMessaging::Object;
using XmlMessaging::Property;
namespace Properties = DeviceManagement::Properties;

namespace {

// The values that the notification service tells; no device keeps them.
constexpr PropertyEntry kSmartHealth{"SmartHealth", "Smart Health", PropertyKind::Sint16};
constexpr PropertyEntry kSmartLife{"SmartLife", "Smart Life", PropertyKind::Sint16};
constexpr PropertyEntry kTemperature{"Temperature", "Temperature", PropertyKind::Sint16};
constexpr std::uint32_t kStateNotification = 0;
constexpr std::uint32_t kHealthNotification = 1;
constexpr std::uint32_t kTemperatureNotification = 2;
constexpr std::uint32_t kNoteworthy = 1;  // a notification's status
constexpr std::string_view kTemperatureField = "Current degree C";

std::unique_ptr<List> BuildTable(const Device& device, const SmartParser& parser) {
  auto table = std::make_unique<List>();
  table->SetAttribute("name", "SMARTDetails");
  table->SetAttribute("displayName", "SMART Details");
  table->SetAttribute("type", "table");
  table->SetAttribute("direction", "o");
  table->SetAttribute("cimClass", kSubject);
  table->SetAttribute("uniqueId", device.GetString(Properties::SerialNumber));
  for (const auto& [id, attribute] : parser.GetAttributes()) {
    auto object = attribute->ToObject();
    object->SetAttribute("row", std::to_string(table->objects.size()));
    table->objects.push_back(std::move(object));
  }
  return table;
}

// The value of the first breakdown field that tells the temperature; null for none.
const std::string* FindTemperature(const SmartParser& parser) {
  for (const auto& [id, attribute] : parser.GetAttributes()) {
    for (const auto& [name, value] : attribute->GetBreakdown()) {
      if (name == kTemperatureField) return &value;
    }
  }
  return nullptr;
}

std::string GetObjectPath(const Device& device) {
  return "MorvuSSD." + device.GetString(Properties::SerialNumber);
}

// Whether the drive answers for itself: a volume's members do.
bool CanBeJudged(StatusCode refusal) {
  return refusal != Status::NoCommunication && refusal != Status::RaidVolume;
}

void TellVerdict(const JobContext& context, const Device& device, const DriveVerdict& verdict,
                 Face* face) {
  if (context.reply != nullptr) {
    auto property = std::make_unique<Property>(kDriveVerdict.name, verdict.text);
    property->SetAttribute("displayName", kDriveVerdict.displayName);
    property->SetAttribute("type", "string");
    property->SetAttribute("uniqueId", device.GetString(Properties::SerialNumber));
    context.reply->properties.push_back(std::move(property));
  }
  const auto alarm = DescribeAlarm(verdict);
  if (face != nullptr && !alarm.empty()) face->Warn(alarm);
  if (!verdict.IsFailing()) return;
  context.services->PostNotification({kStateNotification,
                                      DeviceProperty(kDriveVerdict, verdict.text),
                                      GetObjectPath(device), kNoteworthy});
}

void PostValues(const JobContext& context, const Device& device, const SmartParser& parser) {
  const auto objectPath = GetObjectPath(device);
  const auto post = [&](std::uint32_t type, const PropertyEntry& entry, std::int64_t value) {
    context.services->PostNotification({type, DeviceProperty(entry, value), objectPath, 0});
  };
  post(kHealthNotification, kSmartHealth, parser.SmartHealth());
  post(kHealthNotification, kSmartLife, parser.SmartLife());
  if (const auto* temperature = FindTemperature(parser)) {
    if (const auto degrees = ParseSigned(*temperature)) {
      post(kTemperatureNotification, kTemperature, *degrees);
    }
  }
}

// The status of a request that selected nothing: an error when it named devices.
StatusCode StatusWithoutDevices(const Message* request) {
  if (request == nullptr) return Status::NotRun;
  const bool namesDevices = std::ranges::any_of(request->objects, [](const auto& object) {
    const auto& name = object->GetAttribute("cimClass");
    return name == "MorvuSSD" || name == "Device";
  });
  return namesDevices ? Status::NoDeviceSelected : Status::NotRun;
}

}  // namespace

StatusCode ReadDrives(JobContext& context, std::span<Device* const> devices, Face* face) {
  if (devices.empty()) return StatusWithoutDevices(context.request);
  StatusCode result = Status::NotRun;
  const auto facts = DeviceManagement::SystemFacts::Read();
  for (auto* device : devices) {
    if (device->AsDrive() == nullptr) continue;
    const DriveHold hold(*device, facts, DriveHold::Kind::Moment);
    if (!hold.IsTaken()) {
      if (result != Status::Completed) result = hold.GetStatus();
      continue;
    }
    // Without the job's reporter: the job is not at its end with the first drive's.
    SmartParser parser(device);
    if (parser.GetErrorCode() == Status::ReadyToRun && parser.Execute() != 0) {
      if (context.reply != nullptr) context.reply->lists.push_back(BuildTable(*device, parser));
      PostValues(context, *device, parser);
    }
    if (CanBeJudged(parser.GetErrorCode())) {
      TellVerdict(context, *device, ReadVerdict(*device), face);
    }
    if (result != Status::Completed) result = parser.GetErrorCode();
  }
  return result;
}

std::unique_ptr<Message> HandleSubject(JobContext& context) {
  context.services->SetNotifyProgress(true);
  auto reply = std::make_unique<Message>();
  reply->SetAttribute("subject", context.subject);
  context.reply = reply.get();
  SelectedDevices devices;
  context.services->SelectDevices(devices, context.request);
  const auto status = ReadDrives(context, devices.GetDevices());
  context.Report(100, status == Status::Completed ? 0 : 1, status);
  context.reply = nullptr;
  return reply;
}

void DeclareSubject(Message& reply, std::vector<std::string>& names) {
  names.emplace_back(kSubject);
  auto subject = std::make_unique<XmlMessaging::Subject>();
  subject->SetAttribute("name", "SMART Details");
  subject->SetAttribute("description", "blah blah blah SMART");
  subject->SetAttribute("cimClass", kSubject);
  auto parameter = std::make_unique<Property>();
  parameter->SetAttribute("name", "MorvuSSD");
  parameter->SetAttribute("required", BoolText(false));
  parameter->SetAttribute("direction", "i");
  subject->properties.push_back(std::move(parameter));
  reply.subjects.push_back(std::move(subject));
}

// ---- The family ----

namespace {

// The columns that give way where a line is short: description and raw value.
constexpr std::size_t kWrappedColumns[] = {1, 2};

void ShowTable(Face& face, ResultTable& table) {
  for (const auto column : kWrappedColumns) table.SetColumnWidth(column, 0);
  face.Say();
  face.Show(table);
  face.Say();
}

// Which of several drives the table is about.
void NameDrive(const FeatureCall& call) {
  if (call.devices.size() == 1) return;
  const auto& device = call.GetDevice();
  call.face.Say("Drive " + Printable(device.GetString(Properties::DevicePath)) + ": " +
                Printable(device.GetString(Properties::ModelNumber)) + ", serial number " +
                Printable(device.GetString(Properties::SerialNumber)));
}

// At the prompt the first drive is read.
StatusCode RunOption(const FeatureCall& call) {
  const DriveHold hold(call.GetDevice(), DriveHold::Kind::Moment);
  if (!hold.IsTaken()) return hold.GetStatus();
  NameDrive(call);
  SmartParser parser(&call.GetDevice());
  if (parser.GetErrorCode() == Status::ReadyToRun && parser.Execute() != 0) {
    const auto file = call.arguments.GetText(kFileArgument);
    if (!call.arguments.Has(kFileArgument)) {
      ShowTable(call.face, parser.GetTable());
    } else {
      MORVU_LOG(kLogDebug, "RunCLI", "Saving SMART to: " + file);
      // A table that could not be saved is told beside the run's own end.
      (void)call.face.Save(parser.GetTable(), file);
    }
  }
  if (CanBeJudged(parser.GetErrorCode())) {
    const auto verdict = ReadVerdict(call.GetDevice());
    call.face.Say("Drive's own verdict: " + verdict.text);
    if (const auto alarm = DescribeAlarm(verdict); !alarm.empty()) call.face.Warn(alarm);
  }
  return parser.GetErrorCode();
}

StatusCode RunMethod(const FeatureCall& call, JobContext& context) {
  return ReadDrives(context, call.devices, &call.face);
}

StatusCode Assess(Device& device) {
  return device.AsDrive() == nullptr ? Status::ReadyToRun : SmartParser(&device).GetErrorCode();
}

constexpr std::string_view kDescriptions[] = {"Display selected drive's SMART data to the screen."};
constexpr ArgumentDeclaration kArguments[] = {
    {"[filename]",
     "(Optional)  Save the SMART data to the given file. Data is saved in CSV format.",
     kFileArgument}};
constexpr std::string_view kExamples[] = {"-drive_index 1 -smart",
                                          "-drive_index 1 -smart smartData.csv"};
constexpr StatusCode kHiddenCodes[] = {Status::RaidVolume, Status::NotSupportedByDrive};
constexpr CimMethod kMethods[] = {
    {.name = "SmartParser",
     .displayName = "SMART Details",
     .category = "standard",
     .targetType = "device",
     .hasTable = true,
     .hiddenCodes = kHiddenCodes,
     .assess = &Assess,
     .run = &RunMethod},
};
constexpr OptionDeclaration kOptions[] = {
    {.name = "-smart",
     .kind = OptionKind::Texts,
     .category = OptionCategory::Feature,
     .descriptions = kDescriptions,
     .arguments = kArguments,
     .examples = kExamples,
     .run = &RunOption},
};

}  // namespace
}  // namespace Smart

extern constexpr FeatureRecord SmartRecord = {
    .name = "Smart",
    .onSeveral = OnSeveral::Each,
    .methods = Smart::kMethods,
    .options = Smart::kOptions,
};

}  // namespace Morvu
