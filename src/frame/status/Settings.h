// Settings of a drive.
// Made by scripts/status-codes from src/frame/status/StatusCodes.inc.
#pragma once

#include "frame/status/StatusCode.h"

namespace Morvu::Status {

inline constexpr StatusCode SetFeatureFailed = 108;
inline constexpr StatusCode ReadNativeMaxFailed = 109;
inline constexpr StatusCode SetNativeMaxFailed = 110;
inline constexpr StatusCode WriteCacheUnsupported = 125;
inline constexpr StatusCode InvalidPhySpeed = 157;
inline constexpr StatusCode InvalidErrorRecovery = 158;
inline constexpr StatusCode InvalidPowerMode = 159;
inline constexpr StatusCode InvalidSctFeature = 161;
inline constexpr StatusCode InvalidTemperatureInterval = 162;
inline constexpr StatusCode InvalidWriteCacheState = 163;
inline constexpr StatusCode InvalidPliInterval = 164;
inline constexpr StatusCode InvalidPhyConfig = 183;
inline constexpr StatusCode InvalidCustomPhy = 197;
inline constexpr StatusCode ConfigurationSecurityEnabled = 289;
inline constexpr StatusCode ConfigurationFailed = 290;

}  // namespace Morvu::Status
