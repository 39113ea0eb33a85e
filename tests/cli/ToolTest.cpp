// What morvussd adds to the driver: the exit status, the manual page, the completion.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>
#include <map>
#include <regex>
#include <set>
#include <sstream>

#include "Documentation.h"
#include "ExitStatus.h"
#include "TestFleet.h"
#include "Tool.h"
#include "frame/status/NvmeStatus.h"
#include "messaging/drive_class/Features.h"
#include "support/CommandLine.h"

namespace MorvuTool {
namespace {

TEST(ExitStatus, IsZeroForAGoodEndAlone) {
  EXPECT_EQ(ToExitStatus(0, 0), 0);
  EXPECT_EQ(ToExitStatus(18, 0), 0);
  EXPECT_EQ(ToExitStatus(0, 905), 62);
  EXPECT_EQ(ToExitStatus(18, 903), 60);
  EXPECT_EQ(ToExitStatus(87, 905), 87);
  EXPECT_EQ(ToExitStatus(0, Morvu::kWarned), 191);
  EXPECT_EQ(ToExitStatus(15, Morvu::kWarned), 15);
  EXPECT_EQ(ToExitStatus(255, 0), 255);
  EXPECT_EQ(ToExitStatus(-5, 0), kExitOsError);
  EXPECT_EQ(ToExitStatus(256, 0), kExitUnknown);
  EXPECT_EQ(ToExitStatus(1 << 16, 0), kExitUnknown);
}

bool IsShells(int exitStatus) {
  return exitStatus == 126 || exitStatus == 127 || exitStatus == 130;
}

// Other numbers than status codes: 012h reads as a good end, 07Eh as a shell's word, 100h has
// none in its low byte.
TEST(ExitStatus, OfAnNvmeStatusIsNeverThatOfAGoodEnd) {
  for (std::uint16_t status = 0; status <= 0x7FF; ++status) {
    const auto exitStatus = ToExitStatus(Morvu::FromNvmeStatus(status), 0);
    const bool isTold = status > 0 && status <= 255 && status != 18 && !IsShells(status);
    EXPECT_EQ(exitStatus, isTold ? status : kExitUnknown);
  }
}

// A layer that drops the upper half of the answer, and the 28-bit command that cannot tell it of
// a drive with more: no number is better than a false one.
TEST(DriveInformation, TellsNoNativeMaximumThatIsCut) {
  using Simulator::SenseFormat;
  const std::pair<Simulator::DriveSpec, const char*> kDrives[] = {
      {{.sectors = 0x12345678}, "0x12345677"},
      {{.sectors = 0x123456, .senseFormat = SenseFormat::FixedSat3}, "0x123455"},
      {{.sectors = 0x12345678, .senseFormat = SenseFormat::FixedSat3},
       "Failed to read native max."},
  };
  for (auto [spec, shown] : kDrives) {
    spec.model = "MORVU SSDSC2BB480G4";
    Simulator::TestFleet fleet;
    fleet.Add(spec);
    const auto outcome = Morvu::Testing::RunToolLine({"-drive_index", "0"});
    std::istringstream lines(outcome.output);
    std::string line;
    while (std::getline(lines, line) && line.find("Native MAX LBA") == line.npos) {
    }
    EXPECT_THAT(line, ::testing::HasSubstr(shown)) << outcome.output;
  }
}

TEST(ExitStatus, IsNeverAShellsOwn) {
  for (int code = -1; code <= 1000; ++code) {
    EXPECT_FALSE(IsShells(ToExitStatus(Morvu::StatusCode::FromValue(code), 0))) << code;
  }
}

TEST(ExitStatus, TellsTheCodesWithoutTheirOwnNumberApart) {
  std::map<int, int> codes;
  for (const int code : {126, 127, 130, 260, 261, 262, 269, 273, 274, 275, 276, 277, 278, 279,
                         280, 281, 282, 284, 285, 286, 287, 288, 289, 290, 291, 292, 293, 294,
                         295, 296, 297, 298, 299, 300, 301, 302, 903, 904, 905, 907, 908}) {
    const int exitStatus = ToExitStatus(Morvu::StatusCode::FromValue(code), 0);
    EXPECT_GE(exitStatus, 24) << code;
    EXPECT_LE(exitStatus, 65) << code;
    EXPECT_TRUE(codes.emplace(exitStatus, code).second)
        << code << " and " << codes[exitStatus] << " both end with " << exitStatus;
  }
}

TEST(Documentation, TellsEveryOption) {
  std::istringstream in;
  std::ostringstream out;
  const Morvu::QRKCLI cli(Morvu::GetFeatures(), GetToolConfig(), {in, out});
  const auto page = MakeManualPage(cli, GetToolConfig());
  const auto completion = MakeBashCompletion(cli, GetToolConfig(), Morvu::GetFeatures());
  for (const auto& parameter : cli.GetParameters()) {
    const auto& name = parameter->GetName();
    EXPECT_THAT(page, ::testing::HasSubstr(".TP\n.B \\" + name)) << name;
    EXPECT_THAT(completion, ::testing::ContainsRegex(" " + name + "[ \n]")) << name;
  }
  EXPECT_EQ(completion.find('@'), std::string::npos);
}

std::string ReadDocument() {
  std::ostringstream text;
  text << std::ifstream(MORVU_COMMAND_LINE_DOCUMENT, std::ios::binary).rdbuf();
  return text.str();
}

// build/.../morvussd-docs options writes what has to stand there.
TEST(CommandLineDocument, HoldsTheOptionsOfTheRecords) {
  constexpr std::string_view kBegin = "<!-- made by: morvussd-docs options -->\n";
  constexpr std::string_view kEnd = "<!-- end -->\n";
  const auto document = ReadDocument();
  const auto begin = document.find(kBegin);
  const auto end = document.find(kEnd);
  ASSERT_NE(begin, document.npos);
  ASSERT_NE(end, document.npos);
  EXPECT_EQ(document.substr(begin + kBegin.size(), end - begin - kBegin.size()),
            MakeOptionTables(Morvu::GetFeatures()));
}

TEST(CommandLineDocument, NamesNoOptionThatIsNotThere) {
  std::istringstream in;
  std::ostringstream out;
  const Morvu::QRKCLI cli(Morvu::GetFeatures(), GetToolConfig(), {in, out});
  // Names that stand for others or for a fault.
  const std::set<std::string> kNoOptions = {"-FEATURE", "-bogus"};
  const auto document = ReadDocument();
  const std::regex option("[ `(\\n](-[A-Za-z][A-Za-z_]+)");
  std::size_t found = 0;
  for (std::sregex_iterator match(document.begin(), document.end(), option), last; match != last;
       ++match, ++found) {
    const auto name = (*match)[1].str();
    EXPECT_TRUE(cli.FindParameter(name) != nullptr || kNoOptions.contains(name)) << name;
  }
  EXPECT_GT(found, 30U);
}

}  // namespace
}  // namespace MorvuTool
