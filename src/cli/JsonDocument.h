// The report of a command line as one JSON document (RFC 8259).
#pragma once

#include <string>

namespace Morvu {

class Report;
struct ToolConfig;

// In UTF-8, with a line's end behind it. Bytes of a text that are no UTF-8 stand as U+FFFD. It
// never throws for what a drive tells.
std::string ToJson(const Report& report, const ToolConfig& tool);

}  // namespace Morvu
