#include "frame/Files.h"

#include <fstream>
#include <ios>
#include <limits>

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

}  // namespace

bool SaveFile(const std::string& path, std::string_view text, bool append) {
  File file(path, false, false, append);
  return file.IsOpen() && file.Write(text.data(), text.size()) && file.Write("\n", 1) &&
         file.Close();
}

bool SaveBinary(const std::string& path, ByteView bytes, bool append) {
  File file(path, false, true, append);
  return file.IsOpen() && file.Write(bytes.data(), bytes.size()) && file.Close();
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
