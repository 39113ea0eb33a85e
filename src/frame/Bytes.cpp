#include "frame/Bytes.h"

#include <utility>

#include "frame/Text.h"

namespace Morvu {
namespace {

constexpr bool IsPrintable(std::uint8_t byte) { return byte >= 0x21 && byte <= 0x7E; }

}  // namespace

void SwapBytePairs(ByteSpan bytes) {
  for (std::size_t i = 0; i + 1 < bytes.size(); i += 2) {
    std::swap(bytes[i], bytes[i + 1]);
    for (auto* byte : {&bytes[i], &bytes[i + 1]}) {
      if (*byte < 0x21 || *byte > 0x7A) *byte = ' ';
    }
  }
}

std::string ReadText(ByteView bytes, std::size_t offset, std::size_t length) {
  if (offset >= bytes.size()) return {};
  std::string text;
  for (const auto byte : bytes.subspan(offset, std::min(length, bytes.size() - offset))) {
    if (byte == 0) break;
    text += IsPrintable(byte) ? static_cast<char>(byte) : ' ';
  }
  return Trim(text);
}

}  // namespace Morvu
