#include "ExitStatus.h"

#include "frame/status/Firmware.h"
#include "frame/status/NvmeStatus.h"

namespace MorvuTool {
namespace {

using Morvu::StatusCode;

struct ExitRange {
  std::int32_t first;
  std::int32_t last;
  int exitStatus;  // of `first`; the others follow
};

// clang-format off
constexpr ExitRange kExitRanges[] = {
    // codes      exit status
    {284, 302,    24},  // 24 to 42
    {273, 282,    46},  // 46 to 55
    {260, 262,    56},  // 56 to 58
    {269, 269,    59},
    {903, 908,    60},  // 60 to 65: the argument line
    {909, 909,    43},  // a warning
};
// clang-format on

}  // namespace

int ToExitStatus(StatusCode code, StatusCode sideResult) {
  const bool isGood = code == Morvu::Status::Completed || code == Morvu::Status::FirmwareCurrent;
  if (isGood) code = sideResult;
  if (const auto status = Morvu::ToNvmeStatus(code)) {
    // The number goes out as it is, where it does not read as a good end.
    const bool isTold = *status > 0 && *status <= 255 && *status != Morvu::Status::FirmwareCurrent;
    return isTold ? *status : kExitUnknown;
  }
  if (code.IsSystemError()) return kExitOsError;
  const auto number = code.Value();
  if (number <= 255) return number;
  for (const auto& range : kExitRanges) {
    if (number >= range.first && number <= range.last) {
      return range.exitStatus + (number - range.first);
    }
  }
  return kExitUnknown;
}

}  // namespace MorvuTool
