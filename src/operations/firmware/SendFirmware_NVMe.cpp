#include "operations/firmware/SendFirmware_NVMe.h"

#include <algorithm>
#include <array>

#include "devices/commands/CommandSet_NVME.h"
#include "devices/model/Adapter.h"
#include "frame/Logger.h"
#include "frame/Platform.h"
#include "frame/status/Firmware.h"

namespace Morvu {

using DeviceManagement::NvmeCompletion;
using DeviceManagement::TimeoutGuard;

namespace {

constexpr std::uint32_t kTimeoutSeconds = 200;
constexpr std::size_t kPage = 4096;
constexpr std::size_t kDword = 4;
constexpr std::size_t kDwordsAtOnce = kPage / kDword;
constexpr std::uint8_t kSlot = 1;
constexpr std::uint8_t kStoreAndActivateAtReset = 1;
constexpr std::uint32_t kIdentifyController = 1;

}  // namespace

std::int32_t SendFirmware_NVMe::Execute() {
  if (nvme_ == nullptr || image_.empty()) return Fail(Status::FirmwareUpdateFailed);
  const TimeoutGuard timeout(device_->GetPath(), kTimeoutSeconds);
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
  NvmeCompletion completion;
  for (std::size_t offset = 0; offset < dwords;) {
    const auto count = std::min(kDwordsAtOnce, dwords - offset);
    const auto piece = ByteSpan(page).first(count * kDword);
    CopyImage(offset * kDword, piece);
    const auto result = nvme_->nvmeFirmwareImageDownload(
        static_cast<std::uint32_t>(count), static_cast<std::uint32_t>(offset), completion, piece);
    if (result != Status::Completed) return result;
    offset += count;
  }
  return Status::Completed;
}

StatusCode SendFirmware_NVMe::Activate() {
  MORVU_LOG(kLogDebug, "Execute", "Activating the firmware.");
  NvmeCompletion completion;
  return nvme_->nvmeFirmwareActivate(kSlot, kStoreAndActivateAtReset, completion);
}

StatusCode SendFirmware_NVMe::nvmeReset() {
  MORVU_LOG(kLogDebug, "nvmeReset", "Issue adapter reset.");
  if (adapter_ != nullptr) {
    if (const auto result = adapter_->ResetAdapter(); result != Status::Completed) return result;
  }
  std::array<std::uint8_t, kPage> page{};
  NvmeCompletion completion;
  const auto identify = [&] {
    return nvme_->nvmeIdentify(kIdentifyController, 0, completion, page);
  };
  auto result = identify();
  for (std::uint32_t count = 0; result != Status::Completed && count < kTimeoutSeconds; ++count) {
    MORVU_LOG(kLogDebug, "nvmeReset", "Waiting for NVMe reset. Count = " + std::to_string(count));
    SleepFor(std::chrono::seconds(1));
    result = identify();
  }
  return result;
}

}  // namespace Morvu
