// Whether an erase has changed what was on the drive.
#pragma once

#include <array>
#include <cstdint>
#include <vector>

#include "devices/model/Device.h"

namespace Morvu {

// A few sectors in several places, read before an erase and again behind it. It sends the
// drive nothing but reads, and none that an erase could stumble over: what cannot be read
// proves nothing, nor do sectors that held but zeros or ones.
class EraseWitness {
 public:
  enum class Verdict {
    Untold,  // nothing that was read proves anything
    Changed,
    Unchanged,  // in one place at least
  };

  // Reads. `device` must outlive the object.
  explicit EraseWitness(DeviceManagement::Device& device);
  // Reads the same places again, in the sector size that the device has now.
  Verdict Compare();

 private:
  static constexpr std::size_t kPieceSize = 4096;
  struct Piece {
    std::uint64_t offset;  // in bytes
    std::array<std::uint8_t, kPieceSize> data;
  };

  // False when nothing could be read; then no more is asked of the drive.
  bool Read(std::uint64_t offset, ByteSpan data);

  DeviceManagement::Device& device_;
  std::vector<Piece> pieces_;  // those that prove something
};

}  // namespace Morvu
