// The Feature families of morvussd, in the order in which the help shows them.
#include "Tool.h"

namespace MorvuTool {

// clang-format off
std::span<const Morvu::FeatureEntry> GetFeatureMap() {
  // A family's row:
  //   {"SMART", &Morvu::Smart::GetFeatureDefinition, &Morvu::Smart::RunCLI},
  return {};
}
// clang-format on

}  // namespace MorvuTool
