// What a simulated drive makes of a firmware image.
//
// An image of our own begins with the 16 characters "MorvuSimFirmware", then 8
// characters of the revision that it brings, then its whole size in bytes as a
// little-endian 32-bit number: a drive that has such an image takes no partial
// one. Any other image is taken as it comes, and its revision is the one that
// the drive's record names as next, or is made of its digest.
#pragma once

#include <span>
#include <string>

#include "DriveState.h"

namespace Simulator {

inline constexpr char kImageMark[] = "MorvuSimFirmware";

// A piece of the image at its place: false when it does not follow the one before.
bool TakePiece(FirmwareState& firmware, std::uint32_t offset, std::uint32_t units,
               std::uint32_t unitSize, std::span<const std::uint8_t> data);

// True when the image names its size and all of it has come, or names none.
bool IsWhole(const FirmwareState& firmware);

// The revision that the transferred image brings.
std::string Revision(const FirmwareState& firmware);

}  // namespace Simulator
