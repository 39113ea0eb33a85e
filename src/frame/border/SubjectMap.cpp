#include "frame/border/SubjectMap.h"

#include <vector>

#include "devices/identification/DeviceIdentification.h"
#include "devices/model/Drive.h"
#include "devices/properties/FirmwareProperties.h"
#include "messaging/drive_class/MorvuSSD.h"
#include "messaging/features/Feature.h"
#include "messaging/jobs/JobTime.h"
#include "messaging/jobs/MorvuJob.h"
#include "messaging/jobs/NotificationService.h"
#include "operations/firmware/FirmwareUpdate.h"
#include "parsers/nvme/DriveTemperature.h"
#include "parsers/smart/Smart.h"

namespace Morvu {

using XmlMessaging::Message;
namespace Properties = DeviceManagement::Properties;

namespace {

constexpr std::string_view kSupportedFunctionality = "supported functionality";

// What the last scan found may be hours old. Of a drive that does not answer nothing is told.
bool AskAfresh(JobContext&, DeviceManagement::Device& drive) {
  return drive.AsDrive() != nullptr && DeviceManagement::UpdateProperties(drive);
}

// The getter posts what it learns.
bool NotifyFirmware(JobContext& context, DeviceManagement::Device& drive) {
  (void)FirmwareUpdate::GetUpdateAvailable(&context, Properties::FirmwareUpdateAvailable, &drive);
  return true;
}

void NotifySmart(JobContext& context, DeviceManagement::SelectedDevices& selected) {
  (void)Smart::ReadDrives(context, selected.GetDevices());
}

void NotifyNvme(JobContext& context, DeviceManagement::SelectedDevices& selected) {
  NotifyTemperatures(context, selected.GetDevices());
}

constexpr DrivePass::DriveStep kEachDrive[] = {&AskAfresh, &NotifyFirmware, &NotifySecurity};
constexpr DrivePass::ListStep kAllDrives[] = {&NotifySmart, &NotifyNvme};
constexpr DrivePass kDrivePass{kEachDrive, kAllDrives};

std::unique_ptr<Message> HandleNotificationSubject(JobContext& context) {
  return HandleNotification(context, kDrivePass);
}

// A class: its declaration adds a Subject to the reply and its names to the list.
struct ClassRow {
  void (*declare)(Message& reply, std::vector<std::string>& subjectNames);
  SubjectHandler handler;
};

constexpr ClassRow kClasses[] = {
    // clang-format off
    {&DeclareDriveClasses,   &HandleMorvuSSD},             // "MorvuSSD", "Device"
    {&DeclareMorvuJob,       &HandleMorvuJob},             // "MorvuJob"
    {&DeclareNotification,   &HandleNotificationSubject},  // "Notification"
    {&Smart::DeclareSubject, &Smart::HandleSubject},       // "SMARTAttribute"
    // clang-format on
};

std::unique_ptr<Message> HandleSupportedFunctionality(JobContext& context) {
  context.services->SetHidden(true);
  context.services->SetTimeBeforeRemoval(JobDuration::zero());
  SubjectMap unused;  // the library's own map is being read meanwhile
  auto reply = BuildSupportedFunctionality(unused);
  context.Report(100, FeatureState::Finished, Status::Completed);
  return reply;
}

}  // namespace

SubjectHandler SubjectMap::Find(std::string_view subject) const {
  const auto found = handlers_.find(subject);
  return found == handlers_.end() ? nullptr : found->second;
}

void SubjectMap::Set(std::string_view subject, SubjectHandler handler) {
  handlers_.insert_or_assign(std::string(subject), handler);
}

std::unique_ptr<Message> BuildSupportedFunctionality(SubjectMap& subjects) {
  auto reply = std::make_unique<Message>();
  reply->SetAttribute("subject", kSupportedFunctionality);
  subjects.Set(kSupportedFunctionality, &HandleSupportedFunctionality);
  for (const auto& row : kClasses) {
    std::vector<std::string> names;
    row.declare(*reply, names);
    for (const auto& name : names) subjects.Set(name, row.handler);
  }
  return reply;
}

}  // namespace Morvu
