#include "operations/erase/EraseEnd.h"

#include "frame/Text.h"
#include "operations/Operation.h"

namespace Morvu {

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

StatusCode EndErase(const Feature& erase, const DeviceManagement::DiskUse& use, Face& face) {
  TellRemarks(erase, face);
  if (erase.GetErrorCode() != Status::Completed) return erase.GetErrorCode();
  for (const auto& part : use.parts) {
    if (part.mountPoints.empty()) continue;
    face.Warn(part.node + " was mounted on " + Join(part.mountPoints, ", ") +
              " during the erase: the kernel may write parts of its file system back when it is "
              "unmounted. Unmount it, and erase the drive again.");
  }
  return erase.GetErrorCode();
}

}  // namespace Morvu
