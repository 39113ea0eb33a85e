// Random numbers that are the caller's own: no other code of the process moves their sequence,
// and one seed gives one sequence everywhere.
#pragma once

#include <cstdint>
#include <limits>
#include <random>

namespace Morvu {

class RandomNumbers {
 public:
  explicit RandomNumbers(std::uint64_t seed) : engine_(seed) {}

  // A seed that nobody foresees.
  static std::uint64_t MakeSeed() {
    std::random_device device;
    return std::uint64_t{device()} << 32 | device();
  }

  // One of 0 to `count` - 1, each as likely as any other; 0 for a `count` of 0.
  std::uint64_t Below(std::uint64_t count) {
    if (count == 0) return 0;
    // The largest multiple of the count: what lies behind it would favour the small numbers.
    constexpr auto kMost = std::numeric_limits<std::uint64_t>::max();
    const auto end = kMost - (kMost % count + 1) % count;
    for (;;) {
      const auto value = engine_();
      if (value <= end) return value % count;
    }
  }

 private:
  std::mt19937_64 engine_;
};

}  // namespace Morvu
