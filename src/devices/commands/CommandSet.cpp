#include "devices/commands/CommandSet.h"

#include "devices/commands/CommandPath.h"
#include "devices/commands/CommandRecorder.h"
#include "devices/properties/BasicProperties.h"
#include "devices/properties/PropertyList.h"

namespace Morvu::DeviceManagement {

StatusCode CommandSet::Deliver(const Command& command, bool changesNothing) {
  const auto result = SendRecorded(command);
  const bool again =
      changesNothing && result != Status::Completed && path_->GetOutcome().sense.IsUnitAttention();
  return again ? SendRecorded(command) : result;
}

StatusCode CommandSet::SendRecorded(const Command& command) {
  const auto result = path_->SendOpcode(command);
  if (recorder_ != nullptr && name_ != Protocol::Nvme) {
    recorder_->Record(name_, command, path_->GetReceivedBuffer(), result == Status::Completed);
  }
  return result;
}

std::uint32_t CommandSet::GetSectorSize() const {
  return static_cast<std::uint32_t>(properties_->GetUnsigned(Properties::SectorSize));
}

}  // namespace Morvu::DeviceManagement
