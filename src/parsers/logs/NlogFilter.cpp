#include "parsers/logs/NlogFilter.h"

#include <algorithm>
#include <cstring>
#include <optional>

#include "frame/Bytes.h"

namespace Morvu::ReadLog {
namespace {

// The header, little-endian.
constexpr std::size_t kNumNlogs = 4, kTotalBytes = 8, kHeaderBytes = 12;
constexpr std::size_t kHeaderSize = kNlogUncounted + kNlogLeastTotal;

// The header of an entry; its data stand behind it.
constexpr std::size_t kNum = 4, kBufSize = 12;
constexpr std::size_t kEntrySize = 20;

constexpr bool IsDropped(std::uint32_t num) {
  constexpr std::uint32_t kDropped[] = {1, 2, 3, 4, 13, 16, 19, 21};
  return std::ranges::find(kDropped, num) != std::end(kDropped);
}

// Calls `visit(offset, size, num)` for each entry; false when one does not lie inside.
template <typename Visit>
bool VisitEntries(ByteView image, Visit&& visit) {
  std::size_t offset = kHeaderSize;
  for (auto left = ReadLittle32(image, kNumNlogs); left != 0; --left) {
    const auto entry = image.subspan(offset);
    if (entry.size() < kEntrySize) return false;
    const auto size = kEntrySize + std::uint64_t{ReadLittle32(entry, kBufSize)} * 4;
    if (size > entry.size()) return false;
    visit(offset, static_cast<std::size_t>(size), ReadLittle32(entry, kNum));
    offset += static_cast<std::size_t>(size);
  }
  return true;
}

// Moves the entries that stay to the front; the size of what is left.
std::size_t Compact(ByteSpan image) {
  std::size_t end = kHeaderSize;
  std::size_t first = kHeaderSize, last = kHeaderSize;  // entries that stay and follow each other
  std::uint32_t kept = 0;
  const auto moveRun = [&] {
    if (end != first) std::memmove(&image[end], &image[first], last - first);
    end += last - first;
  };
  VisitEntries(image, [&](std::size_t offset, std::size_t size, std::uint32_t num) {
    if (IsDropped(num)) {
      if (last != first) moveRun();
      first = last = offset + size;
    } else {
      last = offset + size;
      ++kept;
    }
  });
  if (last != first) moveRun();
  WriteLittle32(kept, kNumNlogs, image);
  WriteLittle32(static_cast<std::uint32_t>(end - kNlogUncounted), kTotalBytes, image);
  return end;
}

struct Filtered {
  NlogFilter outcome;
  std::size_t size;
};

Filtered Filter(ByteSpan image) {
  if (image.size() < kHeaderSize || ReadLittle32(image, kHeaderBytes) != kHeaderSize) {
    return {NlogFilter::NotKnown, image.size()};
  }
  // First all are looked at: an image that is not sound stays as it is. What moves lies in front
  // of what is still to be read.
  if (!VisitEntries(image, [](std::size_t, std::size_t, std::uint32_t) {})) {
    return {NlogFilter::Damaged, image.size()};
  }
  return {NlogFilter::Filtered, Compact(image)};
}

// ---- The form of NVMe drives, in words of 4 bytes ----

constexpr std::size_t kOuterHeader = 4096;
constexpr std::size_t kEndWord = 2, kCountWord = 3, kSizeWords = 4, kPositionWords = 6;
constexpr std::size_t kMostRecords = kPositionWords - kSizeWords;  // more would meet

std::uint64_t ReadWordBytes(ByteView image, std::size_t word) {
  return std::uint64_t{ReadLittle32(image, word * 4)} * 4;
}
void WriteWordBytes(std::size_t bytes, std::size_t word, ByteSpan image) {
  WriteLittle32(static_cast<std::uint32_t>(bytes / 4), word * 4, image);
}

struct Record {
  std::uint64_t position, size;
  bool IsInside(std::uint64_t end) const {
    return position >= kOuterHeader && position <= end && size <= end - position;
  }
  bool Meets(const Record& other) const {
    return position < other.position + other.size && other.position < position + size;
  }
};

Record ReadRecord(ByteView image, std::size_t i) {
  return {ReadWordBytes(image, kPositionWords + i), ReadWordBytes(image, kSizeWords + i)};
}

}  // namespace

std::uint32_t GetNlogTotalBytes(const std::vector<std::uint8_t>& image) {
  return ReadLittle32(image, kTotalBytes);
}

NlogFilter FilterNlog_ATA(std::vector<std::uint8_t>& image) {
  const auto [outcome, size] = Filter(image);
  image.resize(size);
  return outcome;
}

NlogFilter FilterNlog_NVMe(std::vector<std::uint8_t>& image) {
  if (image.size() < kOuterHeader) return NlogFilter::NotKnown;
  const auto count = ReadLittle32(image, kCountWord * 4);
  if (count == 0 || count > kMostRecords) return NlogFilter::NotKnown;

  std::vector<std::uint8_t> filtered;
  filtered.reserve(image.size());
  filtered.assign(image.begin(), image.begin() + kOuterHeader);
  std::optional<Record> before;
  for (std::size_t i = 0; i < count; ++i) {
    const auto record = ReadRecord(image, i);
    if (!record.IsInside(image.size()) || (before && record.Meets(*before))) {
      return NlogFilter::Damaged;
    }
    before = record;
    const auto first = image.begin() + static_cast<std::ptrdiff_t>(record.position);
    const auto start = filtered.size();
    filtered.insert(filtered.end(), first, first + static_cast<std::ptrdiff_t>(record.size));
    const auto [outcome, size] = Filter(ByteSpan(filtered).subspan(start));
    if (outcome == NlogFilter::Damaged) return NlogFilter::Damaged;
    filtered.resize(start + size);
    WriteWordBytes(size, kSizeWords + i, filtered);
    WriteWordBytes(start, kPositionWords + i, filtered);
  }
  WriteWordBytes(filtered.size(), kEndWord, filtered);
  image = std::move(filtered);
  return NlogFilter::Filtered;
}

}  // namespace Morvu::ReadLog
