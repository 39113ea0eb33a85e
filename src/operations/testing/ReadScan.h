// Reads a drive to find blocks that it cannot read. Nothing is compared.
#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "messaging/features/Face.h"
#include "messaging/features/Feature.h"

namespace Morvu {

class BlockReader;
struct BlockRead;

// What is to be read. Block 0 is read before all else, whatever the plan.
struct ReadScanPlan {
  enum class Kind {
    Full,    // every block
    Random,  // `count` blocks in random places, in an order that `seed` makes
    Custom,  // the blocks from `first` on, up to `last`, which is not read itself
  };
  static constexpr std::uint64_t kFastCount = 3'000'000;

  Kind kind = Kind::Random;
  std::uint64_t count = kFastCount;
  std::uint64_t first = 0;
  std::uint64_t last = 0;
  std::uint64_t seed = 0;
};

class ReadScan : public Function {
 public:
  ReadScan(DeviceManagement::Device* device, const ReadScanPlan& plan, ProgressReporter& reporter);

  void Initialize() override;
  std::int32_t Execute() override;

  // What was read, up to the end of the scan, whichever it was.
  struct Findings {
    std::uint64_t blocks = 0;
    std::uint64_t first = 0, last = 0;  // the lowest and highest block read; with blocks alone
    std::chrono::microseconds elapsed{0};
    std::chrono::microseconds slowest{0};
    std::uint64_t slowestLba = 0;
    // The blocks, the last included, of which one at least cannot be read.
    std::optional<std::pair<std::uint64_t, std::uint64_t>> failed;
  };
  const Findings& GetFindings() const { return findings_; }
  // In bytes a second; 0 before anything was read.
  double GetRate() const;

  static StatusCode Runner(DeviceManagement::Device& device, const ReadScanPlan& plan, Face& face);

 private:
  struct Rules;
  using Clock = std::chrono::steady_clock;

  bool Prepare();
  bool Scan(BlockReader& reader);
  bool ExecuteRandom(BlockReader& reader);
  bool ExecuteCustom(BlockReader& reader);
  // Reads one block at least, `most` at most; how many. 0 when the scan has ended.
  std::uint32_t ReadSome(BlockReader& reader, std::uint64_t lba, std::uint64_t most);
  BlockRead ReadTimed(BlockReader& reader, std::uint64_t lba, std::uint32_t count);
  void Narrow(BlockReader& reader, std::uint64_t lba, std::uint32_t count);
  void KeepRead(std::uint64_t lba, std::uint32_t count);
  void ShowProgress(std::uint64_t done, std::uint64_t all);
  void ExplainAbort();
  bool IsSanitizing();
  bool FailRead(BlockReader& reader, std::uint64_t lba, std::uint32_t count, const BlockRead& read);
  bool Fail(StatusCode code);
  bool Cancel();

  ReadScanPlan plan_;
  std::uint64_t blocks_ = 0;  // that the drive has
  std::uint32_t blockSize_ = 0;
  std::uint32_t blockCount_;  // of one read, smaller once one was lost on the way
  Findings findings_;
  Clock::time_point begin_{};
  Clock::time_point shown_{};
};

}  // namespace Morvu
