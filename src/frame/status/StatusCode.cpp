#include "frame/status/StatusCode.h"

#include <algorithm>
#include <iterator>
#include <string_view>

#include "frame/status/NvmeStatus.h"

// Where the texts send a user who needs help.
#define MORVU_SUPPORT_SITE "https://support.morvu.example/ssd"

namespace Morvu {
namespace {

struct StatusText {
  std::int32_t code;
  std::string_view text;
};

constexpr StatusText kStatusTexts[] = {
#define STATUS(code, group, name, text) {code, text},
#include "frame/status/StatusCodes.inc"
#undef STATUS
};

constexpr bool HasText(const StatusText& row) { return !row.text.empty(); }

static_assert(std::ranges::count_if(kStatusTexts, HasText) == 281);
static_assert(std::ranges::adjacent_find(kStatusTexts, std::ranges::greater_equal{},
                                         &StatusText::code) == std::end(kStatusTexts),
              "codes rise strictly");

}  // namespace

std::string GetStatusText(StatusCode code) {
  if (ToNvmeStatus(code)) return DescribeNvmeStatus(code);
  const auto number = std::to_string(code.Value());
  if (code.IsSystemError()) return "OS Error: " + number;
  const auto row = std::ranges::lower_bound(kStatusTexts, code.Value(), {}, &StatusText::code);
  if (row == std::end(kStatusTexts) || row->code != code.Value() || !HasText(*row)) {
    return "Unknown error: " + number;
  }
  return std::string(row->text);
}

}  // namespace Morvu
