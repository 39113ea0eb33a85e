// The SMART family: beside its record, the subject "SMARTAttribute", and the drive values
// that the notification service tells.
#pragma once

#include <memory>
#include <span>
#include <string>
#include <vector>

#include "messaging/features/Face.h"
#include "messaging/features/JobContext.h"

namespace Morvu {

namespace DeviceManagement {
class Device;
}
namespace XmlMessaging {
class Message;
}

namespace Smart {

// Reads every drive of the list: adds its table and its own verdict to the context's reply, if
// there is one, and posts its health, life and temperature, and that it says it fails. 0 when one
// drive could be read; else the code of the last one. `face`, which may be null, is told of
// drives that say that they fail.
StatusCode ReadDrives(JobContext& context, std::span<DeviceManagement::Device* const> devices,
                      Face* face = nullptr);

// The subject: its row of the subject map, and its part of the description of all.
inline constexpr std::string_view kSubject = "SMARTAttribute";
std::unique_ptr<XmlMessaging::Message> HandleSubject(JobContext& context);
void DeclareSubject(XmlMessaging::Message& reply, std::vector<std::string>& names);

}  // namespace Smart
}  // namespace Morvu
