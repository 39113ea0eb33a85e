// What a request says that nothing reads: mostly slips of the pen, which lose no data.
#pragma once

#include <string>
#include <vector>

#include "frame/StatusCode.h"

namespace Morvu {

namespace XmlMessaging {
class Message;
}

struct RequestCheck {
  // Of a request that changes a drive: 73 when a part of it is not understood, 245 when it
  // erases and names no drive. It is refused before any command is sent. Else 0.
  StatusCode code = Status::Completed;
  std::vector<std::string> unread;  // in the order of the request

  bool IsRefused() const { return code != Status::Completed; }
  // The reason of a refusal, for whoever wrote the request.
  std::string GetReason() const;
};

// A request of the drive class changes a drive when it writes a property, or when it mentions a
// method that a host must ask its user about, rightly spelled or in other letters. Of any
// other request the check lists what is passed over.
RequestCheck CheckRequest(const XmlMessaging::Message& request);

}  // namespace Morvu
