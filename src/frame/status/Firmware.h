// Firmware updates.
// Made by scripts/status-codes from src/frame/status/StatusCodes.inc.
#pragma once

#include "frame/status/StatusCode.h"

namespace Morvu::Status {

inline constexpr StatusCode FirmwareCurrent = 18;
inline constexpr StatusCode FirmwareUpdateFailed = 19;
inline constexpr StatusCode FirmwarePreproduction = 66;
inline constexpr StatusCode FirmwareUnsupported = 67;
inline constexpr StatusCode ContactSupport = 68;
inline constexpr StatusCode FirmwareNeedsOtherTool = 69;
inline constexpr StatusCode FirmwareSecurityEnabled = 136;
inline constexpr StatusCode NoFirmware = 301;

}  // namespace Morvu::Status
