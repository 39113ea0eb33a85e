#include "Terminal.h"

#include <fcntl.h>
#include <unistd.h>

#include <csignal>
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

Pager::Pager() {
  if (!IsFullTerminal(STDOUT_FILENO) || isatty(STDIN_FILENO) != 1) return;
  // Short text stays on the screen; colours pass. Without a pager the text is printed as it is.
  setenv("LESS", "FRX", 0);
  terminal_ = fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
  if (terminal_ < 0) return;
  pager_ = popen("${PAGER:-less} 2>/dev/null || cat", "we");
  if (pager_ == nullptr || dup2(fileno(pager_), STDOUT_FILENO) < 0) return;
  (void)std::signal(SIGPIPE, SIG_IGN);
}

Pager::~Pager() {
  if (terminal_ < 0) return;
  std::cout.flush();
  dup2(terminal_, STDOUT_FILENO);
  close(terminal_);
  if (pager_ != nullptr) pclose(pager_);
}

}  // namespace MorvuTool
