#include "ExitStatus.h"

#include "cli/QRKCLI.h"
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
    {903, 905,    60},  // 60 to 62: the argument line
    {907, 908,    64},  // 64 and 65: the same
    {126, 127,    43},  // 43 and 44
    {130, 130,    63},
    {909, 909,   191},  // a warning
    {912, 927,   208},  // 208 and the bits of what was found
};
// clang-format on

// What a shell ends with by itself: a command that it cannot start or find, and Ctrl-C.
bool IsShells(std::int32_t number) { return number == 126 || number == 127 || number == 130; }

}  // namespace

int ToExitStatus(StatusCode code, StatusCode sideResult) {
  if (Morvu::IsGoodEnd(code)) code = sideResult;
  if (const auto status = Morvu::ToNvmeStatus(code)) {
    // The number goes out as it is, where it reads neither as a good end nor as the shell's.
    const bool isTold = *status > 0 && *status <= 255 &&
                        *status != Morvu::Status::FirmwareCurrent && !IsShells(*status);
    return isTold ? *status : kExitUnknown;
  }
  if (code.IsSystemError()) return kExitOsError;
  const auto number = code.Value();
  if (number <= 255 && !IsShells(number)) return number;
  for (const auto& range : kExitRanges) {
    if (number >= range.first && number <= range.last) {
      return range.exitStatus + (number - range.first);
    }
  }
  return kExitUnknown;
}

}  // namespace MorvuTool
