#include "messaging/drive_class/MorvuSSD.h"

#include <algorithm>

#include "devices/model/DeviceList.h"
#include "devices/model/Drive.h"
#include "devices/model/DriveHold.h"
#include "devices/model/RecordingScope.h"
#include "devices/properties/BasicProperties.h"
#include "devices/properties/ScanProperties.h"
#include "devices/system/SystemFacts.h"
#include "frame/Logger.h"
#include "frame/Text.h"
#include "frame/status/Drives.h"
#include "frame/status/Files.h"
#include "frame/status/Requests.h"
#include "messaging/XmlMessaging.h"
#include "messaging/drive_class/MethodCall.h"
#include "messaging/drive_class/RequestCheck.h"
#include "messaging/features/Feature.h"
#include "operations/firmware/FirmwareModules.h"

namespace Morvu {
namespace {

using DeviceManagement::Device;
using DeviceManagement::DeviceKind;
using DeviceManagement::Drive;
using DeviceManagement::DriveHold;
using DeviceManagement::Partition;
using DeviceManagement::RecordedData;
using DeviceManagement::RecordingScope;
using DeviceManagement::SelectedDevices;
using DeviceManagement::SystemFacts;
using XmlMessaging::List;
using XmlMessaging::Message;
using XmlMessaging::Object;
using XmlMessaging::Property;
namespace Properties = DeviceManagement::Properties;

// ---- The object of a drive ----

std::unique_ptr<List> MakeList(std::string_view name) {
  auto list = std::make_unique<List>();
  list->SetAttribute("name", name);
  list->SetAttribute("direction", "o");
  return list;
}

void AddIfAny(Object& object, std::unique_ptr<Property> property) {
  if (property != nullptr) object.AddProperty(std::move(property));
}

// What can be told of a drive whose driver does not let commands through.
void AddCommunicationError(Object& object, Device& device) {
  for (const auto* entry : {&Properties::ModelNumber, &Properties::SerialNumber}) {
    const CimProperty row{entry, "o", &GetGenericProperty, nullptr};
    AddIfAny(object, row.Describe(nullptr, &device));
  }
  const auto error = std::to_string(device.GetUInt(Properties::DriverCommunicationError));
  auto property = DeviceProperty(Properties::DriverCommunicationError).ToXml();
  property->value = error;
  property->SetAttribute("value", error);
  object.AddProperty(std::move(property));
}

// Null for what the device lacks. A device that somebody works on is not asked: of it is told
// what is known, and of a value that would take a command the 180.
std::unique_ptr<Property> DescribeProperty(const CimProperty& row, JobContext& context,
                                           Device& device, bool isHeld) {
  if (!isHeld || row.getter == &GetGenericProperty) return row.Describe(&context, &device);
  auto property = row.Describe(nullptr, nullptr);
  if (property != nullptr) {
    property->SetAttribute("status", std::to_string(Status::DriveHeld.Value()));
  }
  return property;
}

// The properties that the request's Objects "cimProperties" name, or all.
void AddProperties(Object& object, JobContext& context, Device& device, bool isHeld) {
  const auto rows = GetDriveProperties();
  bool areNamed = false;
  for (const auto& request : context.request->objects) {
    if (request->GetAttribute("name") != "cimProperties") continue;
    areNamed = true;
    for (const auto& named : request->properties) {
      const auto& name = named->GetAttribute("name");
      const auto row = std::ranges::find_if(
          rows, [&](std::string_view known) { return IEquals(known, name); },
          &CimProperty::GetName);
      if (row == rows.end()) {
        object.AddProperty(name, "Property does not exist.");
      } else {
        AddIfAny(object, DescribeProperty(*row, context, device, isHeld));
      }
    }
  }
  if (areNamed) return;
  for (const auto& row : rows) {
    AddIfAny(object, DescribeProperty(row, context, device, isHeld));
  }
}

void AddMethods(Object& object, Device& device, bool isHeld) {
  MORVU_LOG(kLogInfo, "ToXmlObject", "Including methods");
  for (const auto& row : GetDriveMethods()) {
    if (auto description = isHeld ? row.method->DescribeHeld() : row.method->Describe(&device)) {
      object.objects.push_back(std::move(description));
    }
  }
}

std::unique_ptr<Object> MakePartitionObject(const Device& device, const Partition& partition,
                                            bool isHeld) {
  const auto space = isHeld ? DeviceManagement::PartitionSpace() : partition.ReadSpace();
  auto object = std::make_unique<Object>();
  object->SetAttribute("name", kPartitionName);
  object->SetAttribute("direction", "io");
  object->AddProperty("Path", partition.GetName());
  object->AddProperty("LogicalSize", std::to_string(space.size));
  object->AddProperty("FreeSpace", std::to_string(space.free));
  object->AddProperty("UsedSpace", std::to_string(space.used));
  object->AddProperty("FreePercentage", std::to_string(space.GetFreePercentage()));
  object->AddProperty("Type", space.type);
  object->AddProperty("Id", std::to_string(device.GetPartitionId(partition)));
  return object;
}

void AddPartitions(Object& object, const Device& device, bool isHeld) {
  if (device.GetPartitions().empty()) return;
  auto list = MakeList(kPartitionName);
  for (const auto& partition : device.GetPartitions()) {
    list->objects.push_back(MakePartitionObject(device, partition, isHeld));
  }
  object.lists.push_back(std::move(list));
}

void AddRaidMembers(Object& object, const Drive& drive) {
  if (drive.GetChildren().empty()) return;
  auto list = MakeList("RAIDMember");
  for (const auto& member : drive.GetChildren()) {
    auto child = std::make_unique<Object>();
    child->SetAttribute("name", member->GetString(Properties::DevicePath));
    list->objects.push_back(std::move(child));
  }
  object.lists.push_back(std::move(list));
}

// The class under which the subject shows the device; empty when it does not.
std::string_view ShownClass(const JobContext& context, const Device& device) {
  if (device.GetBool(Properties::Morvu)) return kMorvuClass;
  return context.subject == kDeviceClass ? kDeviceClass : std::string_view();
}

// Null for a drive that the subject does not show.
std::unique_ptr<Object> ToXmlObject(JobContext& context, Device& device, const SystemFacts& facts) {
  const auto shownClass = ShownClass(context, device);
  if (shownClass.empty()) return nullptr;
  auto object = std::make_unique<Object>();
  object->SetAttribute("cimClass", shownClass);
  object->SetAttribute("uniqueId", device.GetString(Properties::SerialNumber));
  const DriveHold hold(device, facts, DriveHold::Kind::Moment);
  const DeviceManagement::OneConnectionTest once(device);
  const bool isHeld = !hold.IsTaken();
  if (isHeld) {
    object->SetAttribute("busy", BoolText(true));
    object->SetAttribute("busyJob", hold.GetOtherHolder());
  }
  if (device.GetUInt(Properties::DriverCommunicationError) != 0) {
    AddCommunicationError(*object, device);
    return object;
  }
  AddProperties(*object, context, device, isHeld);
  if (ParseBool(context.request->GetAttribute("includeMethods")) == true) {
    AddMethods(*object, device, isHeld);
  }
  AddPartitions(*object, device, isHeld);
  if (const auto* drive = device.AsDrive()) AddRaidMembers(*object, *drive);
  return object;
}

// ---- Requests ----

std::vector<const Object*> FindMethodObjects(Message& request) {
  std::vector<const Object*> methods;
  for (auto* element : request.Find("Object", "type", "method", 1)) {
    methods.push_back(static_cast<const Object*>(element));
  }
  return methods;
}

void ListDrives(JobContext& context, SelectedDevices& devices, List& list) {
  const auto facts = SystemFacts::Read();
  for (const auto& device : devices.devices) {
    if (device->GetKind() != DeviceKind::Drive) continue;
    if (auto object = ToXmlObject(context, *device, facts))
      list.objects.push_back(std::move(object));
  }
}

// What a setter may tell beside its status: attributes of the property, and then of the reply.
constexpr std::string_view kSetterAnswers[] = {"powercycle", "detail", "remainingSaves", "shows"};

StatusCode WriteProperty(JobContext& context, Property& property, Device& device) {
  const auto& direction = property.GetAttribute("direction");
  if (direction != "i" && direction != "io") return Status::InvalidArguments;
  const auto* row = FindDriveProperty(property.GetAttribute("name"));
  if (row == nullptr) return Status::UnknownProperty;
  const DriveHold hold(device, DriveHold::Kind::Sequence, std::to_string(context.jobId));
  if (!hold.IsTaken()) return hold.GetStatus();
  // The setter's answers, not the host's.
  for (const auto name : kSetterAnswers) property.RemoveAttribute(name);
  const auto status = row->Apply(property, device);
  for (const auto name : kSetterAnswers) {
    const auto& answer = property.GetAttribute(name);
    if (!answer.empty()) context.reply->SetAttribute(name, answer);
  }
  return status;
}

// What the request asks of the devices that it selected, at least one.
StatusCode CarryOutUnrecorded(JobContext& context, SelectedDevices& devices, List& list) {
  const auto& properties = context.request->properties;
  if (properties.empty()) {
    const auto methods = FindMethodObjects(*context.request);
    if (methods.size() > 1) return Status::SeveralMethods;
    if (methods.size() == 1) return RunDriveMethod(context, *methods.front(), devices);
    ListDrives(context, devices, list);
    return Status::Completed;
  }
  if (properties.size() > 1 || devices.devices.size() > 1) return Status::InvalidArguments;
  return WriteProperty(context, *properties.front(), *devices.devices.front());
}

// The same, with the drives' commands in the files that the request wants of them.
StatusCode CarryOut(JobContext& context, SelectedDevices& devices, List& list) {
  const auto& record = context.request->GetAttribute("record");
  if (record.empty()) return CarryOutUnrecorded(context, devices, list);
  const auto drives = devices.GetDevices();
  const bool holdsAll = ParseBool(context.request->GetAttribute("recordPasswords")) == true;
  RecordingScope recording(drives, record,
                           holdsAll ? RecordedData::All : RecordedData::WithoutSecrets);
  if (recording.GetStatus() != Status::Completed) return recording.GetStatus();
  context.reply->SetAttribute("recorded", Join(recording.GetFiles(), "~"));
  const auto status = CarryOutUnrecorded(context, devices, list);
  return !recording.End() && status == Status::Completed ? Status::FileNotWritten : status;
}

bool NamesDriveClass(const Message& request) {
  return std::ranges::any_of(request.objects, [](const auto& object) {
    return IsDriveClass(object->GetAttribute("cimClass"));
  });
}

// The status of the request, whose drives are asked only when nothing in it is doubtful.
StatusCode AnswerRequest(JobContext& context, List& list) {
  const auto check = CheckRequest(*context.request);
  if (check.IsRefused()) {
    context.reply->SetAttribute("reason", check.GetReason());
    return check.code;
  }
  SelectedDevices devices;
  context.services->SelectDevices(devices, context.request);
  if (!devices.devices.empty()) return CarryOut(context, devices, list);
  return NamesDriveClass(*context.request) ? Status::NoDeviceSelected : Status::Completed;
}

}  // namespace

std::unique_ptr<Message> HandleMorvuSSD(JobContext& context) {
  const FirmwareModulesScope modules;  // each is verified once, however many drives ask it
  context.services->SetNotifyProgress(true);
  auto reply = std::make_unique<Message>();
  reply->SetAttribute("subject", context.subject);
  context.reply = reply.get();
  auto list = MakeList(context.subject);
  list->SetAttribute("cimClass", context.subject);

  const auto status = AnswerRequest(context, *list);
  reply->lists.push_back(std::move(list));
  context.Report(100, status == Status::Completed ? FeatureState::Finished : FeatureState::Failed,
                 status);
  return reply;
}

void DeclareDriveClasses(Message& reply, std::vector<std::string>& subjectNames) {
  for (const auto cimClass : {kMorvuClass, kDeviceClass}) {
    subjectNames.emplace_back(cimClass);
    auto subject = std::make_unique<XmlMessaging::Subject>();
    subject->SetAttribute("cimClass", cimClass);

    // A request may name one object of the class.
    auto object = std::make_unique<Object>();
    object->SetAttribute("cimClass", cimClass);
    object->SetAttribute("required", BoolText(false));
    object->SetAttribute("direction", "i");
    subject->objects.push_back(std::move(object));

    for (const auto& row : GetDriveProperties()) {
      subject->properties.push_back(row.Describe(nullptr, nullptr));
    }
    for (const auto& row : GetDriveMethods()) {
      subject->objects.push_back(row.method->Describe(nullptr));
    }
    reply.subjects.push_back(std::move(subject));
  }
}

}  // namespace Morvu
