#pragma once

#include <pthread.h>

#include <cstddef>
#include <functional>

namespace Morvu {

// A thread of the library. Nobody cancels it, the host's signals go to other threads, and
// whoever waits for it goes on even when its body ends it by pthread_exit.
class Thread {
 public:
  // `stackSize` in bytes; 0 for the system's own. Throws std::system_error when no thread
  // is to be had.
  explicit Thread(std::function<void()> body, std::size_t stackSize = 0);
  ~Thread();  // waits for the body's end
  Thread(const Thread&) = delete;
  Thread& operator=(const Thread&) = delete;

 private:
  pthread_t thread_{};
};

}  // namespace Morvu
