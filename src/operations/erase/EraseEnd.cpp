#include "operations/erase/EraseEnd.h"

#include "devices/system/SystemFacts.h"
#include "operations/Operation.h"

namespace Morvu {

using DeviceManagement::Device;
using DeviceManagement::MountTable;
using DeviceManagement::Names;

MountTable FindDriveMounts(const Device& device) {
  const auto facts = DeviceManagement::SystemFacts::Read();
  const auto& path = device.GetPath().GetDevicePath();
  const auto node = path.substr(path.rfind('/') + 1);
  auto nodes = facts.FindPartitions(path).value_or(Names());
  for (auto& disk : facts.FindDisks(node).value_or(Names{node})) nodes.push_back(std::move(disk));
  MountTable found;
  if (!facts.GetMounts()) return found;
  for (const auto& name : nodes) {
    const auto* mount = DeviceManagement::FindMountOf(*facts.GetMounts(), "/dev/" + name);
    if (mount != nullptr) found.push_back(*mount);
  }
  return found;
}

std::optional<Feature::Remark> DescribeVerdict(EraseWitness::Verdict verdict) {
  switch (verdict) {
    case EraseWitness::Verdict::Changed:
      return Feature::Remark{false,
                             "Sectors that were read before the erase and after it have changed."};
    case EraseWitness::Verdict::Unchanged:
      return Feature::Remark{
          true,
          "The drive reports success, but sectors that were read before the erase and after it "
          "are the same: the data may still be there."};
    case EraseWitness::Verdict::Untold:
      break;
  }
  return std::nullopt;
}

StatusCode EndErase(const Feature& erase, const MountTable& mounts, Face& face) {
  TellRemarks(erase, face);
  if (erase.GetErrorCode() != Status::Completed) return erase.GetErrorCode();
  for (const auto& mount : mounts) {
    face.Warn(mount.source + " was mounted on " + mount.point +
              " during the erase: the kernel may write parts of its file system back when it is "
              "unmounted. Unmount it, and erase the drive again.");
  }
  return erase.GetErrorCode();
}

}  // namespace Morvu
