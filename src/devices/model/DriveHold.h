// One sequence of commands at a time on a drive: what breaks into a firmware download or
// between the commands of an erase makes it fail.
//
// In the process a table keeps sequences apart, by the drive's serial number and its nodes, so
// that the hold of an NVMe controller is that of all its namespaces. Between processes it is
// flock(2) on the block nodes of the whole disks, never a partition's, a generic node or a
// controller's. A drive without a block node is held in this process alone.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "devices/system/BlockNode.h"
#include "frame/StatusCode.h"

namespace Morvu::DeviceManagement {

class Device;
class SystemFacts;

class DriveHold {
 public:
  enum class Kind {
    Sequence,  // nobody else sends anything
    Shared,    // a long run that moments and others' shared runs may go beside, but no sequence
    Moment,    // beside others' moments: a scan, a list, a page that is read
  };
  // What others are told of the holder: the identifier of its job, "" at the prompt.
  DriveHold(const Device& device, Kind kind, std::string_view holder = {});
  // The same for one of many drives, whose disks are looked up in one reading of the system.
  DriveHold(const Device& device, const SystemFacts& facts, Kind kind,
            std::string_view holder = {});
  // Before a drive is known by more than its node.
  DriveHold(const std::string& devicePath, const SystemFacts& facts, Kind kind);
  ~DriveHold();
  DriveHold(const DriveHold&) = delete;
  DriveHold& operator=(const DriveHold&) = delete;

  // Never waits behind a sequence or, as one, behind a shared run of this process. A sequence waits
  // ten seconds at most for moments to end, those of udev too.
  bool IsTaken() const { return status_ == Status::Completed; }
  StatusCode GetStatus() const { return status_; }  // 180 when another has the drive
  // The holder that is in the way, if it is in this process and told who it is.
  const std::string& GetOtherHolder() const { return otherHolder_; }

 private:
  using Names = std::vector<std::string>;
  void Take(Names keys, const Names& disks, Kind kind, std::string_view holder);
  bool TakeNodes(const Names& disks, Kind kind);

  Kind kind_ = Kind::Moment;
  Names keys_;  // taken in the table
  std::vector<BlockNode> nodes_;
  StatusCode status_ = Status::Completed;
  std::string otherHolder_;
};

}  // namespace Morvu::DeviceManagement
