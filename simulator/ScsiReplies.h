// Answers that a SCSI disk and a SATA disk behind SAT share.
#pragma once

#include <array>
#include <cstdint>
#include <string>

#include "Drive.h"

namespace Simulator {

// Standard INQUIRY data, and the serial number of page 80h (SPC-4, 6.6.2 and 7.8.16).
std::array<std::uint8_t, 96> StandardInquiry(const DriveState& state);
std::string UnitSerial(const DriveState& state);

void ReplyRequestSense(Transaction& transaction);
void ReplyAtaInquiry(Drive& drive, Transaction& transaction);
void ReplyScsiInquiry(Drive& drive, Transaction& transaction);
void ReplyModeSense(Drive& drive, Transaction& transaction);
void ReplyReadCapacity(Drive& drive, Transaction& transaction);

}  // namespace Simulator
