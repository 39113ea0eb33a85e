// How a command to a drive can fail.
// Made by scripts/status-codes from src/frame/status/StatusCodes.inc.
#pragma once

#include "frame/status/StatusCode.h"

namespace Morvu::Status {

inline constexpr StatusCode IdentifyFailed = 20;
inline constexpr StatusCode ReadError = 82;
inline constexpr StatusCode SmartWriteLogFailed = 116;
inline constexpr StatusCode SmartReadLogFailed = 117;
inline constexpr StatusCode ReadLogExtFailed = 119;
inline constexpr StatusCode SmartExecuteOfflineFailed = 120;
inline constexpr StatusCode CheckPowerModeFailed = 127;
inline constexpr StatusCode ReadOrWriteFailed = 129;
inline constexpr StatusCode AtaCommandFailed = 130;
inline constexpr StatusCode ScsiCommandFailed = 131;
inline constexpr StatusCode RaidMemberCommandFailed = 132;
inline constexpr StatusCode CloseFailed = 135;
inline constexpr StatusCode CommunicationError = 137;
inline constexpr StatusCode CommandPending = 140;
inline constexpr StatusCode NvmeCommandFailed = 190;
inline constexpr StatusCode WriteLogExtFailed = 195;
inline constexpr StatusCode NotRead = 200;
inline constexpr StatusCode CommandNotSupported = 246;
inline constexpr StatusCode OperationReserved = 251;
inline constexpr StatusCode VendorWriteFailed = 260;
inline constexpr StatusCode VendorReadFailed = 261;
inline constexpr StatusCode VendorCommandFailed = 262;
inline constexpr StatusCode AtaDriverUnreachable = 286;
inline constexpr StatusCode ScsiDriverUnreachable = 287;
inline constexpr StatusCode NvmeDriverMissing = 288;

}  // namespace Morvu::Status
