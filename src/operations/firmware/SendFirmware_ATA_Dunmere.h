#pragma once

#include "operations/firmware/SendFirmware_ATA.h"

namespace Morvu {

// These drives take an image for theirs only after its first block has come once more.
class SendFirmware_ATA_Dunmere : public SendFirmware_ATA {
 public:
  using SendFirmware_ATA::SendFirmware_ATA;

  std::int32_t Execute() override;

 private:
  std::string_view GetLogName() const override { return "SendFirmware_ATA_Dunmere"; }
};

}  // namespace Morvu
