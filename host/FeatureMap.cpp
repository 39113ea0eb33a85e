// The Feature families of morvussd, in the order in which the help shows them.
#include "Tool.h"
#include "operations/FirmwareUpdate.h"
#include "parsers/Smart.h"

namespace MorvuTool {

using Morvu::FirmwareUpdate;
namespace Smart = Morvu::Smart;

// clang-format off
std::span<const Morvu::FeatureEntry> GetFeatureMap() {
  static constexpr Morvu::FeatureEntry kFeatures[] = {
      {"Firmware update", &FirmwareUpdate::GetFeatureDefinition, &FirmwareUpdate::RunCLI},
      {"SMART",           &Smart::GetFeatureDefinition,          &Smart::RunCLI},
  };
  return kFeatures;
}
// clang-format on

}  // namespace MorvuTool
