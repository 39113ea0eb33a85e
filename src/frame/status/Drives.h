// Drives that an operation does not run on.
// Made by scripts/status-codes from src/frame/status/StatusCodes.inc.
#pragma once

#include "frame/status/StatusCode.h"

namespace Morvu::Status {

inline constexpr StatusCode NoAtaDriver = 3;
inline constexpr StatusCode MaxLbaZero = 6;
inline constexpr StatusCode SecurityFrozen = 12;
inline constexpr StatusCode NotAMorvuDrive = 45;
inline constexpr StatusCode RaidMember = 77;
inline constexpr StatusCode RaidVolume = 97;
inline constexpr StatusCode ControllerIdeMode = 98;
inline constexpr StatusCode ContactRepresentative = 103;
inline constexpr StatusCode SecurityFrozenNoCycle = 150;
inline constexpr StatusCode SecurityEnabled = 151;
inline constexpr StatusCode StorageSpaceMember = 152;
inline constexpr StatusCode DriveHeld = 180;
inline constexpr StatusCode DriveDegraded = 187;
inline constexpr StatusCode DeviceFault = 188;
inline constexpr StatusCode DriveNotRecovered = 194;
inline constexpr StatusCode DisableLogical = 252;
inline constexpr StatusCode RaidMemberRefused = 255;
inline constexpr StatusCode OpalActiveOrUnknown = 285;
inline constexpr StatusCode NotAsserted = 300;

}  // namespace Morvu::Status
