// A block of link counters and a table of temperatures, of any bytes and any length: by the
// first byte.
#include <cstddef>
#include <cstdint>

#include "messaging/ResultTable.h"
#include "parsers/logs/PhyCountersParser.h"
#include "parsers/sct/HDATemperature.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace Morvu;
  if (size == 0) return 0;
  const ByteView bytes(data + 1, size - 1);
  ResultTable table;
  if ((data[0] & 1) != 0) {
    AppendPhyCounters(bytes, table);
    if (table.GetRows().size() > 511 / 4) __builtin_trap();
  } else {
    AppendTemperatureFields(bytes, table);
    if (table.GetRows().size() != 9) __builtin_trap();
    const auto samples = ReadTemperatureHistory(bytes);
    if (samples.size() > bytes.size()) __builtin_trap();
    for (const auto& sample : samples) {
      if (sample.index >= samples.size()) __builtin_trap();
    }
  }
  table.Render();
  table.ToSeparated();
  return 0;
}
