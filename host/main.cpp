// morvussd: the command-line host of the Morvu SSD library.
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <exception>
#include <iostream>
#include <optional>
#include <string_view>

#include "ExitStatus.h"
#include "Terminal.h"
#include "Tool.h"
#include "cli/ToolOptions.h"
#include "frame/status/Files.h"
#include "messaging/drive_class/Features.h"

namespace {

bool IsHelp(std::string_view word) {
  const auto* help = Morvu::FindToolOption("-help");
  return word == help->declaration.name || std::ranges::count(help->aliases, word) != 0;
}

int Run(int argc, char** argv) {
  const auto progress = MorvuTool::MakeProgressLine();
  const Morvu::CLIStreams streams{std::cin, std::cout, MorvuTool::TakesColours(), *progress};
  Morvu::QRKCLI cli(Morvu::GetFeatures(), MorvuTool::GetToolConfig(), streams);
  std::optional<MorvuTool::Pager> pager;
  if (argc == 2 && IsHelp(argv[1])) pager.emplace();
  const auto code = cli.runCLI(argc, argv);
  // Output that nobody could read is no good end, but of a pager that was left early.
  if (!std::cout.flush() && !(pager && pager->IsOpen())) {
    std::cerr << "morvussd: cannot write to standard output\n";
    return MorvuTool::ToExitStatus(Morvu::Status::FileNotWritten, 0);
  }
  return MorvuTool::ToExitStatus(code, cli.GetSideResult());
}

// A drive's node must not be opened in the place of a closed standard output, which would write
// to the drive.
void HoldStandardDescriptors() {
  for (const int descriptor : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
    if (fcntl(descriptor, F_GETFD) >= 0) continue;
    // The lowest free number: this one. Read-only, so that what is written to it fails.
    if (open("/dev/null", O_RDONLY) != descriptor) _exit(MorvuTool::kExitUnknown);
  }
}

}  // namespace

int main(int argc, char** argv) {
  HoldStandardDescriptors();
  try {
    return Run(argc, argv);
  } catch (const std::exception& error) {
    std::fprintf(stderr, "morvussd: %s\n", error.what());
    return MorvuTool::kExitUnknown;
  }
}
