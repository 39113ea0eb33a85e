#pragma once

#include <mutex>
#include <vector>

#include "morvu/ssd_features.h"

namespace Morvu {

// The host's callbacks, in the order of their registration; one may stand here
// several times. Any thread may call any operation.
class EventCallbacks {
 public:
  void Add(EventCallback callback);
  void RemoveFirst(EventCallback callback);
  // Calls each, one thread at a time. A callback that was removed is not running any
  // more when its removal returns.
  void Announce(std::uint64_t jobId);
  // Whether the calling thread is inside a callback.
  static bool IsInCallback();

 private:
  // Recursive: a callback may send a synchronous request, whose messages are announced
  // on the same thread.
  std::recursive_mutex eventMutex_;
  std::vector<EventCallback> callbacks_;
};

}  // namespace Morvu
