// The options that every tool has, whatever its Features.
#pragma once

#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "cli/CLIParameter.h"

namespace Morvu {

class QRKCLI;

inline constexpr std::string_view kJsonOption = "-json";

// All that there is to say of one.
struct ToolOption {
  using Names = std::span<const std::string_view>;

  OptionDeclaration declaration;
  // What the tool does for it: 1 when the run goes on. Null for what features read.
  StatusCode (QRKCLI::*handle)(const CLIParameter& parameter) = nullptr;
  // Of a selector: the nodes of the drives that its value names, by the kernel, which asks no
  // drive.
  std::vector<std::string> (*findNodes)(const std::string& value) = nullptr;
  // The value is one that drives tell: one of which the kernel does not know may bear it too.
  bool isDrivesOwn = false;
  Names aliases{};     // other words for it
  bool isTold = true;  // false: it is there for a family that declares it
};

// In the order in which they are registered, and so handled.
std::span<const ToolOption> GetToolOptions();
// Null for an option of a family alone.
const ToolOption* FindToolOption(std::string_view name);

}  // namespace Morvu
