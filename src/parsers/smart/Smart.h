// The SMART family: the drive method "SmartParser", the subject "SMARTAttribute", the
// option "-smart", and the drive values that the notification service tells.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "cli/QRKCLI.h"
#include "messaging/features/JobContext.h"

namespace Morvu {

namespace DeviceManagement {
class Device;
struct SelectedDevices;
}  // namespace DeviceManagement
namespace XmlMessaging {
class Message;
class Object;
}  // namespace XmlMessaging

namespace Smart {

// The drive method. Null for a drive whose SMART data this library does not read.
std::unique_ptr<XmlMessaging::Object> Describe(DeviceManagement::Device* device);
StatusCode Run(JobContext& context, const XmlMessaging::Object& method,
               DeviceManagement::SelectedDevices& devices);

// Reads every drive of the list: adds its table to the context's reply, if there is
// one, and posts its health, life and temperature. 0 when one drive could be read;
// else the code of the last one.
StatusCode ReadDrives(JobContext& context, DeviceManagement::SelectedDevices& devices);

// The subject: its row of the subject map, and its part of the description of all.
inline constexpr std::string_view kSubject = "SMARTAttribute";
std::unique_ptr<XmlMessaging::Message> HandleSubject(JobContext& context);
void DeclareSubject(XmlMessaging::Message& reply, std::vector<std::string>& names);

CLICommand GetFeatureDefinition();
StatusCode RunCLI(QRKCLI& cli, SelectedDrives devices);

}  // namespace Smart
}  // namespace Morvu
