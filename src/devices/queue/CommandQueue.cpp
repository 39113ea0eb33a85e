#include "devices/queue/CommandQueue.h"

#include <algorithm>
#include <cerrno>
#include <limits>
#include <new>
#include <system_error>

#include "frame/Logger.h"
#include "frame/Thread.h"

namespace Morvu::DeviceManagement {

ByteSpan SlotBuffer::Take(std::size_t size) {
  if (buffer_ != nullptr && size == size_) return buffer_->Get();
  buffer_.reset();
  try {
    buffer_ = std::make_unique<AlignedBuffer>(size);
  } catch (const std::bad_alloc&) {
    return {};
  }
  size_ = size;
  return buffer_->Get();
}

QueuedCommand::QueuedCommand(const TransferNotification& notification, Transfer direction,
                             ByteView data, std::size_t size)
    : direction_(direction), size_(size), notification_(notification) {
  if (direction == Transfer::Write) {
    copy_ = std::make_unique<AlignedBuffer>(size);
    std::ranges::copy(data.first(std::min(data.size(), size)), copy_->Get().begin());
  }
}

std::uint64_t QueuedCommand::GetElapsed() const {
  if (begin_ == Clock::time_point()) return 0;
  const auto time = Clock::now() - begin_;
  return static_cast<std::uint64_t>(
      std::chrono::duration_cast<std::chrono::microseconds>(time).count());
}

void QueuedCommand::Complete(SlotBuffer& slot) {
  data_ = copy_ != nullptr ? copy_->Get() : slot.Take(size_);
  begin_ = Clock::now();
  const auto code = data_.size() == size_ ? Execute() : StatusCode::FromSystemError(ENOMEM);
  if (code != Status::Completed && copy_ == nullptr) std::ranges::fill(data_, std::uint8_t{0});
  notification_.result = code;
  notification_.data = data_.data();
  notification_.size = static_cast<std::uint32_t>(data_.size());
  notification_.transferred =
      code == Status::Completed ? static_cast<std::int32_t>(data_.size()) : -1;
  notification_.elapsedMs = static_cast<std::uint32_t>(
      std::min<std::uint64_t>(GetElapsed() / 1000, std::numeric_limits<std::uint32_t>::max()));
  for (const auto call : {notification_.cleanUp, notification_.completion}) {
    if (call != nullptr) call(&notification_);
  }
}

// One worker: what waits for its slots, and their threads.
struct CommandQueueWorker {
  std::condition_variable begin;  // something waits, or all is to end
  std::uint32_t slots = 0;
  std::uint32_t taken = 0;  // slots with a command, one at its callbacks too
  std::deque<std::unique_ptr<QueuedCommand>> waiting{};
  bool isStopping = false;
  std::vector<std::unique_ptr<Thread>> threads{};
};

namespace {

// The queue whose callback this thread is in; null on every other.
thread_local const void* callbackOf = nullptr;

}  // namespace

class CommandQueue::State : public std::enable_shared_from_this<State> {
 public:
  bool Create(std::uint32_t total, std::uint32_t count) {
    Stop();
    const std::lock_guard lock(mutex_);
    for (std::uint32_t i = 0; i < count; ++i) {
      auto worker = std::make_shared<CommandQueueWorker>();
      worker->slots = total / count + (i < total % count ? 1 : 0);
      workers_.push_back(worker);
    }
    next_ = 0;
    try {
      for (const auto& worker : workers_) {
        for (std::uint32_t i = 0; i < worker->slots; ++i) {
          worker->threads.push_back(std::make_unique<Thread>(
              [self = shared_from_this(), worker] { self->Run(*worker); }));
        }
      }
    } catch (const std::system_error&) {
      MORVU_LOG(kLogError, "CreateWorkers", "A worker's thread could not be started.");
      return false;
    }
    return true;
  }

  // Whoever stops waits until all but the callbacks that stop as well have ended.
  void Stop() {
    const bool isCallback = callbackOf == this;
    std::vector<std::shared_ptr<CommandQueueWorker>> ended;
    {
      std::unique_lock lock(mutex_);
      if (isCallback) ++stoppingCallbacks_;
      for (const auto& worker : workers_) {
        worker->isStopping = true;
        worker->begin.notify_all();
      }
      changed_.notify_all();
      changed_.wait(lock, [&] { return CountTaken() <= stoppingCallbacks_; });
      ended.swap(workers_);
      if (isCallback) --stoppingCallbacks_;
      changed_.notify_all();
      if (isCallback) {
        // A thread cannot wait for itself: who comes next to a stop ends these.
        std::ranges::move(ended, std::back_inserter(left_));
        return;
      }
      std::ranges::move(left_, std::back_inserter(ended));
      left_.clear();
    }
    for (const auto& worker : ended) worker->threads.clear();
  }

  bool Enqueue(std::unique_ptr<QueuedCommand> command) {
    std::unique_lock lock(mutex_);
    CommandQueueWorker* free = nullptr;
    // A callback's own slot is free only behind it: it never waits for one.
    const bool isCallback = callbackOf == this;
    changed_.wait(lock, [&] {
      free = FindFree([](const auto& worker) { return worker.taken < worker.slots; });
      return free != nullptr || isCallback || !HasSlots();
    });
    if (free == nullptr) free = FindFree([](const auto& worker) { return worker.slots > 0; });
    if (free == nullptr) return false;
    ++free->taken;
    free->waiting.push_back(std::move(command));
    free->begin.notify_one();
    return true;
  }

  bool IsIdle() const {
    const std::lock_guard lock(mutex_);
    return CountTaken() == 0;
  }
  std::vector<std::uint32_t> GetSlots() const {
    const std::lock_guard lock(mutex_);
    std::vector<std::uint32_t> slots;
    for (const auto& worker : workers_) slots.push_back(worker->slots);
    return slots;
  }

 private:
  void Run(CommandQueueWorker& worker) {
    SlotBuffer buffer;
    std::unique_lock lock(mutex_);
    for (;;) {
      worker.begin.wait(lock, [&] { return !worker.waiting.empty() || worker.isStopping; });
      if (worker.waiting.empty()) return;
      auto command = std::move(worker.waiting.front());
      worker.waiting.pop_front();
      lock.unlock();
      callbackOf = this;
      command->Complete(buffer);
      command.reset();
      callbackOf = nullptr;
      lock.lock();
      --worker.taken;
      changed_.notify_all();
    }
  }

  // With the lock held. Round robin over the workers.
  CommandQueueWorker* FindFree(bool (*isFit)(const CommandQueueWorker& worker)) {
    for (std::size_t i = 0; i < workers_.size(); ++i) {
      auto& worker = *workers_[next_];
      next_ = (next_ + 1) % workers_.size();
      if (!worker.isStopping && isFit(worker)) return &worker;
    }
    return nullptr;
  }
  bool HasSlots() const {
    return std::ranges::any_of(
        workers_, [](const auto& worker) { return worker->slots > 0 && !worker->isStopping; });
  }
  std::uint32_t CountTaken() const {
    std::uint32_t taken = 0;
    for (const auto& worker : workers_) taken += worker->taken;
    return taken;
  }

  mutable std::mutex mutex_;  // guards what follows, and the workers' own
  // A slot is free, or a stop goes on. Each worker's threads wait apart: one command wakes one.
  std::condition_variable changed_;
  std::vector<std::shared_ptr<CommandQueueWorker>> workers_;
  std::vector<std::shared_ptr<CommandQueueWorker>> left_;  // stopped by a callback of theirs
  std::size_t next_ = 0;
  std::uint32_t stoppingCallbacks_ = 0;
};

CommandQueue::CommandQueue() : state_(std::make_shared<State>()) {}

CommandQueue::~CommandQueue() { state_->Stop(); }

bool CommandQueue::CreateWorkers(std::uint32_t total, std::uint32_t count) {
  if (count == 0) {
    state_->Stop();
    return true;
  }
  if (state_->Create(total, count)) return true;
  state_->Stop();
  return false;
}

void CommandQueue::StopWorkers() { state_->Stop(); }

bool CommandQueue::WorkersIdle() const { return state_->IsIdle(); }

bool CommandQueue::HasWorkers() const { return !state_->GetSlots().empty(); }

std::vector<std::uint32_t> CommandQueue::GetSlots() const { return state_->GetSlots(); }

bool CommandQueue::Enqueue(std::unique_ptr<QueuedCommand> command) {
  return state_->Enqueue(std::move(command));
}

}  // namespace Morvu::DeviceManagement
