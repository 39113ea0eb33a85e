// Messages through the exported functions, against the XML library alone.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <boost/property_tree/xml_parser.hpp>
#include <chrono>
#include <future>
#include <sstream>
#include <string>
#include <vector>

#include "Allocations.h"
#include "TestFleet.h"
#include "morvu/ssd_features.h"

namespace Morvu::Benchmarks {
namespace {

const std::string kListJobs =
    R"(<?xml version="1.0" encoding="utf-8"?><Message cimClass="MorvuJob"/>)";
const std::string kListDrives =
    R"(<?xml version="1.0" encoding="utf-8"?><Message cimClass="MorvuSSD"/>)";
constexpr int kListedJobs = 10;
constexpr auto kMonitorRound = std::chrono::milliseconds(1000);

// The library with a fleet of no drives.
class Host {
 public:
  Host() { Load(); }
  ~Host() { Unload(); }
  Host(const Host&) = delete;
  Host& operator=(const Host&) = delete;

  // Sends a request and takes all that it brings; the text of the last reply, which is
  // empty when something went wrong.
  const char* RoundTrip(const std::string& request) {
    std::uint64_t id = 0;
    buffer_[0] = '\0';
    const auto length = static_cast<std::uint32_t>(request.size());
    if (SendXMLMessage(request.data(), length, &id, true) != MORVU_STATUS_COMPLETED)
      return buffer_.data();
    for (;;) {
      auto size = static_cast<std::uint32_t>(buffer_.size());
      const auto status = ReceiveXMLMessage(id, buffer_.data(), &size);
      if (status != MORVU_STATUS_BUFFER_TOO_SMALL) {
        if (status != MORVU_STATUS_COMPLETED) return buffer_.data();
        continue;
      }
      buffer_.resize(size);
    }
  }

 private:
  Simulator::TestFleet fleet_;
  std::vector<char> buffer_ = std::vector<char>(64 * 1024);
};

std::string ReadAndWrite(const std::string& text) {
  namespace tree = boost::property_tree;
  tree::ptree document;
  std::istringstream in(text);
  tree::read_xml(in, document, tree::xml_parser::trim_whitespace);
  std::ostringstream out;
  tree::write_xml(out, document, tree::xml_writer_make_settings<std::string>(' ', 0, "utf-8"));
  return std::move(out).str();
}

void JobListLibrary(benchmark::State& state) {
  Host host;
  for (int i = 0; i < kListedJobs; ++i) host.RoundTrip(kListDrives);
  for (auto _ : state) {
    if (*host.RoundTrip(kListJobs) == '\0') state.SkipWithError("no reply");
  }
}
BENCHMARK(JobListLibrary)->Name("job_list/library");

// The same two texts, each read and written once.
void JobListFloor(benchmark::State& state) {
  std::string reply;
  {
    Host host;
    for (int i = 0; i < kListedJobs; ++i) host.RoundTrip(kListDrives);
    reply = host.RoundTrip(kListJobs);
  }
  state.counters["reply_bytes"] = static_cast<double>(reply.size());
  for (auto _ : state) {
    benchmark::DoNotOptimize(ReadAndWrite(kListJobs).data());
    benchmark::DoNotOptimize(ReadAndWrite(reply).data());
  }
}
BENCHMARK(JobListFloor)->Name("job_list/floor");

// In real time: a sleep would pass for the simulated drives alone.
void Wait(std::chrono::milliseconds time) {
  std::promise<void> never;
  never.get_future().wait_for(time);
}

// The least that is in use while the monitor drops the jobs that are over.
double SettledBytes() {
  constexpr int kLooks = 12;
  auto least = static_cast<double>(CountLiveBytes());
  for (int i = 0; i < kLooks; ++i) {
    Wait(kMonitorRound / 4);
    least = std::min(least, static_cast<double>(CountLiveBytes()));
  }
  return least;
}

// What stays in memory of jobs that were fetched and removed.
void JobMemory(benchmark::State& state) {
  constexpr int kWarmUp = 20'000, kJobs = 100'000;
  Host host;
  const auto run = [&](int jobs) {
    for (int i = 0; i < jobs; ++i) host.RoundTrip(kListJobs);
    return SettledBytes();
  };
  for (auto _ : state) {
    const auto before = run(kWarmUp);
    state.counters["jobs"] = kJobs;
    state.counters["growth_bytes"] = run(kJobs) - before;
  }
}
BENCHMARK(JobMemory)
    ->Name("job_memory/library")
    ->Iterations(1)
    ->Repetitions(1)
    ->Unit(benchmark::kSecond);

}  // namespace
}  // namespace Morvu::Benchmarks
