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
  const auto outcome = filter(filtered);
  if (outcome != NlogFilter::Filtered) {
    if (filtered != image) __builtin_trap();
    return 0;
  }
  if (filtered.size() > image.size()) __builtin_trap();
  if (filter == FilterNlog_ATA && GetNlogTotalBytes(filtered) + kNlogUncounted != filtered.size()) {
    __builtin_trap();
  }
  // What is left is an image of the form, in which nothing is to be dropped.
  auto again = filtered;
  if (filter(again) != NlogFilter::Filtered || again != filtered) __builtin_trap();
  return 0;
}
