// Whole runs of morvussd on a simulated fleet, compared with the files in golden/.
// To write them anew from what the tool prints now, and then read the difference:
//
//   MORVU_UPDATE_GOLDEN=1 build/x86_64/tests/cli_tests --gtest_filter='*Golden*'
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "ExitStatus.h"
#include "TestFleet.h"
#include "Tool.h"

namespace MorvuTool {
namespace {

using Simulator::Kind;

struct GoldenRun {
  std::string_view name;
  std::vector<std::string> arguments;
  std::string_view input = "";
};

void PrintTo(const GoldenRun& run, std::ostream* out) { *out << run.name; }

class Golden : public ::testing::TestWithParam<GoldenRun> {
 protected:
  Golden() {
    auto sata = fleet_.Add({.model = "MORVU SSDSC2BB480G4",
                            .serial = "BTWL402600K4480QGN",
                            .firmware = "D2010350",
                            .sectors = 937703088});
    sata.AddPartition(1 << 30, "/srv");
    sata.AddPartition(1 << 20);
    fleet_.Add({.kind = Kind::Scsi,
                .model = "SIMULATED SAS",
                .serial = "S7A00001",
                .firmware = "A1B2",
                .sectors = 390625000});
    fleet_.Add({.kind = Kind::Nvme,
                .model = "MORVU SSDPE2MD800G4",
                .serial = "CVFT4030004F800CGN",
                .firmware = "8DV10151",
                .sectors = 1562824368});
  }

  Simulator::TestFleet fleet_;
};

std::string ReadFile(const std::string& path) {
  std::ostringstream text;
  text << std::ifstream(path, std::ios::binary).rdbuf();
  return text.str();
}

// The command line, what it printed, and the exit status.
std::string Record(const GoldenRun& run) {
  std::vector<const char*> argv = {"morvussd"};
  std::ostringstream out;
  out << "$ morvussd";
  for (const auto& argument : run.arguments) {
    out << ' ' << argument;
    argv.push_back(argument.c_str());
  }
  out << '\n';
  std::istringstream in{std::string(run.input)};
  Morvu::QRKCLI cli(GetFeatureMap(), GetToolConfig(), {in, out});
  const auto code = cli.runCLI(static_cast<int>(argv.size()), argv.data());
  out << "exit status " << ToExitStatus(code, cli.GetSideResult()) << '\n';
  return out.str();
}

TEST_P(Golden, RunPrintsWhatItsFileHolds) {
  const auto path = MORVU_GOLDEN_FOLDER "/" + std::string(GetParam().name) + ".txt";
  const auto printed = Record(GetParam());
  if (std::getenv("MORVU_UPDATE_GOLDEN") != nullptr) {
    std::ofstream(path, std::ios::binary) << printed;
    GTEST_SKIP() << "wrote " << path;
  }
  EXPECT_EQ(printed, ReadFile(path)) << path;
}

const GoldenRun kRuns[] = {
    {"help", {"-help"}},
    {"help_drive_index", {"-help", "drive_index"}},
    {"help_nothing", {"-help", "nothing like it"}},
    {"license", {"-license"}},
    {"bad_index", {"-drive_index", "7"}},
    {"bad_serial", {"-drive_serial", "NONE"}},
};
INSTANTIATE_TEST_SUITE_P(Runs, Golden, ::testing::ValuesIn(kRuns),
                         [](const auto& test) { return std::string(test.param.name); });

}  // namespace
}  // namespace MorvuTool
