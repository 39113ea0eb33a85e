#pragma once

#include <optional>
#include <vector>

#include "parsers/sct/SctDataTableParser.h"

namespace Morvu {

// One entry of the ring of temperatures.
struct TemperatureSample {
  std::size_t index;  // in the ring
  std::optional<std::uint32_t>
      minutes;                         // before the newest; none where the drive tells no interval
  std::optional<std::int8_t> degrees;  // Celsius; none was taken
};

// The samples of the table's ring, the newest last; empty where its size or its index is none.
std::vector<TemperatureSample> ReadTemperatureHistory(ByteView table);

// The temperatures of a drive, and what it may stand: SCT data table 2 (ACS-3, 8.3.5.2). Periods
// are in minutes, temperatures in degrees Celsius.
class HDATemperature : public SctDataTableParser {
 public:
  explicit HDATemperature(DeviceManagement::Device* device,
                          ProgressReporter& reporter = NoReporter());

  std::int32_t Execute() override;
  std::string GetTitle() const override { return "HDATemperature"; }

  // The ring, a row for each sample, or for those that follow each other and are the same.
  ResultTable GetHistory(bool joinsEqual) const;
};

// The rows of the table without its ring.
void AppendTemperatureFields(ByteView table, ResultTable& rows);

}  // namespace Morvu
