#include "frame/HeldSignals.h"

#include <ctime>

namespace Morvu {
namespace {

constexpr int kEndingSignals[] = {SIGINT, SIGTERM, SIGHUP};

bool IsIgnored(int signal) {
  struct sigaction action {};
  return sigaction(signal, nullptr, &action) == 0 && action.sa_handler == SIG_IGN;
}

}  // namespace

HeldSignals::HeldSignals() {
  sigemptyset(&held_);
  pthread_sigmask(SIG_SETMASK, nullptr, &before_);
}

HeldSignals::~HeldSignals() {
  constexpr timespec kNow{};
  while (sigtimedwait(&held_, nullptr, &kNow) > 0) {
  }
  pthread_sigmask(SIG_SETMASK, &before_, nullptr);
}

void HeldSignals::Hold() {
  for (const int signal : kEndingSignals) {
    // One that is blocked already is waited for elsewhere.
    if (!IsIgnored(signal) && sigismember(&before_, signal) == 0) sigaddset(&held_, signal);
  }
  pthread_sigmask(SIG_BLOCK, &held_, nullptr);
}

bool HeldSignals::IsPending() const {
  sigset_t pending;
  if (sigpending(&pending) != 0) return false;
  for (const int signal : kEndingSignals) {
    if (sigismember(&held_, signal) == 1 && sigismember(&pending, signal) == 1) return true;
  }
  return false;
}

}  // namespace Morvu
