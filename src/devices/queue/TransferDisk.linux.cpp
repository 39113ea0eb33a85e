#include "devices/queue/TransferDisk.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <optional>

#include "devices/queue/AlignedBuffer.h"
#include "devices/system/SystemFacts.h"
#include "devices/system/SystemNodes.h"
#include "frame/Logger.h"
#include "frame/status/Commands.h"

namespace Morvu::DeviceManagement {
namespace {

// Nothing when the kernel could not be asked, or several disks answer by the one node.
std::optional<std::string> FindBlockNode(const SystemFacts& facts, const std::string& devicePath) {
  if (const auto node = ParseNvmeNode(devicePath)) {
    return node->space ? devicePath : std::string();  // a controller is no disk
  }
  const auto disks = facts.FindWholeDisks(devicePath);
  if (!disks || disks->size() > 1) return {};
  return disks->empty() ? std::string() : disks->front();
}

bool IsBlockNode(int handle) {
  struct stat64 node {};
  return fstat64(handle, &node) == 0 && S_ISBLK(node.st_mode);
}

// What the kernel has of a drive that answered and could not give its data: a medium error, and
// data that fail their protection. All else was lost on the way.
constexpr int kDrivesAnswers[] = {ENODATA, EILSEQ};

StatusCode ToCode(int error) {
  return std::ranges::count(kDrivesAnswers, error) > 0 ? Status::ReadError
                                                       : StatusCode::FromSystemError(error);
}

}  // namespace

TransferDisk::TransferDisk(const std::string& devicePath, std::string_view serialNumber,
                           Transfer access)
    : status_(Open(devicePath, serialNumber, access)) {}

StatusCode TransferDisk::Open(const std::string& devicePath, std::string_view serialNumber,
                              Transfer access) {
  const auto facts = SystemFacts::Read();
  const auto found = FindBlockNode(facts, devicePath);
  if (!found) return Status::NoCommunication;
  if (found->empty()) return Status::NotSupportedByDrive;
  path_ = *found;
  const auto told = facts.FindSerialNumber(devicePath);
  if (!told.empty() && !serialNumber.empty() && told != serialNumber) {
    MORVU_LOG(kLogError, "Open", path_ + " is another drive's, with the serial number " + told);
    return Status::NoCommunication;
  }
  const int flags = (access == Transfer::Write ? O_RDWR : O_RDONLY) | O_NONBLOCK;
  handle_ = OpenFile(path_, flags | O_DIRECT);
  if (!handle_.IsOpen() && errno == EINVAL) {
    handle_ = OpenFile(path_, flags);
    isDirect_ = false;
    MORVU_LOG(kLogWarning, "Open", path_ + " is read by way of the page cache, emptied before.");
  }
  if (!handle_.IsOpen()) return Status::NoCommunication;
  if (IsBlockNode(handle_.Get())) return Status::Completed;
  handle_ = FileHandle();
  return Status::NotSupportedByDrive;
}

StatusCode TransferFile(const TransferDisk& disk, Transfer direction, std::uint64_t offset,
                        ByteSpan data) {
  if (!disk.handle_.IsOpen()) return Status::NoCommunication;
  if (data.empty()) return Status::BufferTooSmall;
  const bool isRead = direction == Transfer::Read;
  if (!AlignedBuffer::IsAligned(data.data())) {
    AlignedBuffer aligned(data.size());
    if (!isRead) std::ranges::copy(data, aligned.Get().begin());
    const auto code = TransferFile(disk, direction, offset, aligned.Get());
    if (isRead) std::ranges::copy(aligned.Get(), data.begin());
    return code;
  }
  const auto place = static_cast<off64_t>(offset);
  const auto size = static_cast<off64_t>(data.size());
  if (!disk.isDirect_) posix_fadvise64(disk.handle_.Get(), place, size, POSIX_FADV_DONTNEED);
  const auto moved = isRead ? pread64(disk.handle_.Get(), data.data(), data.size(), place)
                            : pwrite64(disk.handle_.Get(), data.data(), data.size(), place);
  if (moved >= 0) return moved == size ? Status::Completed : Status::ReadOrWriteFailed;
  const int error = errno;
  MORVU_LOG(kLogError, "TransferFile",
            "A transfer at byte " + std::to_string(offset) + " of " + disk.path_ +
                " failed: " + std::to_string(-error));
  return ToCode(error);
}

}  // namespace Morvu::DeviceManagement
