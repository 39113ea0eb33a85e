#include <gtest/gtest.h>

#include <fstream>
#include <regex>

#include "frame/StatusCode.h"
#include "frame/status/NvmeStatus.h"

namespace Morvu {
namespace {

std::string TextOf(std::int32_t number) { return GetStatusText(StatusCode::FromValue(number)); }

TEST(StatusTexts, OfNumbersWithoutARowTellTheNumber) {
  EXPECT_EQ("OS Error: -5", GetStatusText(-5));
  EXPECT_EQ("OS Error: -2147483648", GetStatusText(INT32_MIN));
  EXPECT_EQ("Unknown error: 303", GetStatusText(303));
  EXPECT_EQ("Unknown error: 244", GetStatusText(244));
  EXPECT_EQ("Unknown error: 2147483647", GetStatusText(INT32_MAX));
}

// A status of the same number as a code is told by its own words.
TEST(NvmeStatus, IsNoStatusCode) {
  EXPECT_EQ("NVMe status 0x002 (Invalid Field in Command)", GetStatusText(FromNvmeStatus(0x002)));
  EXPECT_EQ("NVMe status 0x10A (Invalid Format)", GetStatusText(FromNvmeStatus(0x10A)));
  EXPECT_EQ("NVMe status 0x1C3 (Vendor Specific)", GetStatusText(FromNvmeStatus(0x1C3)));
  EXPECT_EQ("NVMe status 0x03F (Unknown)", GetStatusText(FromNvmeStatus(0x03F)));
  for (const std::int32_t code : {0, 1, 2, 18, 266, 302, -5, INT32_MAX, INT32_MIN}) {
    EXPECT_FALSE(ToNvmeStatus(StatusCode::FromValue(code))) << code;
    EXPECT_EQ(code, ToToldNumber(StatusCode::FromValue(code)));
  }
  for (std::uint16_t status = 0; status <= 0x7FF; ++status) {
    EXPECT_EQ(status, ToNvmeStatus(FromNvmeStatus(status)));
    EXPECT_EQ(status, ToToldNumber(FromNvmeStatus(status)));
    EXPECT_NE(FromNvmeStatus(status), StatusCode::FromValue(status));
  }
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

// The document is made by a script, which reads the table in its own way.
TEST(StatusTexts, StandInTheDocument) {
  std::ifstream document(MORVU_STATUS_DOCUMENT);
  const std::regex row(R"(\| (\d+) \| (`MORVU_STATUS_\w+`)? \| (?:`(.+)`|\(no text: .+\)) \|)");
  int texts = 0, names = 0;
  for (std::string line; std::getline(document, line);) {
    std::smatch cells;
    if (!std::regex_match(line, cells, row)) continue;
    const auto code = std::stoi(cells[1]);
    EXPECT_EQ(cells[3].matched ? cells[3].str() : "Unknown error: " + std::to_string(code),
              TextOf(code));
    texts += cells[3].matched;
    names += cells[2].matched;
  }
  EXPECT_EQ(281, texts);
  EXPECT_GE(names, 153);
}

}  // namespace
}  // namespace Morvu
