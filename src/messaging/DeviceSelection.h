// Which drives and partitions a request names.
#pragma once

#include <cstdint>
#include <span>
#include <string_view>

#include "devices/DeviceList.h"

namespace Morvu {

namespace XmlMessaging {
class Message;
}

// The number by which a host names a partition; the same for the same drive and
// partition over scans.
std::uint32_t GetPartitionId(const DeviceManagement::Device& drive,
                             const DeviceManagement::Partition& partition);
// The hash that it is made with.
std::uint32_t HashPartitionText(std::string_view text);

// Fills `selected` with clones of the drives that the request's Objects of class
// "MorvuSSD" or "Device" name by their key, and with copies of the partitions that its
// "Partition" Objects name. A drive named by its key must answer. A request without an
// Object of these classes, and a null one, selects every device. `drives` are not
// owned; the caller keeps a scan from changing them.
void SelectDevices(std::span<DeviceManagement::Device* const> drives,
                   const XmlMessaging::Message* request,
                   DeviceManagement::SelectedDevices& selected);

}  // namespace Morvu
