// Log pages of a SAS drive (SPC-4, 7.3).
#pragma once

#include <array>
#include <cstdint>

#include "frame/Bytes.h"

namespace Morvu {

namespace DeviceManagement {
class CommandSet_SCSI;
}

class ScsiLog {
 public:
  explicit ScsiLog(DeviceManagement::CommandSet_SCSI& scsi);

  // Whether the drive lists the page among those that it has. One that it lacks is not asked for:
  // drives keep count of what they refuse.
  bool Has(std::uint8_t page) const;
  // The value of a parameter, of the cumulative ones; empty where it did not come. The page is read
  // unless it is the one that was read last; the value stands until another page is.
  ByteView Find(std::uint8_t page, std::uint16_t parameter);

 private:
  using Data = std::array<std::uint8_t, 512>;

  // The page without its header; empty when it did not come, or another one.
  ByteView Read(std::uint8_t page, Data& data);

  DeviceManagement::CommandSet_SCSI& scsi_;
  Data listData_{}, data_{};
  ByteView list_, page_;
  std::uint8_t number_ = 0;  // of the page that was read last
};

}  // namespace Morvu
