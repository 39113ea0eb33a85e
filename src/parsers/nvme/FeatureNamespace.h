// Which namespace a command for an NVMe feature or log names.
#pragma once

#include <cstdint>
#include <functional>

#include "frame/Bytes.h"
#include "frame/StatusCode.h"

namespace Morvu {

namespace DeviceManagement {
class CommandSet_NVME;
class Device;
}  // namespace DeviceManagement

// The drive's namespace as the kernel tells it; 0 where it tells none.
std::uint32_t GetNamespace(const DeviceManagement::Device& device);

enum class FeatureAim : std::uint8_t { Controller, Namespace };

// Sends a Get or Set Features for the controller (namespace 0) or for the drive's namespace,
// and once more for the other when the controller says that this is what is wrong with it
// (NVMe 1.0, 4.5.1): some refuse a feature without a namespace, some another with one.
StatusCode SendToFeature(const DeviceManagement::Device& device, FeatureAim aim,
                         const std::function<StatusCode(std::uint32_t nsid)>& send);

// Reads the first page of a log, of the drive's namespace; the health log of the controller that
// keeps none for a namespace (NVMe 1.0, bit 0 of LPA). Where the controller says that this is what
// is wrong, it is asked once more, for all namespaces. `numd` counts dwords from 0, as the command
// does; the data are as long as the transfer.
StatusCode ReadLogPage(const DeviceManagement::Device& device,
                       DeviceManagement::CommandSet_NVME& nvme, std::uint8_t log,
                       std::uint32_t numd, ByteSpan data);

}  // namespace Morvu
