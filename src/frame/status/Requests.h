// What can be wrong with a request.
// Made by scripts/status-codes from src/frame/status/StatusCodes.inc.
#pragma once

#include "frame/status/StatusCode.h"

namespace Morvu::Status {

inline constexpr StatusCode NotInitialized = 178;
inline constexpr StatusCode ThreadNotStarted = 185;
inline constexpr StatusCode NoMessage = 243;
inline constexpr StatusCode UnknownSubject = 244;
inline constexpr StatusCode NoDeviceSelected = 245;
inline constexpr StatusCode UnknownMethod = 270;
inline constexpr StatusCode SeveralMethods = 271;
inline constexpr StatusCode UnknownProperty = 272;

}  // namespace Morvu::Status
