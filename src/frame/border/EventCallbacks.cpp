#include "frame/border/EventCallbacks.h"

#include <algorithm>

#include "frame/ForcedUnwind.h"

namespace Morvu {
namespace {

[[gnu::tls_model("initial-exec")]] thread_local int callbackDepth = 0;

struct InCallback {
  InCallback() { ++callbackDepth; }
  ~InCallback() { --callbackDepth; }
};

}  // namespace

void EventCallbacks::Add(HostCallback callback) {
  if (callback == nullptr) return;
  std::lock_guard lock(eventMutex_);
  callbacks_.push_back(callback);
}

void EventCallbacks::RemoveFirst(HostCallback callback) {
  std::lock_guard lock(eventMutex_);
  const auto found = std::ranges::find(callbacks_, callback);
  if (found != callbacks_.end()) callbacks_.erase(found);
}

MORVU_PASSES_FORCED_UNWIND void EventCallbacks::Announce(std::uint64_t jobId) {
  std::lock_guard lock(eventMutex_);
  // A copy, for a callback that adds or removes one against the contract.
  const auto callbacks = callbacks_;
  const InCallback mark;
  for (const auto callback : callbacks) {
    try {
      callback(jobId);
    } catch (const abi::__forced_unwind&) {
      throw;  // the host ends this thread
    } catch (...) {
      // A host's own exception ends here: the job goes on.
    }
  }
}

bool EventCallbacks::IsInCallback() { return callbackDepth > 0; }

}  // namespace Morvu
