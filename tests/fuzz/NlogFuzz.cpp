// An NLog image of any bytes, of either form: by the first byte.
#include <cstddef>
#include <cstdint>
#include <vector>

#include "frame/Bytes.h"
#include "parsers/logs/NlogFilter.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace Morvu::ReadLog;
  if (size == 0) return 0;
  const auto filter = (data[0] & 1) != 0 ? FilterNlog_NVMe : FilterNlog_ATA;
  const std::vector<std::uint8_t> image(data + 1, data + size);
  auto filtered = image;
  const auto [outcome, left] = filter(filtered);
  if (outcome != NlogFilter::Filtered) {
    if (filtered != image || left != image.size()) __builtin_trap();
    return 0;
  }
  if (left > image.size()) __builtin_trap();
  filtered.resize(left);
  if (filter == FilterNlog_ATA && GetNlogTotalBytes(filtered) + kNlogUncounted != left) {
    __builtin_trap();
  }
  // What is left is an image of the form, in which nothing is to be dropped.
  auto again = filtered;
  const auto second = filter(again);
  if (second.outcome != NlogFilter::Filtered || second.size != left || again != filtered) {
    __builtin_trap();
  }
  return 0;
}
