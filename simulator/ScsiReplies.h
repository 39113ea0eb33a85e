// Answers that a SCSI disk and a SATA disk behind SAT share.
#pragma once

#include "Drive.h"

namespace Simulator {

void ReplyRequestSense(Transaction& transaction);
void ReplyAtaInquiry(Drive& drive, Transaction& transaction);
void ReplyScsiInquiry(Drive& drive, Transaction& transaction);
void ReplyModeSense(Drive& drive, Transaction& transaction);
void ReplyReadCapacity(Drive& drive, Transaction& transaction);

}  // namespace Simulator
