// A scan of 64 drives, asked for by a message, against the bare calls that it makes to the
// drives, and product detection.
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <linux/nvme_ioctl.h>
#include <scsi/sg.h>
#include <sys/ioctl.h>
#include <sys/resource.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <cstring>
#include <string>
#include <vector>

#include "TestFleet.h"
#include "devices/identification/ProductDetection.h"
#include "devices/properties/BasicProperties.h"
#include "devices/properties/PropertyList.h"
#include "morvu/ssd_features.h"

namespace Morvu::Benchmarks {
namespace {

using namespace DeviceManagement;
using Simulator::Kind;

constexpr int kGenericDrives = 60;
constexpr int kControllers = 4;  // each has one namespace
static_assert(kGenericDrives + kControllers == 64);
// A reply that lists 64 drives with all their properties costs several times the scan: the
// scan is measured behind a question with a short answer.
constexpr std::string_view kScan =
    R"(<?xml version="1.0" encoding="utf-8"?><Message cimClass="MorvuJob" scan="True"/>)";
constexpr std::string_view kScanAndList =
    R"(<?xml version="1.0" encoding="utf-8"?><Message cimClass="MorvuSSD" scan="True"/>)";

struct SentCommand {
  std::string node;
  Simulator::JournalEntry entry;
};

class Host {
 public:
  explicit Host(bool journal, std::uint32_t delayMs = 0) {
    for (int i = 0; i < kGenericDrives; ++i) {
      drives_.push_back(fleet_.Add(
          {.model = "MORVU SSDSC2BB480G4", .serial = "S" + std::to_string(i), .journal = journal}));
    }
    for (int i = 0; i < kControllers; ++i) {
      drives_.push_back(fleet_.Add({.kind = Kind::Nvme,
                                    .model = "MORVU SSDPE2MD800G4",
                                    .serial = "N" + std::to_string(i),
                                    .journal = journal}));
    }
    if (delayMs != 0) {
      for (auto& drive : drives_) drive.Inject(Simulator::Fault::Delay(delayMs));
    }
    Load();
  }
  ~Host() { Unload(); }
  Host(const Host&) = delete;
  Host& operator=(const Host&) = delete;

  // Sends a request and fetches its reply; how many drives it lists.
  std::size_t Call(std::string_view request) {
    std::uint64_t job = 0;
    const auto length = static_cast<std::uint32_t>(request.size());
    if (SendXMLMessage(request.data(), length, &job, true) != MORVU_STATUS_COMPLETED) return 0;
    std::size_t drives = 0;
    for (;;) {
      auto size = static_cast<std::uint32_t>(reply_.size());
      const auto status = ReceiveXMLMessage(job, reply_.data(), &size);
      if (status == MORVU_STATUS_BUFFER_TOO_SMALL) {
        reply_.resize(size);
      } else if (status != MORVU_STATUS_COMPLETED) {
        return drives;
      } else {
        drives = CountDrives(reply_.data());
      }
    }
  }
  // What a scan sends to the drives.
  std::vector<SentCommand> RecordCommands() {
    for (auto& drive : drives_) drive.ClearJournal();
    Call(kScan);
    std::vector<SentCommand> commands;
    for (const auto& drive : drives_) {
      for (auto& entry : drive.Journal()) commands.push_back({drive.Node(), entry});
    }
    return commands;
  }

 private:
  static std::size_t CountDrives(const char* reply) {
    std::size_t count = 0;
    for (const char* at = reply; (at = std::strstr(at, "uniqueId=")) != nullptr; ++at) ++count;
    return count;
  }

  Simulator::TestFleet fleet_;
  std::vector<Simulator::SimulatedDrive> drives_;
  std::vector<char> reply_ = std::vector<char>(1 << 20);
};

// The call alone, on a node that is open.
void CallBare(int handle, Simulator::JournalEntry& entry) {
  static std::array<std::uint8_t, 65536> data;
  if (entry.ioctl == Simulator::Ioctl::NvmeAdmin) {
    nvme_admin_cmd record{};
    std::memcpy(&record, entry.command.data(), std::min(sizeof record, entry.command.size()));
    record.addr = reinterpret_cast<std::uintptr_t>(data.data());
    benchmark::DoNotOptimize(ioctl(handle, NVME_IOCTL_ADMIN_CMD, &record));
    return;
  }
  std::array<std::uint8_t, 32> sense{};
  sg_io_hdr header{};
  header.interface_id = 'S';
  header.dxfer_direction = entry.direction == Simulator::Direction::None       ? SG_DXFER_NONE
                           : entry.direction == Simulator::Direction::ToDevice ? SG_DXFER_TO_DEV
                                                                               : SG_DXFER_FROM_DEV;
  header.cmd_len = static_cast<unsigned char>(entry.command.size());
  header.mx_sb_len = sense.size();
  header.dxfer_len = std::min<std::uint32_t>(entry.transferLength, data.size());
  header.dxferp = data.data();
  header.cmdp = entry.command.data();
  header.sbp = sense.data();
  header.timeout = entry.timeoutMs;
  benchmark::DoNotOptimize(ioctl(handle, SG_IO, &header));
}

// The processor time of this process, in seconds: what else the machine does meanwhile does
// not count.
double UsedSeconds() {
  rusage usage{};
  getrusage(RUSAGE_SELF, &usage);
  double seconds = 0;
  for (const auto& time : {usage.ru_utime, usage.ru_stime}) {
    seconds += static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) * 1e-6;
  }
  return seconds;
}

template <typename Work>
void MeasureProcessor(benchmark::State& state, Work work) {
  for (auto _ : state) {
    const auto start = UsedSeconds();
    work();
    state.SetIterationTime(UsedSeconds() - start);
  }
}

// What a user waits.
template <typename Work>
void MeasureWall(benchmark::State& state, Work work) {
  for (auto _ : state) {
    const auto start = std::chrono::steady_clock::now();
    work();
    const auto end = std::chrono::steady_clock::now();
    state.SetIterationTime(std::chrono::duration<double>(end - start).count());
  }
}

// Each node is opened once, and gets what the scan sent to it.
void SendAll(std::vector<SentCommand>& commands) {
  int handle = -1;
  const std::string* node = nullptr;
  for (auto& command : commands) {
    if (node == nullptr || *node != command.node) {
      if (handle >= 0) close(handle);
      handle = open(command.node.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
      node = &command.node;
    }
    CallBare(handle, command.entry);
  }
  if (handle >= 0) close(handle);
}

std::vector<SentCommand> RecordScan() {
  Host recorded(true);
  return recorded.RecordCommands();
}

void ScanAllOf(benchmark::State& state, Host& host, bool isWall) {
  const auto scan = [&] { host.Call(kScan); };
  isWall ? MeasureWall(state, scan) : MeasureProcessor(state, scan);
  constexpr std::string_view kList = R"(<Message cimClass="MorvuSSD"/>)";
  if (host.Call(kList) != kGenericDrives + kControllers) state.SkipWithError("drives are missing");
}

void ScanFloor(benchmark::State& state) {
  auto commands = RecordScan();
  const Host host(false);
  state.counters["commands"] = static_cast<double>(commands.size());
  MeasureProcessor(state, [&] { SendAll(commands); });
}
BENCHMARK(ScanFloor)->Name("scan_64_drives/floor")->Unit(benchmark::kMillisecond)->UseManualTime();

void ScanLibrary(benchmark::State& state) {
  Host host(false);
  ScanAllOf(state, host, false);
}
BENCHMARK(ScanLibrary)
    ->Name("scan_64_drives/library")
    ->Unit(benchmark::kMillisecond)
    ->UseManualTime();

// Drives that take a millisecond for a command, as they do behind a SATA link.
constexpr std::uint32_t kSlowMs = 1;

void SlowScanFloor(benchmark::State& state) {
  auto commands = RecordScan();
  const Host host(false, kSlowMs);
  MeasureWall(state, [&] { SendAll(commands); });
}
BENCHMARK(SlowScanFloor)
    ->Name("scan_64_slow_drives/floor")
    ->Unit(benchmark::kMillisecond)
    ->UseManualTime();

void SlowScanLibrary(benchmark::State& state) {
  Host host(false, kSlowMs);
  ScanAllOf(state, host, true);
}
BENCHMARK(SlowScanLibrary)
    ->Name("scan_64_slow_drives/library")
    ->Unit(benchmark::kMillisecond)
    ->UseManualTime();

void ScanAndListLibrary(benchmark::State& state) {
  Host host(false);
  MeasureProcessor(state, [&] {
    if (host.Call(kScanAndList) != kGenericDrives + kControllers) {
      state.SkipWithError("drives are missing");
    }
  });
}
BENCHMARK(ScanAndListLibrary)
    ->Name("list_64_drives/library")
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
