// Signals that must not reach a thread.
#pragma once

#include <csignal>

namespace Morvu {

// While it lives, no signal is delivered to this thread: those that come wait, or go to
// another thread. A call to a drive must end by the drive's answer alone, since a signal
// would end the wait for a command that goes on, or let the kernel send it a second time.
// Threads that are started meanwhile keep them blocked. What a thread does to itself by a
// fault stays open: held off, it would end the process without a word.
class BlockedSignals {
 public:
  BlockedSignals() {
    sigset_t signals;
    sigfillset(&signals);
    for (const int fault : {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGTRAP, SIGABRT, SIGSYS}) {
      sigdelset(&signals, fault);
    }
    pthread_sigmask(SIG_BLOCK, &signals, &before_);
  }
  ~BlockedSignals() { pthread_sigmask(SIG_SETMASK, &before_, nullptr); }
  BlockedSignals(const BlockedSignals&) = delete;
  BlockedSignals& operator=(const BlockedSignals&) = delete;

 private:
  sigset_t before_;
};

}  // namespace Morvu
