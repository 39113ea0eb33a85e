#include "Terminal.h"

#include <unistd.h>

#include <cstdlib>
#include <iostream>
#include <string_view>

namespace MorvuTool {
namespace {

bool IsFullTerminal(int descriptor) {
  const char* kind = std::getenv("TERM");
  return isatty(descriptor) == 1 && (kind == nullptr || std::string_view(kind) != "dumb");
}

// A job in the background does not draw over what the user does meanwhile.
bool IsInForeground() {
  const auto group = tcgetpgrp(STDERR_FILENO);
  return group < 0 || group == getpgrp();  // where it is not this session's, nobody is in front
}

}  // namespace

bool TakesColours() {
  const char* without = std::getenv("NO_COLOR");
  return IsFullTerminal(STDOUT_FILENO) && (without == nullptr || *without == '\0');
}

std::unique_ptr<Morvu::ProgressLine> MakeProgressLine(Morvu::ProgressLine::Duration delay) {
  if (!IsFullTerminal(STDERR_FILENO)) return std::make_unique<Morvu::ProgressLine>();
  return std::make_unique<Morvu::ProgressLine>(std::cerr, delay, &IsInForeground);
}

}  // namespace MorvuTool
