#include "devices/commands/CommandSet_SCSI.h"

#include <array>

#include "devices/commands/ScsiOpcodes.h"
#include "devices/properties/PropertyList.h"

namespace Morvu::DeviceManagement {
namespace {

template <std::size_t Length>
using Cdb = std::array<std::uint8_t, Length>;

// Service actions of the 32-byte CDBs (SBC-3, 5.16 and 5.38).
constexpr std::uint16_t kServiceActionRead32 = 0x0009;
constexpr std::uint16_t kServiceActionWrite32 = 0x000B;

constexpr std::uint8_t Flag(bool set, std::uint8_t bit) { return set ? bit : 0; }

constexpr std::uint8_t AccessFlags(bool fua, bool fuaNv, std::uint8_t protect = 0) {
  return static_cast<std::uint8_t>(protect << 5 | Flag(fua, 0x08) | Flag(fuaNv, 0x02));
}

constexpr std::uint8_t DefectFlags(bool plist, bool glist, std::uint8_t format) {
  return static_cast<std::uint8_t>(Flag(plist, 0x10) | Flag(glist, 0x08) | (format & 0x11));
}

constexpr std::uint8_t PageByte(std::uint8_t pageControl, std::uint8_t page) {
  return static_cast<std::uint8_t>(pageControl << 6 | (page & 0x3F));
}

}  // namespace

std::unique_ptr<CommandSet> CommandSet_SCSI::Clone(const PropertyList& properties,
                                                   CommandPath& path) const {
  return std::make_unique<CommandSet_SCSI>(properties, path);
}

StatusCode CommandSet_SCSI::SendCdb(ByteSpan cdb, std::uint8_t flags, ByteSpan data,
                                    std::uint32_t blockCount) {
  SenseBuffer sense{};
  return Send(cdb, sense, flags, data, blockCount);
}

StatusCode CommandSet_SCSI::SendRaw(ByteSpan cdb, std::uint8_t direction, ByteSpan data,
                                    std::uint32_t blockCount, std::uint32_t cdbCount) {
  if (direction > 1) return SendCdb(cdb, kNoData, {}, 0);
  return SendCdb(cdb, direction == 0 ? kRead : kWrite, data,
                 blockCount == 0 ? cdbCount : blockCount);
}

StatusCode CommandSet_SCSI::scsiRead6(ByteSpan data, std::uint32_t lba, std::uint8_t count) {
  Cdb<6> cdb{ScsiOpcode::Read6};
  WriteBig(lba & 0x1FFFFF, 1, 3, cdb);
  cdb[4] = count;
  return SendCdb(cdb, kRead, data, count);
}

StatusCode CommandSet_SCSI::scsiRead10(ByteSpan data, std::uint32_t lba, std::uint16_t count,
                                       bool fua, bool fuaNv, std::uint8_t protect) {
  Cdb<10> cdb{ScsiOpcode::Read10};
  cdb[1] = AccessFlags(fua, fuaNv, protect);
  WriteBig(lba, 2, 4, cdb);
  WriteBig(count, 7, 2, cdb);
  return SendCdb(cdb, kRead, data, count);
}

StatusCode CommandSet_SCSI::scsiRead12(ByteSpan data, std::uint32_t lba, std::uint32_t count,
                                       bool fua, bool fuaNv, std::uint8_t protect) {
  Cdb<12> cdb{ScsiOpcode::Read12};
  cdb[1] = AccessFlags(fua, fuaNv, protect);
  WriteBig(lba, 2, 4, cdb);
  WriteBig(count, 6, 4, cdb);
  return SendCdb(cdb, kRead, data, count);
}

StatusCode CommandSet_SCSI::scsiRead16(ByteSpan data, std::uint64_t lba, std::uint32_t count,
                                       bool fua, bool fuaNv, std::uint8_t protect) {
  Cdb<16> cdb{ScsiOpcode::Read16};
  cdb[1] = AccessFlags(fua, fuaNv, protect);
  WriteBig(lba, 2, 8, cdb);
  WriteBig(count, 10, 4, cdb);
  return SendCdb(cdb, kRead, data, count);
}

StatusCode CommandSet_SCSI::scsiRead32(ByteSpan data, std::uint64_t lba, std::uint32_t count,
                                       bool fua, bool fuaNv, std::uint8_t protect,
                                       std::uint32_t referenceTag, std::uint16_t applicationTag,
                                       std::uint16_t tagMask) {
  Cdb<32> cdb{ScsiOpcode::VariableLength};
  cdb[7] = 0x18;
  WriteBig(kServiceActionRead32, 8, 2, cdb);
  cdb[10] = AccessFlags(fua, fuaNv, protect);
  WriteBig(lba, 12, 8, cdb);
  WriteBig(referenceTag, 20, 4, cdb);
  WriteBig(applicationTag, 24, 2, cdb);
  WriteBig(tagMask, 26, 2, cdb);
  WriteBig(count, 28, 4, cdb);
  return SendCdb(cdb, kRead, data, count);
}

StatusCode CommandSet_SCSI::scsiWrite6(ByteSpan data, std::uint32_t lba, std::uint8_t count) {
  Cdb<6> cdb{ScsiOpcode::Write6};
  WriteBig(lba & 0x1FFFFF, 1, 3, cdb);
  cdb[4] = count;
  return SendCdb(cdb, kWrite, data, count);
}

StatusCode CommandSet_SCSI::scsiWrite10(ByteSpan data, std::uint32_t lba, std::uint16_t count,
                                        bool fua, bool fuaNv) {
  Cdb<10> cdb{ScsiOpcode::Write10};
  cdb[1] = AccessFlags(fua, fuaNv);
  WriteBig(lba, 2, 4, cdb);
  WriteBig(count, 7, 2, cdb);
  return SendCdb(cdb, kWrite, data, count);
}

StatusCode CommandSet_SCSI::scsiWrite12(ByteSpan data, std::uint32_t lba, std::uint32_t count,
                                        bool fua, bool fuaNv) {
  Cdb<12> cdb{ScsiOpcode::Write12};
  cdb[1] = AccessFlags(fua, fuaNv);
  WriteBig(lba, 2, 4, cdb);
  WriteBig(count, 6, 4, cdb);
  return SendCdb(cdb, kWrite, data, count);
}

StatusCode CommandSet_SCSI::scsiWrite16(ByteSpan data, std::uint64_t lba, std::uint32_t count,
                                        bool fua, bool fuaNv) {
  Cdb<16> cdb{ScsiOpcode::Write16};
  cdb[1] = AccessFlags(fua, fuaNv);
  WriteBig(lba, 2, 8, cdb);
  WriteBig(count, 10, 4, cdb);
  return SendCdb(cdb, kWrite, data, count);
}

StatusCode CommandSet_SCSI::scsiWrite32(ByteSpan data, std::uint64_t lba, std::uint32_t count,
                                        bool fua, bool fuaNv, std::uint32_t referenceTag,
                                        std::uint16_t applicationTag, std::uint16_t tagMask) {
  Cdb<32> cdb{ScsiOpcode::VariableLength};
  cdb[7] = 0x18;
  WriteBig(kServiceActionWrite32, 8, 2, cdb);
  cdb[10] = AccessFlags(fua, fuaNv);
  WriteBig(lba, 12, 8, cdb);
  WriteBig(referenceTag, 20, 4, cdb);
  WriteBig(applicationTag, 24, 2, cdb);
  WriteBig(tagMask, 26, 2, cdb);
  WriteBig(count, 28, 4, cdb);
  return SendCdb(cdb, kWrite, data, count);
}

StatusCode CommandSet_SCSI::scsiTestUnitReady() {
  Cdb<6> cdb{ScsiOpcode::TestUnitReady};
  return SendCdb(cdb, kNoData, {}, 0);
}

StatusCode CommandSet_SCSI::scsiRezeroUnit() {
  Cdb<6> cdb{ScsiOpcode::RezeroUnit};
  return SendCdb(cdb, kNoData, {}, 0);
}

StatusCode CommandSet_SCSI::scsiStartStopUnit(bool immed, std::uint8_t condition,
                                              std::uint8_t powerCondition, bool loej, bool start) {
  Cdb<6> cdb{ScsiOpcode::StartStopUnit};
  cdb[1] = Flag(immed, 0x01);
  cdb[3] = condition & 0x0F;
  cdb[4] = static_cast<std::uint8_t>(powerCondition << 4 | Flag(loej, 0x02) | Flag(start, 0x01));
  return SendCdb(cdb, kNoData, {}, 0);
}

StatusCode CommandSet_SCSI::scsiSendDiagnostic() {
  Cdb<6> cdb{ScsiOpcode::SendDiagnostic};
  cdb[1] = 0x04;
  return SendCdb(cdb, kNoData, {}, 0);
}

StatusCode CommandSet_SCSI::scsiRequestSense(ByteSpan data) {
  Cdb<6> cdb{ScsiOpcode::RequestSense};
  cdb[4] = 0xFF;
  return SendCdb(cdb, kRead, data, 1);
}

StatusCode CommandSet_SCSI::scsiFormatUnit(ByteSpan data, bool fmtData, bool cmpList, bool fmtPinfo,
                                           bool longList) {
  Cdb<6> cdb{ScsiOpcode::FormatUnit};
  cdb[1] = static_cast<std::uint8_t>(Flag(fmtPinfo, 0x80) | Flag(longList, 0x40) |
                                     Flag(fmtData, 0x10) | Flag(cmpList, 0x08));
  return SendCdb(cdb, kWrite, data, 1);
}

StatusCode CommandSet_SCSI::scsiInquiry(ByteSpan data, bool evpd, std::uint8_t page,
                                        std::uint8_t length, std::uint32_t blockCount) {
  Cdb<6> cdb{ScsiOpcode::Inquiry};
  cdb[1] = Flag(evpd, 0x01);
  cdb[2] = page;
  cdb[4] = length;
  return SendCdb(cdb, kRead, data, blockCount);
}

StatusCode CommandSet_SCSI::scsiReadCapacity10(ByteSpan data) {
  Cdb<10> cdb{ScsiOpcode::ReadCapacity10};
  return SendCdb(cdb, kRead, data, 1);
}

StatusCode CommandSet_SCSI::scsiReadCapacity16(ByteSpan data, std::uint64_t lba,
                                               std::uint32_t length, bool pmi,
                                               std::uint32_t blockCount) {
  Cdb<16> cdb{ScsiOpcode::ServiceActionIn16};
  cdb[1] = 0x10;
  WriteBig(lba, 2, 8, cdb);
  WriteBig(length, 10, 4, cdb);
  cdb[14] = Flag(pmi, 0x01);
  return SendCdb(cdb, kRead, data, blockCount);
}

StatusCode CommandSet_SCSI::scsiVerify10(ByteSpan data, std::uint32_t lba, std::uint16_t count) {
  Cdb<10> cdb{ScsiOpcode::Verify10};
  WriteBig(lba, 2, 4, cdb);
  WriteBig(count, 7, 2, cdb);
  return SendCdb(cdb, kRead, data, count);
}

StatusCode CommandSet_SCSI::scsiSynchronizeCache10(ByteSpan data) {
  Cdb<10> cdb{ScsiOpcode::SynchronizeCache10};
  return SendCdb(cdb, kRead, data, 1);
}

StatusCode CommandSet_SCSI::scsiSynchronizeCache16(ByteSpan data) {
  Cdb<16> cdb{ScsiOpcode::SynchronizeCache16};
  return SendCdb(cdb, kRead, data, 1);
}

StatusCode CommandSet_SCSI::scsiReadDefectData10(ByteSpan data, bool plist, bool glist,
                                                 std::uint8_t format, std::uint16_t length,
                                                 std::uint32_t blockCount) {
  Cdb<10> cdb{ScsiOpcode::ReadDefectData10};
  cdb[2] = DefectFlags(plist, glist, format);
  WriteBig(length, 7, 2, cdb);
  return SendCdb(cdb, kRead, data, blockCount);
}

StatusCode CommandSet_SCSI::scsiReadDefectData12(ByteSpan data, bool plist, bool glist,
                                                 std::uint8_t format, std::uint32_t length,
                                                 std::uint32_t blockCount) {
  Cdb<12> cdb{ScsiOpcode::ReadDefectData12};
  cdb[1] = DefectFlags(plist, glist, format);
  WriteBig(length, 6, 4, cdb);
  return SendCdb(cdb, kRead, data, blockCount);
}

StatusCode CommandSet_SCSI::scsiReadBuffer(ByteSpan data, std::uint8_t mode, std::uint8_t bufferId,
                                           std::uint32_t length, std::uint32_t blockCount) {
  Cdb<10> cdb{ScsiOpcode::ReadBuffer};
  cdb[1] = mode;
  cdb[2] = bufferId;
  WriteBig(length, 6, 3, cdb);
  return SendCdb(cdb, kRead, data, blockCount);
}

StatusCode CommandSet_SCSI::scsiWriteBuffer(ByteSpan data, std::uint8_t mode, std::uint8_t bufferId,
                                            std::uint32_t length, std::uint32_t blockCount) {
  Cdb<10> cdb{ScsiOpcode::WriteBuffer};
  cdb[1] = mode;
  cdb[2] = bufferId;
  WriteBig(length, 6, 3, cdb);
  return SendCdb(cdb, kWrite, data, blockCount);
}

StatusCode CommandSet_SCSI::scsiReadLong10(ByteSpan data, bool correct, std::uint32_t lba,
                                           std::uint16_t length, std::uint32_t blockCount) {
  Cdb<10> cdb{ScsiOpcode::ReadLong10};
  cdb[1] = Flag(correct, 0x02);
  WriteBig(lba, 2, 4, cdb);
  WriteBig(length, 7, 2, cdb);
  return SendCdb(cdb, kRead, data, blockCount);
}

StatusCode CommandSet_SCSI::scsiWriteLong10(ByteSpan data, std::uint32_t lba, std::uint16_t length,
                                            std::uint32_t blockCount) {
  Cdb<10> cdb{ScsiOpcode::WriteLong10};
  WriteBig(lba, 2, 4, cdb);
  WriteBig(length, 7, 2, cdb);
  return SendCdb(cdb, kWrite, data, blockCount);
}

StatusCode CommandSet_SCSI::scsiUnmap(ByteSpan data, bool anchor, std::uint8_t group,
                                      std::uint16_t length, std::uint32_t blockCount) {
  Cdb<10> cdb{ScsiOpcode::Unmap};
  cdb[1] = Flag(anchor, 0x01);
  cdb[6] = group & 0x1F;
  WriteBig(length, 7, 2, cdb);
  return SendCdb(cdb, kWrite, data, blockCount);
}

StatusCode CommandSet_SCSI::scsiSanitize(ByteSpan data, std::uint8_t action, bool immed, bool ause,
                                         std::uint16_t length, std::uint32_t blockCount) {
  Cdb<10> cdb{ScsiOpcode::Sanitize};
  cdb[1] = static_cast<std::uint8_t>((action & 0x1F) | Flag(immed, 0x80) | Flag(ause, 0x20));
  WriteBig(length, 7, 2, cdb);
  return SendCdb(cdb, kWrite, data, blockCount);
}

StatusCode CommandSet_SCSI::scsiLogSense(ByteSpan data, bool ppc, bool sp, std::uint8_t pageControl,
                                         std::uint8_t page, std::uint16_t length,
                                         std::uint32_t blockCount) {
  Cdb<10> cdb{ScsiOpcode::LogSense};
  cdb[1] = Flag(ppc, 0x02) | Flag(sp, 0x01);
  cdb[2] = PageByte(pageControl, page);
  WriteBig(length, 7, 2, cdb);
  return SendCdb(cdb, kRead, data, blockCount);
}

StatusCode CommandSet_SCSI::scsiModeSelect10(ByteSpan data, std::uint8_t flags, bool pf,
                                             std::uint16_t length, std::uint32_t blockCount) {
  Cdb<10> cdb{ScsiOpcode::ModeSelect10};
  cdb[1] = flags | Flag(pf, 0x10);
  WriteBig(length, 7, 2, cdb);
  return SendCdb(cdb, kWrite, data, blockCount);
}

StatusCode CommandSet_SCSI::scsiModeSense10(ByteSpan data, bool dbd, std::uint8_t pageControl,
                                            std::uint8_t page, std::uint8_t subpage,
                                            std::uint16_t length, std::uint32_t blockCount) {
  Cdb<10> cdb{ScsiOpcode::ModeSense10};
  cdb[1] = Flag(dbd, 0x08);
  cdb[2] = PageByte(pageControl, page);
  cdb[3] = subpage;
  WriteBig(length, 7, 2, cdb);
  return SendCdb(cdb, kRead, data, blockCount);
}

StatusCode CommandSet_SCSI::scsiCompareAndWrite(ByteSpan data, std::uint64_t lba,
                                                std::uint8_t count, bool fua, bool fuaNv,
                                                std::uint8_t group) {
  Cdb<16> cdb{ScsiOpcode::CompareAndWrite};
  cdb[1] = AccessFlags(fua, fuaNv);
  WriteBig(lba, 2, 8, cdb);
  cdb[13] = count;
  cdb[14] = group & 0x1F;
  return SendCdb(cdb, kWrite, data, count);
}

StatusCode CommandSet_SCSI::scsiServiceActionIn16(ByteSpan data, std::uint8_t action,
                                                  std::uint64_t lba, std::uint16_t length,
                                                  bool flag, std::uint32_t blockCount) {
  Cdb<16> cdb{ScsiOpcode::ServiceActionIn16};
  cdb[1] = action & 0x1F;
  WriteBig(lba, 2, 8, cdb);
  WriteBig(length, 12, 2, cdb);
  cdb[14] = Flag(flag, 0x01);
  return SendCdb(cdb, kRead, data, blockCount);
}

StatusCode CommandSet_SCSI::scsiServiceActionOut16(ByteSpan data, std::uint8_t action,
                                                   std::uint64_t lba, std::uint16_t length,
                                                   bool flag, std::uint32_t blockCount) {
  Cdb<16> cdb{ScsiOpcode::ServiceActionOut16};
  cdb[1] = action & 0x1F;
  WriteBig(lba, 2, 8, cdb);
  WriteBig(length, 12, 2, cdb);
  cdb[14] = Flag(flag, 0x01);
  return SendCdb(cdb, kWrite, data, blockCount);
}

StatusCode CommandSet_SCSI::scsiSecurityProtocolIn(ByteSpan data, std::uint8_t protocol,
                                                   std::uint16_t specific, bool inc512,
                                                   std::uint32_t length, std::uint8_t control) {
  Cdb<12> cdb{ScsiOpcode::SecurityProtocolIn};
  cdb[1] = protocol;
  WriteBig(specific, 2, 2, cdb);
  cdb[4] = Flag(inc512, 0x80);
  WriteBig(length, 6, 4, cdb);
  cdb[11] = control;
  return SendCdb(cdb, kRead, data,
                 static_cast<std::uint32_t>(inc512 ? length : (length + std::uint64_t{511}) / 512));
}

StatusCode CommandSet_SCSI::scsiSecurityProtocolOut(ByteSpan data, std::uint8_t protocol,
                                                    std::uint16_t specific, bool inc512,
                                                    std::uint32_t length, std::uint8_t control) {
  Cdb<12> cdb{ScsiOpcode::SecurityProtocolOut};
  cdb[1] = protocol;
  WriteBig(specific, 2, 2, cdb);
  cdb[4] = Flag(inc512, 0x80);
  WriteBig(length, 6, 4, cdb);
  cdb[11] = control;
  return SendCdb(cdb, kWrite, data,
                 static_cast<std::uint32_t>(inc512 ? length : (length + std::uint64_t{511}) / 512));
}

StatusCode CommandSet_SCSI::scsiCdb6(ByteSpan data, std::uint8_t opcode, std::uint8_t top,
                                     std::uint8_t low, std::uint8_t byte2, std::uint8_t byte3,
                                     std::uint8_t byte4, std::uint8_t control,
                                     std::uint8_t direction, std::uint32_t blockCount) {
  const auto byte1 = static_cast<std::uint8_t>(top << 5 | (low & 0x1F));
  Cdb<6> cdb{opcode, byte1, byte2, byte3, byte4, control};
  return SendRaw(cdb, direction, data, blockCount, byte4);
}

StatusCode CommandSet_SCSI::scsiCdb10(ByteSpan data, std::array<std::uint8_t, 10> cdb,
                                      std::uint8_t direction, std::uint32_t blockCount) {
  return SendRaw(cdb, direction, data, blockCount, static_cast<std::uint32_t>(ReadBig(cdb, 7, 2)));
}

StatusCode CommandSet_SCSI::scsiCdb12(ByteSpan data, std::array<std::uint8_t, 12> cdb,
                                      std::uint8_t direction, std::uint32_t blockCount) {
  return SendRaw(cdb, direction, data, blockCount, static_cast<std::uint32_t>(ReadBig(cdb, 6, 4)));
}

StatusCode CommandSet_SCSI::scsiCdb16(ByteSpan data, std::array<std::uint8_t, 16> cdb,
                                      std::uint8_t direction, std::uint32_t blockCount) {
  return SendRaw(cdb, direction, data, blockCount, static_cast<std::uint32_t>(ReadBig(cdb, 10, 4)));
}

}  // namespace Morvu::DeviceManagement
