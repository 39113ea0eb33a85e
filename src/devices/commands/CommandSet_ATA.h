#pragma once

#include <atomic>
#include <memory>

#include "devices/commands/AtaCommands.h"
#include "devices/commands/CommandSet.h"

namespace Morvu::DeviceManagement {

// The ATA commands: any of the table, and by name those that the library uses. A shorter
// buffer than the command moves gives 141, a count or an address that its registers
// cannot hold 172 or 171, and nothing is sent.
class CommandSet_ATA : public CommandSet {
 public:
  CommandSet_ATA(const PropertyList& properties, CommandPath& path)
      : CommandSet(properties, path, Protocol::Ata) {}
  std::unique_ptr<CommandSet> Clone(const PropertyList& properties,
                                    CommandPath& path) const override;

  // Sends a command of the table. 130 also when the device's answer stands in registers
  // that did not come back. `data` may be empty for a command without data.
  StatusCode Send(const AtaCommand& command, const AtaArguments& arguments = {},
                  ByteSpan data = {});
  // The registers that the device gave back with the last command.
  const AtaAnswer& GetAnswer() const;

  StatusCode ataReadDma(ByteSpan data, std::uint64_t lba, std::uint32_t count);
  // Reads LBA 0 for what that does to the drive: it wakes, and what a command before has left is
  // over. Neither the data nor the end are of account.
  void ReadUnseen();
  // Whether 28 bits do not address these sectors. A drive without the 48-bit feature set has none
  // such, and gets none of its commands.
  static constexpr bool NeedExt(std::uint64_t lba, std::uint32_t count) {
    constexpr std::uint64_t kAddressesOf28Bits = 0x1000'0000;
    return lba + count > kAddressesOf28Bits;
  }
  // READ DMA or READ DMA EXT, as the sectors need it.
  StatusCode ReadBlocks(ByteSpan data, std::uint64_t lba, std::uint32_t count);
  StatusCode ataIdentifyDevice(ByteSpan data);
  StatusCode ataCheckPowerMode();
  StatusCode ataStandbyImmediate();
  StatusCode ataReadNativeMaxAddress();
  StatusCode ataReadNativeMaxAddressExt();
  // `offset` in blocks of 512 bytes, as many as `blocks`.
  StatusCode ataDownloadMicrocode(ByteSpan data, std::uint8_t subcommand, std::uint32_t blocks,
                                  std::uint32_t offset);

  // The data are one block (ACS-3, table 158).
  StatusCode ataSecuritySetPassword(ByteSpan data);
  StatusCode ataSecurityUnlock(ByteSpan data);
  StatusCode ataSecurityErasePrepare();
  StatusCode ataSecurityEraseUnit(ByteSpan data);
  StatusCode ataSecurityDisablePassword(ByteSpan data);

  // SANITIZE DEVICE (ACS-3, 7.36).
  StatusCode ataSanitizeStatus(std::uint8_t count);
  StatusCode ataSanitizeCryptoScramble(std::uint8_t failureMode);
  StatusCode ataSanitizeBlockErase(std::uint8_t failureMode);

  // SMART (ATA8-ACS, 7.52).
  StatusCode ataSmartReadData(ByteSpan data);
  StatusCode ataSmartReadThresholds(ByteSpan data);
  StatusCode ataSmartExecuteOffline(std::uint8_t subcommand);
  StatusCode ataSmartEnableOperations();
  StatusCode ataSmartDisableOperations();

 private:
  // Whether commands without data go out as such: not through the LSI adapter.
  bool UsesNonDataProtocol() const;
  // The bytes that a command moves.
  std::uint64_t GetLength(const AtaCommand& row, const AtaArguments& arguments,
                          bool asAdapterRead) const;
  // Without the diagnostic protocol where the layer refuses it.
  StatusCode SendDirect(const AtaCommand& row, Command command);

  // Linux's SATA layer passes no device diagnostic protocol on: known from its first
  // refusal, to the clones of the set that found out and to those it was cloned from.
  std::shared_ptr<std::atomic<bool>> refusesDiagnostic_ = std::make_shared<std::atomic<bool>>();
};

}  // namespace Morvu::DeviceManagement
