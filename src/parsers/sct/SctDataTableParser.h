#pragma once

#include <cstdint>
#include <vector>

#include "frame/Bytes.h"
#include "messaging/features/Parser.h"

namespace Morvu {

// One SCT data table (ACS-3, 8.3.5), as bytes: their meaning is a derived class's.
class SctDataTableParser : public Parser {
 public:
  SctDataTableParser(DeviceManagement::Device* device, std::uint16_t tableId,
                     ProgressReporter& reporter = NoReporter());

  void Initialize() override;
  // A table of which the drive gives nothing is a failure (117).
  std::int32_t Execute() override;
  void WriteData(boost::property_tree::ptree&) const override {}

  ByteView GetRawTable() const { return rawTable_; }

 private:
  std::vector<std::uint8_t> rawTable_;
  std::uint16_t tableId_;
};

}  // namespace Morvu
