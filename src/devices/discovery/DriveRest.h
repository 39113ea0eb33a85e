// Whether a drive is in standby, by the one question that wakes none.
#pragma once

#include <cstdint>

namespace Morvu::DeviceManagement {

class CommandSet_ATA;

enum class Rest : std::uint8_t { Awake, Asleep, Unknown };

// CHECK POWER MODE (ACS-3, 7.3).
Rest AskForRest(CommandSet_ATA& ata);

}  // namespace Morvu::DeviceManagement
