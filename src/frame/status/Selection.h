// What can be wrong with the choice of a drive at the prompt.
// Made by scripts/status-codes from src/frame/status/StatusCodes.inc.
#pragma once

#include "frame/status/StatusCode.h"

namespace Morvu::Status {

inline constexpr StatusCode NoDrivesFound = 72;
inline constexpr StatusCode NoPartitionLetter = 83;
inline constexpr StatusCode InvalidDriveIndex = 87;
inline constexpr StatusCode InvalidModel = 104;
inline constexpr StatusCode InvalidSerial = 105;
inline constexpr StatusCode InvalidFirmware = 106;
inline constexpr StatusCode InvalidDriveSerial = 115;
inline constexpr StatusCode NoMorvuDrives = 123;
inline constexpr StatusCode InvalidDriveLetter = 126;
inline constexpr StatusCode InvalidSku = 148;
inline constexpr StatusCode InvalidDeviceId = 199;
inline constexpr StatusCode InvalidFeatureId = 201;
inline constexpr StatusCode InvalidLogId = 202;
inline constexpr StatusCode InvalidDrivePath = 203;
inline constexpr StatusCode NoSupportedDevices = 273;

}  // namespace Morvu::Status
