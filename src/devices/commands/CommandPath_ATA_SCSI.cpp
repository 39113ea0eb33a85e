#include "devices/commands/CommandPath_ATA_SCSI.h"

#include <array>

#include "devices/commands/AtaExchange.h"

namespace Morvu::DeviceManagement {
namespace {

namespace Byte = TaskFileByte;

// ATA PASS-THROUGH (SAT-3, tables 133 to 137).
constexpr std::uint8_t kPassThrough12 = 0xA1;
constexpr std::uint8_t kPassThrough16 = 0x85;
constexpr std::uint8_t kExtend = 0x01;
constexpr std::uint8_t kProtocolDma = 0x0C;
constexpr std::uint8_t kProtocolPioIn = 0x08;
constexpr std::uint8_t kProtocolPioOut = 0x0A;
constexpr std::uint8_t kProtocolDiagnostic = 0x10;
constexpr std::uint8_t kProtocolNonData = 0x06;
// CK_COND, so that the registers always come back; BYT_BLOK and T_LENGTH: the count
// is in blocks and stands in the Count register; T_DIR: from the device.
constexpr std::uint8_t kTransferOut = 0x26;
constexpr std::uint8_t kTransferNone = 0x20;
constexpr std::uint8_t kTransferIn = 0x2E;

std::uint8_t ProtocolBits(std::uint8_t flags) {
  if (flags & kDma) return kProtocolDma;
  if (flags & kRead) return kProtocolPioIn;
  if (flags & kWrite) return kProtocolPioOut;
  if (flags & kDiagnostic) return kProtocolDiagnostic;
  return kProtocolNonData;
}

std::uint8_t TransferBits(std::uint8_t flags) {
  if (flags & kWrite) return kTransferOut;
  if (flags & kNoData) return kTransferNone;
  return kTransferIn;
}

std::array<std::uint8_t, 12> BuildCdb12(ByteView tf, std::uint8_t flags) {
  return {kPassThrough12,
          ProtocolBits(flags),
          TransferBits(flags),
          tf[Byte::Features],
          tf[Byte::Count],
          tf[Byte::LbaLow],
          tf[Byte::LbaMid],
          tf[Byte::LbaHigh],
          tf[Byte::Device],
          tf[Byte::Command],
          0,
          tf[Byte::Control]};
}

std::array<std::uint8_t, 16> BuildCdb16(ByteView tf, std::uint8_t flags) {
  const auto previous = tf.subspan(Byte::Previous);
  const std::uint8_t lbaTop = flags & kNoData ? previous[Byte::LbaHigh] : 0;
  return {kPassThrough16,      static_cast<std::uint8_t>(kExtend | ProtocolBits(flags)),
          TransferBits(flags), previous[Byte::Features],
          tf[Byte::Features],  previous[Byte::Count],
          tf[Byte::Count],     previous[Byte::LbaLow],
          tf[Byte::LbaLow],    previous[Byte::LbaMid],
          tf[Byte::LbaMid],    lbaTop,
          tf[Byte::LbaHigh],   tf[Byte::Device],
          tf[Byte::Command],   tf[Byte::Control]};
}

// Linux looks at a PIO data-in command before its last data request is gone, and reports
// it as aborted although all data has come. A time-out looks the same but for that bit.
bool IsUnendedPioIn(const Command& command, const Outcome& outcome) {
  const bool isPioIn = (command.flags & kRead) && !(command.flags & kDma);
  return isPioIn && outcome.sense.key == SenseKey::AbortedCommand && outcome.sense.Is(0x00) &&
         (outcome.registers.status & AtaStatus::DataRequest) != 0;
}

// Judges sense and registers of a command that a layer has answered.
void JudgeAnswer(const Command& command, Outcome& outcome) {
  auto& registers = outcome.registers;
  if (IsAtaFailure(registers)) {
    outcome.reached = Reached::Device;
  } else if (outcome.sense.TellsFailure() && !IsUnendedPioIn(command, outcome)) {
    // Registers without an error are no answer to a command that failed.
    registers = AtaAnswer();
    outcome.reached = outcome.sense.IsLayersRefusal() ? Reached::Layer : Reached::Device;
  }
}

}  // namespace

CommandPath_ATA_SCSI::CommandPath_ATA_SCSI(std::string devicePath)
    : CommandPath_SCSI(std::move(devicePath), Transport::Ata, "ATA over SCSI") {}

std::unique_ptr<CommandPath> CommandPath_ATA_SCSI::Clone() const {
  auto clone = std::make_unique<CommandPath_ATA_SCSI>(devicePath_);
  CopyTo(*clone);
  return clone;
}

bool CommandPath_ATA_SCSI::TestDevice() {
  AtaNop nop;
  (void)SendOpcode(nop.GetCommand());
  return AtaNop::IsRefusedIn(GetOutcome().registers);
}

Outcome CommandPath_ATA_SCSI::SendOpcodeCore(const Command& command) {
  if (command.record.size() != sizeof(TaskFile)) return NotSent(Status::BufferTooSmall);
  const bool isExtended = (command.flags & kExt48) != 0;
  const auto cdb16 = BuildCdb16(command.record, command.flags);
  const auto cdb12 = BuildCdb12(command.record, command.flags);
  const auto reply = Exchange(isExtended ? ByteView(cdb16) : ByteView(cdb12), command);
  auto outcome = BeginOutcome(reply, CommandKind::Ata);
  if (outcome.reached == Reached::Done) {
    outcome.registers = ReadAtaRegisters(reply.GetSense(), isExtended);
    JudgeAnswer(command, outcome);
  }
  CheckLength(command, outcome);
  KeepAtaImages(command.record, outcome.registers);
  return outcome;
}

}  // namespace Morvu::DeviceManagement
