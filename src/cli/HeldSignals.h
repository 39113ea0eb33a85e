// While a drive has a password of ours, Ctrl-C must not end the tool: it asks to stop.
#pragma once

#include <csignal>

#include "messaging/ProgressReporter.h"

namespace Morvu {

// From Hold to the end of the object the signals that would end the process (SIGINT,
// SIGTERM, SIGHUP, unless they are ignored) are held back in this thread. An operation
// that runs with the reporter sees the first one as a request to cancel; then they
// count as carried out.
class HeldSignals {
 public:
  HeldSignals();
  ~HeldSignals();
  HeldSignals(const HeldSignals&) = delete;
  HeldSignals& operator=(const HeldSignals&) = delete;

  void Hold();
  const ProgressReporter* GetReporter() const { return &reporter_; }

 private:
  bool IsPending() const;

  sigset_t held_;    // those that this object blocks
  sigset_t before_;  // the thread's mask
  ProgressReporter reporter_;
};

}  // namespace Morvu
