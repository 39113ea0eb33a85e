// Signals that must not reach a thread.
#pragma once

#include <csignal>

namespace Morvu {

// While it lives, no signal is delivered to this thread: those that come wait, or go to
// another thread. A call to a drive must end by the drive's answer alone, since a signal
// would end the wait for a command that goes on, or let the kernel send it a second time.
// Threads that are started meanwhile keep all signals blocked.
class BlockedSignals {
 public:
  BlockedSignals() {
    sigset_t all;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &before_);
  }
  ~BlockedSignals() { pthread_sigmask(SIG_SETMASK, &before_, nullptr); }
  BlockedSignals(const BlockedSignals&) = delete;
  BlockedSignals& operator=(const BlockedSignals&) = delete;

 private:
  sigset_t before_;
};

}  // namespace Morvu
