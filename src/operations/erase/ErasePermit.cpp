#include "operations/erase/ErasePermit.h"

#include <cerrno>
#include <optional>

#include "devices/commands/CommandSet.h"
#include "devices/model/Adapter.h"
#include "devices/properties/BasicProperties.h"
#include "devices/properties/IdentityProperties.h"
#include "frame/Logger.h"
#include "frame/status/Drives.h"
#include "frame/status/Partitions.h"

namespace Morvu {

using namespace DeviceManagement;
namespace Properties = DeviceManagement::Properties;

namespace {

// All that the erase reaches; nothing when the system could not be asked.
std::optional<Names> FindReach(const Device& device, const FreshIdentity& identity, bool isSecure) {
  const auto& path = device.GetPath().GetDevicePath();
  auto disks = SystemFacts::Read().FindWholeDisks(path);
  const bool isWhole = !device.HasCommandSet(Protocol::Nvme) || identity.formatsAllSpaces ||
                       (isSecure && identity.erasesAllSpaces);
  if (isWhole || !disks) return disks;
  return Names{path};
}

std::string TellError(int error) { return " (error " + std::to_string(error) + ")"; }

}  // namespace

ErasePermit::ErasePermit(Device& device, bool isSecure) : device_(device), code_(Ask(isSecure)) {
  MORVU_LOG(kLogInfo, "ErasePermit", "The permit's code is " + std::to_string(code_.Value()));
}

StatusCode ErasePermit::Ask(bool isSecure) {
  if (const auto code = AskIdentity(); code != Status::ReadyToRun) return code;
  if (const auto code = AskAdapter(); code != Status::ReadyToRun) return code;
  if (const auto code = OpenNodes(isSecure); code != Status::ReadyToRun) return code;
  RereadPartitions();
  auto use = ReadDiskUse(GetNodes());
  if (!use) {
    return Refuse(Status::PartitionCheckFailed, "the system could not be asked who uses the disk");
  }
  use->isClaimed = use_.isClaimed;
  use->isOpen = use_.isOpen;
  use_ = std::move(*use);
  if (const auto code = AskByNodes(); code != Status::ReadyToRun) return code;
  device_.GetProperties().Merge(identity_.properties);
  if (isTableUnread_) {
    return Refuse(Status::PartitionCheckFailed, "the table of partitions could not be read");
  }
  return use_.IsFree() ? Status::ReadyToRun : Status::HasPartition;
}

StatusCode ErasePermit::AskIdentity() {
  auto told = ReadFreshIdentity(device_);
  if (!told) return Refuse(Status::NoCommunication, "the drive does not say who it is");
  if (!IsIdentityOf(*told, device_)) {
    return Refuse(Status::NoCommunication,
                  "another drive answers now, with the serial number " +
                      told->properties.GetString(Properties::SerialNumber));
  }
  identity_ = std::move(*told);
  return Status::ReadyToRun;
}

// The scan may be long ago.
StatusCode ErasePermit::AskAdapter() {
  const auto* adapter = dynamic_cast<const Adapter*>(device_.GetParent());
  if (adapter == nullptr || !adapter->MayBeMember(device_)) return Status::ReadyToRun;
  return Refuse(Status::RaidMemberRefused,
                "the drive is, or may be, a member of a RAID volume now");
}

StatusCode ErasePermit::OpenNodes(bool isSecure) {
  auto disks = FindReach(device_, identity_, isSecure);
  if (!disks) {
    return Refuse(Status::PartitionCheckFailed, "the system does not tell the drive's disk");
  }
  for (auto& disk : *disks) {
    BlockNode exclusive(disk, BlockNode::Access::Exclusive);
    if (exclusive.IsOpen()) {
      nodes_.push_back(std::move(exclusive));
      continue;
    }
    use_.isClaimed = exclusive.GetOpenError() == EBUSY;
    BlockNode plain(disk, BlockNode::Access::Plain);
    if (!use_.isClaimed || !plain.IsOpen()) {
      return Refuse(Status::PartitionCheckFailed,
                    disk + " could not be opened" + TellError(exclusive.GetOpenError()));
    }
    nodes_.push_back(std::move(plain));
  }
  return Status::ReadyToRun;
}

void ErasePermit::RereadPartitions() {
  for (const auto& node : nodes_) {
    const int error = node.RereadPartitions();
    if (error == 0 || error == EINVAL) continue;  // a disk of a kind without partitions
    MORVU_LOG(kLogInfo, "RereadPartitions", node.GetPath() + TellError(error));
    if (error == EBUSY) {
      use_.isOpen = use_.isOpen || !use_.isClaimed;
    } else {
      isTableUnread_ = true;
    }
  }
}

StatusCode ErasePermit::AskByNodes() {
  for (const auto& node : nodes_) {
    auto told = ReadFreshIdentity(device_, node.GetHandle());
    if (!told) return Refuse(Status::NoCommunication, node.GetPath() + " does not answer");
    if (!IsIdentityOf(*told, device_)) {
      return Refuse(Status::NoCommunication,
                    node.GetPath() + " is another drive's, with the serial number " +
                        told->properties.GetString(Properties::SerialNumber));
    }
    identity_ = std::move(*told);
  }
  return Status::ReadyToRun;
}

StatusCode ErasePermit::Refuse(StatusCode code, std::string reason) {
  reason_ = std::move(reason);
  MORVU_LOG(kLogError, "Refuse", reason_);
  return code;
}

std::vector<std::string> ErasePermit::GetNodes() const {
  std::vector<std::string> paths;
  for (const auto& node : nodes_) paths.push_back(node.GetPath());
  return paths;
}

// A partition's pages stay when the whole disk's are written.
void ErasePermit::Flush() const {
  const auto flush = [](const BlockNode& node) {
    const int error = node.IsOpen() ? node.Flush() : node.GetOpenError();
    if (error == 0) return;
    MORVU_LOG(kLogWarning, "Flush",
              "What is buffered of " + node.GetPath() + " could not be written" + TellError(error));
  };
  for (const auto& part : use_.parts) flush(BlockNode(part.node, BlockNode::Access::Plain));
  for (const auto& node : nodes_) flush(node);
}

std::vector<std::string> ErasePermit::ForgetContent() const {
  std::vector<std::string> kept;
  for (const auto& node : nodes_) {
    const int flushed = node.Flush();
    const int reread = node.RereadPartitions();
    if (reread == EBUSY) {
      kept.push_back("The system keeps the old partitions of " + node.GetPath() +
                     " while they are in use.");
    } else if (flushed != 0 || (reread != 0 && reread != EINVAL)) {
      kept.push_back("The system could not read the partitions of " + node.GetPath() + " anew" +
                     TellError(reread != 0 ? reread : flushed) + ".");
    }
  }
  for (const auto& line : kept) MORVU_LOG(kLogWarning, "ForgetContent", line);
  return kept;
}

}  // namespace Morvu
