// The exit status of the process: what eight bits can tell of a status code.
#pragma once

#include "frame/StatusCode.h"

namespace MorvuTool {

// 0 for a good end (codes 0 and 18); codes up to 255 as they are, but for 126, 127 and 130,
// which are a shell's own. Those and codes above 255 take numbers that belong to rows which
// nothing sets on this system. What went
// wrong beside the run makes a good end a bad one: `sideResult` stands in for a
// code of 0.
int ToExitStatus(Morvu::StatusCode code, Morvu::StatusCode sideResult);

inline constexpr int kExitOsError = 99;   // a negative code
inline constexpr int kExitUnknown = 100;  // a code above 255 without a place of its own

}  // namespace MorvuTool
