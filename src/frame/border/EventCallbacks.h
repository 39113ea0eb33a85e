#pragma once

#include <cstdint>
#include <mutex>
#include <vector>

namespace Morvu {

// EventCallback of the C header.
using HostCallback = void (*)(std::uint64_t jobId);

// The host's callbacks, in the order of their registration; one may stand here
// several times. Any thread may call any operation.
class EventCallbacks {
 public:
  void Add(HostCallback callback);
  void RemoveFirst(HostCallback callback);
  // Calls each, one thread at a time. A callback that was removed is not running any
  // more when its removal returns.
  void Announce(std::uint64_t jobId);
  // Whether the calling thread is inside a callback.
  static bool IsInCallback();

 private:
  // Recursive: a callback may send a synchronous request, whose messages are announced
  // on the same thread.
  std::recursive_mutex eventMutex_;
  std::vector<HostCallback> callbacks_;
};

}  // namespace Morvu
