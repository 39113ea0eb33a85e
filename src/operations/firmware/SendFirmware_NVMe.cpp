#include "operations/firmware/SendFirmware_NVMe.h"

#include <algorithm>
#include <array>

#include "devices/commands/CommandSet_NVME.h"
#include "devices/model/Adapter.h"
#include "frame/Logger.h"
#include "frame/Platform.h"
#include "frame/status/Firmware.h"
#include "frame/status/NvmeStatus.h"

namespace Morvu {

namespace {

constexpr std::chrono::seconds kLongestReset{200};
constexpr std::size_t kPage = 4096;
constexpr std::size_t kDword = 4;
constexpr std::size_t kDwordsAtOnce = kPage / kDword;
constexpr std::uint8_t kSlot = 1;
constexpr std::uint8_t kStoreAndActivateAtReset = 1;
constexpr std::uint8_t kIdentifyController = 1;

// Committed; activation requires a conventional reset, one of the subsystem, one of the
// controller (NVMe 1.2, figure 68).
constexpr std::uint16_t kCommitted[] = {0x10B, 0x110, 0x111};

}  // namespace

std::int32_t SendFirmware_NVMe::Execute() {
  waitsForReset_ = false;
  nvmeStatus_ = Status::Completed;
  if (nvme_ == nullptr || image_.empty()) return Fail(Status::FirmwareUpdateFailed);
  auto result = TransferImage();
  if (result == Status::Completed) result = Activate();
  if (result == Status::Completed) result = nvmeReset();
  if (result != Status::Completed) return Fail(Status::FirmwareUpdateFailed);
  // The kernel follows its own devices: there is nothing to ask it for.
  MORVU_LOG(kLogDebug, "Execute", "Rescan System Devices.");
  return true;
}

StatusCode SendFirmware_NVMe::TransferImage() {
  MORVU_LOG(kLogInfo, "Execute", "Sending the firmware.");
  const auto dwords = image_.size() / kDword + (image_.size() % kDword != 0 ? 1 : 0);
  std::array<std::uint8_t, kPage> page;
  for (std::size_t offset = 0; offset < dwords;) {
    const auto count = std::min(kDwordsAtOnce, dwords - offset);
    const auto piece = ByteSpan(page).first(count * kDword);
    CopyImage(offset * kDword, piece);
    const auto result = nvme_->nvmeFirmwareImageDownload(static_cast<std::uint32_t>(count),
                                                         static_cast<std::uint32_t>(offset), piece);
    if (result != Status::Completed) return result;
    offset += count;
  }
  return Status::Completed;
}

StatusCode SendFirmware_NVMe::Activate() {
  MORVU_LOG(kLogDebug, "Execute", "Activating the firmware.");
  const auto result = nvme_->nvmeFirmwareActivate(kSlot, kStoreAndActivateAtReset);
  const auto status = ToNvmeStatus(result);
  const bool asksForReset = status && std::ranges::count(kCommitted, *status) > 0;
  waitsForReset_ = result == Status::Completed || asksForReset;
  if (asksForReset) {
    nvmeStatus_ = result;
    MORVU_LOG(kLogWarning, "Execute", "Firmware committed: " + DescribeNvmeStatus(result));
  }
  return result;
}

StatusCode SendFirmware_NVMe::nvmeReset() {
  MORVU_LOG(kLogDebug, "nvmeReset", "Issue adapter reset.");
  if (adapter_ != nullptr) {
    if (const auto result = adapter_->ResetAdapter(); result != Status::Completed) return result;
  }
  std::array<std::uint8_t, kPage> page{};
  const auto identify = [&] { return nvme_->nvmeIdentify(kIdentifyController, 0, page); };
  // By the clock: a try may take a minute of its own.
  const auto end = GetUptime() + kLongestReset;
  auto result = identify();
  for (std::uint32_t count = 0; result != Status::Completed && GetUptime() < end; ++count) {
    MORVU_LOG(kLogDebug, "nvmeReset", "Waiting for NVMe reset. Count = " + std::to_string(count));
    SleepFor(std::chrono::seconds(1));
    result = identify();
  }
  return result;
}

}  // namespace Morvu
