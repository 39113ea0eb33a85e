#include "devices/commands/CommandSet_ATA.h"

#include <array>

#include "devices/commands/AtaOpcodes.h"
#include "devices/commands/CommandPath.h"
#include "devices/properties/DriverProperties.h"
#include "devices/properties/PropertyList.h"
#include "frame/status/Commands.h"

namespace Morvu::DeviceManagement {
namespace {

constexpr std::uint8_t kLbaMode = 0x40;  // Device bit 6
constexpr std::uint64_t kSmartKey = 0xC24F00;
constexpr std::string_view kLsiDriver = "LSI API";

constexpr std::uint8_t LowByte(std::uint32_t value) { return static_cast<std::uint8_t>(value); }
constexpr std::uint8_t HighByte(std::uint32_t value) {
  return static_cast<std::uint8_t>(value >> 8);
}

// A 28-bit address: bits 23:0 in the LBA registers, bits 27:24 in Device.
constexpr std::uint32_t Lba28(std::uint32_t lba) { return lba & 0xFFFFFF; }
constexpr std::uint8_t Device28(std::uint32_t lba) {
  return static_cast<std::uint8_t>(kLbaMode | (lba >> 24 & 0x0F));
}
constexpr std::uint64_t Lba48(std::uint32_t low, std::uint32_t high) {
  return low | static_cast<std::uint64_t>(high & 0xFFFF) << 32;
}
constexpr std::uint32_t Lba24(std::uint8_t low, std::uint8_t mid, std::uint8_t high) {
  return low | static_cast<std::uint32_t>(mid) << 8 | static_cast<std::uint32_t>(high) << 16;
}

// A count of 0 stands for one more than its register can hold.
constexpr std::uint32_t CountOf(std::uint8_t count) { return count == 0 ? 0x100 : count; }
constexpr std::uint32_t CountOf(std::uint16_t count) { return count == 0 ? 0x10000 : count; }

constexpr std::uint8_t FailureMode(std::uint8_t mode) {
  return static_cast<std::uint8_t>(mode << 4);
}

// The LBA registers of a record: three bytes, low first.
std::uint32_t ReadLba(ByteView registers) {
  return static_cast<std::uint32_t>(ReadLittle(registers, TaskFileByte::LbaLow, 3));
}

}  // namespace

std::unique_ptr<CommandSet> CommandSet_ATA::Clone(const PropertyList& properties,
                                                  CommandPath& path) const {
  return std::make_unique<CommandSet_ATA>(properties, path);
}

AtaAnswer CommandSet_ATA::GetAnswer() const {
  namespace Byte = TaskFileByte;
  const ByteView image(path_->GetReceivedBuffer());
  const auto current = image.first(8);
  const auto previous = image.subspan(8, 8);
  AtaAnswer answer;
  answer.error = current[Byte::Error];
  answer.count = static_cast<std::uint16_t>(current[Byte::Count] | previous[Byte::Count] << 8);
  answer.lba = ReadLba(current) | static_cast<std::uint64_t>(ReadLba(previous)) << 24;
  answer.device = current[Byte::Device];
  answer.status = current[Byte::Status];
  answer.isWhole = path_->HasUpperRegisters();
  return answer;
}

bool CommandSet_ATA::UsesNonDataProtocol() const {
  return properties_->GetString(Properties::DriverManufacturer) != kLsiDriver;
}

// ---- The shapes that the commands share ----

StatusCode CommandSet_ATA::Send(const Registers& registers, std::uint8_t flags, ByteSpan data,
                                std::uint32_t blockCount) {
  namespace Byte = TaskFileByte;
  TaskFile taskFile{};
  TaskFilePrevious previous{};
  taskFile[Byte::Features] = LowByte(registers.features);
  previous[Byte::Features] = HighByte(registers.features);
  taskFile[Byte::Count] = LowByte(registers.count);
  previous[Byte::Count] = HighByte(registers.count);
  WriteLittle(registers.lba, Byte::LbaLow, 3, taskFile);
  WriteLittle(registers.lba >> 24, Byte::LbaLow, 3, previous);
  taskFile[Byte::Device] = registers.device;
  taskFile[Byte::Command] = registers.command;
  taskFile[Byte::Control] = registers.control;
  return CommandSet::Send(taskFile, previous, flags, data, blockCount);
}

StatusCode CommandSet_ATA::Transfer28(std::uint8_t command, std::uint8_t flags, ByteSpan data,
                                      std::uint32_t lba, std::uint8_t count,
                                      std::uint8_t features) {
  return Send({.features = features,
               .count = count,
               .lba = Lba28(lba),
               .device = Device28(lba),
               .command = command},
              flags, data, CountOf(count));
}

StatusCode CommandSet_ATA::Transfer48(std::uint8_t command, std::uint8_t flags, ByteSpan data,
                                      std::uint32_t lbaLow, std::uint32_t lbaHigh,
                                      std::uint16_t count, std::uint16_t features) {
  return Send(
      {.features = features, .count = count, .lba = Lba48(lbaLow, lbaHigh), .command = command},
      flags | kExt48, data, CountOf(count));
}

StatusCode CommandSet_ATA::TransferLog(std::uint8_t command, std::uint8_t flags, ByteSpan data,
                                       std::uint32_t lbaLow, std::uint32_t lbaHigh,
                                       std::uint16_t count, std::uint16_t features) {
  return Send(
      {.features = features, .count = count, .lba = Lba48(lbaLow, lbaHigh), .command = command},
      flags | kExt48, data, count);
}

StatusCode CommandSet_ATA::Trusted(std::uint8_t command, std::uint8_t flags, ByteSpan data,
                                   std::uint8_t protocol, std::uint16_t specific,
                                   std::uint16_t count) {
  return Send({.features = protocol,
               .count = LowByte(count),
               .lba = Lba24(HighByte(count), LowByte(specific), HighByte(specific)),
               .command = command},
              flags, data, count);
}

StatusCode CommandSet_ATA::Queued(std::uint8_t command, std::uint8_t flags, ByteSpan data,
                                  std::uint32_t lbaLow, std::uint32_t lbaHigh, std::uint16_t count,
                                  std::uint8_t tag, std::uint8_t priority, std::uint8_t fua) {
  const auto tagAndPriority = LowByte(tag << 3) | LowByte(priority << 7) << 8;
  return Send({.features = count,
               .count = static_cast<std::uint16_t>(tagAndPriority),
               .lba = Lba48(lbaLow, lbaHigh),
               .device = static_cast<std::uint8_t>(kLbaMode | LowByte(fua << 7)),
               .command = command},
              flags | kDma | kExt48, data, CountOf(count));
}

StatusCode CommandSet_ATA::NonData(const Registers& registers, std::uint8_t flags, ByteSpan data,
                                   std::uint32_t adapterBlocks, bool forceNoData) {
  if (forceNoData || UsesNonDataProtocol()) return Send(registers, flags | kNoData, {}, 0);
  // A read carries no diagnostic protocol.
  const std::uint8_t readFlags = (flags & kExt48) | kRead | kDma;
  std::array<std::uint8_t, 512> unseen{};
  return Send(registers, readFlags, data.empty() ? ByteSpan(unseen) : data, adapterBlocks);
}

StatusCode CommandSet_ATA::Sanitize(std::uint8_t feature, std::uint8_t count, std::uint64_t lba,
                                    ByteSpan data) {
  const Registers registers = {
      .features = feature, .count = count, .lba = lba, .command = AtaOpcode::SanitizeDevice};
  const auto result = NonData(registers, kExt48 | kDiagnostic, data);
  // Linux's own SATA layer passes no device diagnostic commands on. It says so before
  // any device has answered: the command code still stands where a status would.
  const bool isLayersRefusal =
      result == Status::AtaCommandFailed && GetAnswer().status == AtaOpcode::SanitizeDevice;
  return isLayersRefusal ? NonData(registers, kExt48, data) : result;
}

StatusCode CommandSet_ATA::ataSmart(std::uint8_t features, std::uint8_t lbaLow, std::uint8_t count,
                                    std::uint8_t flags, ByteSpan data) {
  const bool oneBlock = count == 0 && !UsesNonDataProtocol();
  return Send({.features = features,
               .count = count,
               .lba = kSmartKey | lbaLow,
               .command = AtaOpcode::Smart},
              flags, data, oneBlock ? 1 : count);
}

StatusCode CommandSet_ATA::SmartNonData(std::uint8_t feature, std::uint8_t lbaLow, ByteSpan data) {
  // The adapter's read takes its length from the Count register.
  const std::uint16_t count = UsesNonDataProtocol() ? 0 : 1;
  return NonData(
      {.features = feature, .count = count, .lba = kSmartKey | lbaLow, .command = AtaOpcode::Smart},
      0, data);
}

StatusCode CommandSet_ATA::ataTaskFile28(bool write, bool dma, std::uint8_t features,
                                         std::uint8_t count, std::uint8_t lbaLow,
                                         std::uint8_t lbaMid, std::uint8_t lbaHigh,
                                         std::uint8_t device, std::uint8_t command,
                                         std::uint8_t control, std::uint32_t blockCount,
                                         ByteSpan data) {
  const std::uint8_t flags = (write ? kWrite : kRead) | (dma ? kDma : 0);
  return Send({.features = features,
               .count = count,
               .lba = Lba24(lbaLow, lbaMid, lbaHigh),
               .device = device,
               .command = command,
               .control = control},
              flags, data, blockCount == 0 ? CountOf(count) : blockCount);
}

StatusCode CommandSet_ATA::ataTaskFile48(std::uint8_t direction, bool dma, const TaskFile& taskFile,
                                         const TaskFilePrevious& previous, std::uint32_t blockCount,
                                         ByteSpan data) {
  const std::uint8_t way = direction == 0 ? kRead : direction == 1 ? kWrite : kNoData;
  const std::uint8_t flags = way | kExt48 | (dma ? kDma : 0);
  const auto count = taskFile[TaskFileByte::Count];
  const auto blocks = blockCount != 0 ? blockCount : count != 0 ? count : 0x10000u;
  auto current = taskFile;
  auto upper = previous;
  return CommandSet::Send(current, upper, flags, way == kNoData ? ByteSpan() : data, blocks);
}

// ---- The commands ----

StatusCode CommandSet_ATA::ataReadSectors(ByteSpan data, std::uint32_t lba, std::uint8_t count) {
  return Transfer28(AtaOpcode::ReadSectors, kRead, data, lba, count);
}

StatusCode CommandSet_ATA::ataReadSectorsExt(ByteSpan data, std::uint32_t lbaLow,
                                             std::uint32_t lbaHigh, std::uint16_t count) {
  return Transfer48(AtaOpcode::ReadSectorsExt, kRead, data, lbaLow, lbaHigh, count);
}

StatusCode CommandSet_ATA::ataReadDma(ByteSpan data, std::uint32_t lba, std::uint8_t count) {
  return Transfer28(AtaOpcode::ReadDma, kRead | kDma, data, lba, count);
}

StatusCode CommandSet_ATA::ataReadDmaExt(ByteSpan data, std::uint32_t lbaLow, std::uint32_t lbaHigh,
                                         std::uint16_t count) {
  return Transfer48(AtaOpcode::ReadDmaExt, kRead | kDma, data, lbaLow, lbaHigh, count);
}

StatusCode CommandSet_ATA::ataReadMultiple(ByteSpan data, std::uint32_t lba, std::uint8_t count) {
  return Transfer28(AtaOpcode::ReadMultiple, kRead, data, lba, count);
}

StatusCode CommandSet_ATA::ataReadMultipleExt(ByteSpan data, std::uint32_t lbaLow,
                                              std::uint32_t lbaHigh, std::uint16_t count) {
  return Transfer48(AtaOpcode::ReadMultipleExt, kRead, data, lbaLow, lbaHigh, count);
}

StatusCode CommandSet_ATA::ataReadVendor(ByteSpan data, std::uint32_t lba, std::uint8_t count) {
  return Transfer28(AtaOpcode::ReadVendor, kRead | kDma, data, lba, count, 1);
}

StatusCode CommandSet_ATA::ataReadVendorExt(ByteSpan data, std::uint32_t lbaLow,
                                            std::uint32_t lbaHigh, std::uint16_t count) {
  return Transfer48(AtaOpcode::ReadVendorExt, kRead | kDma, data, lbaLow, lbaHigh, count, 1);
}

StatusCode CommandSet_ATA::ataWriteSectors(ByteSpan data, std::uint32_t lba, std::uint8_t count) {
  return Transfer28(AtaOpcode::WriteSectors, kWrite, data, lba, count);
}

StatusCode CommandSet_ATA::ataWriteSectorsExt(ByteSpan data, std::uint32_t lbaLow,
                                              std::uint32_t lbaHigh, std::uint16_t count) {
  return Transfer48(AtaOpcode::WriteSectorsExt, kWrite, data, lbaLow, lbaHigh, count);
}

StatusCode CommandSet_ATA::ataWriteDma(ByteSpan data, std::uint32_t lba, std::uint8_t count) {
  return Transfer28(AtaOpcode::WriteDma, kWrite | kDma, data, lba, count);
}

StatusCode CommandSet_ATA::ataWriteDmaExt(ByteSpan data, std::uint32_t lbaLow,
                                          std::uint32_t lbaHigh, std::uint16_t count) {
  return Transfer48(AtaOpcode::WriteDmaExt, kWrite | kDma, data, lbaLow, lbaHigh, count);
}

StatusCode CommandSet_ATA::ataWriteDmaFuaExt(ByteSpan data, std::uint32_t lbaLow,
                                             std::uint32_t lbaHigh, std::uint16_t count) {
  return Transfer48(AtaOpcode::WriteDmaFuaExt, kWrite | kDma, data, lbaLow, lbaHigh, count);
}

StatusCode CommandSet_ATA::ataWriteMultiple(ByteSpan data, std::uint32_t lba, std::uint8_t count) {
  return Transfer28(AtaOpcode::WriteMultiple, kWrite, data, lba, count);
}

StatusCode CommandSet_ATA::ataWriteMultipleExt(ByteSpan data, std::uint32_t lbaLow,
                                               std::uint32_t lbaHigh, std::uint16_t count) {
  return Transfer48(AtaOpcode::WriteMultipleExt, kWrite, data, lbaLow, lbaHigh, count);
}

StatusCode CommandSet_ATA::ataWriteMultipleFuaExt(ByteSpan data, std::uint32_t lbaLow,
                                                  std::uint32_t lbaHigh, std::uint16_t count) {
  return Transfer48(AtaOpcode::WriteMultipleFuaExt, kWrite, data, lbaLow, lbaHigh, count);
}

StatusCode CommandSet_ATA::ataReadLogExt(ByteSpan data, std::uint32_t lbaLow, std::uint32_t lbaHigh,
                                         std::uint16_t count, std::uint16_t features) {
  return TransferLog(AtaOpcode::ReadLogExt, kRead, data, lbaLow, lbaHigh, count, features);
}

StatusCode CommandSet_ATA::ataReadLogDmaExt(ByteSpan data, std::uint32_t lbaLow,
                                            std::uint32_t lbaHigh, std::uint16_t count,
                                            std::uint16_t features) {
  return TransferLog(AtaOpcode::ReadLogDmaExt, kRead | kDma, data, lbaLow, lbaHigh, count,
                     features);
}

StatusCode CommandSet_ATA::ataWriteLogExt(ByteSpan data, std::uint32_t lbaLow,
                                          std::uint32_t lbaHigh, std::uint16_t count) {
  return TransferLog(AtaOpcode::WriteLogExt, kWrite, data, lbaLow, lbaHigh, count, 0);
}

StatusCode CommandSet_ATA::ataWriteLogDmaExt(ByteSpan data, std::uint32_t lbaLow,
                                             std::uint32_t lbaHigh, std::uint16_t count) {
  return TransferLog(AtaOpcode::WriteLogDmaExt, kWrite | kDma, data, lbaLow, lbaHigh, count, 0);
}

StatusCode CommandSet_ATA::ataIdentifyDevice(ByteSpan data) {
  return Send({.count = 1, .command = AtaOpcode::IdentifyDevice}, kRead, data, 1);
}

StatusCode CommandSet_ATA::ataReadBuffer(ByteSpan data) {
  return Send({.count = 1, .command = AtaOpcode::ReadBuffer}, kRead, data, 1);
}

StatusCode CommandSet_ATA::ataWriteBuffer(ByteSpan data) {
  return Send({.count = 1, .command = AtaOpcode::WriteBuffer}, kWrite, data, 1);
}

StatusCode CommandSet_ATA::ataDeviceReset(ByteSpan data) {
  return Send({.count = 0, .command = AtaOpcode::DeviceReset}, kRead, data, 1);
}

StatusCode CommandSet_ATA::ataDownloadMicrocode(ByteSpan data, std::uint8_t subcommand,
                                                std::uint16_t blocks, std::uint32_t offset) {
  return Send({.features = subcommand,
               .count = LowByte(blocks),
               .lba = HighByte(blocks) | (offset & 0xFFFF) << 8,
               .device = static_cast<std::uint8_t>(kLbaMode | (offset >> 16 & 0x0F)),
               .command = AtaOpcode::DownloadMicrocode},
              kWrite, data, blocks);
}

StatusCode CommandSet_ATA::ataInitializeDeviceParameters(ByteSpan data, std::uint8_t count,
                                                         std::uint32_t head) {
  return Send(
      {.count = count, .device = Device28(head), .command = AtaOpcode::InitializeDeviceParameters},
      kWrite, data, 1);
}

StatusCode CommandSet_ATA::ataDataSetManagementExt(ByteSpan data, std::uint16_t count) {
  return Send({.features = 1, .count = count, .command = AtaOpcode::DataSetManagement},
              kWrite | kDma | kExt48, data, count);
}

StatusCode CommandSet_ATA::ataDataSetManagementVendor(ByteSpan data, std::uint8_t count) {
  return Send({.features = 1, .count = count, .command = AtaOpcode::DataSetManagementVendor},
              kWrite | kDma, data, count);
}

StatusCode CommandSet_ATA::ataTrustedReceive(ByteSpan data, std::uint8_t protocol,
                                             std::uint16_t specific, std::uint16_t count) {
  return Trusted(AtaOpcode::TrustedReceive, kRead, data, protocol, specific, count);
}

StatusCode CommandSet_ATA::ataTrustedReceiveDma(ByteSpan data, std::uint8_t protocol,
                                                std::uint16_t specific, std::uint16_t count) {
  return Trusted(AtaOpcode::TrustedReceiveDma, kRead | kDma, data, protocol, specific, count);
}

StatusCode CommandSet_ATA::ataTrustedSend(ByteSpan data, std::uint8_t protocol,
                                          std::uint16_t specific, std::uint16_t count) {
  return Trusted(AtaOpcode::TrustedSend, kWrite, data, protocol, specific, count);
}

StatusCode CommandSet_ATA::ataTrustedSendDma(ByteSpan data, std::uint8_t protocol,
                                             std::uint16_t specific, std::uint16_t count) {
  return Trusted(AtaOpcode::TrustedSendDma, kWrite | kDma, data, protocol, specific, count);
}

StatusCode CommandSet_ATA::ataReadFpdmaQueued(ByteSpan data, std::uint32_t lbaLow,
                                              std::uint32_t lbaHigh, std::uint16_t count,
                                              std::uint8_t tag, std::uint8_t priority,
                                              std::uint8_t fua) {
  return Queued(AtaOpcode::ReadFpdmaQueued, kRead, data, lbaLow, lbaHigh, count, tag, priority,
                fua);
}

StatusCode CommandSet_ATA::ataWriteFpdmaQueued(ByteSpan data, std::uint32_t lbaLow,
                                               std::uint32_t lbaHigh, std::uint16_t count,
                                               std::uint8_t tag, std::uint8_t priority,
                                               std::uint8_t fua) {
  return Queued(AtaOpcode::WriteFpdmaQueued, kWrite, data, lbaLow, lbaHigh, count, tag, priority,
                fua);
}

StatusCode CommandSet_ATA::ataSecurityEraseUnit(ByteSpan data) {
  return Send({.command = AtaOpcode::SecurityEraseUnit}, kWrite, data, 1);
}

StatusCode CommandSet_ATA::ataSecurityDisablePassword(ByteSpan data) {
  return Send({.command = AtaOpcode::SecurityDisablePassword}, kWrite, data, 1);
}

StatusCode CommandSet_ATA::ataSecurityUnlock(ByteSpan data) {
  return Send({.command = AtaOpcode::SecurityUnlock}, kWrite, data, 1);
}

StatusCode CommandSet_ATA::ataSecuritySetPassword(ByteSpan data) {
  return Send({.command = AtaOpcode::SecuritySetPassword}, kWrite, data, 1);
}

StatusCode CommandSet_ATA::ataSecurityErasePrepare(ByteSpan data) {
  return properties_->GetBool(Properties::ControllerIDEMode)
             ? Send({.command = AtaOpcode::SecurityErasePrepare}, kRead, data, 1)
             : NonData({.command = AtaOpcode::SecurityErasePrepare}, 0, data);
}

StatusCode CommandSet_ATA::ataDcoIdentify(ByteSpan data) {
  return Send(
      {.features = ConfigurationFeature::DcoIdentify, .command = AtaOpcode::DeviceConfiguration},
      kRead, data, 1);
}

StatusCode CommandSet_ATA::ataDcoIdentifyDma(ByteSpan data) {
  return Send(
      {.features = ConfigurationFeature::DcoIdentifyDma, .command = AtaOpcode::DeviceConfiguration},
      kRead | kDma, data, 1);
}

StatusCode CommandSet_ATA::ataDcoSet(ByteSpan data) {
  return Send({.features = ConfigurationFeature::DcoSet, .command = AtaOpcode::DeviceConfiguration},
              kWrite, data, 1);
}

StatusCode CommandSet_ATA::ataDcoSetDma(ByteSpan data) {
  return Send(
      {.features = ConfigurationFeature::DcoSetDma, .command = AtaOpcode::DeviceConfiguration},
      kWrite | kDma, data, 1);
}

StatusCode CommandSet_ATA::ataSecurityFreezeLock(ByteSpan data) {
  return NonData({.command = AtaOpcode::SecurityFreezeLock}, 0, data);
}

StatusCode CommandSet_ATA::ataDcoRestore(ByteSpan data) {
  return NonData(
      {.features = ConfigurationFeature::DcoRestore, .command = AtaOpcode::DeviceConfiguration}, 0,
      data);
}

StatusCode CommandSet_ATA::ataDcoFreezeLock(ByteSpan data) {
  return NonData(
      {.features = ConfigurationFeature::DcoFreezeLock, .command = AtaOpcode::DeviceConfiguration},
      0, data);
}

StatusCode CommandSet_ATA::ataNop(std::uint8_t subcommand, ByteSpan data) {
  return NonData({.features = subcommand, .command = AtaOpcode::Nop}, 0, data);
}

StatusCode CommandSet_ATA::ataFlushCache(ByteSpan data) {
  return NonData({.count = 1, .command = AtaOpcode::FlushCache}, 0, data);
}

StatusCode CommandSet_ATA::ataFlushCacheExt(ByteSpan data) {
  return NonData({.count = 1, .command = AtaOpcode::FlushCacheExt}, kExt48, data);
}

StatusCode CommandSet_ATA::ataIdleImmediate(std::uint8_t value, ByteSpan data) {
  return NonData({.features = value, .command = AtaOpcode::IdleImmediate}, 0, data);
}

StatusCode CommandSet_ATA::ataIdle(std::uint8_t timer, ByteSpan data) {
  return NonData({.count = timer, .command = AtaOpcode::Idle}, 0, data);
}

StatusCode CommandSet_ATA::ataStandby(std::uint8_t timer, ByteSpan data) {
  return NonData({.count = timer, .command = AtaOpcode::Standby}, 0, data);
}

StatusCode CommandSet_ATA::ataStandbyImmediate(ByteSpan data) {
  return NonData({.count = 1, .command = AtaOpcode::StandbyImmediate}, 0, data);
}

StatusCode CommandSet_ATA::ataSleep(ByteSpan data) {
  return NonData({.count = 1, .command = AtaOpcode::Sleep}, 0, data);
}

StatusCode CommandSet_ATA::ataCheckPowerMode(ByteSpan data) {
  return NonData({.count = 1, .command = AtaOpcode::CheckPowerMode}, 0, data);
}

StatusCode CommandSet_ATA::ataSetFeatures(std::uint8_t features, std::uint8_t count,
                                          std::uint32_t lba, ByteSpan data) {
  return NonData({.features = features,
                  .count = count,
                  .lba = Lba28(lba),
                  .device = Device28(lba),
                  .command = AtaOpcode::SetFeatures},
                 0, data);
}

StatusCode CommandSet_ATA::ataSetMultipleMode(std::uint8_t count, ByteSpan data) {
  return NonData({.count = count, .command = AtaOpcode::SetMultipleMode}, 0, data);
}

StatusCode CommandSet_ATA::ataSetMaxAddress(std::uint8_t count, std::uint32_t lba, ByteSpan data) {
  return NonData({.count = count,
                  .lba = Lba28(lba),
                  .device = Device28(lba),
                  .command = AtaOpcode::SetMaxAddress},
                 0, data);
}

StatusCode CommandSet_ATA::ataSetMaxAddressExt(std::uint16_t count, std::uint32_t lbaLow,
                                               std::uint32_t lbaHigh, ByteSpan data) {
  return NonData(
      {.count = count, .lba = Lba48(lbaLow, lbaHigh), .command = AtaOpcode::SetMaxAddressExt},
      kExt48, data);
}

StatusCode CommandSet_ATA::ataReadNativeMaxAddress(ByteSpan data) {
  return NonData({.command = AtaOpcode::ReadNativeMaxAddress}, 0, data);
}

StatusCode CommandSet_ATA::ataReadNativeMaxAddressExt(ByteSpan data) {
  return NonData({.command = AtaOpcode::ReadNativeMaxAddressExt}, kExt48, data);
}

StatusCode CommandSet_ATA::ataAccessibleMaxGetNative(ByteSpan data) {
  return NonData({.features = ConfigurationFeature::AccessibleGetNative,
                  .command = AtaOpcode::AccessibleMaxAddress},
                 kExt48, data);
}

StatusCode CommandSet_ATA::ataAccessibleMaxSet(std::uint32_t lbaLow, std::uint32_t lbaHigh,
                                               ByteSpan data) {
  return NonData({.features = ConfigurationFeature::AccessibleSet,
                  .lba = Lba48(lbaLow, lbaHigh),
                  .command = AtaOpcode::AccessibleMaxAddress},
                 kExt48, data);
}

StatusCode CommandSet_ATA::ataAccessibleMaxFreeze(ByteSpan data) {
  return NonData({.features = ConfigurationFeature::AccessibleFreeze,
                  .command = AtaOpcode::AccessibleMaxAddress},
                 0, data);
}

StatusCode CommandSet_ATA::ataSetDateTimeExt(std::uint32_t lbaLow, std::uint32_t lbaHigh,
                                             ByteSpan data) {
  return NonData({.lba = Lba48(lbaLow, lbaHigh), .command = AtaOpcode::SetDateTimeExt}, kExt48,
                 data);
}

StatusCode CommandSet_ATA::ataConfigureStream(std::uint16_t features, std::uint8_t count,
                                              ByteSpan data) {
  return NonData(
      {.features = features, .count = count, .device = 0, .command = AtaOpcode::ConfigureStream}, 0,
      data);
}

StatusCode CommandSet_ATA::ataCfaRequestExtendedError(ByteSpan data) {
  return NonData({.device = 0, .command = AtaOpcode::CfaRequestExtendedError}, 0, data);
}

StatusCode CommandSet_ATA::ataCfaEraseSectors(std::uint32_t lba, std::uint8_t count,
                                              ByteSpan data) {
  return NonData({.count = count,
                  .lba = Lba28(lba),
                  .device = Device28(lba),
                  .command = AtaOpcode::CfaEraseSectors},
                 0, data);
}

StatusCode CommandSet_ATA::ataRequestSenseDataExt(ByteSpan data) {
  return NonData({.command = AtaOpcode::RequestSenseDataExt}, kExt48 | kDiagnostic, data);
}

StatusCode CommandSet_ATA::ataWriteUncorrectableExt(std::uint8_t features, std::uint16_t count,
                                                    std::uint32_t lbaLow, std::uint32_t lbaHigh,
                                                    ByteSpan data) {
  return NonData({.features = features,
                  .count = count,
                  .lba = Lba48(lbaLow, lbaHigh),
                  .command = AtaOpcode::WriteUncorrectableExt},
                 kExt48, data);
}

StatusCode CommandSet_ATA::ataSeek(std::uint32_t lba, ByteSpan data) {
  return NonData({.lba = Lba28(lba), .device = Device28(lba), .command = AtaOpcode::Seek}, 0, data);
}

StatusCode CommandSet_ATA::ataRecalibrate(ByteSpan data) {
  return NonData({.command = AtaOpcode::Recalibrate}, 0, data);
}

StatusCode CommandSet_ATA::ataExecuteDeviceDiagnostic(ByteSpan data) {
  return NonData({.command = AtaOpcode::ExecuteDeviceDiagnostic}, 0, data);
}

StatusCode CommandSet_ATA::ataReadVerifySectors(std::uint32_t lba, std::uint8_t count,
                                                ByteSpan data) {
  return NonData({.count = count,
                  .lba = Lba28(lba),
                  .device = Device28(lba),
                  .command = AtaOpcode::ReadVerifySectors},
                 0, data, CountOf(count));
}

StatusCode CommandSet_ATA::ataReadVerifySectorsExt(std::uint32_t lbaLow, std::uint32_t lbaHigh,
                                                   std::uint16_t count, ByteSpan data) {
  return NonData(
      {.count = count, .lba = Lba48(lbaLow, lbaHigh), .command = AtaOpcode::ReadVerifySectorsExt},
      kExt48, data, CountOf(count));
}

StatusCode CommandSet_ATA::ataNonData(std::uint8_t features, std::uint8_t count,
                                      std::uint8_t lbaLow, std::uint8_t lbaMid,
                                      std::uint8_t lbaHigh, std::uint8_t device,
                                      std::uint8_t command, std::uint8_t control, bool forceNoData,
                                      ByteSpan data) {
  return NonData({.features = features,
                  .count = count,
                  .lba = Lba24(lbaLow, lbaMid, lbaHigh),
                  .device = device,
                  .command = command,
                  .control = control},
                 0, data, 1, forceNoData);
}

StatusCode CommandSet_ATA::ataSanitizeStatus(std::uint8_t count, ByteSpan data) {
  return Sanitize(SanitizeFeature::Status, count, 0, data);
}

StatusCode CommandSet_ATA::ataSanitizeCryptoScramble(std::uint8_t failureMode, ByteSpan data) {
  return Sanitize(SanitizeFeature::CryptoScramble, FailureMode(failureMode),
                  SanitizeFeature::CryptoScrambleKey, data);
}

StatusCode CommandSet_ATA::ataSanitizeBlockErase(std::uint8_t failureMode, ByteSpan data) {
  return Sanitize(SanitizeFeature::BlockErase, FailureMode(failureMode),
                  SanitizeFeature::BlockEraseKey, data);
}

StatusCode CommandSet_ATA::ataSanitizeOverwrite(std::uint32_t pattern, bool invert,
                                                std::uint8_t passes, std::uint8_t failureMode,
                                                ByteSpan data) {
  return Sanitize(
      SanitizeFeature::Overwrite,
      static_cast<std::uint8_t>((passes & 0x0F) | FailureMode(failureMode) | (invert ? 0x80 : 0)),
      Lba48(pattern, SanitizeFeature::OverwriteKey), data);
}

StatusCode CommandSet_ATA::ataSanitizeFreezeLock(ByteSpan data) {
  return Sanitize(SanitizeFeature::FreezeLock, 0, SanitizeFeature::FreezeLockKey, data);
}

StatusCode CommandSet_ATA::ataSanitizeAntifreezeLock(ByteSpan data) {
  return Sanitize(SanitizeFeature::AntifreezeLock, 0, SanitizeFeature::AntifreezeLockKey, data);
}

StatusCode CommandSet_ATA::ataSmartReadData(ByteSpan data) {
  return ataSmart(SmartFeature::ReadData, 0, 1, kRead, data);
}

StatusCode CommandSet_ATA::ataSmartReadThresholds(ByteSpan data) {
  return ataSmart(SmartFeature::ReadThresholds, 0, 1, kRead, data);
}

StatusCode CommandSet_ATA::ataSmartReadLog(ByteSpan data, std::uint8_t log, std::uint8_t count) {
  return ataSmart(SmartFeature::ReadLog, log, count, kRead, data);
}

StatusCode CommandSet_ATA::ataSmartWriteLog(ByteSpan data, std::uint8_t log, std::uint8_t count) {
  return ataSmart(SmartFeature::WriteLog, log, count, kWrite, data);
}

StatusCode CommandSet_ATA::ataSmartExecuteOffline(std::uint8_t subcommand, ByteSpan data) {
  return SmartNonData(SmartFeature::ExecuteOffline, subcommand, data);
}

StatusCode CommandSet_ATA::ataSmartReturnStatus(ByteSpan data) {
  return SmartNonData(SmartFeature::ReturnStatus, 0, data);
}

StatusCode CommandSet_ATA::ataSmartEnableOperations(ByteSpan data) {
  return SmartNonData(SmartFeature::EnableOperations, 0, data);
}

StatusCode CommandSet_ATA::ataSmartDisableOperations(ByteSpan data) {
  return SmartNonData(SmartFeature::DisableOperations, 0, data);
}

StatusCode CommandSet_ATA::ataSmartAttributeAutosave(std::uint8_t value, ByteSpan data) {
  return NonData({.features = SmartFeature::AttributeAutosave,
                  .count = value,
                  .lba = kSmartKey,
                  .command = AtaOpcode::Smart},
                 0, data);
}

StatusCode CommandSet_ATA::ataSmartEnableAutosave(ByteSpan data) {
  return ataSmartAttributeAutosave(0xF1, data);
}

StatusCode CommandSet_ATA::ataSmartDisableAutosave(ByteSpan data) {
  return ataSmartAttributeAutosave(0x00, data);
}

}  // namespace Morvu::DeviceManagement
