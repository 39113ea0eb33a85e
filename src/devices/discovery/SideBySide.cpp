#include "devices/discovery/SideBySide.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <exception>
#include <memory>
#include <mutex>
#include <vector>

#include "frame/Thread.h"

namespace Morvu::DeviceManagement {
namespace {

// Drives that answer at once need few threads. While some are waited for, more take up the
// others: twice as many every few milliseconds.
constexpr std::size_t kFirstThreads = 4;
constexpr std::size_t kMostThreads = 64;
constexpr std::chrono::milliseconds kPatience{5};
// 32-bit hosts have little room for stacks of the usual size.
constexpr std::size_t kStackBytes = 1 << 20;

class Work {
 public:
  Work(std::size_t count, const std::function<void(std::size_t)>& ask) : count_(count), ask_(ask) {}

  void Run() {
    for (std::size_t i = next_++; i < count_; i = next_++) {
      try {
        ask_(i);
      } catch (const std::exception&) {
        const std::lock_guard lock(mutex_);
        if (failure_ == nullptr) failure_ = std::current_exception();
      }
    }
    const std::lock_guard lock(mutex_);
    ended_.notify_one();
  }
  // Whether all has been begun; waits a little for it.
  bool IsBegun() {
    std::unique_lock lock(mutex_);
    return ended_.wait_for(lock, kPatience, [this] { return next_ >= count_; });
  }
  void ThrowFailure() const {
    if (failure_ != nullptr) std::rethrow_exception(failure_);
  }

 private:
  const std::size_t count_;
  const std::function<void(std::size_t)>& ask_;
  std::atomic<std::size_t> next_ = 0;
  std::condition_variable ended_;
  std::mutex mutex_;  // guards the one below
  std::exception_ptr failure_;
};

// Joined on every way out.
class Threads {
 public:
  explicit Threads(Work& work) : work_(work) {}
  Threads(const Threads&) = delete;
  Threads& operator=(const Threads&) = delete;

  std::size_t GetCount() const { return threads_.size(); }
  // False when there is not one more to be had.
  bool Start(std::size_t count) {
    const auto before = threads_.size();
    try {
      while (count-- > 0 && threads_.size() < kMostThreads) {
        threads_.push_back(std::make_unique<Thread>([this] { work_.Run(); }, kStackBytes));
      }
    } catch (const std::exception&) {
      // Those that there are do the work.
    }
    return threads_.size() > before;
  }

 private:
  Work& work_;
  std::vector<std::unique_ptr<Thread>> threads_;
};

}  // namespace

void AskSideBySide(std::size_t count, const std::function<void(std::size_t)>& ask) {
  if (count == 0) return;
  Work work(count, ask);
  {
    Threads threads(work);
    // This thread works too where nothing is left to watch for.
    if (count <= kFirstThreads || !threads.Start(kFirstThreads)) {
      threads.Start(count <= kFirstThreads ? count - 1 : 0);
      work.Run();
    }
    while (!work.IsBegun() && threads.Start(threads.GetCount())) {
    }
  }
  work.ThrowFailure();
}

}  // namespace Morvu::DeviceManagement
