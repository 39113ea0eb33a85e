#include "parsers/nvme/FeatureNamespace.h"

#include <string>
#include <vector>

#include "devices/commands/CommandSet_NVME.h"
#include "devices/model/Device.h"
#include "devices/properties/BasicProperties.h"
#include "frame/Logger.h"
#include "frame/status/NvmeStatus.h"
#include "parsers/nvme/NvmeHealth.h"

namespace Morvu {

namespace Properties = DeviceManagement::Properties;

namespace {

constexpr std::uint16_t kInvalidField = 0x002;
constexpr std::uint16_t kInvalidNamespace = 0x00B;
constexpr std::uint16_t kNotNamespaceSpecific = 0x10F;
constexpr std::uint32_t kAllNamespaces = 0xFFFFFFFF;

// A refused command would stand in the drive's error log, at each reading.
bool HasOneHealthLog(DeviceManagement::CommandSet_NVME& nvme) {
  constexpr std::uint8_t kController = 1;
  constexpr std::size_t kSize = 4096, kLogPageAttributes = 261;
  std::vector<std::uint8_t> data(kSize);
  return nvme.nvmeIdentify(kController, 0, data) == Status::Completed &&
         (data[kLogPageAttributes] & 0x01) == 0;
}

// Sends the command once more for the other namespace, where that may help.
StatusCode SendOrRetry(std::uint32_t first, std::uint32_t other, bool (*mayHelp)(std::uint16_t),
                       const std::function<StatusCode(std::uint32_t nsid)>& send) {
  const auto result = send(first);
  const auto status = ToNvmeStatus(result);
  if (!status || !mayHelp(*status) || other == first) return result;
  MORVU_LOG(kLogInfo, "Execute",
            DescribeNvmeStatus(result) + " with namespace " + std::to_string(first) +
                "; sent once more with namespace " + std::to_string(other));
  return send(other);
}

}  // namespace

std::uint32_t GetNamespace(const DeviceManagement::Device& device) {
  const auto* lun = device.GetProperties().Find(Properties::Lun);
  if (lun == nullptr || !lun->HasValue()) return 0;
  return static_cast<std::uint32_t>(lun->AsUnsigned()) + 1;
}

StatusCode SendToFeature(const DeviceManagement::Device& device, FeatureAim aim,
                         const std::function<StatusCode(std::uint32_t nsid)>& send) {
  const auto own = GetNamespace(device);
  const auto first = aim == FeatureAim::Namespace ? own : 0;
  return SendOrRetry(
      first, first == 0 ? own : 0,
      [](std::uint16_t status) {
        return status == kInvalidNamespace || status == kNotNamespaceSpecific;
      },
      send);
}

StatusCode ReadLogPage(const DeviceManagement::Device& device,
                       DeviceManagement::CommandSet_NVME& nvme, std::uint8_t log,
                       std::uint32_t numd, ByteSpan data) {
  const bool isOfAll = log == NvmeHealth::kLogId && HasOneHealthLog(nvme);
  return SendOrRetry(
      isOfAll ? kAllNamespaces : GetNamespace(device), kAllNamespaces,
      [](std::uint16_t status) {
        return status == kInvalidField || status == kInvalidNamespace ||
               status == kNotNamespaceSpecific;
      },
      [&](std::uint32_t nsid) { return nvme.nvmeGetLogPage(log, numd + 1, nsid, data); });
}

}  // namespace Morvu
