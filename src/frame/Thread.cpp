#include "frame/Thread.h"

#include <signal.h>

#include <memory>
#include <system_error>

namespace Morvu {
namespace {

using Body = std::function<void()>;

void* RunBody(void* argument) {
  const std::unique_ptr<Body> body(static_cast<Body*>(argument));
  pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, nullptr);
  (*body)();
  return nullptr;
}

// Holds off signals while a thread is made, which inherits that. What a thread does to
// itself by a fault stays open: held off, it would end the process without a word.
class SignalsOff {
 public:
  SignalsOff() {
    sigset_t signals;
    sigfillset(&signals);
    for (const int fault : {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGTRAP, SIGABRT, SIGSYS}) {
      sigdelset(&signals, fault);
    }
    pthread_sigmask(SIG_BLOCK, &signals, &old_);
  }
  ~SignalsOff() { pthread_sigmask(SIG_SETMASK, &old_, nullptr); }
  SignalsOff(const SignalsOff&) = delete;
  SignalsOff& operator=(const SignalsOff&) = delete;

 private:
  sigset_t old_{};
};

class Attributes {
 public:
  explicit Attributes(std::size_t stackSize) {
    pthread_attr_init(&attributes_);
    if (stackSize != 0) pthread_attr_setstacksize(&attributes_, stackSize);
  }
  ~Attributes() { pthread_attr_destroy(&attributes_); }
  Attributes(const Attributes&) = delete;
  Attributes& operator=(const Attributes&) = delete;

  const pthread_attr_t* Get() const { return &attributes_; }

 private:
  pthread_attr_t attributes_{};
};

}  // namespace

Thread::Thread(Body body, std::size_t stackSize) {
  const Attributes attributes(stackSize);
  auto owned = std::make_unique<Body>(std::move(body));
  const SignalsOff signalsOff;
  const int error = pthread_create(&thread_, attributes.Get(), &RunBody, owned.get());
  if (error != 0) throw std::system_error(error, std::generic_category(), "pthread_create");
  (void)owned.release();  // the thread's now
}

Thread::~Thread() { pthread_join(thread_, nullptr); }

}  // namespace Morvu
