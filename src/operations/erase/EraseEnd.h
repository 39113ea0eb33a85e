// What an erase tells beside its code.
#pragma once

#include "devices/system/DiskUse.h"
#include "messaging/features/Face.h"
#include "messaging/features/Feature.h"
#include "operations/erase/EraseWitness.h"

namespace Morvu {

// Whether the data have changed; nothing where nothing proves it.
std::optional<Feature::Remark> DescribeVerdict(EraseWitness::Verdict verdict);

// Ends a family's runner: tells the run's remarks, and what the mounts in `use`, from before
// it, may undo. The code of the run.
StatusCode EndErase(const Feature& erase, const DeviceManagement::DiskUse& use, Face& face);

}  // namespace Morvu
