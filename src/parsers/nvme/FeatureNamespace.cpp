#include "parsers/nvme/FeatureNamespace.h"

#include <string>

#include "devices/model/Device.h"
#include "devices/properties/BasicProperties.h"
#include "frame/Logger.h"
#include "frame/status/NvmeStatus.h"

namespace Morvu {

namespace Properties = DeviceManagement::Properties;

namespace {

constexpr std::uint16_t kInvalidNamespace = 0x00B;
constexpr std::uint16_t kNotNamespaceSpecific = 0x10F;

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
  const auto other = first == 0 ? own : 0;
  const auto result = send(first);
  const auto status = ToNvmeStatus(result);
  const bool isAimless = status == kInvalidNamespace || status == kNotNamespaceSpecific;
  if (!isAimless || other == first) return result;
  MORVU_LOG(kLogInfo, "Execute",
            DescribeNvmeStatus(result) + " with namespace " + std::to_string(first) +
                "; sent once more with namespace " + std::to_string(other));
  return send(other);
}

}  // namespace Morvu
