// A command-line host for tests, with all features.
#pragma once

#include <sstream>
#include <string>
#include <vector>

#include "cli/QRKCLI.h"
#include "messaging/drive_class/Features.h"

namespace Morvu::Testing {

struct LineOutcome {
  StatusCode code = Status::NotRun;
  StatusCode sideResult = Status::NotRun;
  std::string output;
  // What the feature printed, behind the banner and the drive's information.
  std::string GetFeatureOutput() const {
    const auto end = output.rfind("\n\n\n");
    return end == output.npos ? output : output.substr(end + 3);
  }
};

// Runs a command line on these streams; its codes.
inline LineOutcome RunToolLine(const std::vector<std::string>& words, const CLIStreams& streams) {
  DeviceManagement::ScanOptions options;
  options.identify = true;
  options.findLogical = true;  // as morvussd does
  const ToolConfig config{.toolName = "tool",
                          .productName = "Tool",
                          .version = "1",
                          .legalLines = {},
                          .closingNote = "",
                          .description = "",
                          .license = "",
                          .defaultOption = "-drive_list",
                          .scanOptions = options};
  QRKCLI cli(GetFeatures(), config, streams);
  std::vector<const char*> arguments{"tool"};
  for (const auto& word : words) arguments.push_back(word.c_str());
  LineOutcome outcome;
  outcome.code = cli.runCLI(static_cast<int>(arguments.size()), arguments.data());
  outcome.sideResult = cli.GetSideResult();
  return outcome;
}

// Runs a command line. `answers` is what the user types.
inline LineOutcome RunToolLine(const std::vector<std::string>& words,
                               const std::string& answers = "") {
  std::istringstream in(answers);
  std::ostringstream out;
  auto outcome = RunToolLine(words, CLIStreams{in, out});
  outcome.output = out.str();
  return outcome;
}

}  // namespace Morvu::Testing
