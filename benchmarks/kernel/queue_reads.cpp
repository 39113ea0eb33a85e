// Reads the beginning of a disk by the library's queue, so many transfers in flight at a time.
//
//   queue_reads NODE BYTES BLOCK SLOTS
#include <atomic>
#include <cstdlib>
#include <memory>
#include <string>

#include "devices/queue/CommandQueue.h"

using namespace Morvu;
using namespace Morvu::DeviceManagement;

namespace {

std::atomic<std::uint64_t> bytesRead = 0;

void Count(TransferNotification* notification) {
  if (notification->result == Status::Completed) bytesRead += notification->size;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 5) return 2;
  const std::uint64_t bytes = std::strtoull(argv[2], nullptr, 10);
  const std::size_t block = std::strtoul(argv[3], nullptr, 10);
  const auto disk = std::make_shared<const TransferDisk>(argv[1], "", Transfer::Read);
  CommandQueue queue;
  if (disk->GetStatus() != Status::Completed ||
      !queue.CreateWorkers(static_cast<std::uint32_t>(std::strtoul(argv[4], nullptr, 10)), 1)) {
    return 1;
  }
  TransferNotification notification;
  notification.completion = &Count;
  for (std::uint64_t at = 0; at < bytes; at += block) {
    (void)queue.Enqueue(std::make_unique<QueuedCommand_SendFile>(disk, at, Transfer::Read,
                                                                 ByteView(), block, notification));
  }
  queue.StopWorkers();
  return bytesRead == bytes ? 0 : 1;
}
