#pragma once

#include "devices/commands/CommandSet.h"

namespace Morvu::DeviceManagement {

// The registers that a device gave back with its last command. A 28-bit answer
// leaves the upper halves as the command set them.
struct AtaAnswer {
  std::uint8_t error = 0;
  std::uint16_t count = 0;
  std::uint64_t lba = 0;
  std::uint8_t device = 0;
  std::uint8_t status = 0;
  bool isWhole = true;  // false when the upper halves of count and LBA are not known
};

// The ATA commands (ACS-3). An operation fills the registers and sends them; it
// checks nothing and returns the path's result. `data` is the caller's buffer; no
// more than it holds is moved.
class CommandSet_ATA : public CommandSet {
 public:
  CommandSet_ATA(const PropertyList& properties, CommandPath& path)
      : CommandSet(properties, path, Protocol::Ata) {}
  std::unique_ptr<CommandSet> Clone(const PropertyList& properties,
                                    CommandPath& path) const override;

  // What the device answered to the last command.
  AtaAnswer GetAnswer() const;

  // Reading and writing. A count of 0 stands for the largest: 256, or 65,536 for the
  // 48-bit commands.
  StatusCode ataReadSectors(ByteSpan data, std::uint32_t lba, std::uint8_t count);
  StatusCode ataReadSectorsExt(ByteSpan data, std::uint32_t lbaLow, std::uint32_t lbaHigh,
                               std::uint16_t count);
  StatusCode ataReadDma(ByteSpan data, std::uint32_t lba, std::uint8_t count);
  StatusCode ataReadDmaExt(ByteSpan data, std::uint32_t lbaLow, std::uint32_t lbaHigh,
                           std::uint16_t count);
  StatusCode ataReadMultiple(ByteSpan data, std::uint32_t lba, std::uint8_t count);
  StatusCode ataReadMultipleExt(ByteSpan data, std::uint32_t lbaLow, std::uint32_t lbaHigh,
                                std::uint16_t count);
  StatusCode ataReadVendor(ByteSpan data, std::uint32_t lba, std::uint8_t count);
  StatusCode ataReadVendorExt(ByteSpan data, std::uint32_t lbaLow, std::uint32_t lbaHigh,
                              std::uint16_t count);
  StatusCode ataWriteSectors(ByteSpan data, std::uint32_t lba, std::uint8_t count);
  StatusCode ataWriteSectorsExt(ByteSpan data, std::uint32_t lbaLow, std::uint32_t lbaHigh,
                                std::uint16_t count);
  StatusCode ataWriteDma(ByteSpan data, std::uint32_t lba, std::uint8_t count);
  StatusCode ataWriteDmaExt(ByteSpan data, std::uint32_t lbaLow, std::uint32_t lbaHigh,
                            std::uint16_t count);
  StatusCode ataWriteDmaFuaExt(ByteSpan data, std::uint32_t lbaLow, std::uint32_t lbaHigh,
                               std::uint16_t count);
  StatusCode ataWriteMultiple(ByteSpan data, std::uint32_t lba, std::uint8_t count);
  StatusCode ataWriteMultipleExt(ByteSpan data, std::uint32_t lbaLow, std::uint32_t lbaHigh,
                                 std::uint16_t count);
  StatusCode ataWriteMultipleFuaExt(ByteSpan data, std::uint32_t lbaLow, std::uint32_t lbaHigh,
                                    std::uint16_t count);

  // Logs: a count of 0 transfers nothing.
  StatusCode ataReadLogExt(ByteSpan data, std::uint32_t lbaLow, std::uint32_t lbaHigh,
                           std::uint16_t count, std::uint16_t features);
  StatusCode ataReadLogDmaExt(ByteSpan data, std::uint32_t lbaLow, std::uint32_t lbaHigh,
                              std::uint16_t count, std::uint16_t features);
  StatusCode ataWriteLogExt(ByteSpan data, std::uint32_t lbaLow, std::uint32_t lbaHigh,
                            std::uint16_t count);
  StatusCode ataWriteLogDmaExt(ByteSpan data, std::uint32_t lbaLow, std::uint32_t lbaHigh,
                               std::uint16_t count);

  // One sector of data, or as many as the arguments say.
  StatusCode ataIdentifyDevice(ByteSpan data);
  StatusCode ataReadBuffer(ByteSpan data);
  StatusCode ataWriteBuffer(ByteSpan data);
  StatusCode ataDeviceReset(ByteSpan data);
  StatusCode ataDownloadMicrocode(ByteSpan data, std::uint8_t subcommand, std::uint16_t blocks,
                                  std::uint32_t offset);
  StatusCode ataInitializeDeviceParameters(ByteSpan data, std::uint8_t count, std::uint32_t head);
  StatusCode ataDataSetManagementExt(ByteSpan data, std::uint16_t count);
  StatusCode ataDataSetManagementVendor(ByteSpan data, std::uint8_t count);
  StatusCode ataTrustedReceive(ByteSpan data, std::uint8_t protocol, std::uint16_t specific,
                               std::uint16_t count);
  StatusCode ataTrustedReceiveDma(ByteSpan data, std::uint8_t protocol, std::uint16_t specific,
                                  std::uint16_t count);
  StatusCode ataTrustedSend(ByteSpan data, std::uint8_t protocol, std::uint16_t specific,
                            std::uint16_t count);
  StatusCode ataTrustedSendDma(ByteSpan data, std::uint8_t protocol, std::uint16_t specific,
                               std::uint16_t count);
  StatusCode ataReadFpdmaQueued(ByteSpan data, std::uint32_t lbaLow, std::uint32_t lbaHigh,
                                std::uint16_t count, std::uint8_t tag, std::uint8_t priority,
                                std::uint8_t fua);
  StatusCode ataWriteFpdmaQueued(ByteSpan data, std::uint32_t lbaLow, std::uint32_t lbaHigh,
                                 std::uint16_t count, std::uint8_t tag, std::uint8_t priority,
                                 std::uint8_t fua);
  StatusCode ataSecurityEraseUnit(ByteSpan data);
  StatusCode ataSecurityDisablePassword(ByteSpan data);
  StatusCode ataSecurityUnlock(ByteSpan data);
  StatusCode ataSecuritySetPassword(ByteSpan data);
  StatusCode ataSecurityErasePrepare(ByteSpan data = {});
  StatusCode ataDcoIdentify(ByteSpan data);
  StatusCode ataDcoIdentifyDma(ByteSpan data);
  StatusCode ataDcoSet(ByteSpan data);
  StatusCode ataDcoSetDma(ByteSpan data);

  // Without data. Through an adapter that has no non-data form they read one sector
  // into `data`, or into nothing that anybody sees.
  StatusCode ataSecurityFreezeLock(ByteSpan data = {});
  StatusCode ataDcoRestore(ByteSpan data = {});
  StatusCode ataDcoFreezeLock(ByteSpan data = {});
  StatusCode ataNop(std::uint8_t subcommand, ByteSpan data = {});
  StatusCode ataFlushCache(ByteSpan data = {});
  StatusCode ataFlushCacheExt(ByteSpan data = {});
  StatusCode ataIdleImmediate(std::uint8_t value, ByteSpan data = {});
  StatusCode ataIdle(std::uint8_t timer, ByteSpan data = {});
  StatusCode ataStandby(std::uint8_t timer, ByteSpan data = {});
  StatusCode ataStandbyImmediate(ByteSpan data = {});
  StatusCode ataSleep(ByteSpan data = {});
  StatusCode ataCheckPowerMode(ByteSpan data = {});
  StatusCode ataSetFeatures(std::uint8_t features, std::uint8_t count, std::uint32_t lba,
                            ByteSpan data = {});
  StatusCode ataSetMultipleMode(std::uint8_t count, ByteSpan data = {});
  StatusCode ataSetMaxAddress(std::uint8_t count, std::uint32_t lba, ByteSpan data = {});
  StatusCode ataSetMaxAddressExt(std::uint16_t count, std::uint32_t lbaLow, std::uint32_t lbaHigh,
                                 ByteSpan data = {});
  StatusCode ataReadNativeMaxAddress(ByteSpan data = {});
  StatusCode ataReadNativeMaxAddressExt(ByteSpan data = {});
  StatusCode ataAccessibleMaxGetNative(ByteSpan data = {});
  StatusCode ataAccessibleMaxSet(std::uint32_t lbaLow, std::uint32_t lbaHigh, ByteSpan data = {});
  StatusCode ataAccessibleMaxFreeze(ByteSpan data = {});
  StatusCode ataSetDateTimeExt(std::uint32_t lbaLow, std::uint32_t lbaHigh, ByteSpan data = {});
  StatusCode ataConfigureStream(std::uint16_t features, std::uint8_t count, ByteSpan data = {});
  StatusCode ataCfaRequestExtendedError(ByteSpan data = {});
  StatusCode ataCfaEraseSectors(std::uint32_t lba, std::uint8_t count, ByteSpan data = {});
  StatusCode ataRequestSenseDataExt(ByteSpan data = {});
  StatusCode ataWriteUncorrectableExt(std::uint8_t features, std::uint16_t count,
                                      std::uint32_t lbaLow, std::uint32_t lbaHigh,
                                      ByteSpan data = {});
  StatusCode ataSeek(std::uint32_t lba, ByteSpan data = {});
  StatusCode ataRecalibrate(ByteSpan data = {});
  StatusCode ataExecuteDeviceDiagnostic(ByteSpan data = {});
  StatusCode ataReadVerifySectors(std::uint32_t lba, std::uint8_t count, ByteSpan data = {});
  StatusCode ataReadVerifySectorsExt(std::uint32_t lbaLow, std::uint32_t lbaHigh,
                                     std::uint16_t count, ByteSpan data = {});
  StatusCode ataNonData(std::uint8_t features, std::uint8_t count, std::uint8_t lbaLow,
                        std::uint8_t lbaMid, std::uint8_t lbaHigh, std::uint8_t device,
                        std::uint8_t command, std::uint8_t control, bool forceNoData,
                        ByteSpan data = {});

  // SANITIZE DEVICE (ACS-3, 7.36).
  StatusCode ataSanitizeStatus(std::uint8_t count, ByteSpan data = {});
  StatusCode ataSanitizeCryptoScramble(std::uint8_t failureMode, ByteSpan data = {});
  StatusCode ataSanitizeBlockErase(std::uint8_t failureMode, ByteSpan data = {});
  StatusCode ataSanitizeOverwrite(std::uint32_t pattern, bool invert, std::uint8_t passes,
                                  std::uint8_t failureMode, ByteSpan data = {});
  StatusCode ataSanitizeFreezeLock(ByteSpan data = {});
  StatusCode ataSanitizeAntifreezeLock(ByteSpan data = {});

  // SMART (ATA8-ACS, 7.52). RETURN STATUS answers in LBA 15:8 and 23:16.
  StatusCode ataSmartReadData(ByteSpan data);
  StatusCode ataSmartReadThresholds(ByteSpan data);
  StatusCode ataSmartReadLog(ByteSpan data, std::uint8_t log, std::uint8_t count);
  StatusCode ataSmartWriteLog(ByteSpan data, std::uint8_t log, std::uint8_t count);
  StatusCode ataSmartExecuteOffline(std::uint8_t subcommand, ByteSpan data = {});
  StatusCode ataSmartReturnStatus(ByteSpan data = {});
  StatusCode ataSmartEnableOperations(ByteSpan data = {});
  StatusCode ataSmartDisableOperations(ByteSpan data = {});
  StatusCode ataSmartAttributeAutosave(std::uint8_t value, ByteSpan data = {});
  StatusCode ataSmartEnableAutosave(ByteSpan data = {});
  StatusCode ataSmartDisableAutosave(ByteSpan data = {});

  // SMART with any subcommand; sends `count` sectors.
  StatusCode ataSmart(std::uint8_t features, std::uint8_t lbaLow, std::uint8_t count,
                      std::uint8_t flags, ByteSpan data);

  // The registers from the caller. `blockCount` 0 takes the Count byte, and a Count
  // of 0 the largest. `direction` is 0 to read, 1 to write, any other for no data.
  StatusCode ataTaskFile28(bool write, bool dma, std::uint8_t features, std::uint8_t count,
                           std::uint8_t lbaLow, std::uint8_t lbaMid, std::uint8_t lbaHigh,
                           std::uint8_t device, std::uint8_t command, std::uint8_t control,
                           std::uint32_t blockCount, ByteSpan data);
  StatusCode ataTaskFile48(std::uint8_t direction, bool dma, const TaskFile& taskFile,
                           const TaskFilePrevious& previous, std::uint32_t blockCount,
                           ByteSpan data);

 private:
  // The registers of one command, each in its full width.
  struct Registers {
    std::uint16_t features = 0;
    std::uint16_t count = 0;
    std::uint64_t lba = 0;  // 48 bits; of a 28-bit command bits 27:24 stand in `device`
    std::uint8_t device = 0x40;
    std::uint8_t command = 0;
    std::uint8_t control = 0;
  };

  // Whether commands without data go out as such: not through the LSI adapter.
  bool UsesNonDataProtocol() const;

  StatusCode Send(const Registers& registers, std::uint8_t flags, ByteSpan data,
                  std::uint32_t blockCount);
  StatusCode Transfer28(std::uint8_t command, std::uint8_t flags, ByteSpan data, std::uint32_t lba,
                        std::uint8_t count, std::uint8_t features = 0);
  StatusCode Transfer48(std::uint8_t command, std::uint8_t flags, ByteSpan data,
                        std::uint32_t lbaLow, std::uint32_t lbaHigh, std::uint16_t count,
                        std::uint16_t features = 0);
  StatusCode TransferLog(std::uint8_t command, std::uint8_t flags, ByteSpan data,
                         std::uint32_t lbaLow, std::uint32_t lbaHigh, std::uint16_t count,
                         std::uint16_t features);
  StatusCode Trusted(std::uint8_t command, std::uint8_t flags, ByteSpan data, std::uint8_t protocol,
                     std::uint16_t specific, std::uint16_t count);
  StatusCode Queued(std::uint8_t command, std::uint8_t flags, ByteSpan data, std::uint32_t lbaLow,
                    std::uint32_t lbaHigh, std::uint16_t count, std::uint8_t tag,
                    std::uint8_t priority, std::uint8_t fua);
  // `flags` adds to those of the non-data form and of the read that stands in for it.
  StatusCode NonData(const Registers& registers, std::uint8_t flags, ByteSpan data,
                     std::uint32_t adapterBlocks = 1, bool forceNoData = false);
  StatusCode Sanitize(std::uint8_t feature, std::uint8_t count, std::uint64_t lba, ByteSpan data);
  StatusCode SmartNonData(std::uint8_t feature, std::uint8_t lbaLow, ByteSpan data);
};

}  // namespace Morvu::DeviceManagement
