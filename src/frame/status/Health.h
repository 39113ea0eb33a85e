// SMART, logs and what they tell.
// Made by scripts/status-codes from src/frame/status/StatusCodes.inc.
#pragma once

#include "frame/status/StatusCode.h"

namespace Morvu::Status {

inline constexpr StatusCode SmartThresholdsFailed = 22;
inline constexpr StatusCode SmartDataFailed = 23;
inline constexpr StatusCode SmartEnableFailed = 84;
inline constexpr StatusCode SmartDisableFailed = 85;
inline constexpr StatusCode SmartAttributeFailing = 107;
inline constexpr StatusCode LogPagesNotRead = 138;
inline constexpr StatusCode HealthCheckFailed = 139;
inline constexpr StatusCode FailureInLog = 147;
inline constexpr StatusCode UnexpectedNlog = 254;
inline constexpr StatusCode SpareBelowThreshold = 278;
inline constexpr StatusCode TemperatureCritical = 279;
inline constexpr StatusCode ReliabilityDegraded = 280;
inline constexpr StatusCode MediaReadOnly = 281;
inline constexpr StatusCode BackupDeviceFailed = 282;

}  // namespace Morvu::Status
