#include "devices/model/DriveHold.h"

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <map>
#include <mutex>

#include "devices/model/Device.h"
#include "devices/properties/BasicProperties.h"
#include "devices/system/SystemFacts.h"
#include "devices/system/SystemNodes.h"
#include "frame/FileHandle.h"
#include "frame/Logger.h"
#include "frame/Platform.h"
#include "frame/status/Drives.h"

namespace Morvu::DeviceManagement {
namespace {

constexpr std::chrono::seconds kMostPatience{10};
constexpr std::chrono::milliseconds kLockPause{100};

using Keys = std::vector<std::string>;

// Who works on which drive in this process.
class HoldTable {
 public:
  // False, with the other holder, when a sequence has one of the keys, or for a sequence a shared
  // run; or moments do not end.
  bool Begin(const Keys& keys, DriveHold::Kind kind, std::string_view holder, std::string& other) {
    std::unique_lock lock(mutex_);
    for (const auto& key : keys) {
      const auto found = entries_.find(key);
      if (found == entries_.end()) continue;
      const bool isShared = kind == DriveHold::Kind::Sequence && found->second.shared > 0;
      if (!found->second.isOwned && !isShared) continue;
      other = found->second.holder;
      return false;
    }
    if (kind == DriveHold::Kind::Moment) {
      for (const auto& key : keys) ++entries_[key].moments;
      return true;
    }
    for (const auto& key : keys) entries_[key].holder = holder;
    if (kind == DriveHold::Kind::Shared) {
      for (const auto& key : keys) ++entries_[key].shared;
      return true;
    }
    // From here on no new moment begins.
    for (const auto& key : keys) entries_[key].isOwned = true;
    const auto isFree = [&] {
      return std::ranges::none_of(keys, [&](const auto& key) { return entries_[key].moments > 0; });
    };
    if (ended_.wait_for(lock, kMostPatience, isFree)) return true;
    for (const auto& key : keys) Drop(key, kind);
    return false;
  }

  void End(const Keys& keys, DriveHold::Kind kind) {
    {
      const std::lock_guard lock(mutex_);
      for (const auto& key : keys) Drop(key, kind);
    }
    ended_.notify_all();
  }

 private:
  struct Entry {
    int moments = 0;
    int shared = 0;
    bool isOwned = false;
    std::string holder;
  };

  void Drop(const std::string& key, DriveHold::Kind kind) {
    const auto found = entries_.find(key);
    if (found == entries_.end()) return;
    auto& entry = found->second;
    switch (kind) {
      case DriveHold::Kind::Sequence:
        entry.isOwned = false;
        break;
      case DriveHold::Kind::Shared:
        --entry.shared;
        break;
      case DriveHold::Kind::Moment:
        --entry.moments;
        break;
    }
    if (!entry.isOwned && entry.shared == 0 && entry.moments == 0) entries_.erase(found);
  }

  std::mutex mutex_;  // guards the entries
  std::condition_variable ended_;
  std::map<std::string, Entry> entries_;
};

HoldTable& GetHoldTable() {
  static auto& table = *new HoldTable;  // jobs use it while the process ends
  return table;
}

Keys MakeKeys(const std::string& devicePath, const std::string& serial, const Keys& disks) {
  Keys keys = disks;
  keys.push_back(devicePath);
  if (!serial.empty()) keys.push_back("serial number " + serial);
  std::ranges::sort(keys);
  keys.erase(std::unique(keys.begin(), keys.end()), keys.end());
  return keys;
}

// Whether the lock came, of a sequence within its patience.
bool WaitForLock(const BlockNode& node, DriveHold::Kind kind) {
  const bool isShared = kind != DriveHold::Kind::Sequence;
  for (auto waited = std::chrono::milliseconds(0);; waited += kLockPause) {
    const auto lock = node.TryLock(isShared);
    if (lock == BlockNode::Lock::Taken) return true;
    // Where no lock can be had at all, nothing says that somebody works on the drive.
    if (lock == BlockNode::Lock::Failed) return isShared;
    if (lock == BlockNode::Lock::Owned || waited >= kMostPatience) return false;
    SleepFor(kLockPause);
  }
}

// The file by which processes keep off each other where a drive or a volume has no node.
std::string MakeLockFile(const std::string& name) {
  auto path = "/run/morvu-" + name + ".lock";
  (void)OpenFile(path, O_RDONLY | O_CREAT | O_NOFOLLOW, 0600);
  return path;
}

// What is locked for a drive: all that a command to it can reach, and of a member its volumes.
Keys FindLocked(const Device& device, const SystemFacts& facts) {
  const auto& path = device.GetPath().GetDevicePath();
  auto nodes = facts.FindWholeDisks(path).value_or(Names());
  if (!IsNodePath(path)) nodes.push_back(MakeLockFile(path));
  for (const auto& volume : device.GetVolumeNodes()) {
    if (!IsNodePath(volume)) nodes.push_back(MakeLockFile(volume));
    const auto disks = facts.FindWholeDisks(volume).value_or(Names());
    nodes.insert(nodes.end(), disks.begin(), disks.end());
  }
  return nodes;
}

}  // namespace

DriveHold::DriveHold(const Device& device, Kind kind, std::string_view holder)
    : DriveHold(device, SystemFacts::Read(), kind, holder) {}

DriveHold::DriveHold(const Device& device, const SystemFacts& facts, Kind kind,
                     std::string_view holder) {
  const auto& path = device.GetPath().GetDevicePath();
  const auto disks = FindLocked(device, facts);
  Take(MakeKeys(path, device.GetString(Properties::SerialNumber), disks), disks, kind, holder);
}

DriveHold::DriveHold(const std::string& devicePath, const SystemFacts& facts, Kind kind) {
  const auto disks = facts.FindWholeDisks(devicePath).value_or(Names());
  Take(MakeKeys(devicePath, facts.FindSerialNumber(devicePath), disks), disks, kind, {});
}

DriveHold::~DriveHold() {
  nodes_.clear();  // before others of this process try
  GetHoldTable().End(keys_, kind_);
}

void DriveHold::Take(Names keys, const Names& disks, Kind kind, std::string_view holder) {
  kind_ = kind;
  if (GetHoldTable().Begin(keys, kind, holder, otherHolder_)) {
    keys_ = std::move(keys);
    if (TakeNodes(disks, kind)) return;
    nodes_.clear();
    GetHoldTable().End(keys_, kind);
    keys_.clear();
  }
  status_ = Status::DriveHeld;
  MORVU_LOG(kLogInfo, "Take", "Another works on the drive.");
}

// In one order, so that two who want the same nodes do not each get one.
bool DriveHold::TakeNodes(const Names& disks, Kind kind) {
  auto sorted = disks;
  std::ranges::sort(sorted);
  for (auto& disk : sorted) {
    BlockNode node(std::move(disk), BlockNode::Access::Plain);
    if (!node.IsOpen()) {
      MORVU_LOG(kLogWarning, "TakeNodes", "Cannot open " + node.GetPath() + " to lock it.");
      continue;
    }
    if (!WaitForLock(node, kind)) return false;
    nodes_.push_back(std::move(node));
  }
  return true;
}

}  // namespace Morvu::DeviceManagement
