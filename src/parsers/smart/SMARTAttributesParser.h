#pragma once

#include "parsers/nvme/NVMeLogParser.h"

namespace Morvu {

// The vendor's log of SMART attributes: entries of 12 bytes up to one without an ID.
class SMARTAttributesParser : public NVMeLogParser {
 public:
  static constexpr std::uint8_t kLogId = 202;
  explicit SMARTAttributesParser(DeviceManagement::Device* device,
                                 ProgressReporter& reporter = NoReporter())
      : NVMeLogParser(device, reporter, kLogId, "SMART Attributes (Log ID = 202)") {}

 private:
  void ParseData() override;
};

}  // namespace Morvu
