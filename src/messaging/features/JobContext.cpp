#include "messaging/features/JobContext.h"

#include "messaging/XmlMessaging.h"

namespace Morvu {

void NoJobServices::Rescan(const XmlMessaging::Message&) {}
void NoJobServices::SelectDevices(DeviceManagement::SelectedDevices&,
                                  const XmlMessaging::Message*) {}
void NoJobServices::PostNotification(const Notification&) {}
void NoJobServices::PostMessage(std::unique_ptr<XmlMessaging::Message>) {}
void NoJobServices::SetHidden(bool) {}
void NoJobServices::SetKeepAll(bool) {}
void NoJobServices::SetTimeBeforeRemoval(std::chrono::microseconds) {}
void NoJobServices::SetNotifyProgress(bool) {}

JobServices& GetNoJobServices() {
  static NoJobServices services;
  return services;
}

}  // namespace Morvu
