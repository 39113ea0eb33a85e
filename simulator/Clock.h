// The clocks of this process.
#pragma once

#include <cstdint>

namespace Simulator {

// Adds to what the process's clock of day says, for this process alone.
void AdvanceTimeOfDay(std::int64_t seconds);

}  // namespace Simulator
