// Self-tests and scans.
// Made by scripts/status-codes from src/frame/status/StatusCodes.inc.
#pragma once

#include "frame/status/StatusCode.h"

namespace Morvu::Status {

inline constexpr StatusCode DataMismatch = 11;
inline constexpr StatusCode StandbyFailed = 86;
inline constexpr StatusCode StandbyImmediateFailed = 111;
inline constexpr StatusCode InvalidSelfTest = 168;
inline constexpr StatusCode SelfTestFailed = 169;
inline constexpr StatusCode LbaOutOfRange = 171;
inline constexpr StatusCode CountOutOfRange = 172;
inline constexpr StatusCode SelfTestUnsupported = 302;

}  // namespace Morvu::Status
