#pragma once

#include <benchmark/benchmark.h>

#include <cstddef>

namespace Morvu::Benchmarks {

// How often this program has called operator new.
std::size_t CountAllocations();
// What it has of it and has not given back.
std::size_t CountLiveBytes();
// The most that it had since the last call of this.
std::size_t TakePeakBytes();

// Tells a benchmark's allocations an iteration, from its construction to its end.
class AllocationMeter {
 public:
  explicit AllocationMeter(benchmark::State& state) : state_(state), start_(CountAllocations()) {}
  ~AllocationMeter() {
    state_.counters["allocations"] = benchmark::Counter(
        static_cast<double>(CountAllocations() - start_), benchmark::Counter::kAvgIterations);
  }
  AllocationMeter(const AllocationMeter&) = delete;
  AllocationMeter& operator=(const AllocationMeter&) = delete;

 private:
  benchmark::State& state_;
  std::size_t start_;
};

}  // namespace Morvu::Benchmarks
