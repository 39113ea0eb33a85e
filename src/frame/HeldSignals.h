// While a drive is in a state that must not last, Ctrl-C must not end the tool: it asks to
// stop.
#pragma once

#include <csignal>

namespace Morvu {

// From Hold to the end of the object the signals that would end the process or stop it are
// held back in this thread, unless they are ignored. One that came meanwhile is delivered
// at the end of the object, so that a loop in a shell ends as well.
class HeldSignals {
 public:
  HeldSignals();
  ~HeldSignals();
  HeldSignals(const HeldSignals&) = delete;
  HeldSignals& operator=(const HeldSignals&) = delete;

  void Hold();
  // One that asks to stop was held back.
  bool IsStopRequested() const;
  // One of any kind was: it ends or stops the process when this object ends.
  bool IsOnePending() const;

 private:
  bool IsPending(bool asksToStop) const;

  sigset_t held_;    // those that this object blocks
  sigset_t before_;  // the thread's mask
};

}  // namespace Morvu
