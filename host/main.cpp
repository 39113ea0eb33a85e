// morvussd: the command-line host of the Morvu SSD library.
#include <unistd.h>

#include <cstdio>
#include <exception>
#include <iostream>

#include "ExitStatus.h"
#include "Tool.h"
#include "frame/status/Files.h"
#include "messaging/drive_class/Features.h"

namespace {

int Run(int argc, char** argv) {
  const Morvu::CLIStreams streams{std::cin, std::cout, isatty(STDOUT_FILENO) == 1};
  Morvu::QRKCLI cli(Morvu::GetFeatures(), MorvuTool::GetToolConfig(), streams);
  const auto code = cli.runCLI(argc, argv);
  // Output that nobody could read is no good end.
  if (!std::cout.flush()) {
    std::cerr << "morvussd: cannot write to standard output\n";
    return MorvuTool::ToExitStatus(Morvu::Status::FileNotWritten, 0);
  }
  return MorvuTool::ToExitStatus(code, cli.GetSideResult());
}

}  // namespace

int main(int argc, char** argv) {
  try {
    return Run(argc, argv);
  } catch (const std::exception& error) {
    std::fprintf(stderr, "morvussd: %s\n", error.what());
    return MorvuTool::kExitUnknown;
  }
}
