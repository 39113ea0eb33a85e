#include "devices/commands/Outcome.h"

#include "frame/status/Commands.h"
#include "frame/status/NvmeStatus.h"

namespace Morvu::DeviceManagement {
namespace {

StatusCode ToRefusal(const Outcome& outcome) {
  switch (outcome.kind) {
    case CommandKind::Ata:
      return Status::AtaCommandFailed;
    case CommandKind::Scsi:
      return Status::ScsiCommandFailed;
    case CommandKind::Nvme:
      break;
  }
  // A status that is all flags names no error, and is none the less a failure.
  return outcome.nvmeStatus == 0 ? Status::NvmeCommandFailed : FromNvmeStatus(outcome.nvmeStatus);
}

}  // namespace

Outcome NotSent(StatusCode refusal) {
  Outcome outcome;
  outcome.refusal = refusal;
  return outcome;
}

StatusCode ToStatus(const Outcome& outcome) {
  switch (outcome.reached) {
    case Reached::NotSent:
      return outcome.refusal;
    case Reached::CallFailed:
      return StatusCode::FromSystemError(outcome.osError);
    case Reached::Transport:
      return outcome.lost;
    case Reached::Layer:
      return outcome.sense.Is(kInvalidOpcode) ? Status::ScsiCommandFailed : ToRefusal(outcome);
    case Reached::Device:
    case Reached::Short:
      return ToRefusal(outcome);
    case Reached::Done:
      break;
  }
  return Status::Completed;
}

}  // namespace Morvu::DeviceManagement
