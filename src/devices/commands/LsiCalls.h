// The calls into the library of an LSI RAID controller's vendor, a row each, and the layouts of
// their blocks. Numbers are little-endian; what no row names is zero.
#pragma once

#include <array>
#include <cstdint>
#include <vector>

#include "frame/Bytes.h"

namespace Morvu::DeviceManagement {

// The record that each call gets: 32 bytes and the address of the block.
struct LibRequest {
  std::uint8_t group = 0;
  std::uint8_t command = 0;
  std::uint16_t unused2 = 0;
  std::uint32_t controller = 0;
  std::uint16_t volume = 0;
  std::uint16_t device = 0;
  std::uint32_t index = 0;  // into the list of controllers: always the first
  std::uint32_t unused16[3] = {};
  std::uint32_t length = 0;
  void* block = nullptr;
};
static_assert(sizeof(LibRequest) == 32 + sizeof(void*));

struct LibCall {
  std::uint8_t group;
  std::uint8_t command;
  std::uint32_t size;  // of the block; of its head where data or a path follow
};

// What a call is about; what it does not name stays 0.
struct LibTarget {
  std::uint32_t controller = 0;
  std::uint16_t volume = 0;
  std::uint16_t device = 0;
};

namespace LibCalls {
// clang-format off
inline constexpr LibCall Begin          = {0,  0,   68};  // before any other
inline constexpr LibCall End            = {0,  9,    0};  // after all others
inline constexpr LibCall Controllers    = {0,  3,   17};  // and the library's path
inline constexpr LibCall Drives         = {1,  4, 6152};  // of a controller
inline constexpr LibCall VolumesOfDrives = {1, 12, 9220};
inline constexpr LibCall Members        = {3, 11,  516};  // of a volume
inline constexpr LibCall Ata            = {6,  2,   60};  // and the data
inline constexpr LibCall Scsi           = {6,  1,   64};  // and the data
// clang-format on
}  // namespace LibCalls

struct BlockField {
  std::uint16_t offset;
  std::uint8_t width;
};

// A list: its count stands at offset 0, and is but a claim.
struct BlockList {
  std::uint16_t first;
  std::uint16_t stride;
  std::uint16_t most;
};

inline constexpr BlockField kListCount = {0, 2};

namespace ControllerBlock {
inline constexpr BlockList List = {2, 4, 0xFFFF};
inline constexpr BlockField Id = {0, 4};
inline constexpr std::uint16_t Path = 16;  // of the library, with its NUL
}  // namespace ControllerBlock

namespace DriveRecord {
inline constexpr BlockList List = {8, 24, 256};
inline constexpr BlockField Device = {0, 2};
inline constexpr BlockField Marks = {2, 2};
inline constexpr std::uint16_t kHidden = 0x0001;
inline constexpr BlockField Location[] = {{4, 4}, {8, 4}, {12, 4}, {16, 4}, {20, 4}};
}  // namespace DriveRecord

namespace DriveVolumesRecord {
inline constexpr BlockList List = {4, 36, 256};
inline constexpr BlockField Device = {0, 2};
inline constexpr BlockField Count = {2, 2};
inline constexpr std::uint16_t Volumes = 4;  // 2 bytes each
inline constexpr std::uint16_t kMostVolumes = 16;
}  // namespace DriveVolumesRecord

namespace MembersBlock {
inline constexpr BlockList List = {4, 2, 256};
inline constexpr BlockField GenericNumber = {2, 2};  // N of /dev/sgN
inline constexpr BlockField Device = {0, 2};
inline constexpr std::uint16_t kNoDisk = 0xFFFF;
}  // namespace MembersBlock

// Directions of both command blocks.
inline constexpr std::uint8_t kLibNoData = 0, kLibToDrive = 1, kLibFromDrive = 2;

namespace AtaBlock {
inline constexpr BlockField Device = {0, 2};
inline constexpr BlockField Direction = {2, 1};
inline constexpr BlockField FrameOffset = {4, 4};
inline constexpr BlockField Flags = {8, 4};
inline constexpr std::uint16_t Frame = 20;  // host to device
inline constexpr BlockField Length = {36, 4};
inline constexpr std::uint16_t Answer = 40;  // device to host, 20 bytes
inline constexpr std::uint16_t Data = 60;
inline constexpr std::uint32_t kFromDriveFlag = 1, kToDriveFlag = 2, kNoDataFlag = 4;
inline constexpr std::uint32_t kPioFlag = 16, kDmaFlag = 32;
}  // namespace AtaBlock

namespace ScsiBlock {
inline constexpr BlockField Device = {0, 2};
inline constexpr BlockField Direction = {2, 1};
inline constexpr BlockField CdbLength = {3, 1};
inline constexpr std::uint16_t Cdb = 12;
inline constexpr std::size_t kLongestCdb = 16;
inline constexpr std::uint16_t Sense = 28;
inline constexpr std::size_t kSenseSize = 32;
inline constexpr BlockField Length = {60, 4};
inline constexpr std::uint16_t Data = 64;
}  // namespace ScsiBlock

// The block of one call: every read of it is checked against its size.
class LibBlock {
 public:
  // Zeros; with `more` bytes behind the head.
  explicit LibBlock(const LibCall& call, std::size_t more = 0) : bytes_(call.size + more) {}

  std::uint64_t Get(const BlockField& field) const { return GetIn(bytes_, field); }
  static std::uint64_t GetIn(ByteView record, const BlockField& field) {
    return ReadLittle(record, field.offset, field.width);
  }
  void Set(const BlockField& field, std::uint64_t value) {
    WriteLittle(value, field.offset, field.width, bytes_);
  }
  // What stands from an offset on; nothing behind the end.
  ByteSpan From(std::size_t offset) {
    return ByteSpan(bytes_).subspan(offset < bytes_.size() ? offset : bytes_.size());
  }
  ByteSpan GetBytes() { return bytes_; }

  // The records of a list, as many as its count claims and the block has room for.
  std::vector<ByteView> GetRecords(const BlockList& list) const;

 private:
  std::vector<std::uint8_t> bytes_;
};

}  // namespace Morvu::DeviceManagement
