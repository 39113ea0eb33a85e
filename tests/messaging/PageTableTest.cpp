// Pages as tables of rows.
#include <gtest/gtest.h>

#include <array>
#include <numeric>

#include "messaging/PageTable.h"

namespace Morvu {
namespace {

using Page = std::array<std::uint8_t, 32>;

TEST(PageTable, LeavesEmptyWhatAShortPageDoesNotHold) {
  constexpr std::uint8_t kCut[15] = {0, 0, 0, 0, 0xFF, 0xBC, 0xFA, 0xFF, 'F', 'A', 'N'};
  EXPECT_EQ(ShowField(kCut, {{4, 4, 8, 12}, "", Form::Hex}), "ABC");
  EXPECT_EQ(ShowField(kCut, {{8, 8}, "", Form::Text}), "");
  EXPECT_EQ(ShowField(kCut, {{16, 16}, "", Form::PrefixedHex128}), "");
  EXPECT_EQ(ShowField({}, {{0, 1}, "", Form::PrefixedDigits}), "");
}

struct FormCase {
  PageField field;
  std::string_view text;
};

TEST(PageTable, ShowsEachForm) {
  Page page;
  std::iota(page.begin(), page.end(), std::uint8_t{0x40});  // 40h, 41h, ...
  const FormCase kCases[] = {
      {{{0, 8}, "", Form::Decimal}, "5135868584551137600"},
      {{{0, 2, 8, 7}, "", Form::Decimal}, "65"},
      {{{0, 2, 4, 4}, "", Form::Signed}, "4"},
      {{{0, 2, 5, 2}, "", Form::Signed}, "-2"},
      {{{0, 2, 8, 7}, "", Form::Digits}, "41"},
      {{{1, 1, 0, 1}, "", Form::Digits}, "1"},
      {{{0, 4}, "", Form::Digits}, "43424140"},
      {{{0, 4, 20, 12}, "", Form::PrefixedHex}, "0x434"},
      {{{0, 6}, "", Form::Words}, "414043424544"},
      {{{0, 8}, "", Form::AtaText}, "A@CBEDGF"},
      {{{1, 4}, "", Form::Text}, "ABCD"},
      {{{0, 16}, "", Form::PrefixedHex128}, "0x4F4E4D4C4B4A49484746454443424140"},
      {{{0, 0}, "", Form::Title}, ""},
  };
  for (const auto& each : kCases) EXPECT_EQ(ShowField(page, each.field), each.text);
  // 2^64 + 5 is not 15h.
  Page wide{5};
  wide[8] = 1;
  EXPECT_EQ(ShowField(wide, {{0, 16}, "", Form::PrefixedHex128}), "0x10000000000000005");
}

}  // namespace
}  // namespace Morvu
