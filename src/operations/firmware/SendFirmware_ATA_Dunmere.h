#pragma once

#include "operations/firmware/SendFirmware_ATA.h"

namespace Morvu {

// These drives take an image for theirs only after its first block has come once more.
class SendFirmware_ATA_Dunmere : public SendFirmware_ATA {
 public:
  using SendFirmware_ATA::SendFirmware_ATA;

  std::int32_t Execute() override;
};

}  // namespace Morvu
