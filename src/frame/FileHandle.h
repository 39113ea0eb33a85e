// A file descriptor (open(2)) that has one owner.
#pragma once

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <string>
#include <utility>

namespace Morvu {

class FileHandle {
 public:
  FileHandle() = default;
  // Takes it over; negative is none, as open(2) gives it on a failure.
  explicit FileHandle(int handle) : handle_(handle) {}
  FileHandle(FileHandle&& other) noexcept : handle_(std::exchange(other.handle_, -1)) {}
  FileHandle& operator=(FileHandle&& other) noexcept {
    std::swap(handle_, other.handle_);
    return *this;
  }
  // Keeps errno: what failed before is what the caller asks for.
  ~FileHandle() {
    const int reason = errno;
    if (IsOpen()) close(handle_);
    errno = reason;
  }

  bool IsOpen() const { return handle_ >= 0; }
  int Get() const { return handle_; }
  // Whoever calls owns it from here on.
  [[nodiscard]] int Release() { return std::exchange(handle_, -1); }

 private:
  int handle_ = -1;
};

// Opens for this process alone (O_CLOEXEC), files of any size, and again after a signal. `folder`
// is a descriptor or AT_FDCWD; `mode` are the rights of what O_CREAT makes. Where none is open,
// errno tells why.
inline FileHandle OpenFileAt(int folder, const std::string& path, int flags, mode_t mode = 0) {
  int handle = -1;
  do {
    handle = openat64(folder, path.c_str(), flags | O_CLOEXEC, mode);
  } while (handle < 0 && errno == EINTR);
  return FileHandle(handle);
}

inline FileHandle OpenFile(const std::string& path, int flags, mode_t mode = 0) {
  return OpenFileAt(AT_FDCWD, path, flags, mode);
}

}  // namespace Morvu
