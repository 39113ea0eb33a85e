#include "messaging/features/FeatureRecord.h"

#include <string>

#include "devices/model/DriveHold.h"
#include "frame/status/Drives.h"

namespace Morvu {

using DeviceManagement::DriveHold;

std::unique_ptr<DriveHold> HoldDrive(DeviceManagement::Device& device, Face& face,
                                     std::uint64_t job, bool isShared) {
  const auto kind = isShared ? DriveHold::Kind::Shared : DriveHold::Kind::Sequence;
  auto hold =
      std::make_unique<DriveHold>(device, kind, job == 0 ? std::string() : std::to_string(job));
  if (hold->IsTaken()) return hold;
  face.Say("Nothing was done: another program or job works on the drive.");
  return nullptr;
}

StatusCode RunHeld(const FeatureRecord& feature, const FeatureCall& call,
                   const std::function<StatusCode()>& run) {
  const bool isHeld = feature.isSequence || feature.isShared;
  if (!isHeld || !feature.needsDrive) return run();
  const auto hold = HoldDrive(call.GetDevice(), call.face, call.job, feature.isShared);
  return hold == nullptr ? Status::DriveHeld : run();
}

}  // namespace Morvu
