// What a person at the prompt sees of a long run, whatever its family: its percents.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sstream>

#include "frame/Files.h"
#include "support/EraseScene.h"
#include "support/FirmwareModules.h"

namespace Morvu {
namespace {

using namespace std::chrono_literals;
using ::testing::EndsWith;
using ::testing::HasSubstr;
using ::testing::Not;

constexpr char kErase[] = "\r\x1b[K";

struct LongRun {
  std::vector<std::string> words;
  bool isNvme = false;
};
void PrintTo(const LongRun& run, std::ostream* out) { *out << run.words.front(); }

class LongRunTest : public ::testing::TestWithParam<LongRun> {};

TEST_P(LongRunTest, ShowsItsPercentsWithoutAWordOfTheFamily) {
  Simulator::TestFleet fleet;
  fleet.Add(GetParam().isNvme ? EraseTesting::NvmeSpec() : EraseTesting::SataSpec());
  auto words = GetParam().words;
  const auto name = words.front().substr(1);
  if (words.back() == "IMAGE") {
    words.back() = fleet.Folder() + "/image";
    ASSERT_TRUE(SaveBinary(words.back(), Testing::MakeSimulatedImage("NEW2", 140'000), false));
  }
  words.insert(words.begin(), {"-drive_index", "0", "-force"});
  std::istringstream in;
  std::ostringstream out, terminal;
  ProgressLine progress(terminal, 0ms);
  EXPECT_EQ(Testing::RunToolLine(words, CLIStreams{in, out, false, progress}).code, 0) << out.str();
  EXPECT_THAT(terminal.str(), HasSubstr("Looking for drives  0:0"));
  EXPECT_THAT(terminal.str(), ::testing::ContainsRegex("\\[K" + name + "  [0-9]+ %  0:0"));
  EXPECT_THAT(terminal.str(), EndsWith(kErase));
  EXPECT_THAT(out.str(), Not(HasSubstr(kErase)));
}

const LongRun kLongRuns[] = {
    {{"-secure_erase"}},
    {{"-sanitize", "block"}},
    {{"-format"}, true},
    {{"-self_test", "short", "captiveOffline"}},
    {{"-firmware_update", "IMAGE"}},
};
INSTANTIATE_TEST_SUITE_P(Families, LongRunTest, ::testing::ValuesIn(kLongRuns));

}  // namespace
}  // namespace Morvu
