// The SCSI commands, a row each, and the arguments that a row takes (SPC-4, SBC-3).
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>

#include "devices/commands/CommandRecords.h"

namespace Morvu::DeviceManagement {

// The arguments of one command.
struct ScsiArguments {
  std::uint64_t lba = 0;
  std::uint64_t count = 0;   // of logical blocks
  std::uint64_t length = 0;  // the CDB's length in bytes, or in 512 bytes with `inc512`
  std::uint64_t blocks = 0;  // data of a CDB with a length in bytes, in blocks of 512 bytes
  std::uint64_t offset = 0;  // in a buffer, in bytes
  std::uint64_t page = 0;
  std::uint64_t subpage = 0;
  std::uint64_t pageControl = 0;
  std::uint64_t mode = 0;
  std::uint64_t bufferId = 0;
  std::uint64_t action = 0;
  std::uint64_t group = 0;
  std::uint64_t format = 0;
  std::uint64_t protocol = 0;
  std::uint64_t protocolSpecific = 0;
  std::uint64_t control = 0;
  std::uint64_t protect = 0;
  std::uint64_t condition = 0;
  std::uint64_t powerCondition = 0;
  std::uint64_t referenceTag = 0;
  std::uint64_t applicationTag = 0;
  std::uint64_t tagMask = 0;
  // Bits.
  std::uint64_t fua = 0;
  std::uint64_t fuaNv = 0;
  std::uint64_t evpd = 0;
  std::uint64_t immed = 0;
  std::uint64_t loej = 0;
  std::uint64_t start = 0;
  std::uint64_t fmtData = 0;
  std::uint64_t cmpList = 0;
  std::uint64_t fmtPinfo = 0;
  std::uint64_t longList = 0;
  std::uint64_t plist = 0;
  std::uint64_t glist = 0;
  std::uint64_t correct = 0;
  std::uint64_t anchor = 0;
  std::uint64_t ause = 0;
  std::uint64_t ppc = 0;
  std::uint64_t sp = 0;
  std::uint64_t pf = 0;
  std::uint64_t dbd = 0;
  std::uint64_t pmi = 0;
  std::uint64_t inc512 = 0;
};

// Where an argument stands: its low `bits` bits, shifted left by `low`, in the big-endian
// number of `width` bytes at `byte`.
struct ScsiField {
  std::uint64_t ScsiArguments::*argument;
  std::uint8_t byte;
  std::uint8_t width;
  std::uint8_t low;
  std::uint8_t bits;
};

// A byte that is always the same.
struct ScsiByte {
  std::uint8_t byte;
  std::uint8_t value;
};

// How much data moves.
enum class ScsiData : std::uint8_t {
  None,
  Block,     // 512 bytes
  Sectors,   // `count` logical blocks of the device
  Blocks,    // `blocks` times 512
  Security,  // `length` in units of 512, or in bytes and rounded up to 512
};

struct ScsiCommand {
  const char* name;
  std::uint8_t opcode;
  std::uint8_t length;  // of the CDB
  std::uint8_t flags;   // CommandFlags
  ScsiData data;
  // Of a read the bytes without which the device has told nothing; a read that ends
  // shorter has failed.
  std::size_t least;
  std::span<const ScsiField> fields;
  std::span<const ScsiByte> bytes;
};

// A CDB, and its length.
struct ScsiCdb {
  std::array<std::uint8_t, 32> bytes{};
  std::size_t length = 0;
  ByteView View() const { return ByteView(bytes).first(length); }
};
ScsiCdb EncodeScsi(const ScsiCommand& command, const ScsiArguments& arguments);

namespace ScsiRow {

inline constexpr std::size_t kAll = ~std::size_t{0};

namespace Fields {
using A = ScsiArguments;
// clang-format off
inline constexpr ScsiField Access6[]   = {{&A::lba, 1, 3, 0, 21}, {&A::count, 4, 1, 0, 8}};
inline constexpr ScsiField Access10[]  = {{&A::protect, 1, 1, 5, 3}, {&A::fua, 1, 1, 3, 1}, {&A::fuaNv, 1, 1, 1, 1}, {&A::lba, 2, 4, 0, 32}, {&A::count, 7, 2, 0, 16}};
inline constexpr ScsiField Access12[]  = {{&A::protect, 1, 1, 5, 3}, {&A::fua, 1, 1, 3, 1}, {&A::fuaNv, 1, 1, 1, 1}, {&A::lba, 2, 4, 0, 32}, {&A::count, 6, 4, 0, 32}};
inline constexpr ScsiField Access16[]  = {{&A::protect, 1, 1, 5, 3}, {&A::fua, 1, 1, 3, 1}, {&A::fuaNv, 1, 1, 1, 1}, {&A::lba, 2, 8, 0, 64}, {&A::count, 10, 4, 0, 32}};
inline constexpr ScsiField Access32[]  = {{&A::protect, 10, 1, 5, 3}, {&A::fua, 10, 1, 3, 1}, {&A::fuaNv, 10, 1, 1, 1}, {&A::lba, 12, 8, 0, 64}, {&A::referenceTag, 20, 4, 0, 32}, {&A::applicationTag, 24, 2, 0, 16}, {&A::tagMask, 26, 2, 0, 16}, {&A::count, 28, 4, 0, 32}};
inline constexpr ScsiField StartStop[] = {{&A::immed, 1, 1, 0, 1}, {&A::condition, 3, 1, 0, 4}, {&A::powerCondition, 4, 1, 4, 4}, {&A::loej, 4, 1, 1, 1}, {&A::start, 4, 1, 0, 1}};
inline constexpr ScsiField Format[]    = {{&A::fmtPinfo, 1, 1, 7, 1}, {&A::longList, 1, 1, 6, 1}, {&A::fmtData, 1, 1, 4, 1}, {&A::cmpList, 1, 1, 3, 1}};
inline constexpr ScsiField Inquiry[]   = {{&A::evpd, 1, 1, 0, 1}, {&A::page, 2, 1, 0, 8}, {&A::length, 4, 1, 0, 8}};
inline constexpr ScsiField Verify10[]  = {{&A::lba, 2, 4, 0, 32}, {&A::count, 7, 2, 0, 16}};
inline constexpr ScsiField Defects10[] = {{&A::plist, 2, 1, 4, 1}, {&A::glist, 2, 1, 3, 1}, {&A::format, 2, 1, 0, 1}, {&A::length, 7, 2, 0, 16}};
inline constexpr ScsiField Defects12[] = {{&A::plist, 1, 1, 4, 1}, {&A::glist, 1, 1, 3, 1}, {&A::format, 1, 1, 0, 1}, {&A::length, 6, 4, 0, 32}};
inline constexpr ScsiField Buffer[]    = {{&A::mode, 1, 1, 0, 8}, {&A::bufferId, 2, 1, 0, 8}, {&A::offset, 3, 3, 0, 24}, {&A::length, 6, 3, 0, 24}};
inline constexpr ScsiField Long10[]    = {{&A::correct, 1, 1, 1, 1}, {&A::lba, 2, 4, 0, 32}, {&A::length, 7, 2, 0, 16}};
inline constexpr ScsiField Unmap[]     = {{&A::anchor, 1, 1, 0, 1}, {&A::group, 6, 1, 0, 5}, {&A::length, 7, 2, 0, 16}};
inline constexpr ScsiField Sanitize[]  = {{&A::action, 1, 1, 0, 5}, {&A::immed, 1, 1, 7, 1}, {&A::ause, 1, 1, 5, 1}, {&A::length, 7, 2, 0, 16}};
inline constexpr ScsiField LogSense[]  = {{&A::ppc, 1, 1, 1, 1}, {&A::sp, 1, 1, 0, 1}, {&A::pageControl, 2, 1, 6, 2}, {&A::page, 2, 1, 0, 6}, {&A::length, 7, 2, 0, 16}};
inline constexpr ScsiField Select10[]  = {{&A::sp, 1, 1, 0, 1}, {&A::pf, 1, 1, 4, 1}, {&A::length, 7, 2, 0, 16}};
inline constexpr ScsiField Sense10[]   = {{&A::dbd, 1, 1, 3, 1}, {&A::pageControl, 2, 1, 6, 2}, {&A::page, 2, 1, 0, 6}, {&A::subpage, 3, 1, 0, 8}, {&A::length, 7, 2, 0, 16}};
inline constexpr ScsiField Compare[]   = {{&A::fua, 1, 1, 3, 1}, {&A::fuaNv, 1, 1, 1, 1}, {&A::lba, 2, 8, 0, 64}, {&A::count, 13, 1, 0, 8}, {&A::group, 14, 1, 0, 5}};
inline constexpr ScsiField Service16[] = {{&A::action, 1, 1, 0, 5}, {&A::lba, 2, 8, 0, 64}, {&A::length, 12, 2, 0, 16}, {&A::pmi, 14, 1, 0, 1}};
inline constexpr ScsiField Capacity[]  = {{&A::lba, 2, 8, 0, 64}, {&A::length, 10, 4, 0, 32}, {&A::pmi, 14, 1, 0, 1}};
inline constexpr ScsiField Security[]  = {{&A::protocol, 1, 1, 0, 8}, {&A::protocolSpecific, 2, 2, 0, 16}, {&A::inc512, 4, 1, 7, 1}, {&A::length, 6, 4, 0, 32}, {&A::control, 11, 1, 0, 8}};

// Additional length and service action of the 32-byte CDBs (SBC-3, 5.16 and 5.38).
inline constexpr ScsiByte Read32[]     = {{7, 0x18}, {9, 0x09}};
inline constexpr ScsiByte Write32[]    = {{7, 0x18}, {9, 0x0B}};
inline constexpr ScsiByte SenseRoom[]  = {{4, 0xFF}};
inline constexpr ScsiByte SelfTest[]   = {{1, 0x04}};
inline constexpr ScsiByte Capacity16[] = {{1, 0x10}};
inline constexpr ScsiByte Start[]      = {{4, 0x01}};
// clang-format on
}  // namespace Fields

// clang-format off
// row                                        name                       code  CDB flags    data                least fields             bytes
inline constexpr ScsiCommand TestUnitReady       = {"scsiTestUnitReady",       0x00, 6,  kNoData, ScsiData::None,     0,    {},                {}};
inline constexpr ScsiCommand RezeroUnit          = {"scsiRezeroUnit",          0x01, 6,  kNoData, ScsiData::None,     0,    {},                {}};
inline constexpr ScsiCommand RequestSense        = {"scsiRequestSense",        0x03, 6,  kRead,   ScsiData::Block,    0,    {},                Fields::SenseRoom};
inline constexpr ScsiCommand FormatUnit          = {"scsiFormatUnit",          0x04, 6,  kWrite,  ScsiData::Block,    0,    Fields::Format,    {}};
inline constexpr ScsiCommand Read6               = {"scsiRead6",               0x08, 6,  kRead,   ScsiData::Sectors,  kAll, Fields::Access6,   {}};
inline constexpr ScsiCommand Write6              = {"scsiWrite6",              0x0A, 6,  kWrite,  ScsiData::Sectors,  0,    Fields::Access6,   {}};
inline constexpr ScsiCommand Inquiry             = {"scsiInquiry",             0x12, 6,  kRead,   ScsiData::Blocks,   36,   Fields::Inquiry,   {}};
inline constexpr ScsiCommand StartStopUnit       = {"scsiStartStopUnit",       0x1B, 6,  kNoData, ScsiData::None,     0,    Fields::StartStop, {}};
inline constexpr ScsiCommand StartUnit           = {"scsiStartUnit",           0x1B, 6,  kNoData, ScsiData::None,     0,    {},                Fields::Start};
inline constexpr ScsiCommand StopUnit            = {"scsiStopUnit",            0x1B, 6,  kNoData, ScsiData::None,     0,    {},                {}};
inline constexpr ScsiCommand SendDiagnostic      = {"scsiSendDiagnostic",      0x1D, 6,  kNoData, ScsiData::None,     0,    {},                Fields::SelfTest};
inline constexpr ScsiCommand ReadCapacity10      = {"scsiReadCapacity10",      0x25, 10, kRead,   ScsiData::Block,    8,    {},                {}};
inline constexpr ScsiCommand Read10              = {"scsiRead10",              0x28, 10, kRead,   ScsiData::Sectors,  kAll, Fields::Access10,  {}};
inline constexpr ScsiCommand Write10             = {"scsiWrite10",             0x2A, 10, kWrite,  ScsiData::Sectors,  0,    Fields::Access10,  {}};
inline constexpr ScsiCommand Verify10            = {"scsiVerify10",            0x2F, 10, kRead,   ScsiData::Sectors,  0,    Fields::Verify10,  {}};
inline constexpr ScsiCommand SynchronizeCache10  = {"scsiSynchronizeCache10",  0x35, 10, kRead,   ScsiData::Block,    0,    {},                {}};
inline constexpr ScsiCommand ReadDefectData10    = {"scsiReadDefectData10",    0x37, 10, kRead,   ScsiData::Blocks,   4,    Fields::Defects10, {}};
inline constexpr ScsiCommand WriteBuffer         = {"scsiWriteBuffer",         0x3B, 10, kWrite,  ScsiData::Blocks,   0,    Fields::Buffer,    {}};
inline constexpr ScsiCommand ReadBuffer          = {"scsiReadBuffer",          0x3C, 10, kRead,   ScsiData::Blocks,   4,    Fields::Buffer,    {}};
inline constexpr ScsiCommand ReadLong10          = {"scsiReadLong10",          0x3E, 10, kRead,   ScsiData::Blocks,   1,    Fields::Long10,    {}};
inline constexpr ScsiCommand WriteLong10         = {"scsiWriteLong10",         0x3F, 10, kWrite,  ScsiData::Blocks,   0,    Fields::Long10,    {}};
inline constexpr ScsiCommand Unmap               = {"scsiUnmap",               0x42, 10, kWrite,  ScsiData::Blocks,   0,    Fields::Unmap,     {}};
inline constexpr ScsiCommand Sanitize            = {"scsiSanitize",            0x48, 10, kWrite,  ScsiData::Blocks,   0,    Fields::Sanitize,  {}};
inline constexpr ScsiCommand LogSense            = {"scsiLogSense",            0x4D, 10, kRead,   ScsiData::Blocks,   4,    Fields::LogSense,  {}};
inline constexpr ScsiCommand ModeSelect10        = {"scsiModeSelect10",        0x55, 10, kWrite,  ScsiData::Blocks,   0,    Fields::Select10,  {}};
inline constexpr ScsiCommand ModeSense10         = {"scsiModeSense10",         0x5A, 10, kRead,   ScsiData::Blocks,   8,    Fields::Sense10,   {}};
inline constexpr ScsiCommand Read32              = {"scsiRead32",              0x7F, 32, kRead,   ScsiData::Sectors,  kAll, Fields::Access32,  Fields::Read32};
inline constexpr ScsiCommand Write32             = {"scsiWrite32",             0x7F, 32, kWrite,  ScsiData::Sectors,  0,    Fields::Access32,  Fields::Write32};
inline constexpr ScsiCommand Read16              = {"scsiRead16",              0x88, 16, kRead,   ScsiData::Sectors,  kAll, Fields::Access16,  {}};
inline constexpr ScsiCommand CompareAndWrite     = {"scsiCompareAndWrite",     0x89, 16, kWrite,  ScsiData::Sectors,  0,    Fields::Compare,   {}};
inline constexpr ScsiCommand Write16             = {"scsiWrite16",             0x8A, 16, kWrite,  ScsiData::Sectors,  0,    Fields::Access16,  {}};
inline constexpr ScsiCommand SynchronizeCache16  = {"scsiSynchronizeCache16",  0x91, 16, kRead,   ScsiData::Block,    0,    {},                {}};
inline constexpr ScsiCommand ReadCapacity16      = {"scsiReadCapacity16",      0x9E, 16, kRead,   ScsiData::Blocks,   12,   Fields::Capacity,  Fields::Capacity16};
inline constexpr ScsiCommand ServiceActionIn16   = {"scsiServiceActionIn16",   0x9E, 16, kRead,   ScsiData::Blocks,   1,    Fields::Service16, {}};
inline constexpr ScsiCommand ServiceActionOut16  = {"scsiServiceActionOut16",  0x9F, 16, kWrite,  ScsiData::Blocks,   0,    Fields::Service16, {}};
inline constexpr ScsiCommand SecurityProtocolIn  = {"scsiSecurityProtocolIn",  0xA2, 12, kRead,   ScsiData::Security, 1,    Fields::Security,  {}};
inline constexpr ScsiCommand Read12              = {"scsiRead12",              0xA8, 12, kRead,   ScsiData::Sectors,  kAll, Fields::Access12,  {}};
inline constexpr ScsiCommand Write12             = {"scsiWrite12",             0xAA, 12, kWrite,  ScsiData::Sectors,  0,    Fields::Access12,  {}};
inline constexpr ScsiCommand SecurityProtocolOut = {"scsiSecurityProtocolOut", 0xB5, 12, kWrite,  ScsiData::Security, 0,    Fields::Security,  {}};
inline constexpr ScsiCommand ReadDefectData12    = {"scsiReadDefectData12",    0xB7, 12, kRead,   ScsiData::Blocks,   8,    Fields::Defects12, {}};
// clang-format on

}  // namespace ScsiRow

}  // namespace Morvu::DeviceManagement
