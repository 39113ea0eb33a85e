// morvussd-docs: writes what is made from the option data to standard output: the manual
// page, the completion, or the option tables of docs/command-line.md.
#include <iostream>
#include <sstream>
#include <string_view>

#include "Documentation.h"
#include "Tool.h"
#include "messaging/drive_class/Features.h"

int main(int argc, char** argv) {
  const std::string_view kind = argc == 2 ? argv[1] : "";
  std::istringstream noInput;
  const Morvu::QRKCLI cli(Morvu::GetFeatures(), MorvuTool::GetToolConfig(), {noInput, std::cout});
  if (kind == "man") {
    std::cout << MorvuTool::MakeManualPage(cli, MorvuTool::GetToolConfig());
  } else if (kind == "bash-completion") {
    std::cout << MorvuTool::MakeBashCompletion(cli, MorvuTool::GetToolConfig(),
                                               Morvu::GetFeatures());
  } else if (kind == "options") {
    std::cout << MorvuTool::MakeOptionTables(Morvu::GetFeatures());
  } else {
    std::cerr << "usage: morvussd-docs man|bash-completion|options\n";
    return 1;
  }
  return std::cout.flush() ? 0 : 1;
}
