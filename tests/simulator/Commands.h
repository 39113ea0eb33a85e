// What the tests send to a node, by the calls that any program makes.
#pragma once

#include <fcntl.h>
#include <linux/nvme_ioctl.h>
#include <scsi/sg.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <array>
#include <cstring>
#include <string>
#include <string_view>
#include <vector>

#include "TestFleet.h"
#include "gtest/gtest.h"

namespace Simulator {

using Bytes = std::vector<std::uint8_t>;

class Handle {
 public:
  Handle() = default;
  explicit Handle(const std::string& node) : descriptor_(open(node.c_str(), O_RDWR | O_NONBLOCK)) {}
  ~Handle() {
    if (descriptor_ >= 0) close(descriptor_);
  }
  Handle& operator=(Handle&& other) noexcept {
    std::swap(descriptor_, other.descriptor_);
    return *this;
  }
  int Get() const { return descriptor_; }

 private:
  int descriptor_ = -1;
};

// A fleet of one drive, whose node is open.
class OneDrive : public testing::Test {
 protected:
  void Attach(const DriveSpec& spec = {}) {
    drive = fleet.Add(spec);
    handle = Handle(drive.Node());
  }

  TestFleet fleet;
  SimulatedDrive drive;
  Handle handle;
};

struct Answer {
  int result = 0;
  int status = 0, host = 0, resid = 0;
  std::array<std::uint8_t, 32> sense{};
  Bytes data;
  std::uint8_t AtaStatus() const { return sense[21]; }
  std::uint8_t AtaError() const { return sense[11]; }
  std::uint32_t Lba() const { return sense[15] | sense[17] << 8 | sense[19] << 16; }
};

inline Answer Send(const Handle& handle, Bytes cdb, int direction, Bytes data) {
  Answer answer;
  answer.data = std::move(data);
  sg_io_hdr header{};
  header.interface_id = 'S';
  header.dxfer_direction = direction;
  header.cmd_len = static_cast<unsigned char>(cdb.size());
  header.cmdp = cdb.data();
  header.mx_sb_len = static_cast<unsigned char>(answer.sense.size());
  header.sbp = answer.sense.data();
  header.dxfer_len = static_cast<unsigned>(answer.data.size());
  header.dxferp = answer.data.data();
  header.timeout = 5000;
  answer.result = ioctl(handle.Get(), SG_IO, &header);
  answer.status = header.status;
  answer.host = header.host_status;
  answer.resid = header.resid;
  return answer;
}

struct Ata {
  std::uint8_t command;
  std::uint8_t features = 0, count = 0;
  std::uint64_t lba = 0;
  bool extended = false;
  std::uint8_t device = 0x40;
};

// With CK_COND, so that the registers come back.
inline Bytes Cdb(const Ata& ata, int protocol) {
  if (!ata.extended) {
    return {0xA1,
            static_cast<std::uint8_t>(protocol << 1),
            0x2E,
            ata.features,
            ata.count,
            static_cast<std::uint8_t>(ata.lba),
            static_cast<std::uint8_t>(ata.lba >> 8),
            static_cast<std::uint8_t>(ata.lba >> 16),
            ata.device,
            ata.command,
            0,
            0};
  }
  const auto at = [&](int shift) { return static_cast<std::uint8_t>(ata.lba >> shift); };
  return {0x85,         static_cast<std::uint8_t>(protocol << 1 | 1),
          0x2E,         0,
          ata.features, 0,
          ata.count,    at(24),
          at(0),        at(32),
          at(8),        at(40),
          at(16),       ata.device,
          ata.command,  0};
}

inline Answer NonData(const Handle& handle, const Ata& ata) {
  return Send(handle, Cdb(ata, 3), SG_DXFER_NONE, {});
}
inline Answer PioIn(const Handle& handle, const Ata& ata, std::size_t blocks = 1) {
  return Send(handle, Cdb(ata, 4), SG_DXFER_FROM_DEV, Bytes(blocks * 512));
}
inline Answer PioOut(const Handle& handle, const Ata& ata, Bytes data) {
  return Send(handle, Cdb(ata, 5), SG_DXFER_TO_DEV, std::move(data));
}

inline std::string Swapped(const Bytes& block, std::size_t at, std::size_t size) {
  std::string text;
  for (std::size_t i = 0; i < size; i += 2) {
    text += static_cast<char>(block[at + i + 1]);
    text += static_cast<char>(block[at + i]);
  }
  return text.substr(0, text.find_last_not_of(' ') + 1);
}

inline std::string Output(const std::string& command) {
  FILE* pipe = popen(command.c_str(), "r");
  if (pipe == nullptr) return "popen failed";
  std::string text;
  char block[256];
  for (std::size_t count; (count = fread(block, 1, sizeof block, pipe)) > 0;)
    text.append(block, count);
  pclose(pipe);
  return text;
}

// An image of the simulated drives' own.
inline Bytes Image(std::string_view revision, std::uint32_t size) {
  Bytes image(size, 0x5A);
  std::memcpy(image.data(), "MorvuSimFirmware", 16);
  std::memset(&image[16], ' ', 8);
  std::memcpy(&image[16], revision.data(), std::min<std::size_t>(8, revision.size()));
  for (int i = 0; i < 4; ++i) image[24 + i] = static_cast<std::uint8_t>(size >> (8 * i));
  return image;
}

}  // namespace Simulator
