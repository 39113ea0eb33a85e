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

// Where an image stands in the bytes that it came in.
struct Place {
  std::size_t position, size;
  ByteView Of(ByteView bytes) const { return bytes.subspan(position, size); }
};

// Whether the image can be filtered.
NlogFilter Check(ByteView image) {
  if (image.size() < kHeaderSize || ReadLittle32(image, kHeaderBytes) != kHeaderSize) {
    return NlogFilter::NotKnown;
  }
  const bool isSound = VisitEntries(image, [](std::size_t, std::size_t, std::uint32_t) {});
  return isSound ? NlogFilter::Filtered : NlogFilter::Damaged;
}

// Moves what stays of an image to `target`, which is not behind it; where it ends. What is
// written lies in front of what is still to be read.
std::size_t Compact(ByteSpan bytes, const Place& image, std::size_t target) {
  std::size_t end = target;
  // What stays and follows each other: at first the header.
  std::size_t first = 0, last = kHeaderSize;
  std::uint32_t kept = 0;
  const auto moveRun = [&] {
    const auto* from = bytes.data() + image.position + first;
    if (bytes.data() + end != from) std::memmove(bytes.data() + end, from, last - first);
    end += last - first;
  };
  VisitEntries(image.Of(bytes), [&](std::size_t offset, std::size_t size, std::uint32_t num) {
    if (IsDropped(num)) {
      moveRun();
      first = last = offset + size;
    } else {
      last = offset + size;
      ++kept;
    }
  });
  moveRun();
  const auto moved = bytes.subspan(target, end - target);
  WriteLittle32(kept, kNumNlogs, moved);
  WriteLittle32(static_cast<std::uint32_t>(moved.size() - kNlogUncounted), kTotalBytes, moved);
  return end;
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

bool Meet(const Place& one, const Place& other) {
  return one.position < other.position + other.size && other.position < one.position + one.size;
}

// None for a record that points outside of the data.
std::optional<Place> ReadRecord(ByteView image, std::size_t i) {
  const auto position = ReadWordBytes(image, kPositionWords + i);
  const auto size = ReadWordBytes(image, kSizeWords + i);
  if (position < kOuterHeader || position > image.size() || size > image.size() - position) {
    return std::nullopt;
  }
  return Place{static_cast<std::size_t>(position), static_cast<std::size_t>(size)};
}

// Brings the first image in front of the second.
void PutInOrder(ByteSpan bytes, Place& first, Place& second) {
  const auto at = [&](std::size_t position) {
    return bytes.begin() + static_cast<std::ptrdiff_t>(position);
  };
  std::rotate(at(second.position), at(first.position), at(first.position + first.size));
  first.position = second.position;
  second.position += first.size;
}

}  // namespace

std::uint32_t GetNlogTotalBytes(ByteView image) { return ReadLittle32(image, kTotalBytes); }

FilteredNlog FilterNlog_ATA(ByteSpan image) {
  const auto outcome = Check(image);
  const bool isKnown = outcome == NlogFilter::Filtered;
  return {outcome, isKnown ? Compact(image, {0, image.size()}, 0) : image.size()};
}

FilteredNlog FilterNlog_NVMe(ByteSpan image) {
  if (image.size() < kOuterHeader) return {NlogFilter::NotKnown, image.size()};
  const auto count = ReadLittle32(image, kCountWord * 4);
  if (count == 0 || count > kMostRecords) return {NlogFilter::NotKnown, image.size()};

  Place places[kMostRecords]{};
  NlogFilter outcomes[kMostRecords]{};
  for (std::size_t i = 0; i < count; ++i) {
    const auto place = ReadRecord(image, i);
    const bool isSound = place && (i == 0 || !Meet(*place, places[i - 1]));
    if (isSound) {
      places[i] = *place;
      outcomes[i] = Check(place->Of(image));
    }
    if (!isSound || outcomes[i] == NlogFilter::Damaged) return {NlogFilter::Damaged, image.size()};
  }
  if (count == 2 && places[1].position < places[0].position) {
    PutInOrder(image, places[0], places[1]);
  }

  std::size_t end = kOuterHeader;
  for (std::size_t i = 0; i < count; ++i) {
    const auto start = end;
    const auto& [position, size] = places[i];
    if (outcomes[i] == NlogFilter::Filtered) {
      end = Compact(image, places[i], start);
    } else {
      std::memmove(image.data() + start, image.data() + position, size);
      end += size;
    }
    WriteWordBytes(end - start, kSizeWords + i, image);
    WriteWordBytes(start, kPositionWords + i, image);
  }
  WriteWordBytes(end, kEndWord, image);
  return {NlogFilter::Filtered, end};
}

}  // namespace Morvu::ReadLog
