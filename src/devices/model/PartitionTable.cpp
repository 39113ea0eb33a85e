#include "devices/model/PartitionTable.h"

#include "frame/Text.h"

namespace Morvu::DeviceManagement {

void AppendPartition(ResultTable& table, const Partition& partition, const PartitionSpace& space) {
  table.AppendRow({"Path:", Printable(partition.GetName())});
  table.AppendRow({"Operating System:", partition.IsOsPartition() ? "YES" : "NO"});
  table.AppendRow({"Free Space:", ReadableSize(space.free) + " / " + ReadableSize(space.size)});
  table.AppendRow({"Type:", Printable(space.type)});
}

}  // namespace Morvu::DeviceManagement
