// Firmware for simulated drives.
#pragma once

#include <algorithm>
#include <cstdint>
#include <string>
#include <vector>

namespace Morvu::Testing {

using ByteVector = std::vector<std::uint8_t>;

// An image as simulated drives take it: mark, revision, size, content.
inline ByteVector MakeSimulatedImage(const std::string& revision, std::size_t size) {
  ByteVector image(size);
  for (std::size_t i = 0; i < size; ++i) image[i] = static_cast<std::uint8_t>(i * 31 + i / 509);
  std::string head = "MorvuSimFirmware" + (revision + "        ").substr(0, 8);
  for (int shift = 0; shift < 32; shift += 8) head += static_cast<char>(size >> shift & 0xFF);
  std::copy_n(head.begin(), std::min(head.size(), size), image.begin());
  return image;
}

}  // namespace Morvu::Testing
