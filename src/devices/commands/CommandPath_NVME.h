#pragma once

#include "devices/commands/CommandPath.h"

namespace Morvu::DeviceManagement {

// Sends NVMe commands with the kernel's pass-through ioctls. `command` is an
// NvmeAdminCommand or the kernel's struct nvme_user_io, told apart by their length;
// any other length gives 141. `reply` takes an NvmeCompletion.
class CommandPath_NVME : public CommandPath {
 public:
  explicit CommandPath_NVME(std::string devicePath);

  bool TestDevice() override;
  std::unique_ptr<CommandPath> Clone() const override;

 protected:
  StatusCode SendOpcodeCore(ByteSpan command, ByteSpan reply, std::uint8_t flags, ByteSpan data,
                            std::uintptr_t asyncMarker) override;

 private:
  StatusCode SendAdmin(ByteSpan command, ByteSpan data, ByteSpan completion);
  StatusCode SendIo(ByteSpan command, ByteSpan data, ByteSpan completion);
  // The result of the kernel's call, told in `completion` as a queue entry would.
  StatusCode Finish(int result, std::uint32_t dword0, std::uint32_t dword1, ByteSpan completion);
};

}  // namespace Morvu::DeviceManagement
