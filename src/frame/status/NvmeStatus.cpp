#include "frame/status/NvmeStatus.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <iterator>
#include <string_view>

namespace Morvu {
namespace {

// Above every status code: "NV" in the upper half.
constexpr std::int32_t kNvmeBase = 0x4E560000;
constexpr std::int32_t kNvmeMask = 0x7FF;

struct NvmeStatusText {
  std::uint16_t status;
  std::string_view text;
};

// clang-format off
constexpr NvmeStatusText kNvmeStatusTexts[] = {
#include "frame/status/NvmeStatusTexts.inc"
};
// clang-format on
static_assert(std::ranges::adjacent_find(kNvmeStatusTexts, std::ranges::greater_equal{},
                                         &NvmeStatusText::status) == std::end(kNvmeStatusTexts),
              "statuses rise strictly");

// C0h to FFh of every type are the vendor's.
std::string_view FindNvmeText(std::uint16_t status) {
  const auto row = std::ranges::lower_bound(kNvmeStatusTexts, status, {}, &NvmeStatusText::status);
  if (row != std::end(kNvmeStatusTexts) && row->status == status) return row->text;
  const bool isVendors = (status & 0xFF) >= 0xC0 || status >> 8 == 7;
  return isVendors ? "Vendor Specific" : "Unknown";
}

}  // namespace

StatusCode FromNvmeStatus(std::uint16_t status) {
  return StatusCode::FromValue(kNvmeBase | (status & kNvmeMask));
}

std::optional<std::uint16_t> ToNvmeStatus(StatusCode code) {
  if ((code.Value() & ~kNvmeMask) != kNvmeBase) return std::nullopt;
  return static_cast<std::uint16_t>(code.Value() & kNvmeMask);
}

std::int32_t ToToldNumber(StatusCode code) {
  const auto status = ToNvmeStatus(code);
  return status ? *status : code.Value();
}

std::string DescribeNvmeStatus(StatusCode code) {
  const auto status = ToNvmeStatus(code);
  if (!status) return {};
  std::array<char, 8> number{};
  std::snprintf(number.data(), number.size(), "%03X", static_cast<unsigned>(*status));
  return std::string("NVMe status 0x") + number.data() + " (" + std::string(FindNvmeText(*status)) +
         ")";
}

}  // namespace Morvu
