// Pages as tables of rows.
#include <gtest/gtest.h>

#include <array>
#include <numeric>

#include "messaging/PageTable.h"
#include "messaging/ResultTable.h"

namespace Morvu {
namespace {

// A made-up log page of 32 bytes: what a new page costs.
// clang-format off
constexpr PageField kFanLog[] = {
    {{ 0,  1},        "Warnings",          Form::PrefixedDigits},
    {{ 0,  1, 1, 1},  "Fan has stopped",   Form::Decimal},
    {{ 1,  2},        "Speed (rpm)",       Form::Decimal},
    {{ 3,  1},        "Offset (degree C)", Form::Signed},
    {{ 4,  4, 8, 12}, "Speed steps",       Form::Hex},
    {{ 8,  8},        "Part Number",       Form::Text},
    {{16, 16},        "Revolutions",       Form::PrefixedHex128},
};
// clang-format on

using Page = std::array<std::uint8_t, 32>;

constexpr Page kFanPage = [] {
  Page page{0x0A, 0x10, 0x27, 0xFE, 0xFF, 0xBC, 0xFA, 0xFF, 'F', 'A', 'N', ' ', '7'};
  WriteLittle64(0x1234, 16, page);
  return page;
}();

TEST(PageTable, ShowsAPageRowByRow) {
  ResultTable table;
  table.AppendRow({"Field", "Value"}, true);
  AppendPage(kFanPage, kFanLog, table);
  EXPECT_EQ(table.ToSeparated(),
            "'Field','Value'\n"
            "Warnings,0x0A\n"
            "Fan has stopped,1\n"
            "Speed (rpm),10000\n"
            "Offset (degree C),-2\n"
            "Speed steps,ABC\n"
            "Part Number,FAN 7\n"
            "Revolutions,0x01234");
}

TEST(PageTable, LeavesEmptyWhatAShortPageDoesNotHold) {
  const auto cut = ByteView(kFanPage).first(15);
  EXPECT_EQ(ShowField(cut, kFanLog[4]), "ABC");
  for (const auto& field : {kFanLog[5], kFanLog[6]}) EXPECT_EQ(ShowField(cut, field), "");
  EXPECT_EQ(ShowField({}, kFanLog[0]), "");
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

TEST(PageTable, TellsWhereAFieldStands) {
  constexpr PageField kFields[] = {
      {{4, 2}, "Word", Form::Digits},
      {{4, 2, 3, 2}, "Speed", Form::Digits},
      {{4, 2, 0, 1}, "Fan", Form::Digits},
      {{6, 6}, "Range", Form::Words},
  };
  ResultTable words, bytes;
  AppendPage(kFanPage, kFields, words, PagePosition::Word);
  AppendPage(kFanPage, kFields, bytes, PagePosition::Byte);
  EXPECT_EQ(words.ToSeparated("~"),
            "2~Word~BCFF\n"
            "~    Bit 4:3 - Speed~3\n"
            "~    Bit 0 - Fan~1\n"
            "3-5~Range~FFFA4146204E");
  EXPECT_EQ(bytes.ToSeparated("~"),
            "4-5~Word~BCFF\n"
            "~Speed~3\n"
            "~Fan~1\n"
            "6-11~Range~FFFA4146204E");
}

}  // namespace
}  // namespace Morvu
