// Transfers of a disk's bytes that run while their caller goes on. A path's workers hold them in
// slots; each slot carries one out on a thread of its own, so that as many run at a time as there
// are slots, and nobody spins.
//
// A caller's callbacks run on a worker's thread, the clean-up first. They may call anything of the
// path, StopWorkers too.
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <memory>
#include <mutex>
#include <string_view>
#include <vector>

#include "devices/queue/AlignedBuffer.h"
#include "devices/queue/TransferDisk.h"

namespace Morvu::DeviceManagement {

// What the callbacks of a queued transfer get: a copy of the caller's record, filled in.
struct TransferNotification {
  using Callback = void (*)(TransferNotification* notification);

  Callback completion = nullptr;
  Callback cleanUp = nullptr;
  StatusCode result = Status::Completed;  // as TransferFile has it
  std::uint8_t* data = nullptr;           // the command's own, for as long as the callbacks run
  std::uint32_t size = 0;
  std::int32_t transferred = 0;  // -1 when it failed
  std::uint32_t elapsedMs = 0;
  std::uint8_t reply[64] = {};  // the caller's; nothing here reads it
};

// What a slot reads into, again and again: memory that is new for each transfer costs more than
// the transfer.
class SlotBuffer {
 public:
  // Holds what it held before, at first zeros. Nothing where there is no memory.
  ByteSpan Take(std::size_t size);

 private:
  std::unique_ptr<AlignedBuffer> buffer_;
  std::size_t size_ = 0;
};

class QueuedCommand {
 public:
  using Clock = std::chrono::steady_clock;

  // Of data to be written a copy is kept. A read's are a slot's; zeros where it failed.
  QueuedCommand(const TransferNotification& notification, Transfer direction, ByteView data,
                std::size_t size);
  virtual ~QueuedCommand() = default;
  QueuedCommand(const QueuedCommand&) = delete;
  QueuedCommand& operator=(const QueuedCommand&) = delete;

  virtual StatusCode Execute() = 0;
  virtual std::string_view GetName() const = 0;
  // In microseconds, from the beginning of Execute; 0 before it.
  std::uint64_t GetElapsed() const;

  // Carries it out and calls back.
  void Complete(SlotBuffer& slot);

 protected:
  Transfer direction_;
  ByteSpan data_;  // there while it is carried out

 private:
  std::unique_ptr<AlignedBuffer> copy_;  // of what is to be written
  std::size_t size_;
  TransferNotification notification_;
  Clock::time_point begin_{};
};

// A transfer from a byte offset on. The disk must outlive it.
class QueuedCommand_SendFile final : public QueuedCommand {
 public:
  QueuedCommand_SendFile(std::shared_ptr<const TransferDisk> disk, std::uint64_t offset,
                         Transfer direction, ByteView data, std::size_t size,
                         const TransferNotification& notification)
      : QueuedCommand(notification, direction, data, size),
        disk_(std::move(disk)),
        offset_(offset) {}

  StatusCode Execute() override { return TransferFile(*disk_, direction_, offset_, data_); }
  std::string_view GetName() const override { return "SendFile Command"; }

 private:
  std::shared_ptr<const TransferDisk> disk_;
  std::uint64_t offset_;
};

// The workers of one path.
class CommandQueue {
 public:
  CommandQueue();
  ~CommandQueue();  // as StopWorkers
  CommandQueue(const CommandQueue&) = delete;
  CommandQueue& operator=(const CommandQueue&) = delete;

  // `total` slots over `count` workers, the first ones with one more where it does not come out
  // even; the workers that there were are stopped first. False when a thread cannot be had: then
  // there are none.
  bool CreateWorkers(std::uint32_t total, std::uint32_t count);
  // Lets what is queued end, callbacks too, and ends the threads. Called by a callback it does not
  // wait for that one.
  void StopWorkers();
  // No transfer is in a slot, and no callback runs.
  bool WorkersIdle() const;
  bool HasWorkers() const;
  std::vector<std::uint32_t> GetSlots() const;  // of each worker

  // Waits for a free slot, but for a callback, whose command waits behind those that are in the
  // slots. False where no worker has one.
  bool Enqueue(std::unique_ptr<QueuedCommand> command);

 private:
  class State;
  std::shared_ptr<State> state_;  // shared with the threads: a callback may end the queue
};

}  // namespace Morvu::DeviceManagement
