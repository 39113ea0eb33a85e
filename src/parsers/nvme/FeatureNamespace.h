// Which namespace a command for an NVMe feature names.
#pragma once

#include <cstdint>
#include <functional>

#include "frame/StatusCode.h"

namespace Morvu {

namespace DeviceManagement {
class Device;
}

// The drive's namespace as the kernel tells it; 0 where it tells none.
std::uint32_t GetNamespace(const DeviceManagement::Device& device);

enum class FeatureAim : std::uint8_t { Controller, Namespace };

// Sends a Get or Set Features for the controller (namespace 0) or for the drive's namespace,
// and once more for the other when the controller says that this is what is wrong with it
// (NVMe 1.0, 4.5.1): some refuse a feature without a namespace, some another with one.
StatusCode SendToFeature(const DeviceManagement::Device& device, FeatureAim aim,
                         const std::function<StatusCode(std::uint32_t nsid)>& send);

}  // namespace Morvu
