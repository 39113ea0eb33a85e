// A command through command set and path, with the log off, against the bare ioctl.
#include <linux/nvme_ioctl.h>
#include <scsi/sg.h>
#include <sys/ioctl.h>

#include <array>
#include <memory>

#include "Allocations.h"
#include "TestFleet.h"
#include "devices/commands/CommandSet_ATA.h"
#include "devices/commands/CommandSet_NVME.h"
#include "devices/discovery/AdapterManager.h"

namespace Morvu::Benchmarks {
namespace {

using namespace DeviceManagement;

using Data = std::array<std::uint8_t, 512>;

// One drive that answers at once, identified, as a job has it.
class Scene {
 public:
  explicit Scene(Simulator::Kind kind) {
    fleet_.Add({.kind = kind, .journal = false});
    ScanOptions options;
    options.identify = true;
    manager_.Scan(options);
    drive_ = manager_.GetDrives().at(0)->Clone();
  }
  Device& drive() { return *drive_; }

 private:
  Simulator::TestFleet fleet_;
  AdapterManager manager_;
  std::unique_ptr<Device> drive_;
};

void AtaFloor(benchmark::State& state) {
  Scene scene(Simulator::Kind::Ata);
  const int handle = scene.drive().GetPath().GetHandle();
  Data data{};
  AllocationMeter meter(state);
  for (auto _ : state) {
    // READ DMA of one sector in ATA PASS-THROUGH (12).
    std::array<std::uint8_t, 12> cdb = {0xA1, 0x0C, 0x2E, 0, 1, 0, 0, 0, 0x40, 0xC8, 0, 0};
    std::array<std::uint8_t, 32> sense{};
    sg_io_hdr header{};
    header.interface_id = 'S';
    header.dxfer_direction = SG_DXFER_FROM_DEV;
    header.cmd_len = cdb.size();
    header.mx_sb_len = sense.size();
    header.dxfer_len = data.size();
    header.dxferp = data.data();
    header.cmdp = cdb.data();
    header.sbp = sense.data();
    header.timeout = 5000;
    if (ioctl(handle, SG_IO, &header) != 0) state.SkipWithError("refused");
    benchmark::DoNotOptimize(sense);
  }
}
BENCHMARK(AtaFloor)->Name("command_ata/floor");

void AtaLibrary(benchmark::State& state) {
  Scene scene(Simulator::Kind::Ata);
  auto& ata = *scene.drive().GetCommandSetAs<CommandSet_ATA>(Protocol::Ata);
  Data data{};
  AllocationMeter meter(state);
  for (auto _ : state) {
    if (ata.ataReadDma(data, 0, 1) != Status::Completed) state.SkipWithError("refused");
  }
}
BENCHMARK(AtaLibrary)->Name("command_ata/library");

void NvmeFloor(benchmark::State& state) {
  Scene scene(Simulator::Kind::Nvme);
  const int handle = scene.drive().GetCommandSet(Protocol::Nvme)->GetPath().GetHandle();
  Data data{};
  AllocationMeter meter(state);
  for (auto _ : state) {
    // GET LOG PAGE of the health log.
    nvme_admin_cmd command{};
    command.opcode = 0x02;
    command.nsid = 0xFFFFFFFF;
    command.addr = reinterpret_cast<std::uintptr_t>(data.data());
    command.data_len = data.size();
    command.cdw10 = 0x02 | (data.size() / 4 - 1) << 16;
    if (ioctl(handle, NVME_IOCTL_ADMIN_CMD, &command) != 0) state.SkipWithError("refused");
    benchmark::DoNotOptimize(command);
  }
}
BENCHMARK(NvmeFloor)->Name("command_nvme/floor");

void NvmeLibrary(benchmark::State& state) {
  Scene scene(Simulator::Kind::Nvme);
  auto& nvme = *scene.drive().GetCommandSetAs<CommandSet_NVME>(Protocol::Nvme);
  Data data{};
  AllocationMeter meter(state);
  for (auto _ : state) {
    const auto result = nvme.nvmeGetLogPage(0x02, data.size() / 4, 0xFFFFFFFF, data);
    if (result != Status::Completed) state.SkipWithError("refused");
  }
}
BENCHMARK(NvmeLibrary)->Name("command_nvme/library");

}  // namespace
}  // namespace Morvu::Benchmarks
