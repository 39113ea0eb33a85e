// A drive whose commands take time, and the calls that reach it without the library: what answers
// within 8 us, as a simulated drive does by itself, is no drive.
#pragma once

#include <scsi/sg.h>
#include <sys/ioctl.h>

#include <array>
#include <cstdint>
#include <memory>
#include <span>
#include <string>

#include "TestFleet.h"
#include "devices/discovery/AdapterManager.h"
#include "devices/model/Drive.h"

namespace Morvu::Benchmarks {

// Each command of this opcode takes a millisecond. `sectors` 0 leaves the size as it comes.
class SlowDrive {
 public:
  explicit SlowDrive(std::uint8_t opcode, std::uint64_t sectors = 0) {
    Simulator::DriveSpec spec{
        .model = "MORVU SSDSC2BB480G4", .firmware = "D2010370", .journal = false};
    if (sectors != 0) spec.sectors = sectors;
    auto drive = fleet_.Add(spec);
    drive.Inject(Simulator::Fault::Delay(1).OnOpcode(opcode));
    DeviceManagement::ScanOptions options;
    options.identify = true;
    manager_.Scan(options);
    drive_ = manager_.GetDrives().at(0)->Clone();
  }
  DeviceManagement::Device& drive() { return *drive_; }
  const std::string& Folder() const { return fleet_.Folder(); }

 private:
  Simulator::TestFleet fleet_;
  DeviceManagement::AdapterManager manager_;
  std::unique_ptr<DeviceManagement::Device> drive_;
};

inline bool Send(int handle, std::span<std::uint8_t> cdb, std::span<std::uint8_t> into) {
  std::array<std::uint8_t, 32> sense{};
  sg_io_hdr header{};
  header.interface_id = 'S';
  header.dxfer_direction = SG_DXFER_FROM_DEV;
  header.cmd_len = static_cast<unsigned char>(cdb.size());
  header.mx_sb_len = sense.size();
  header.dxfer_len = static_cast<unsigned>(into.size());
  header.dxferp = into.data();
  header.cmdp = cdb.data();
  header.sbp = sense.data();
  header.timeout = 5000;
  return ioctl(handle, SG_IO, &header) == 0;
}

}  // namespace Morvu::Benchmarks
