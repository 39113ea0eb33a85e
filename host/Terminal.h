// What a terminal gets beside lines of text.
#pragma once

#include <cstdio>
#include <memory>

#include "cli/ProgressLine.h"

namespace MorvuTool {

// Standard output takes colours: a terminal that is not dumb, without NO_COLOR (no-color.org).
bool TakesColours();

// The line on standard error; one that does nothing where that is no terminal, or a dumb one.
std::unique_ptr<Morvu::ProgressLine> MakeProgressLine(
    Morvu::ProgressLine::Duration delay = Morvu::ProgressLine::kDelay);

// While it lives, and where standard output and input are a full terminal, standard output goes
// through $PAGER, else less. Whoever reads may stop early; the end waits for them.
class Pager {
 public:
  Pager();
  ~Pager();
  Pager(const Pager&) = delete;
  Pager& operator=(const Pager&) = delete;

  bool IsOpen() const { return pager_ != nullptr; }

 private:
  std::FILE* pager_ = nullptr;
  int terminal_ = -1;  // standard output as it was
};

}  // namespace MorvuTool
