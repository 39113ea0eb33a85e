#include "devices/discovery/DriveRest.h"

#include "devices/commands/CommandSet_ATA.h"

namespace Morvu::DeviceManagement {

Rest AskForRest(CommandSet_ATA& ata) {
  constexpr std::uint8_t kStandbyZ = 0x00, kStandbyY = 0x01;
  if (ata.ataCheckPowerMode() != Status::Completed) {
    // A drive without power management refuses, and is awake.
    const auto& answer = ata.GetAnswer();
    const bool isRefused = answer.Has(AtaAnswer::kLow) && (answer.status & AtaStatus::Error) != 0;
    return isRefused ? Rest::Awake : Rest::Unknown;
  }
  const auto mode = static_cast<std::uint8_t>(ata.GetAnswer().count);
  return mode == kStandbyZ || mode == kStandbyY ? Rest::Asleep : Rest::Awake;
}

}  // namespace Morvu::DeviceManagement
