// Where drives keep their logs, and in what pieces they are read.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace Morvu {

namespace DeviceManagement {
class Device;
}

namespace ReadLog {

// ATA logs count in blocks of 512 bytes, whatever the drive's sectors (ACS-3, annex A).
inline constexpr std::size_t kBlock = 512;
// The longest read of a log whose size its own header tells.
inline constexpr std::size_t kMostBytes = 64 << 20;

struct Log {
  std::uint8_t address = 0;
  std::uint32_t byteSize = kBlock;   // of the first read
  std::uint8_t chunkSectors = 0xFF;  // blocks of one ATA command, at most
};

// The vendor's logs of an ATA drive, by the product and the revision of its firmware: the
// characters behind the first four.
Log EventLog_ATA(std::string_view product, std::string_view firmware);
Log Nlog_ATA(std::string_view product, std::string_view firmware);
Log EventLog_ATA(const DeviceManagement::Device& device);
Log Nlog_ATA(const DeviceManagement::Device& device);

// Those of an NVMe drive: its vendor logs 1 and 0, whose first 4,096 bytes tell the size.
inline constexpr Log EventLog_NVMe = {.address = 1, .byteSize = 4096};
inline constexpr Log Nlog_NVMe = {.address = 0, .byteSize = 4096};

}  // namespace ReadLog
}  // namespace Morvu
