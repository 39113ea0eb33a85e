// The rows by which a person reads of a partition.
#pragma once

#include "devices/model/Partition.h"
#include "messaging/ResultTable.h"

namespace Morvu::DeviceManagement {

void AppendPartition(ResultTable& table, const Partition& partition, const PartitionSpace& space);

}  // namespace Morvu::DeviceManagement
