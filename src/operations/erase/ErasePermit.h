// The leave to destroy what is on a drive: given once all is known that data hang on. All
// erases take it, from one place (Erasure), and keep it to their end: nothing can mount the
// disk, swap to it or activate a volume on it meanwhile.
#pragma once

#include <string>
#include <vector>

#include "devices/identification/FreshIdentity.h"
#include "devices/model/Device.h"
#include "devices/system/BlockNode.h"
#include "devices/system/DiskUse.h"
#include "frame/StatusCode.h"

namespace Morvu {

class ErasePermit {
 public:
  // Asks, in this order: which drive the device's path leads to; its RAID controller, if it has
  // one, whether the drive is a volume's; an exclusive open of the block nodes of all that the
  // erase reaches; the partitions, read anew from the disk; mounts and loop devices; which drive
  // those very descriptors lead to. The device gets the security state that the drive tells now. No
  // node is opened a second time. The drive is held by the caller.
  //
  // `isSecure`: of an NVMe drive whose secure erase takes all namespaces, all are asked.
  ErasePermit(DeviceManagement::Device& device, bool isSecure);
  ErasePermit(const ErasePermit&) = delete;
  ErasePermit& operator=(const ErasePermit&) = delete;

  // 1 for a disk that nobody uses, 13 for one in use. Any other code is no permit: 4 for
  // another drive or none, 255 for a member of a volume, 128 when the system could not be asked.
  StatusCode GetCode() const { return code_; }
  // Why there is none, for a person.
  const std::string& GetReason() const { return reason_; }
  // The one thing not known is what the disk's own table of partitions says: who may lose all
  // partitions may lose these.
  bool IsTableUnread() const { return isTableUnread_; }

  const DeviceManagement::DiskUse& GetUse() const { return use_; }
  const DeviceManagement::FreshIdentity& GetIdentity() const { return identity_; }
  // "/dev/sda"; several for a controller's namespaces.
  std::vector<std::string> GetNodes() const;

  // What is buffered goes to the disk now, and not after the erase.
  void Flush() const;
  // After the erase: the system forgets what it has read of the disk. A line for each node
  // whose partitions it keeps all the same.
  std::vector<std::string> ForgetContent() const;

 private:
  StatusCode Ask(bool isSecure);
  StatusCode AskIdentity();
  StatusCode AskAdapter();
  StatusCode OpenNodes(bool isSecure);
  void RereadPartitions();
  StatusCode AskByNodes();
  StatusCode Refuse(StatusCode code, std::string reason);

  DeviceManagement::Device& device_;
  std::vector<DeviceManagement::BlockNode> nodes_;
  DeviceManagement::DiskUse use_;
  DeviceManagement::FreshIdentity identity_;
  bool isTableUnread_ = false;
  std::string reason_;
  StatusCode code_;
};

}  // namespace Morvu
