// A scan of 64 nodes against the shell pipelines that it runs, and product detection.
#include <benchmark/benchmark.h>
#include <sys/resource.h>

#include <cstdio>
#include <string>
#include <vector>

#include "TestFleet.h"
#include "devices/discovery/AdapterManager.h"
#include "devices/identification/ProductDetection.h"
#include "devices/properties/BasicProperties.h"

namespace {

std::vector<std::string>* recordedCommands = nullptr;

}  // namespace

extern "C" {
FILE* __real_popen(const char* command, const char* mode);
FILE* __wrap_popen(const char* command, const char* mode) {
  if (recordedCommands != nullptr) recordedCommands->emplace_back(command);
  return __real_popen(command, mode);
}
}

namespace Morvu::Benchmarks {
namespace {

using namespace DeviceManagement;
using Simulator::Kind;

constexpr int kGenericNodes = 56;
constexpr int kControllers = 4;  // each has a node of its own and one namespace
static_assert(kGenericNodes + 2 * kControllers == 64);

class Host {
 public:
  Host() {
    for (int i = 0; i < kGenericNodes; ++i) {
      fleet_.Add({.model = "MORVU SSDSC2BB480G4", .serial = "S" + std::to_string(i)});
    }
    for (int i = 0; i < kControllers; ++i) {
      fleet_.Add({.kind = Kind::Nvme, .serial = "N" + std::to_string(i)});
    }
    options_.identify = true;
  }

  bool Scan() {
    AdapterManager manager;
    manager.Scan(options_);
    return manager.GetDrives().size() == kGenericNodes + kControllers;
  }
  std::vector<std::string> RecordPipelines() {
    std::vector<std::string> commands;
    recordedCommands = &commands;
    Scan();
    recordedCommands = nullptr;
    return commands;
  }

 private:
  Simulator::TestFleet fleet_;
  ScanOptions options_;
};

void RunBare(const std::string& command) {
  FILE* pipe = __real_popen(command.c_str(), "re");
  if (pipe == nullptr) return;
  char block[1024];
  while (fread(block, 1, sizeof block, pipe) > 0) {
  }
  pclose(pipe);
}

// The processor time of this process and of the commands that it ran, in seconds: what
// else the machine does meanwhile does not count.
double UsedSeconds() {
  double seconds = 0;
  for (const auto who : {RUSAGE_SELF, RUSAGE_CHILDREN}) {
    rusage usage{};
    getrusage(who, &usage);
    for (const auto& time : {usage.ru_utime, usage.ru_stime}) {
      seconds += static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) * 1e-6;
    }
  }
  return seconds;
}

template <typename Work>
void MeasureWithChildren(benchmark::State& state, Work work) {
  for (auto _ : state) {
    const auto start = UsedSeconds();
    work();
    state.SetIterationTime(UsedSeconds() - start);
  }
}

void ScanFloor(benchmark::State& state) {
  Host host;
  const auto pipelines = host.RecordPipelines();
  state.counters["pipelines"] = static_cast<double>(pipelines.size());
  MeasureWithChildren(state, [&] {
    for (const auto& pipeline : pipelines) RunBare(pipeline);
  });
}
BENCHMARK(ScanFloor)->Name("scan_64_nodes/floor")->Unit(benchmark::kMillisecond)->UseManualTime();

void ScanLibrary(benchmark::State& state) {
  Host host;
  MeasureWithChildren(state, [&] {
    if (!host.Scan()) state.SkipWithError("drives are missing");
  });
}
BENCHMARK(ScanLibrary)
    ->Name("scan_64_nodes/library")
    ->Unit(benchmark::kMillisecond)
    ->UseManualTime();

// A drive whose model stands far behind in the table, and one that is not in it.
void Detect(benchmark::State& state, const char* model) {
  PropertyList drive;
  drive.Add(DeviceProperty(Properties::ModelNumber, model));
  drive.Add(DeviceProperty(Properties::Firmware, "8DV10131"));
  drive.Add(DeviceProperty(Properties::SerialNumber, "CVFT4174001C400BGN"));
  for (auto _ : state) {
    const ProductDetection detection(drive);
    detection.Merge(drive);
  }
}
BENCHMARK_CAPTURE(Detect, known, "MORVU SSDPE2MR012TG4")->Name("detect_known/library");
BENCHMARK_CAPTURE(Detect, unknown, "ANOTHER MAKER'S SSD")->Name("detect_unknown/library");

}  // namespace
}  // namespace Morvu::Benchmarks
