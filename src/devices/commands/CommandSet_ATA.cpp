#include "devices/commands/CommandSet_ATA.h"

#include <array>
#include <vector>

#include "devices/commands/CommandPath.h"
#include "devices/properties/DriverProperties.h"
#include "devices/properties/PropertyList.h"
#include "frame/status/Commands.h"
#include "frame/status/Testing.h"

namespace Morvu::DeviceManagement {
namespace {

constexpr std::string_view kLsiDriver = "LSI API";
constexpr std::uint32_t kBlock = 512;

constexpr bool IsWide(const AtaCommand& row) { return row.width == kExt48; }

// The largest number of sectors that the Count register can name, as 0.
constexpr std::uint32_t MostSectors(const AtaCommand& row) { return IsWide(row) ? 0x10000 : 0x100; }

constexpr std::uint32_t SectorsOf(const AtaCommand& row, std::uint32_t count) {
  return count == 0 ? MostSectors(row) : count;
}

bool NamesSectors(const AtaCommand& row) {
  return row.data == AtaData::Sectors || row.adapter == AtaAdapterForm::Sectors;
}

// 0 when the registers can hold the arguments.
StatusCode CheckRange(const AtaCommand& row, const AtaArguments& arguments) {
  const bool isSplit = row.count == AtaCount::Split;
  const std::uint64_t addresses = std::uint64_t{1} << (IsWide(row) ? 48 : isSplit ? 20 : 28);
  if (arguments.lba >= addresses) return Status::LbaOutOfRange;
  const auto most = isSplit             ? std::uint32_t{0xFFFF}
                    : NamesSectors(row) ? MostSectors(row)
                                        : MostSectors(row) - 1;
  return arguments.count > most ? Status::CountOutOfRange : Status::Completed;
}

// The registers, each in its full width.
struct Registers {
  std::uint32_t features = 0;
  std::uint32_t count = 0;
  std::uint64_t lba = 0;
  std::uint32_t device = 0;
};

Registers Fill(const AtaCommand& row, const AtaArguments& arguments) {
  Registers registers = {.features = std::uint32_t{row.feature} | arguments.features,
                         .count = 0,
                         .lba = row.lba | arguments.lba,
                         .device = std::uint32_t{row.device} | arguments.device};
  // Bits 27:24 of a 28-bit address stand in Device.
  if (!IsWide(row)) registers.device |= arguments.lba >> 24 & 0x0F;
  switch (row.count) {
    case AtaCount::Zero:
      break;
    case AtaCount::One:
      registers.count = 1;
      break;
    case AtaCount::Given:
      registers.count = arguments.count;
      break;
    case AtaCount::Split:
      registers.count = arguments.count & 0xFF;
      registers.lba = arguments.count >> 8 | (arguments.lba & 0xFFFF) << 8;
      registers.device |= arguments.lba >> 16 & 0x0F;
      break;
    case AtaCount::Queued:
      registers.features = arguments.count;
      registers.count = std::uint32_t{arguments.tag} << 3 | std::uint32_t{arguments.priority} << 15;
      registers.device |= std::uint32_t{arguments.fua} << 7;
      break;
  }
  return registers;
}

TaskFile Encode(const AtaCommand& row, const Registers& registers, std::uint8_t control) {
  namespace Byte = TaskFileByte;
  TaskFile file{};
  const auto previous = ByteSpan(file).subspan(Byte::Previous);
  file[Byte::Features] = static_cast<std::uint8_t>(registers.features);
  file[Byte::Count] = static_cast<std::uint8_t>(registers.count);
  WriteLittle(registers.lba, Byte::LbaLow, 3, file);
  file[Byte::Device] = static_cast<std::uint8_t>(registers.device);
  file[Byte::Command] = row.opcode;
  file[Byte::Control] = control;
  previous[Byte::Features] = static_cast<std::uint8_t>(registers.features >> 8);
  previous[Byte::Count] = static_cast<std::uint8_t>(registers.count >> 8);
  WriteLittle(registers.lba >> 24, Byte::LbaLow, 3, previous);
  return file;
}

constexpr std::uint32_t FailureMode(std::uint8_t mode) { return std::uint32_t{mode} << 4; }

}  // namespace

std::unique_ptr<CommandSet> CommandSet_ATA::Clone(const PropertyList& properties,
                                                  CommandPath& path) const {
  auto clone = std::make_unique<CommandSet_ATA>(properties, path);
  clone->refusesDiagnostic_ = refusesDiagnostic_;
  return clone;
}

const AtaAnswer& CommandSet_ATA::GetAnswer() const { return path_->GetOutcome().registers; }

bool CommandSet_ATA::UsesNonDataProtocol() const {
  return properties_->GetString(Properties::DriverManufacturer) != kLsiDriver;
}

std::uint64_t CommandSet_ATA::GetLength(const AtaCommand& row, const AtaArguments& arguments,
                                        bool asAdapterRead) const {
  if (asAdapterRead && row.adapter != AtaAdapterForm::Sectors) return kBlock;
  const auto data = asAdapterRead ? AtaData::Sectors : row.data;
  switch (data) {
    case AtaData::None:
      return 0;
    case AtaData::Block:
      return kBlock;
    case AtaData::Blocks:
      return std::uint64_t{kBlock} * arguments.count;
    case AtaData::Sectors:
      break;
  }
  return std::uint64_t{GetSectorSize()} * SectorsOf(row, arguments.count);
}

StatusCode CommandSet_ATA::Send(const AtaCommand& row, const AtaArguments& arguments,
                                ByteSpan data) {
  if (const auto code = CheckRange(row, arguments); code != Status::Completed) return code;
  const bool asAdapterRead =
      (row.protocol & kNoData) && row.adapter != AtaAdapterForm::Same && !UsesNonDataProtocol();
  std::array<std::uint8_t, kBlock> unseen{};
  if (asAdapterRead && data.empty()) data = unseen;
  const auto length = GetLength(row, arguments, asAdapterRead);
  if (data.size() < length) return Status::BufferTooSmall;

  auto registers = Fill(row, arguments);
  if (asAdapterRead && row.adapter == AtaAdapterForm::CountedBlock) registers.count = 1;
  const auto protocol = asAdapterRead ? AtaRow::kDmaIn : row.protocol;
  const auto file = Encode(row, registers, arguments.control);
  const auto moved = data.first(static_cast<std::size_t>(length));
  const auto result = SendDirect(row, {.record = file,
                                       .flags = static_cast<std::uint8_t>(protocol | row.width),
                                       .data = moved,
                                       // What stands in for a command without data brings none.
                                       .least = asAdapterRead ? 0 : moved.size(),
                                       .timeout = row.timeout});
  const bool isAnswered = GetAnswer().Has(row.answer);
  return result == Status::Completed && !isAnswered ? Status::AtaCommandFailed : result;
}

StatusCode CommandSet_ATA::SendDirect(const AtaCommand& row, Command command) {
  const bool isDiagnostic = (command.flags & kDiagnostic) != 0;
  if (isDiagnostic && *refusesDiagnostic_) command.flags &= ~kDiagnostic;
  const auto result = Deliver(command, (row.protocol & kRead) || row.answer != 0);
  // The layer's own refusal: the device has seen nothing of the command yet.
  const bool again =
      isDiagnostic && !*refusesDiagnostic_ && path_->GetOutcome().reached == Reached::Layer;
  if (!again) return result;
  *refusesDiagnostic_ = true;
  return SendDirect(row, command);
}

// ---- The commands by name ----

StatusCode CommandSet_ATA::ataReadDma(ByteSpan data, std::uint64_t lba, std::uint32_t count) {
  return Send(AtaRow::ReadDma, {.lba = lba, .count = count}, data);
}

void CommandSet_ATA::ReadUnseen() {
  std::vector<std::uint8_t> unseen(GetSectorSize());
  (void)ataReadDma(unseen, 0, 1);
}

StatusCode CommandSet_ATA::ReadBlocks(ByteSpan data, std::uint64_t lba, std::uint32_t count) {
  return Send(NeedExt(lba, count) ? AtaRow::ReadDmaExt : AtaRow::ReadDma,
              {.lba = lba, .count = count}, data);
}

StatusCode CommandSet_ATA::ataIdentifyDevice(ByteSpan data) {
  return Send(AtaRow::IdentifyDevice, {}, data);
}

StatusCode CommandSet_ATA::ataCheckPowerMode() { return Send(AtaRow::CheckPowerMode); }

StatusCode CommandSet_ATA::ataStandbyImmediate() { return Send(AtaRow::StandbyImmediate); }

StatusCode CommandSet_ATA::ataReadNativeMaxAddress() { return Send(AtaRow::ReadNativeMaxAddress); }

StatusCode CommandSet_ATA::ataReadNativeMaxAddressExt() {
  return Send(AtaRow::ReadNativeMaxAddressExt);
}

StatusCode CommandSet_ATA::ataDownloadMicrocode(ByteSpan data, std::uint8_t subcommand,
                                                std::uint32_t blocks, std::uint32_t offset) {
  return Send(AtaRow::DownloadMicrocode, {.lba = offset, .count = blocks, .features = subcommand},
              data);
}

StatusCode CommandSet_ATA::ataSecuritySetPassword(ByteSpan data) {
  return Send(AtaRow::SecuritySetPassword, {}, data);
}

StatusCode CommandSet_ATA::ataSecurityUnlock(ByteSpan data) {
  return Send(AtaRow::SecurityUnlock, {}, data);
}

StatusCode CommandSet_ATA::ataSecurityErasePrepare() {
  if (!properties_->GetBool(Properties::ControllerIDEMode))
    return Send(AtaRow::SecurityErasePrepare);
  std::array<std::uint8_t, kBlock> unseen{};
  return Send(AtaRow::SecurityErasePrepareIde, {}, unseen);
}

StatusCode CommandSet_ATA::ataSecurityEraseUnit(ByteSpan data) {
  return Send(AtaRow::SecurityEraseUnit, {}, data);
}

StatusCode CommandSet_ATA::ataSecurityDisablePassword(ByteSpan data) {
  return Send(AtaRow::SecurityDisablePassword, {}, data);
}

StatusCode CommandSet_ATA::ataSanitizeStatus(std::uint8_t count) {
  return Send(AtaRow::SanitizeStatus, {.count = count});
}

StatusCode CommandSet_ATA::ataSanitizeCryptoScramble(std::uint8_t failureMode) {
  return Send(AtaRow::SanitizeCryptoScramble, {.count = FailureMode(failureMode)});
}

StatusCode CommandSet_ATA::ataSanitizeBlockErase(std::uint8_t failureMode) {
  return Send(AtaRow::SanitizeBlockErase, {.count = FailureMode(failureMode)});
}

StatusCode CommandSet_ATA::ataSmartReadData(ByteSpan data) {
  return Send(AtaRow::SmartReadData, {}, data);
}

StatusCode CommandSet_ATA::ataSmartReadThresholds(ByteSpan data) {
  return Send(AtaRow::SmartReadThresholds, {}, data);
}

StatusCode CommandSet_ATA::ataSmartExecuteOffline(std::uint8_t subcommand) {
  return Send(AtaRow::SmartExecuteOffline, {.lba = subcommand});
}

StatusCode CommandSet_ATA::ataSmartEnableOperations() {
  return Send(AtaRow::SmartEnableOperations);
}

StatusCode CommandSet_ATA::ataSmartDisableOperations() {
  return Send(AtaRow::SmartDisableOperations);
}

}  // namespace Morvu::DeviceManagement
