// The codes that every room uses.
// Made by scripts/status-codes from src/frame/status/StatusCodes.inc.
#pragma once

#include "frame/status/StatusCode.h"

namespace Morvu::Status {

inline constexpr StatusCode Completed = 0;
inline constexpr StatusCode ReadyToRun = 1;
inline constexpr StatusCode Canceled = 2;
inline constexpr StatusCode NoCommunication = 4;
inline constexpr StatusCode NotRun = 5;
inline constexpr StatusCode NotImplemented = 21;
inline constexpr StatusCode InvalidArguments = 73;
inline constexpr StatusCode Running = 74;
inline constexpr StatusCode CanceledByUser = 81;
inline constexpr StatusCode NotSupportedByDrive = 118;
inline constexpr StatusCode BufferTooSmall = 141;

}  // namespace Morvu::Status
