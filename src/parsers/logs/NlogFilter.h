// The filter of NLog images: entries that serve the maker alone are dropped. An image comes
// from a drive, and no number in it is believed.
#pragma once

#include <cstdint>
#include <vector>

namespace Morvu::ReadLog {

enum class NlogFilter : std::uint8_t {
  Filtered,
  NotKnown,  // the header is another: the image is as it was
  Damaged,   // an entry or a record does not lie inside the image: it is as it was
};

// The image of an ATA drive: a header of 52 bytes, and entries.
NlogFilter FilterNlog_ATA(std::vector<std::uint8_t>& image);
// That of an NVMe drive: a header of 4,096 bytes that names up to two images of the other form.
NlogFilter FilterNlog_NVMe(std::vector<std::uint8_t>& image);

// The size that the header of an ATA image tells. It leaves out 20 bytes of the image, and is
// never smaller than that of an image without entries.
std::uint32_t GetNlogTotalBytes(const std::vector<std::uint8_t>& image);
inline constexpr std::uint32_t kNlogUncounted = 20;
inline constexpr std::uint32_t kNlogLeastTotal = 32;

}  // namespace Morvu::ReadLog
