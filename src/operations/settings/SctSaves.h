// How often a drive can still keep a setting over a power cycle.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "frame/StatusCode.h"

namespace Morvu {

namespace DeviceManagement {
class Device;
}

// The count of saves that are left; -1 where it could not be read. A drive whose firmware keeps
// no count has 100.
std::int32_t GetRemainingSaves(DeviceManagement::Device& device);

struct RemainingSaves {
  std::int32_t count = -1;
  std::vector<std::string> lines{};  // for the user, and logged already
  StatusCode code = Status::CanceledByUser;
};

// Before a setting that has to survive a power cycle: 1 when it may go on, else 81.
RemainingSaves CheckRemainingSaves(DeviceManagement::Device& device, bool needsPowerCycle);

}  // namespace Morvu
