// What a terminal gets beside lines of text.
#pragma once

#include <memory>

#include "cli/ProgressLine.h"

namespace MorvuTool {

// Standard output takes colours: a terminal that is not dumb, without NO_COLOR (no-color.org).
bool TakesColours();

// The line on standard error; one that does nothing where that is no terminal, or a dumb one.
std::unique_ptr<Morvu::ProgressLine> MakeProgressLine(
    Morvu::ProgressLine::Duration delay = Morvu::ProgressLine::kDelay);

}  // namespace MorvuTool
