#include "devices/commands/NvmeMedium.h"

#include <linux/fs.h>
#include <linux/nvme_ioctl.h>
#include <sys/ioctl.h>

#include "frame/status/General.h"
#include "frame/status/Testing.h"

namespace Morvu::DeviceManagement {
namespace {

constexpr std::uint8_t kReadOpcode = 0x02;  // NVMe 1.0
constexpr std::uint32_t kMostBlocks = 0x10000;

// The block size by which the kernel counts what the command moves: a format may have changed
// it, and it writes as much, whatever room there is. 0 when it does not tell.
std::uint64_t AskBlockSize(const CommandPath& space) {
  int size = 0;
  if (ioctl(space.GetHandle(), BLKSSZGET, &size) != 0 || size <= 0) return 0;
  return static_cast<std::uint64_t>(size);
}

}  // namespace

StatusCode ReadNvmeBlocks(CommandPath& space, std::uint64_t lba, std::uint32_t blocks,
                          ByteSpan data) {
  if (blocks == 0 || blocks > kMostBlocks) return Status::CountOutOfRange;
  if (AskBlockSize(space) * blocks != data.size()) return Status::BufferTooSmall;
  nvme_user_io record{};
  record.opcode = kReadOpcode;
  record.slba = lba;
  record.nblocks = static_cast<std::uint16_t>(blocks - 1);
  return space.SendOpcode(
      {.record = {reinterpret_cast<const std::uint8_t*>(&record), sizeof record},
       .flags = kRead,
       .data = data});
}

}  // namespace Morvu::DeviceManagement
