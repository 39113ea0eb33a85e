// Whether a SATA drive sleeps.
#pragma once

namespace Morvu::DeviceManagement {

class CommandSet_ATA;

enum class Rest { Awake, Asleep, Unknown };

// By CHECK POWER MODE, which wakes no drive (ACS-3, 7.3).
Rest AskForRest(CommandSet_ATA& ata);

}  // namespace Morvu::DeviceManagement
