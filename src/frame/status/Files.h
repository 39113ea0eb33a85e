// Files and the space for them.
// Made by scripts/status-codes from src/frame/status/StatusCodes.inc.
#pragma once

#include "frame/status/StatusCode.h"

namespace Morvu::Status {

inline constexpr StatusCode FreeSpaceUnknown = 7;
inline constexpr StatusCode NotEnoughFreeSpace = 8;
inline constexpr StatusCode FileNotOpened = 9;
inline constexpr StatusCode FileNotRead = 10;
inline constexpr StatusCode FileNotWritten = 122;

}  // namespace Morvu::Status
