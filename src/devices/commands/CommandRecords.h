// The records in which commands travel: the ATA registers, the flag byte, the NVMe
// admin and I/O records, and the form in which a path takes any of them.
#pragma once

#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>

#include "frame/Bytes.h"

namespace Morvu::DeviceManagement {

// The registers of one ATA command (ACS-3): the "current" bytes, behind them the
// "previous" ones, the upper halves of Features, Count and LBA.
using TaskFile = std::array<std::uint8_t, 16>;

namespace TaskFileByte {
inline constexpr std::size_t Features = 0;
inline constexpr std::size_t Error = 0;  // in the image of an answer
inline constexpr std::size_t Count = 1;
inline constexpr std::size_t LbaLow = 2;
inline constexpr std::size_t LbaMid = 3;
inline constexpr std::size_t LbaHigh = 4;
inline constexpr std::size_t Device = 5;
inline constexpr std::size_t Command = 6;
inline constexpr std::size_t Status = 6;  // in the image of an answer
inline constexpr std::size_t Control = 7;
inline constexpr std::size_t Previous = 8;  // added to Features, Count and the LBA bytes
}  // namespace TaskFileByte

// How a command moves its data; the bits combine.
enum CommandFlags : std::uint8_t {
  kRead = 0x02,        // from the device
  kWrite = 0x04,       // to the device
  kNoData = 0x08,      // no data phase
  kDma = 0x10,         // ATA protocol DMA
  kExt48 = 0x20,       // 48-bit ATA command
  kDiagnostic = 0x80,  // ATA protocol device diagnostic
};

// The kernel's struct nvme_admin_cmd, little-endian (<linux/nvme_ioctl.h>).
struct NvmeAdminCommand {
  std::uint8_t opcode = 0;
  std::uint8_t flags = 0;  // FUSE in bits 1:0
  std::uint16_t reserved = 0;
  std::uint32_t nsid = 0;
  std::uint32_t cdw2 = 0;
  std::uint32_t cdw3 = 0;
  std::uint64_t metadata = 0;
  std::uint64_t address = 0;
  std::uint32_t metadataLength = 0;
  std::uint32_t dataLength = 0;
  std::uint32_t cdw10 = 0;
  std::uint32_t cdw11 = 0;
  std::uint32_t cdw12 = 0;
  std::uint32_t cdw13 = 0;
  std::uint32_t cdw14 = 0;
  std::uint32_t cdw15 = 0;
  std::uint32_t timeoutMs = 0;  // 0: the kernel's default
  std::uint32_t result = 0;     // dword 0 of the completion
};
static_assert(sizeof(NvmeAdminCommand) == 72);

// A command as a path takes it.
struct Command {
  ByteView record{};                // a TaskFile, a CDB or an NVMe record, as the path has it
  std::uint8_t flags = 0;           // CommandFlags
  ByteSpan data{};                  // goes to the kernel as it is
  std::size_t least = 0;            // bytes that a read must bring
  std::chrono::seconds timeout{0};  // 0: the path's own
};

}  // namespace Morvu::DeviceManagement
