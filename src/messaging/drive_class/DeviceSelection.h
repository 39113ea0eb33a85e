// Which drives and partitions a request names.
#pragma once

#include <span>

#include "devices/model/DeviceList.h"

namespace Morvu {

namespace XmlMessaging {
class Message;
}

// Fills `selected` with clones of the drives that the request's Objects of class
// "MorvuSSD" or "Device" name by their key, and with copies of the partitions that its
// "Partition" Objects name. A drive named by its key must answer. A request without an
// Object of these classes, and a null one, selects every device. `drives` are not
// owned; the caller keeps a scan from changing them.
void SelectDevices(std::span<DeviceManagement::Device* const> drives,
                   const XmlMessaging::Message* request,
                   DeviceManagement::SelectedDevices& selected);

// Whether an Object of the request names drives by a key.
bool NamesDrive(const XmlMessaging::Message& request);

// The two steps of it, for a caller with a lock on the drives. The first sends nothing to
// any drive, and tells whether the request names drives; only then the second, which needs
// no lock, asks the clones and drops those that do not answer. One that somebody works on is
// not asked.
bool CloneSelected(std::span<DeviceManagement::Device* const> drives,
                   const XmlMessaging::Message* request,
                   DeviceManagement::SelectedDevices& selected);
void DropUnreachable(DeviceManagement::SelectedDevices& selected);

}  // namespace Morvu
