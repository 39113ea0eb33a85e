#include "devices/discovery/SideBySide.h"

#include <pthread.h>
#include <signal.h>

#include <algorithm>
#include <atomic>
#include <boost/thread/thread.hpp>
#include <exception>
#include <mutex>
#include <vector>

namespace Morvu::DeviceManagement {
namespace {

constexpr std::size_t kMostThreads = 64;
// 32-bit hosts have little room for stacks of the usual size.
constexpr std::size_t kStackBytes = 1 << 20;

class SignalsBlocked {
 public:
  SignalsBlocked() {
    sigset_t all;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &old_);
  }
  ~SignalsBlocked() { pthread_sigmask(SIG_SETMASK, &old_, nullptr); }
  SignalsBlocked(const SignalsBlocked&) = delete;
  SignalsBlocked& operator=(const SignalsBlocked&) = delete;

 private:
  sigset_t old_{};
};

class Work {
 public:
  Work(std::size_t count, const std::function<void(std::size_t)>& ask) : count_(count), ask_(ask) {}

  void Run() {
    for (std::size_t i = next_++; i < count_; i = next_++) {
      try {
        ask_(i);
      } catch (const std::exception&) {
        const std::lock_guard lock(failureMutex_);
        if (failure_ == nullptr) failure_ = std::current_exception();
      }
    }
  }
  void ThrowFailure() const {
    if (failure_ != nullptr) std::rethrow_exception(failure_);
  }

 private:
  const std::size_t count_;
  const std::function<void(std::size_t)>& ask_;
  std::atomic<std::size_t> next_ = 0;
  std::mutex failureMutex_;  // guards the one below
  std::exception_ptr failure_;
};

// Joined on every way out.
class Threads {
 public:
  Threads(std::size_t count, Work& work) {
    const SignalsBlocked blocked;
    boost::thread::attributes attributes;
    attributes.set_stack_size(kStackBytes);
    threads_.reserve(count);
    try {
      for (std::size_t i = 0; i < count; ++i) {
        threads_.emplace_back(attributes, [&work] { work.Run(); });
      }
    } catch (const std::exception&) {
      // Those that there are do the work, and the caller's.
    }
  }
  ~Threads() {
    for (auto& thread : threads_) thread.join();
  }
  Threads(const Threads&) = delete;
  Threads& operator=(const Threads&) = delete;

 private:
  std::vector<boost::thread> threads_;
};

}  // namespace

void AskSideBySide(std::size_t count, const std::function<void(std::size_t)>& ask) {
  if (count == 0) return;
  Work work(count, ask);
  {
    const Threads threads(std::min(count, kMostThreads) - 1, work);
    work.Run();
  }
  work.ThrowFailure();
}

}  // namespace Morvu::DeviceManagement
