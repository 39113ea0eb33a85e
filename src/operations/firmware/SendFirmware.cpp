#include "operations/firmware/SendFirmware.h"

#include <algorithm>

namespace Morvu {

SendFirmware::SendFirmware(DeviceManagement::Device* device, ProgressReporter& reporter)
    : Function(device, reporter) {
  SetErrorCode(Status::ReadyToRun);
}

void SendFirmware::CopyImage(std::size_t offset, ByteSpan buffer) const {
  const auto rest = image_.subspan(std::min(offset, image_.size()));
  const auto piece = rest.first(std::min(rest.size(), buffer.size()));
  std::ranges::copy(piece, buffer.begin());
  std::ranges::fill(buffer.subspan(piece.size()), std::uint8_t{0});
}

bool SendFirmware::Fail(StatusCode code) {
  End(code);
  return false;
}

}  // namespace Morvu
