// An Event Log against the bare commands that read it, and the filter of NLogs against a copy.
#include <array>
#include <cstring>
#include <span>
#include <string>
#include <vector>

#include "Allocations.h"
#include "SlowDrive.h"
#include "VendorLogs.h"
#include "frame/Files.h"
#include "parsers/logs/NlogFilter.h"
#include "parsers/logs/ReadLog.h"

namespace Morvu::Benchmarks {
namespace {

constexpr std::size_t kBlocks = 0x3300, kBlock = 512, kChunk = 0x80;

// A drive that has the log at DEh, and takes a millisecond for 64 KiB of it.
struct LogScene : SlowDrive {
  LogScene() : SlowDrive(0x2F) {}
};

// NOP in ATA PASS-THROUGH (12).
bool SendNop(int handle) {
  std::array<std::uint8_t, 12> cdb = {0xA1, 0x08, 0x2E};
  std::array<std::uint8_t, kBlock> unseen{};
  return Send(handle, cdb, unseen);
}

// READ LOG EXT in ATA PASS-THROUGH (16).
bool ReadLogExt(int handle, std::uint8_t log, std::size_t blocks, std::uint8_t* into) {
  std::array<std::uint8_t, 16> cdb = {0x85, 0x09, 0x2E, 0, 0, 0, static_cast<std::uint8_t>(blocks),
                                      0,    log,  0,    0, 0, 0, 0x40,
                                      0x2F, 0};
  return Send(handle, cdb, {into, blocks * kBlock});
}

void EventLogFloor(benchmark::State& state) {
  LogScene scene;
  const int handle = scene.drive().GetPath().GetHandle();
  for (auto _ : state) {
    // The connection is tested before and behind the refusals.
    std::array<std::uint8_t, kBlock> directory{};
    bool isRead = SendNop(handle) && SendNop(handle) && ReadLogExt(handle, 0, 1, directory.data());
    std::vector<std::uint8_t> log(kBlocks * kBlock);
    for (std::size_t at = 0; at < kBlocks; at += kChunk) {
      isRead = isRead && ReadLogExt(handle, 0xDE, kChunk, &log[at * kBlock]);
    }
    if (!isRead || log.back() == 0) state.SkipWithError("refused");
  }
}
BENCHMARK(EventLogFloor)->Name("event_log/floor");

void EventLogLibrary(benchmark::State& state) {
  LogScene scene;
  for (auto _ : state) {
    ReadLog::ReadLog_EventLog log(&scene.drive());
    if (log.Execute() == 0 || log.GetData().back() == 0) state.SkipWithError("refused");
  }
}
BENCHMARK(EventLogLibrary)->Name("event_log/library");

void EventLogFile(benchmark::State& state) {
  LogScene scene;
  const auto path = scene.Folder() + "/event_log";
  for (auto _ : state) {
    TakePeakBytes();
    const auto before = CountLiveBytes();
    ReadLog::ReadLog_EventLog log(&scene.drive());
    if (log.Execute() == 0 || !SaveBinary(path, log.GetData(), false)) {
      state.SkipWithError("refused");
    }
    state.counters["extra_bytes"] =
        static_cast<double>(TakePeakBytes() - before - kBlocks * kBlock);
  }
}
BENCHMARK(EventLogFile)->Name("event_log_file/library");

// 16 MiB, of entries of every kind and of up to 12 KiB.
std::vector<std::uint8_t> MakeImage(std::size_t bytes) {
  std::vector<Simulator::NlogEntry> entries;
  for (std::uint32_t i = 0; bytes > 0; ++i) {
    const auto words = i * 37 % 3000;
    entries.push_back({.num = i % 25, .words = words});
    bytes -= std::min<std::size_t>(bytes, 20 + words * 4);
  }
  return Simulator::MakeNlog(entries);
}
const std::vector<std::uint8_t>& AtaImage() {
  static const auto image = MakeImage(16 << 20);
  return image;
}
const std::vector<std::uint8_t>& NvmeImage() {
  static const auto image = [] {
    const std::vector<std::uint8_t> inner[] = {MakeImage(8 << 20), MakeImage(8 << 20)};
    return Simulator::MakeNvmeNlog(inner);
  }();
  return image;
}

void Copy(benchmark::State& state, const std::vector<std::uint8_t>& image) {
  std::vector<std::uint8_t> copy(image.size());
  for (auto _ : state) {
    std::memcpy(copy.data(), image.data(), image.size());
    benchmark::DoNotOptimize(copy.data());
    benchmark::ClobberMemory();
  }
}
template <typename Filter>
void RunFilter(benchmark::State& state, const std::vector<std::uint8_t>& image, Filter filter) {
  for (auto _ : state) {
    state.PauseTiming();
    auto copy = image;
    state.ResumeTiming();
    if (filter(copy).outcome != ReadLog::NlogFilter::Filtered) state.SkipWithError("not filtered");
    state.PauseTiming();
    copy = {};
    state.ResumeTiming();
  }
}

void NlogAtaFloor(benchmark::State& state) { Copy(state, AtaImage()); }
BENCHMARK(NlogAtaFloor)->Name("nlog_filter_ata/floor");
void NlogAtaLibrary(benchmark::State& state) {
  RunFilter(state, AtaImage(), ReadLog::FilterNlog_ATA);
}
BENCHMARK(NlogAtaLibrary)->Name("nlog_filter_ata/library");
void NlogNvmeFloor(benchmark::State& state) { Copy(state, NvmeImage()); }
BENCHMARK(NlogNvmeFloor)->Name("nlog_filter_nvme/floor");
void NlogNvmeLibrary(benchmark::State& state) {
  RunFilter(state, NvmeImage(), ReadLog::FilterNlog_NVMe);
}
BENCHMARK(NlogNvmeLibrary)->Name("nlog_filter_nvme/library");

}  // namespace
}  // namespace Morvu::Benchmarks
