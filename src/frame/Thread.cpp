#include "frame/Thread.h"

#include <memory>
#include <system_error>

#include "frame/BlockedSignals.h"

namespace Morvu {
namespace {

using Body = std::function<void()>;

void* RunBody(void* argument) {
  const std::unique_ptr<Body> body(static_cast<Body*>(argument));
  pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, nullptr);
  (*body)();
  return nullptr;
}

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
  const BlockedSignals blocked;
  const int error = pthread_create(&thread_, attributes.Get(), &RunBody, owned.get());
  if (error != 0) throw std::system_error(error, std::generic_category(), "pthread_create");
  (void)owned.release();  // the thread's now
}

Thread::~Thread() { pthread_join(thread_, nullptr); }

}  // namespace Morvu
