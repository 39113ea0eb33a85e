// What an erase tells beside its code.
#pragma once

#include "devices/system/MountTable.h"
#include "messaging/features/Face.h"
#include "messaging/features/Feature.h"
#include "operations/erase/EraseWitness.h"

namespace Morvu {

// The mounts of the drive and of its partitions that this process's mount namespace shows.
DeviceManagement::MountTable FindDriveMounts(const DeviceManagement::Device& device);

// Whether the data have changed; nothing where nothing proves it.
std::optional<Feature::Remark> DescribeVerdict(EraseWitness::Verdict verdict);

// Ends a family's runner: tells the run's remarks, and what the mounts from before it may
// undo. The code of the run.
StatusCode EndErase(const Feature& erase, const DeviceManagement::MountTable& mounts, Face& face);

}  // namespace Morvu
