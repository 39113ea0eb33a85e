// Reads of a drive's blocks past every cache of the system, and what a read that failed tells:
// whether the drive or the way to it failed, and where.
#pragma once

#include <cstdint>
#include <optional>

#include "devices/model/Device.h"
#include "devices/queue/AlignedBuffer.h"

namespace Morvu {

struct BlockRead {
  enum class End {
    Good,
    Drive,      // it answered, and could not read
    Transport,  // the data, the command or its end was lost on the way
  };
  End end = End::Good;
  std::optional<std::uint64_t> failed{};  // the first block that failed, where the drive says so
  bool isAborted = false;                 // the drive would not read at all (ABRT alone)
  StatusCode code = Status::Completed;    // of the command
};

class BlockReader {
 public:
  static constexpr std::uint32_t kMostBlocks = 256;

  // A drive of ATA commands is read by them, any other by its disk, which must be this very
  // drive's. `blockSize` in bytes.
  BlockReader(DeviceManagement::Device& device, std::uint32_t blockSize);

  // 0; 118 for a drive without a disk, 4 when it cannot be opened or is another's.
  StatusCode GetStatus() const { return status_; }
  // From 1 to 256 blocks.
  BlockRead Read(std::uint64_t lba, std::uint32_t count);

 private:
  StatusCode OpenDisk();
  StatusCode Send(std::uint64_t lba, std::uint32_t count, ByteSpan data);

  DeviceManagement::Device& device_;
  std::uint32_t blockSize_;
  DeviceManagement::AlignedBuffer buffer_;
  StatusCode status_ = Status::Completed;
};

// What is told of an ATA read of `count` blocks from `lba` on by its outcome.
BlockRead JudgeAtaRead(const DeviceManagement::Outcome& outcome, std::uint64_t lba,
                       std::uint32_t count);

}  // namespace Morvu
