#include "frame/HeldSignals.h"

#include <algorithm>

namespace Morvu {
namespace {

struct SignalRow {
  int signal;
  bool asksToStop;
};
constexpr SignalRow kSignals[] = {
    {SIGINT, true},   {SIGTERM, true},  {SIGHUP, true},   {SIGQUIT, true},
    {SIGTSTP, false}, {SIGPIPE, false}, {SIGXFSZ, false},
};

bool IsIgnored(int signal) {
  struct sigaction action {};
  return sigaction(signal, nullptr, &action) == 0 && action.sa_handler == SIG_IGN;
}

}  // namespace

HeldSignals::HeldSignals() {
  sigemptyset(&held_);
  pthread_sigmask(SIG_SETMASK, nullptr, &before_);
}

HeldSignals::~HeldSignals() { pthread_sigmask(SIG_SETMASK, &before_, nullptr); }

void HeldSignals::Hold() {
  for (const auto& row : kSignals) {
    // One that is blocked already is waited for elsewhere.
    if (!IsIgnored(row.signal) && sigismember(&before_, row.signal) == 0) {
      sigaddset(&held_, row.signal);
    }
  }
  pthread_sigmask(SIG_BLOCK, &held_, nullptr);
}

bool HeldSignals::IsStopRequested() const { return IsPending(true); }

bool HeldSignals::IsOnePending() const { return IsPending(true) || IsPending(false); }

bool HeldSignals::IsPending(bool asksToStop) const {
  sigset_t pending;
  if (sigpending(&pending) != 0) return false;
  return std::ranges::any_of(kSignals, [&](const SignalRow& row) {
    return row.asksToStop == asksToStop && sigismember(&held_, row.signal) == 1 &&
           sigismember(&pending, row.signal) == 1;
  });
}

}  // namespace Morvu
