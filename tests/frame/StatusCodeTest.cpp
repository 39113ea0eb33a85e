#include <gtest/gtest.h>

#include <set>

#include "frame/StatusCode.h"

namespace Morvu {
namespace {

std::string TextOf(std::int32_t number) { return GetStatusText(StatusCode::FromValue(number)); }

bool HasText(std::int32_t number) {
  return TextOf(number) != "Unknown error: " + std::to_string(number);
}

TEST(StatusTexts, Are281) {
  const std::set<std::int32_t> without = {191, 200, 206, 239, 243, 244, 245, 251, 256, 257, 258,
                                          259, 263, 264, 265, 266, 267, 268, 270, 271, 272, 283};
  int count = 0;
  for (std::int32_t code = 0; code <= 302; ++code) {
    EXPECT_EQ(!without.contains(code), HasText(code)) << code;
    count += HasText(code);
  }
  EXPECT_EQ(281, count);
}

TEST(StatusTexts, OfNumbersWithoutARowTellTheNumber) {
  EXPECT_EQ("OS Error: -5", GetStatusText(-5));
  EXPECT_EQ("OS Error: -2147483648", GetStatusText(INT32_MIN));
  EXPECT_EQ("Unknown error: 303", GetStatusText(303));
  EXPECT_EQ("Unknown error: 244", GetStatusText(244));
  EXPECT_EQ("Unknown error: 2147483647", GetStatusText(INT32_MAX));
}

TEST(StatusTexts, NameTheirOwnNumberWhereTheyNameOne) {
  int named = 0;
  for (std::int32_t code = 0; code <= 302; ++code) {
    const auto text = TextOf(code);
    if (text.find("encountered an error (") == text.npos) continue;
    EXPECT_NE(text.npos, text.find("(" + std::to_string(code) + ")")) << text;
    ++named;
  }
  EXPECT_GT(named, 10);
}

TEST(StatusTexts, ThatAreTheSame) {
  for (const auto& [left, right] : {std::pair{2, 81}, std::pair{77, 255}, std::pair{221, 237}}) {
    EXPECT_EQ(TextOf(left), TextOf(right));
  }
  EXPECT_EQ("Completed successfully.", GetStatusText(Status::Completed));
  EXPECT_EQ("Running...", GetStatusText(Status::Running));
}

}  // namespace
}  // namespace Morvu
