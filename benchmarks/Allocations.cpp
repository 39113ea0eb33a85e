#include "Allocations.h"

#include <malloc.h>

#include <atomic>
#include <cstdlib>
#include <new>

namespace {

std::atomic<std::size_t> allocations = 0;
std::atomic<std::size_t> liveBytes = 0;
std::atomic<std::size_t> peakBytes = 0;

void* Allocate(std::size_t size) {
  allocations.fetch_add(1, std::memory_order_relaxed);
  void* memory = std::malloc(size != 0 ? size : 1);
  if (memory == nullptr) throw std::bad_alloc();
  const auto given = malloc_usable_size(memory);
  const auto live = liveBytes.fetch_add(given, std::memory_order_relaxed) + given;
  auto peak = peakBytes.load(std::memory_order_relaxed);
  while (live > peak && !peakBytes.compare_exchange_weak(peak, live, std::memory_order_relaxed)) {
  }
  return memory;
}

void Free(void* memory) {
  liveBytes.fetch_sub(malloc_usable_size(memory), std::memory_order_relaxed);
  std::free(memory);
}

}  // namespace

void* operator new(std::size_t size) { return Allocate(size); }
void* operator new[](std::size_t size) { return Allocate(size); }
void operator delete(void* memory) noexcept { Free(memory); }
void operator delete[](void* memory) noexcept { Free(memory); }
void operator delete(void* memory, std::size_t) noexcept { Free(memory); }
void operator delete[](void* memory, std::size_t) noexcept { Free(memory); }

namespace Morvu::Benchmarks {

std::size_t CountLiveBytes() { return liveBytes.load(std::memory_order_relaxed); }

std::size_t TakePeakBytes() {
  return peakBytes.exchange(CountLiveBytes(), std::memory_order_relaxed);
}

std::size_t CountAllocations() { return allocations.load(std::memory_order_relaxed); }

}  // namespace Morvu::Benchmarks
