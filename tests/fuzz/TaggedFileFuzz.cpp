// Files that may be tagged shared objects: nothing in them is trusted, and one that
// verifies stops doing so when any of its bytes changes.
#include <sys/mman.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "devices/system/TaggedLibrary.h"

namespace {

bool Verifies(const std::vector<std::uint8_t>& bytes) {
  const int file = memfd_create("tagged", MFD_CLOEXEC);
  if (file < 0) __builtin_trap();
  for (std::size_t at = 0; at < bytes.size();) {
    const auto count = write(file, bytes.data() + at, bytes.size() - at);
    if (count <= 0) __builtin_trap();
    at += static_cast<std::size_t>(count);
  }
  const bool good = Morvu::DeviceManagement::VerifyLibrary("/proc/self/fd/" + std::to_string(file));
  close(file);
  return good;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  std::vector<std::uint8_t> bytes(data, data + size);
  if (!Verifies(bytes)) return 0;
  // Of a large file not every byte.
  for (std::size_t at = 0; at < bytes.size(); at += 1 + bytes.size() / 64) {
    bytes[at] ^= 0x01;
    if (Verifies(bytes)) __builtin_trap();
    bytes[at] ^= 0x01;
  }
  return 0;
}
