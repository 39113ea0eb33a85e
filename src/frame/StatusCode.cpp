#include "frame/StatusCode.h"

#include <algorithm>
#include <iterator>
#include <string_view>

#include "frame/NvmeStatus.h"

// Where the texts send a user who needs help.
#define MORVU_SUPPORT_SITE "https://support.morvu.example/ssd"

namespace Morvu {
namespace {

struct StatusText {
  StatusCode code;
  std::string_view text;
};

constexpr StatusText kStatusTexts[] = {
#include "frame/StatusTexts.inc"
};

static_assert(std::size(kStatusTexts) == 281);
static_assert(std::ranges::adjacent_find(kStatusTexts, std::ranges::greater_equal{},
                                         &StatusText::code) == std::end(kStatusTexts),
              "codes rise strictly");

}  // namespace

std::string GetStatusText(StatusCode code) {
  if (ToNvmeStatus(code)) return DescribeNvmeStatus(code);
  if (code < 0) return "OS Error: " + std::to_string(code);
  const auto row = std::ranges::lower_bound(kStatusTexts, code, {}, &StatusText::code);
  if (row == std::end(kStatusTexts) || row->code != code) {
    return "Unknown error: " + std::to_string(code);
  }
  return std::string(row->text);
}

}  // namespace Morvu
