#pragma once

#include <array>

#include "devices/commands/CommandSet.h"

namespace Morvu::DeviceManagement {

// The SCSI commands (SPC-4, SBC-3). An operation fills a CDB and sends it; it returns
// the path's result, 131 for what the device refused.
class CommandSet_SCSI : public CommandSet {
 public:
  CommandSet_SCSI(const PropertyList& properties, CommandPath& path)
      : CommandSet(properties, path, Protocol::Scsi) {}
  std::unique_ptr<CommandSet> Clone(const PropertyList& properties,
                                    CommandPath& path) const override;

  // Reading and writing: `count` blocks from `lba`.
  StatusCode scsiRead6(ByteSpan data, std::uint32_t lba, std::uint8_t count);
  StatusCode scsiRead10(ByteSpan data, std::uint32_t lba, std::uint16_t count, bool fua, bool fuaNv,
                        std::uint8_t protect);
  StatusCode scsiRead12(ByteSpan data, std::uint32_t lba, std::uint32_t count, bool fua, bool fuaNv,
                        std::uint8_t protect);
  StatusCode scsiRead16(ByteSpan data, std::uint64_t lba, std::uint32_t count, bool fua, bool fuaNv,
                        std::uint8_t protect);
  StatusCode scsiRead32(ByteSpan data, std::uint64_t lba, std::uint32_t count, bool fua, bool fuaNv,
                        std::uint8_t protect, std::uint32_t referenceTag,
                        std::uint16_t applicationTag, std::uint16_t tagMask);
  StatusCode scsiWrite6(ByteSpan data, std::uint32_t lba, std::uint8_t count);
  StatusCode scsiWrite10(ByteSpan data, std::uint32_t lba, std::uint16_t count, bool fua,
                         bool fuaNv);
  StatusCode scsiWrite12(ByteSpan data, std::uint32_t lba, std::uint32_t count, bool fua,
                         bool fuaNv);
  StatusCode scsiWrite16(ByteSpan data, std::uint64_t lba, std::uint32_t count, bool fua,
                         bool fuaNv);
  StatusCode scsiWrite32(ByteSpan data, std::uint64_t lba, std::uint32_t count, bool fua,
                         bool fuaNv, std::uint32_t referenceTag, std::uint16_t applicationTag,
                         std::uint16_t tagMask);

  // Without data.
  StatusCode scsiTestUnitReady();
  StatusCode scsiRezeroUnit();
  StatusCode scsiStartStopUnit(bool immed, std::uint8_t condition, std::uint8_t powerCondition,
                               bool loej, bool start);
  StatusCode scsiStartUnit() { return scsiStartStopUnit(false, 0, 0, false, true); }
  StatusCode scsiStopUnit() { return scsiStartStopUnit(false, 0, 0, false, false); }
  StatusCode scsiSendDiagnostic();

  // With data. `blockCount` is in sectors, also where the CDB gives a length in bytes.
  StatusCode scsiRequestSense(ByteSpan data);
  StatusCode scsiFormatUnit(ByteSpan data, bool fmtData, bool cmpList, bool fmtPinfo,
                            bool longList);
  StatusCode scsiInquiry(ByteSpan data, bool evpd, std::uint8_t page, std::uint8_t length,
                         std::uint32_t blockCount);
  StatusCode scsiReadCapacity10(ByteSpan data);
  StatusCode scsiReadCapacity16(ByteSpan data, std::uint64_t lba, std::uint32_t length, bool pmi,
                                std::uint32_t blockCount);
  StatusCode scsiVerify10(ByteSpan data, std::uint32_t lba, std::uint16_t count);
  StatusCode scsiSynchronizeCache10(ByteSpan data);
  StatusCode scsiSynchronizeCache16(ByteSpan data);
  StatusCode scsiReadDefectData10(ByteSpan data, bool plist, bool glist, std::uint8_t format,
                                  std::uint16_t length, std::uint32_t blockCount);
  StatusCode scsiReadDefectData12(ByteSpan data, bool plist, bool glist, std::uint8_t format,
                                  std::uint32_t length, std::uint32_t blockCount);
  StatusCode scsiReadBuffer(ByteSpan data, std::uint8_t mode, std::uint8_t bufferId,
                            std::uint32_t length, std::uint32_t blockCount);
  StatusCode scsiWriteBuffer(ByteSpan data, std::uint8_t mode, std::uint8_t bufferId,
                             std::uint32_t length, std::uint32_t blockCount);
  StatusCode scsiReadLong10(ByteSpan data, bool correct, std::uint32_t lba, std::uint16_t length,
                            std::uint32_t blockCount);
  StatusCode scsiWriteLong10(ByteSpan data, std::uint32_t lba, std::uint16_t length,
                             std::uint32_t blockCount);
  StatusCode scsiUnmap(ByteSpan data, bool anchor, std::uint8_t group, std::uint16_t length,
                       std::uint32_t blockCount);
  StatusCode scsiSanitize(ByteSpan data, std::uint8_t action, bool immed, bool ause,
                          std::uint16_t length, std::uint32_t blockCount);
  StatusCode scsiLogSense(ByteSpan data, bool ppc, bool sp, std::uint8_t pageControl,
                          std::uint8_t page, std::uint16_t length, std::uint32_t blockCount);
  StatusCode scsiModeSelect10(ByteSpan data, std::uint8_t flags, bool pf, std::uint16_t length,
                              std::uint32_t blockCount);
  StatusCode scsiModeSense10(ByteSpan data, bool dbd, std::uint8_t pageControl, std::uint8_t page,
                             std::uint8_t subpage, std::uint16_t length, std::uint32_t blockCount);
  StatusCode scsiCompareAndWrite(ByteSpan data, std::uint64_t lba, std::uint8_t count, bool fua,
                                 bool fuaNv, std::uint8_t group);
  StatusCode scsiServiceActionIn16(ByteSpan data, std::uint8_t action, std::uint64_t lba,
                                   std::uint16_t length, bool flag, std::uint32_t blockCount);
  StatusCode scsiServiceActionOut16(ByteSpan data, std::uint8_t action, std::uint64_t lba,
                                    std::uint16_t length, bool flag, std::uint32_t blockCount);
  StatusCode scsiSecurityProtocolIn(ByteSpan data, std::uint8_t protocol, std::uint16_t specific,
                                    bool inc512, std::uint32_t length, std::uint8_t control);
  StatusCode scsiSecurityProtocolOut(ByteSpan data, std::uint8_t protocol, std::uint16_t specific,
                                     bool inc512, std::uint32_t length, std::uint8_t control);

  // A CDB as the caller has it. `direction` is 0 to read, 1 to write, any other for
  // no data. `blockCount` 0 takes the CDB's transfer length. In the six-byte form
  // byte 1 comes in two parts, bits 7:5 and bits 4:0.
  StatusCode scsiCdb6(ByteSpan data, std::uint8_t opcode, std::uint8_t top, std::uint8_t low,
                      std::uint8_t byte2, std::uint8_t byte3, std::uint8_t byte4,
                      std::uint8_t control, std::uint8_t direction, std::uint32_t blockCount);
  StatusCode scsiCdb10(ByteSpan data, std::array<std::uint8_t, 10> cdb, std::uint8_t direction,
                       std::uint32_t blockCount);
  StatusCode scsiCdb12(ByteSpan data, std::array<std::uint8_t, 12> cdb, std::uint8_t direction,
                       std::uint32_t blockCount);
  StatusCode scsiCdb16(ByteSpan data, std::array<std::uint8_t, 16> cdb, std::uint8_t direction,
                       std::uint32_t blockCount);

 private:
  StatusCode SendCdb(ByteSpan cdb, std::uint8_t flags, ByteSpan data, std::uint32_t blockCount);
  StatusCode SendRaw(ByteSpan cdb, std::uint8_t direction, ByteSpan data, std::uint32_t blockCount,
                     std::uint32_t cdbCount);
};

}  // namespace Morvu::DeviceManagement
