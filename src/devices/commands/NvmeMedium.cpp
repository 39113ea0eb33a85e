#include "devices/commands/NvmeMedium.h"

#include <linux/nvme_ioctl.h>

#include "frame/status/Commands.h"
#include "frame/status/Testing.h"

namespace Morvu::DeviceManagement {
namespace {

constexpr std::uint8_t kReadOpcode = 0x02;  // NVMe 1.0
constexpr std::uint32_t kMostBlocks = 0x10000;

}  // namespace

StatusCode ReadNvmeBlocks(CommandPath& space, std::uint64_t lba, std::uint32_t blocks,
                          ByteSpan data) {
  if (blocks == 0 || blocks > kMostBlocks) return Status::CountOutOfRange;
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
