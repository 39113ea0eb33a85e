// While a drive is in a state that must not last, Ctrl-C must not end the tool: it asks to
// stop.
#pragma once

#include <csignal>

namespace Morvu {

// From Hold to the end of the object the signals that would end the process (SIGINT,
// SIGTERM, SIGHUP, unless they are ignored) are held back in this thread. One that came
// meanwhile is a request to stop; at the end of the object it counts as carried out.
class HeldSignals {
 public:
  HeldSignals();
  ~HeldSignals();
  HeldSignals(const HeldSignals&) = delete;
  HeldSignals& operator=(const HeldSignals&) = delete;

  void Hold();
  // One was held back.
  bool IsPending() const;

 private:
  sigset_t held_;    // those that this object blocks
  sigset_t before_;  // the thread's mask
};

}  // namespace Morvu
