// Partitions that an operation needs or must not meet.
// Made by scripts/status-codes from src/frame/status/StatusCodes.inc.
#pragma once

#include "frame/status/StatusCode.h"

namespace Morvu::Status {

inline constexpr StatusCode HasPartition = 13;
inline constexpr StatusCode NoPartition = 14;
inline constexpr StatusCode NoFormattedPartition = 88;
inline constexpr StatusCode PartitionCheckFailed = 128;

}  // namespace Morvu::Status
