#include "devices/system/KernelFiles.h"

#include <dirent.h>
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <memory>

#include "frame/Text.h"

namespace Morvu::DeviceManagement {
namespace {

constexpr std::size_t kLargestFile = 1 << 20;

struct CloseFolder {
  void operator()(DIR* folder) const { closedir(folder); }
};

std::optional<std::string> ReadLinkAt(int folder, const std::string& path) {
  char target[4096];
  const auto length = readlinkat(folder, path.c_str(), target, sizeof target);
  if (length < 0 || static_cast<std::size_t>(length) == sizeof target) return {};
  return std::string(target, static_cast<std::size_t>(length));
}

// Appends the next piece: how long it is, 0 at the end, negative on a failure.
ssize_t ReadPiece(const FileHandle& file, std::string& text) {
  char block[4096];
  ssize_t count = 0;
  do {
    count = read(file.Get(), block, sizeof block);
  } while (count < 0 && errno == EINTR);
  if (count > 0) text.append(block, static_cast<std::size_t>(count));
  return count;
}

using Folder = std::unique_ptr<DIR, CloseFolder>;

std::optional<std::vector<std::string>> ReadNames(const Folder& folder) {
  if (folder == nullptr) return {};
  std::vector<std::string> names;
  for (;;) {
    errno = 0;
    // The wide form: a narrow one fails on inodes of more than 32 bits.
    const auto* entry = readdir64(folder.get());
    if (entry == nullptr) break;
    const std::string_view name = entry->d_name;
    if (name != "." && name != "..") names.emplace_back(name);
  }
  if (errno != 0) return {};
  std::ranges::sort(names);
  return names;
}

}  // namespace

std::optional<std::vector<std::string>> ListFolder(const std::string& path) {
  const Folder folder(opendir(path.c_str()));
  if (folder == nullptr && errno == ENOENT) return std::vector<std::string>();
  return ReadNames(folder);
}

std::optional<std::vector<std::string>> ListFolderAt(int handle) {
  FileHandle copy(fcntl(handle, F_DUPFD_CLOEXEC, 0));
  const Folder folder(copy.IsOpen() ? fdopendir(copy.Get()) : nullptr);
  if (folder == nullptr) return {};
  (void)copy.Release();  // the stream's from here on
  rewinddir(folder.get());
  return ReadNames(folder);
}

std::optional<std::string> ReadLink(const std::string& path) { return ReadLinkAt(AT_FDCWD, path); }

KernelFolder::KernelFolder(const std::string& path)
    : handle_(OpenFile(path, O_RDONLY | O_DIRECTORY)) {}

std::optional<std::string> KernelFolder::ReadLinkOf(const std::string& name) const {
  return ReadLinkAt(handle_.Get(), name);
}

// sysfs gives the whole of an attribute, a page at most, in one read.
std::string KernelFolder::ReadAttributeOf(const std::string& name) const {
  const auto file = OpenFileAt(handle_.Get(), name, O_RDONLY | O_NOCTTY);
  std::string text;
  return ReadPiece(file, text) < 0 ? std::string() : Trim(text);
}

std::optional<std::string> ReadKernelFile(const std::string& path) {
  const auto file = OpenFile(path, O_RDONLY | O_NOCTTY);
  std::string text;
  while (text.size() < kLargestFile) {
    const auto count = ReadPiece(file, text);
    if (count < 0) return {};
    if (count == 0) return text;
  }
  return {};
}

std::string ReadAttribute(const std::string& path) {
  return Trim(ReadKernelFile(path).value_or(std::string()));
}

}  // namespace Morvu::DeviceManagement
