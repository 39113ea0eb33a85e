// What became of one command: how far it came, and what came back.
#pragma once

#include <cstdint>
#include <optional>

#include "devices/commands/SenseData.h"
#include "frame/StatusCode.h"
#include "frame/status/Commands.h"

namespace Morvu::DeviceManagement {

enum class Reached : std::uint8_t {
  NotSent,     // refused here: nothing went out
  CallFailed,  // the system's call failed; whether the device works on is not known
  Transport,   // it, or its end, was lost on the way, or nobody took it: a time-out, a
               // reset, a device that is gone, BUSY
  Layer,       // refused by the translation layer: no device was asked
  Device,      // refused by the device, or not finished there
  Short,       // carried out, with fewer data than the command must bring
  Done,
};

enum class CommandKind : std::uint8_t { Ata, Scsi, Nvme };

struct Outcome {
  Reached reached = Reached::NotSent;
  CommandKind kind = CommandKind::Scsi;
  StatusCode refusal = Status::NotImplemented;  // of NotSent
  int osError = 0;                              // of CallFailed: an errno
  StatusCode lost = Status::ScsiCommandFailed;  // of Transport
  Sense sense;
  AtaAnswer registers;
  std::uint16_t nvmeStatus = 0;  // SCT and SC (NVMe 1.0, 4.5.1)
  bool doNotRetry = false;       // NVMe: DNR
  bool more = false;             // NVMe: the error log tells more
  std::uint32_t nvmeResult = 0;  // dword 0 of the completion
  // Bytes that did not move, where the host adapter tells it; Linux's SATA layer
  // always says 0.
  std::optional<std::uint32_t> residual;
};

Outcome NotSent(StatusCode refusal);

// The code that an outcome is told by: 0 for Done alone, -errno for a failed call, an
// NVMe status as FromNvmeStatus has it.
StatusCode ToStatus(const Outcome& outcome);

}  // namespace Morvu::DeviceManagement
