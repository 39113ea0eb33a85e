// The Feature families of morvussd, in the order in which the help shows them.
#include "Tool.h"
#include "operations/erase/Format.h"
#include "operations/erase/Sanitize.h"
#include "operations/erase/SecureErase.h"
#include "operations/firmware/FirmwareUpdate.h"
#include "operations/testing/DriveSelfTest.h"
#include "operations/testing/StandbyImmediate.h"
#include "parsers/smart/Smart.h"

namespace MorvuTool {

using Morvu::DriveSelfTest;
using Morvu::FirmwareUpdate;
using Morvu::Format;
using Morvu::Sanitize;
using Morvu::SecureErase;
using Morvu::StandbyImmediate;
namespace Smart = Morvu::Smart;

// clang-format off
std::span<const Morvu::FeatureEntry> GetFeatureMap() {
  static constexpr Morvu::FeatureEntry kFeatures[] = {
      {"Firmware update",    &FirmwareUpdate::GetFeatureDefinition,     &FirmwareUpdate::RunCLI},
      {"SMART",              &Smart::GetFeatureDefinition,              &Smart::RunCLI},
      {"Format",             &Format::GetFeatureDefinition,             &Format::RunCLI},
      {"Secure erase",       &SecureErase::GetFeatureDefinition,        &SecureErase::RunCLI},
      {"Sanitize",           &Sanitize::GetFeatureDefinition,           &Sanitize::RunCLI},
      {"Self test",          &DriveSelfTest::GetFeatureDefinition,      &DriveSelfTest::RunCLI},
      {"Standby immediate",  &StandbyImmediate::GetFeatureDefinition,   &StandbyImmediate::RunCLI},
  };
  return kFeatures;
}
// clang-format on

}  // namespace MorvuTool
