// A full read scan against the bare reads that it sends.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <array>
#include <vector>

#include "SlowDrive.h"
#include "operations/testing/ReadScan.h"

namespace Morvu::Benchmarks {
namespace {

constexpr std::uint64_t kSectors = 64ull << 11;  // 64 MiB
constexpr std::uint32_t kMost = 256, kSector = 512;
constexpr std::uint8_t kReadDma = 0xC8;

// READ DMA in ATA PASS-THROUGH (16).
bool Read(int handle, std::uint64_t lba, std::uint32_t count, std::vector<std::uint8_t>& into) {
  const auto byte = [&](unsigned i) { return static_cast<std::uint8_t>(lba >> 8 * i); };
  std::array<std::uint8_t, 16> cdb = {
      0x85,     0x0C,    0x0E, 0,       0, 0,       static_cast<std::uint8_t>(count),
      0,        byte(0), 0,    byte(1), 0, byte(2), static_cast<std::uint8_t>(0x40 | byte(3)),
      kReadDma, 0};
  return Send(handle, cdb, std::span(into).first(count * kSector));
}

void ReadScanFloor(benchmark::State& state) {
  SlowDrive scene(kReadDma, kSectors);
  const int handle = scene.drive().GetPath().GetHandle();
  std::vector<std::uint8_t> data(kMost * kSector);
  for (auto _ : state) {
    bool isRead = Read(handle, 0, 1, data);
    for (std::uint64_t lba = 1; lba < kSectors; lba += kMost) {
      const auto count = static_cast<std::uint32_t>(std::min<std::uint64_t>(kMost, kSectors - lba));
      isRead = isRead && Read(handle, lba, count, data);
    }
    if (!isRead) state.SkipWithError("refused");
  }
}
BENCHMARK(ReadScanFloor)->Name("read_scan/floor")->Unit(benchmark::kMillisecond);

void ReadScanLibrary(benchmark::State& state) {
  SlowDrive scene(kReadDma, kSectors);
  for (auto _ : state) {
    ReadScan scan(&scene.drive(), {.kind = ReadScanPlan::Kind::Full}, NoReporter());
    if (scan.Execute() == 0 || scan.GetFindings().blocks != kSectors) {
      state.SkipWithError("not read whole");
    }
  }
}
BENCHMARK(ReadScanLibrary)->Name("read_scan/library")->Unit(benchmark::kMillisecond);

}  // namespace
}  // namespace Morvu::Benchmarks
