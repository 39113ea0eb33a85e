#include "devices/commands/AtaExchange.h"

#include <algorithm>

namespace Morvu::DeviceManagement {
namespace {

namespace Byte = TaskFileByte;

constexpr std::uint8_t kErrorAbort = 0x04;
constexpr std::uint8_t kNopRefused[] = {0x41, 0x51, 0x71};

}  // namespace

bool IsAtaFailure(const AtaAnswer& answer) {
  constexpr std::uint8_t kFailed = AtaStatus::Error | AtaStatus::DeviceFault | AtaStatus::Busy;
  return answer.known != 0 && (answer.status & kFailed) != 0;
}

bool AtaNop::IsRefusedIn(const AtaAnswer& answer) {
  if (!answer.Has(AtaAnswer::kLow)) return false;
  return std::ranges::find(kNopRefused, answer.status) != std::end(kNopRefused) ||
         answer.error == kErrorAbort;
}

void PutRegisters(const AtaAnswer& answer, ByteSpan image) {
  const auto previous = image.subspan(Byte::Previous);
  if (answer.Has(AtaAnswer::kLow)) {
    image[Byte::Error] = answer.error;
    image[Byte::Count] = static_cast<std::uint8_t>(answer.count);
    image[Byte::LbaLow] = static_cast<std::uint8_t>(answer.lba);
    image[Byte::Device] = answer.device;
    image[Byte::Status] = answer.status;
    image[Byte::Control] = 0;
  }
  if (answer.Has(AtaAnswer::kMiddle)) WriteLittle(answer.lba >> 8, Byte::LbaMid, 2, image);
  if (answer.Has(AtaAnswer::kUpper)) {
    previous[Byte::Error] = 0;
    previous[Byte::Count] = static_cast<std::uint8_t>(answer.count >> 8);
    WriteLittle(answer.lba >> 24, Byte::LbaLow, 3, previous);
  }
}

}  // namespace Morvu::DeviceManagement
