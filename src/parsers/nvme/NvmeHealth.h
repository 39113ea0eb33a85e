// Places in the SMART / Health Information log (NVMe 1.0, 5.10.1.2) that more than its table
// reads.
#pragma once

#include "messaging/PageTable.h"

namespace Morvu::NvmeHealth {

inline constexpr std::uint8_t kLogId = 0x02;
inline constexpr std::uint32_t kNumd = 127;  // dwords of the page, counted from 0
inline constexpr PagePlace kCriticalWarning{0, 1};
inline constexpr PagePlace kTemperature{1, 2};  // Kelvin
inline constexpr PagePlace kSpare{3, 1};        // percent
inline constexpr PagePlace kSpareThreshold{4, 1};
inline constexpr PagePlace kPercentageUsed{5, 1};
// Counters of 128 bits.
inline constexpr PagePlace kDataUnitsWritten{48, 16};
inline constexpr PagePlace kPowerOnHours{128, 16};
inline constexpr PagePlace kUnsafeShutdowns{144, 16};
inline constexpr PagePlace kMediaErrors{160, 16};

}  // namespace Morvu::NvmeHealth
