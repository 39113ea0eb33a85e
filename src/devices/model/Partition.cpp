#include "devices/model/Partition.h"

#include <algorithm>
#include <boost/thread/lock_guard.hpp>
#include <boost/thread/mutex.hpp>
#include <optional>
#include <set>

#include "devices/system/SystemNodes.h"
#include "frame/Text.h"

namespace Morvu::DeviceManagement {
namespace {

constexpr std::int64_t kUnknown = -1;
constexpr std::int64_t kDfBlock = 512;
// mawk prints a large sum as 5e+09 unless told how.
constexpr std::string_view kSizeField = "{printf \"%.0f\\n\", $4+$5}";

// The folders on which this process keeps partitions mounted.
boost::mutex foldersMutex;
std::set<std::string>& Folders() {
  static auto& folders = *new std::set<std::string>;
  return folders;
}

bool Claim(const std::string& folder) {
  const boost::lock_guard<boost::mutex> lock(foldersMutex);
  return Folders().insert(folder).second;
}

void Release(const std::string& folder) {
  const boost::lock_guard<boost::mutex> lock(foldersMutex);
  Folders().erase(folder);
}

// A pattern for the lines of `df` and `mount` that tell of this partition alone:
// "/dev/sda1" is at the front of "/dev/sda10" too.
std::string LinesOf(const std::string& partition) { return "grep \"^" + partition + " \""; }

std::vector<std::string> ReadDf(const std::string& partition, std::int64_t unit,
                                std::string_view field) {
  if (!IsShellWord(partition)) return {};
  return RunPipeline("df -T -B " + std::to_string(unit) + " 2>/dev/null | " + LinesOf(partition) +
                     " | awk '" + std::string(field) + "'");
}

std::int64_t ReadNumber(const std::string& partition, std::int64_t unit, std::string_view field) {
  const auto lines = ReadDf(partition, unit, field);
  if (lines.size() != 1 || lines[0].empty()) return kUnknown;
  return ParseSigned(lines[0]).value_or(kUnknown);
}

std::int64_t ReadSize(const std::string& partition) {
  const auto blocks = ReadNumber(partition, kDfBlock, kSizeField);
  return blocks == kUnknown ? kUnknown : blocks * kDfBlock;
}

std::int64_t ReadFree(const std::string& partition) {
  return ReadNumber(partition, 1, "{print $5}");
}

std::int64_t ReadUsed(const std::string& partition) {
  return ReadNumber(partition, 1, "{print $4}");
}

bool IsMountListed(const std::string& partition) {
  return IsShellWord(partition) &&
         !RunPipeline("df -T 2>/dev/null | " + LinesOf(partition)).empty();
}

// Has the partition mounted, wherever, while it lives.
class Mounted {
 public:
  explicit Mounted(const std::string& partition) {
    if (!IsMountListed(partition)) mount_.emplace(partition);
  }

 private:
  std::optional<PartitionMount> mount_;
};

std::string ReadType(const std::string& partition) {
  if (!IsShellWord(partition)) return {};
  const Mounted mounted(partition);
  const auto lines = ReadDf(partition, 1, "{print $2}");
  return lines.size() == 1 ? lines[0] : std::string();
}

}  // namespace

std::int64_t PartitionSpace::GetFreePercentage() const {
  if (size <= 0 || free < 0) return kUnknown;
  return static_cast<std::int64_t>(static_cast<double>(free) / static_cast<double>(size) * 100);
}

Partition::Partition(std::string name) : name_(std::move(name)), type_(ReadType(name_)) {}

PartitionSpace Partition::ReadSpace() const {
  const Mounted mounted(name_);
  return {ReadSize(name_), ReadFree(name_), ReadUsed(name_)};
}

std::int64_t Partition::GetSize() const {
  const Mounted mounted(name_);
  return ReadSize(name_);
}

std::int64_t Partition::GetFreeSpace() const {
  const Mounted mounted(name_);
  return ReadFree(name_);
}

std::int64_t Partition::GetUsedSpace() const {
  const Mounted mounted(name_);
  return ReadUsed(name_);
}

std::int64_t Partition::GetFreePercentage() const { return ReadSpace().GetFreePercentage(); }

PartitionMount::PartitionMount(std::string partition, std::string_view folder)
    : partition_(std::move(partition)), folder_(folder) {
  Mount();
}

PartitionMount::~PartitionMount() {
  if (!ownsFolder_) return;
  RunSystem("umount -l " + folder_ + " 2>/dev/null");
  RunSystem("rmdir " + folder_ + " 2>/dev/null");
  Release(folder_);
}

bool PartitionMount::Mount() {
  if (!IsShellWord(partition_) || !IsShellWord(folder_)) return false;
  if (!ownsFolder_ && !Claim(folder_)) return false;
  ownsFolder_ = true;
  if (IsMounted()) return true;
  // What an earlier process has left there.
  RunSystem("umount -l " + folder_ + " > /dev/null 2>&1");
  RunSystem("rmdir " + folder_ + " > /dev/null 2>&1");
  for (auto level = folder_.find('/', 1);; level = folder_.find('/', level + 1)) {
    RunSystem("mkdir '" + folder_.substr(0, level) + "' 2>/dev/null");
    if (level == folder_.npos) break;
  }
  RunSystem("mount " + partition_ + " " + folder_ + " > /dev/null 2>&1");
  return IsMounted();
}

bool PartitionMount::IsMounted() const {
  return IsShellWord(partition_) && IsShellWord(folder_) &&
         !RunPipeline("mount | " + LinesOf(partition_) + " | grep \" " + folder_ + " \"").empty();
}

bool PartitionMount::IsListed() const { return IsMountListed(partition_); }

std::int64_t PartitionMount::GetFreeBytes() const { return ReadFree(partition_); }

}  // namespace Morvu::DeviceManagement
