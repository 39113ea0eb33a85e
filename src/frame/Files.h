// Whole files, read and written within one call.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "frame/Bytes.h"
#include "frame/FileHandle.h"

namespace Morvu {

// What may be written to: a regular file, or one to come, a FIFO, a terminal, /dev/null. A
// mistyped path must not reach a disk. Where it is false, errno tells why.
bool TakesText(const std::string& path);

// Nothing else is written. What takes a regular file's place does so whole or not at all. When
// it fails, errno tells why.

// Writes the text and a line feed, behind what the file holds or in its place.
[[nodiscard]] bool SaveFile(const std::string& path, std::string_view text, bool append);
// Writes exactly these bytes.
[[nodiscard]] bool SaveBinary(const std::string& path, ByteView bytes, bool append);

// Writes exactly these bytes from an offset on, however often the system takes but a part.
[[nodiscard]] bool WriteWhole(const FileHandle& file, ByteView bytes, std::uint64_t offset);

// Makes the text the whole of a regular file that all may read (0644), for readers at any time: it
// is on the disk before it takes the old one's place.
[[nodiscard]] bool PublishFile(const std::string& path, std::string_view text);

// What an errno of these says, as a sentence for a person.
std::string DescribeFileError(int error);

// The whole file; empty if it cannot be read.
std::string ReadFileText(const std::string& path);
// The whole file, or nothing if it cannot be read.
std::optional<std::vector<std::uint8_t>> ReadFileBytes(const std::string& path);

std::optional<std::uint64_t> GetFileSize(const std::string& path);
// True for size 0, and for a file that cannot be opened.
bool IsFileEmpty(const std::string& path);

}  // namespace Morvu
