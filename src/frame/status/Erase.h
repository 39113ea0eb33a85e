// Secure erase, format and sanitize.
// Made by scripts/status-codes from src/frame/status/StatusCodes.inc.
#pragma once

#include "frame/status/StatusCode.h"

namespace Morvu::Status {

inline constexpr StatusCode EraseUnitFailed = 15;
inline constexpr StatusCode ErasePrepareFailed = 16;
inline constexpr StatusCode SetPasswordFailed = 17;
inline constexpr StatusCode EraseSecurityEnabled = 149;
inline constexpr StatusCode EraseBarredBySystem = 155;
inline constexpr StatusCode EraseStandbyFailed = 179;
inline constexpr StatusCode SecureEraseAlert = 238;
inline constexpr StatusCode EraseSecurityUnsupported = 284;
inline constexpr StatusCode SanitizeCommandUnsupported = 291;
inline constexpr StatusCode SanitizeReasonNotReported = 292;
inline constexpr StatusCode SanitizeUnsuccessful = 293;
inline constexpr StatusCode SanitizeFrozen = 294;
inline constexpr StatusCode SanitizeFailed = 295;
inline constexpr StatusCode SanitizeUnsupported = 296;
inline constexpr StatusCode SanitizeTimedOut = 297;
inline constexpr StatusCode SanitizeBarredBySystem = 298;
inline constexpr StatusCode DataSetManagementFailed = 299;

}  // namespace Morvu::Status
