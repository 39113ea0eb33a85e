// Places in the SMART / Health Information log (NVMe 1.0, 5.10.1.2) that more than its table
// reads.
#pragma once

#include "messaging/PageTable.h"

namespace Morvu::NvmeHealth {

inline constexpr std::uint8_t kLogId = 0x02;
inline constexpr PagePlace kCriticalWarning{0, 1};

}  // namespace Morvu::NvmeHealth
