// The tables of the settings that SCT holds, as the prompt shows them.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "frame/status/Settings.h"
#include "parsers/sct/ErrorRecoveryControl.h"
#include "support/SettingScene.h"

namespace Morvu {
namespace {

using ::testing::HasSubstr;
using Testing::SettingScene;

struct ControlTable {
  std::vector<std::string> words;
  std::size_t feature;  // its place in the drive's record
  std::uint16_t state, options;
  std::string rows;
};

// Rows with single blanks, without frames.
std::string Squeeze(std::string_view text) {
  std::string squeezed;
  for (const char c : text) {
    if (c == '|' || (c == ' ' && (squeezed.empty() || squeezed.back() == ' '))) continue;
    if (c == '\n' && !squeezed.empty() && squeezed.back() == ' ') squeezed.pop_back();
    squeezed += c;
    if (c == '\n') squeezed += ' ';
  }
  return squeezed;
}

TEST(ControlTables, ShowStateAndFlag) {
  // clang-format off
  const ControlTable kRows[] = {
    {{"-wc_state"}, 0, 2, 1,
        "Write Cache State 2\n Option Flag: Non-volatile bit 1\n"},
    {{"-temp_logging_interval"}, 2, 65535, 0,
        "Temperature Logging interval 65535 minute(s)\n Option Flag: Non-volatile bit 0\n"},
    {{"-pli_test_time_interval"}, 3, 3, 1,
        "PLI Cap Test Time Interval 1440 minute(s)\n Option Flag: Non-volatile bit 1\n"},
    {{"-pg_mode"}, 4, 0, 0, "0 (Unconstrained."},
    {{"-pg_mode"}, 4, 1, 0, "1 (Typical)\n"},
    {{"-pg_mode"}, 4, 2, 0, "2 (Low)\n"},
    {{"-pg_mode"}, 4, 7, 0, "7 (Unknown)\n"},
  };
  // clang-format on
  for (const auto& row : kRows) {
    SCOPED_TRACE(row.words.front());
    SettingScene scene(EraseTesting::SataSpec());
    auto& feature = scene.drive.State().ata.sct.features[row.feature];
    feature.state = row.state;
    feature.options = row.options;
    const auto line = scene.Line(row.words);
    EXPECT_EQ(line.code, Status::Completed);
    EXPECT_THAT(Squeeze(line.GetFeatureOutput()), HasSubstr(row.rows));
  }
}

TEST(FeatureControl, ShowsTheModeInOneRow) {
  SettingScene scene(EraseTesting::SataSpec());
  EXPECT_EQ(scene.Line({"-pg_mode"}).output.find("Option Flag"), std::string::npos);
}

TEST(ErrorRecovery, ShowsTheTimersThatAreAskedFor) {
  SettingScene scene(EraseTesting::SataSpec());
  scene.drive.State().ata.sct.readTimer = 70;
  scene.drive.State().ata.sct.writeTimer = 7;
  const auto rows = [&](const std::string& timer) {
    ErrorRecoveryControl parser(scene.device(), timer);
    if (parser.GetErrorCode() != Status::ReadyToRun) {
      EXPECT_EQ(parser.GetErrorCode(), Status::InvalidErrorRecovery);
      return std::string();
    }
    EXPECT_TRUE(parser.Execute());
    return parser.GetTable().ToSeparated(",", false);
  };
  EXPECT_EQ(rows("read"), "Error Read Recovery Timer,70");
  EXPECT_EQ(rows("write"), "Error Write Recovery Timer,7");
  EXPECT_EQ(rows("both"), "Error Read Recovery Timer,70\nError Write Recovery Timer,7");
  EXPECT_EQ(rows("read_timer"), "");
}

}  // namespace
}  // namespace Morvu
