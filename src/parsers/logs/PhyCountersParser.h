#pragma once

#include <vector>

#include "frame/Bytes.h"
#include "messaging/features/Parser.h"

namespace Morvu {

// The counters of events on the SATA link since the last reset of the counters: general purpose
// log 11h (Serial ATA 3.0, 13.7.2; ACS-3, A.14).
class PhyCountersParser : public Parser {
 public:
  explicit PhyCountersParser(DeviceManagement::Device* device,
                             ProgressReporter& reporter = NoReporter());

  void Initialize() override;
  std::int32_t Execute() override;
  std::string GetTitle() const override { return "PhyCounters"; }
  void WriteData(boost::property_tree::ptree&) const override {}

 private:
  std::vector<std::uint8_t> rawLog_;
};

// A row for each counter of the log's block: identifier, description, value.
void AppendPhyCounters(ByteView log, ResultTable& table);

}  // namespace Morvu
