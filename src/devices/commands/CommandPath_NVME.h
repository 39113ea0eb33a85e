#pragma once

#include <optional>

#include "devices/commands/CommandPath.h"

namespace Morvu::DeviceManagement {

// Sends NVMe commands with the kernel's pass-through ioctls. The record is an
// NvmeAdminCommand or the kernel's struct nvme_user_io, told apart by their length; any
// other length gives 141.
//
// The path's time-out does not reach the record: a command that brings none has the
// kernel's.
class CommandPath_NVME : public CommandPath {
 public:
  explicit CommandPath_NVME(std::string devicePath);

  bool TestDevice() override;
  std::unique_ptr<CommandPath> Clone() const override;

  // The namespace that the kernel has behind this node; nothing for a controller's. The
  // number in the node's name is another one.
  std::optional<std::uint32_t> ReadNamespace() const;

 protected:
  Outcome SendOpcodeCore(const Command& command) override;

 private:
  Outcome SendAdmin(const Command& command);
  Outcome SendIo(const Command& command);
  // The kernel's record goes out once; its return value as an outcome.
  Outcome Call(unsigned long request, void* record);
  // The completion queue entry that the kernel does not hand on, as far as it is told.
  void KeepCompletion(const Outcome& outcome, std::uint32_t dword1);
};

}  // namespace Morvu::DeviceManagement
