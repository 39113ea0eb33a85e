#include "frame/Files.h"

#include <fcntl.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <fstream>
#include <ios>
#include <limits>
#include <system_error>

#include "frame/FileHandle.h"

namespace Morvu {
namespace {

// One file, opened for one call.
class File {
 public:
  File(const std::string& path, bool forReading, bool binary, bool append) {
    auto mode = forReading ? std::ios::in : append ? std::ios::out | std::ios::app : std::ios::out;
    if (binary) mode |= std::ios::binary;
    stream_.open(path, mode);
  }

  bool IsOpen() const { return stream_.is_open(); }

  bool Write(const void* data, std::size_t length) {
    stream_.write(static_cast<const char*>(data), static_cast<std::streamsize>(length));
    return stream_.good();
  }

  // A full disk shows when the last bytes are written out.
  bool Close() {
    stream_.close();
    return !stream_.fail();
  }

  template <typename Container>
  bool ReadAll(Container& content) {
    char block[1024];
    while (stream_.read(block, sizeof block) || stream_.gcount() > 0) {
      content.insert(content.end(), block, block + stream_.gcount());
    }
    return stream_.eof();
  }

  std::optional<std::uint64_t> GetSize() {
    stream_.seekg(0, std::ios::end);
    const auto size = stream_.tellg();
    // A directory opens for reading, and tells no size that means anything.
    if (!stream_ || size < 0 || size == std::numeric_limits<std::streamoff>::max()) return {};
    return static_cast<std::uint64_t>(size);
  }

 private:
  std::fstream stream_;
};

// Terminals and /dev/null, /dev/full (the kernel's list of allocated devices).
bool IsHarmless(dev_t device) {
  constexpr unsigned kMemory = 1, kNull = 3, kFull = 7;
  constexpr unsigned kConsoles = 4, kTerminals = 5, kFirstPseudo = 136, kLastPseudo = 143;
  const auto kind = major(device);
  if (kind == kMemory) return minor(device) == kNull || minor(device) == kFull;
  return kind == kConsoles || kind == kTerminals || (kind >= kFirstPseudo && kind <= kLastPseudo);
}

// A name in /dev, as /dev/stdout, stays what it leads to.
bool IsReplaceable(const std::string& path) {
  struct stat told {};
  if (path.starts_with("/dev/") || path.starts_with("/proc/")) return false;
  return stat(path.c_str(), &told) != 0 || S_ISREG(told.st_mode);
}

// A file beside the wanted one, which takes its place at the end; gone on every other way out.
class Replacement {
 public:
  explicit Replacement(const std::string& path)
      : path_(ResolveLinks(path)), name_(path_ + ".XXXXXX") {
    const FileHandle handle(mkostemp(name_.data(), O_CLOEXEC));
    if (!handle.IsOpen()) return;
    isThere_ = true;
    KeepRights(handle.Get());
  }
  ~Replacement() {
    const int reason = errno;
    if (isThere_) unlink(name_.c_str());
    errno = reason;
  }
  Replacement(const Replacement&) = delete;
  Replacement& operator=(const Replacement&) = delete;

  bool IsThere() const { return isThere_; }
  const std::string& GetName() const { return name_; }
  bool TakePlace() {
    if (rename(name_.c_str(), path_.c_str()) != 0) return false;
    isThere_ = false;
    return true;
  }

 private:
  static std::string ResolveLinks(const std::string& path) {
    char* resolved = realpath(path.c_str(), nullptr);
    const std::string name = resolved != nullptr ? resolved : path;
    free(resolved);
    return name;
  }
  // Those of the file that goes, or of one that is made anew.
  void KeepRights(int handle) {
    struct stat old {};
    if (stat(path_.c_str(), &old) == 0) {
      // Another user's file stays theirs where that may be done.
      [[maybe_unused]] const int unchanged = fchown(handle, old.st_uid, old.st_gid);
      fchmod(handle, old.st_mode & 07777);
    } else {
      const auto mask = umask(0);
      umask(mask);
      fchmod(handle, 0666 & ~mask);
    }
  }

  std::string path_;
  std::string name_;
  bool isThere_ = false;
};

// Opens the target, lets `write` fill it, and closes it.
template <typename Write>
bool Save(const std::string& path, bool binary, bool append, Write&& write) {
  const auto save = [&](const std::string& name) {
    File file(name, false, binary, append);
    return file.IsOpen() && write(file) && file.Close();
  };
  if (!TakesText(path)) return false;
  if (append || !IsReplaceable(path)) return save(path);
  Replacement replacement(path);
  // A folder that takes no new file may still let this one be written.
  if (!replacement.IsThere()) return save(path);
  return save(replacement.GetName()) && replacement.TakePlace();
}

}  // namespace

bool TakesText(const std::string& path) {
  struct stat told {};
  if (stat(path.c_str(), &told) != 0) return errno == ENOENT;
  if (S_ISREG(told.st_mode) || S_ISFIFO(told.st_mode)) return true;
  if (S_ISCHR(told.st_mode) && IsHarmless(told.st_rdev)) return true;
  errno = S_ISDIR(told.st_mode) ? EISDIR : ENOTSUP;
  return false;
}

bool SaveFile(const std::string& path, std::string_view text, bool append) {
  return Save(path, false, append, [&](File& file) {
    return file.Write(text.data(), text.size()) && file.Write("\n", 1);
  });
}

bool SaveBinary(const std::string& path, ByteView bytes, bool append) {
  return Save(path, true, append,
              [&](File& file) { return file.Write(bytes.data(), bytes.size()); });
}

bool WriteWhole(const FileHandle& file, ByteView bytes, std::uint64_t offset) {
  while (!bytes.empty()) {
    const auto count =
        pwrite64(file.Get(), bytes.data(), bytes.size(), static_cast<off64_t>(offset));
    if (count < 0 && errno == EINTR) continue;
    if (count <= 0) return false;
    bytes = bytes.subspan(static_cast<std::size_t>(count));
    offset += static_cast<std::uint64_t>(count);
  }
  return true;
}

bool PublishFile(const std::string& path, std::string_view text) {
  constexpr mode_t kForAll = 0644;
  if (!TakesText(path)) return false;
  if (!IsReplaceable(path)) {
    errno = ENOTSUP;
    return false;
  }
  Replacement replacement(path);
  if (!replacement.IsThere()) return false;
  const FileHandle file(open(replacement.GetName().c_str(), O_WRONLY | O_CLOEXEC | O_NOFOLLOW));
  const ByteView bytes(reinterpret_cast<const std::uint8_t*>(text.data()), text.size());
  return WriteWhole(file, bytes, 0) && fchmod(file.Get(), kForAll) == 0 && fsync(file.Get()) == 0 &&
         replacement.TakePlace();
}

std::string DescribeFileError(int error) {
  if (error == ENOTSUP) return "It is a device.";
  return std::generic_category().message(error) + ".";
}

std::string ReadFileText(const std::string& path) {
  std::string text;
  File file(path, true, false, false);
  if (file.IsOpen()) file.ReadAll(text);
  return text;
}

std::optional<std::vector<std::uint8_t>> ReadFileBytes(const std::string& path) {
  File file(path, true, true, false);
  std::vector<std::uint8_t> bytes;
  if (!file.IsOpen() || !file.ReadAll(bytes)) return {};
  return bytes;
}

std::optional<std::uint64_t> GetFileSize(const std::string& path) {
  File file(path, true, true, false);
  if (!file.IsOpen()) return {};
  return file.GetSize();
}

bool IsFileEmpty(const std::string& path) { return GetFileSize(path).value_or(0) == 0; }

}  // namespace Morvu
