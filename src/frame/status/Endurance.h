// The endurance calculation.
// Made by scripts/status-codes from src/frame/status/StatusCodes.inc.
#pragma once

#include "frame/status/StatusCode.h"

namespace Morvu::Status {

inline constexpr StatusCode SavedSmartDataNotRead = 112;
inline constexpr StatusCode EnduranceGenerationUnsupported = 113;
inline constexpr StatusCode EnduranceFirmwareTooOld = 114;
inline constexpr StatusCode EnduranceFileNotSaved = 121;
inline constexpr StatusCode LifeBelowRequested = 174;
inline constexpr StatusCode NoWearMeasured = 205;
inline constexpr StatusCode WorkloadIndicatorsReset = 269;

}  // namespace Morvu::Status
