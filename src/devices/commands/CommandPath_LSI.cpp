#include "devices/commands/CommandPath_LSI.h"

#include <algorithm>

#include "devices/commands/AtaExchange.h"
#include "frame/status/Commands.h"

namespace Morvu::DeviceManagement {
namespace {

constexpr std::chrono::seconds kAtaTimeout{5};
// Frames of the SATA transport (Serial ATA 3.1, 10.3).
constexpr std::uint8_t kHostFrame = 0x27, kDeviceFrame = 0x34, kIsCommand = 0x80;
// Host status of a command whose end the adapter did not see.
constexpr std::uint16_t kHostError = 0x07;

std::uint8_t DirectionOf(const Command& command) {
  if ((command.flags & kNoData) || command.data.empty()) return kLibNoData;
  if (command.flags & kWrite) return kLibToDrive;
  return command.flags & kRead ? kLibFromDrive : kLibNoData;
}

std::uint32_t AtaFlagsOf(std::uint8_t direction, bool isDma) {
  constexpr std::uint32_t kDirections[] = {AtaBlock::kNoDataFlag, AtaBlock::kToDriveFlag,
                                           AtaBlock::kFromDriveFlag};
  return kDirections[direction] | (isDma ? AtaBlock::kDmaFlag : AtaBlock::kPioFlag);
}

std::array<std::uint8_t, 14> MakeFrame(ByteView file) {
  namespace Byte = TaskFileByte;
  const auto previous = file.subspan(Byte::Previous);
  return {kHostFrame,
          kIsCommand,
          file[Byte::Command],
          file[Byte::Features],
          file[Byte::LbaLow],
          file[Byte::LbaMid],
          file[Byte::LbaHigh],
          file[Byte::Device],
          previous[Byte::LbaLow],
          previous[Byte::LbaMid],
          previous[Byte::LbaHigh],
          previous[Byte::Features],
          file[Byte::Count],
          previous[Byte::Count]};
}

// The registers in a frame of the device's; none are known where it is no such frame.
AtaAnswer ReadFrame(ByteView frame, bool isExtended) {
  AtaAnswer answer;
  if (ReadByte(frame, 0) != kDeviceFrame) return answer;
  answer.known = AtaAnswer::kLow | AtaAnswer::kMiddle;
  answer.status = ReadByte(frame, 2);
  answer.error = ReadByte(frame, 3);
  answer.lba = ReadLittle(frame, 4, 3);
  answer.device = ReadByte(frame, 7);
  answer.count = ReadByte(frame, 12);
  if (!isExtended) return answer;
  answer.known |= AtaAnswer::kUpper;
  answer.lba |= ReadLittle(frame, 8, 3) << 24;
  answer.count = ReadLittle16(frame, 12);
  return answer;
}

void CopyBack(ByteView data, const Command& command) {
  if (DirectionOf(command) == kLibFromDrive) std::ranges::copy(data, command.data.begin());
}

}  // namespace

std::string LsiDrive::GetName() const {
  return "LSI_" + std::to_string(controller) + "_" + std::to_string(device);
}

std::string LsiDrive::GetVolumeName(std::uint16_t volume) const {
  return "LSI_" + std::to_string(controller) + "_volume_" + std::to_string(volume);
}

CommandPath_LSI_ATA::CommandPath_LSI_ATA(LsiDrive drive)
    : CommandPath_LSI(std::move(drive), Transport::Ata, "ATA", kAtaTimeout) {}

bool CommandPath_LSI_ATA::TestDevice() {
  AtaNop nop;
  (void)SendOpcode(nop.GetCommand());
  return AtaNop::IsRefusedIn(GetOutcome().registers);
}

Outcome CommandPath_LSI_ATA::SendOpcodeCore(const Command& command) {
  if (command.record.size() != sizeof(TaskFile)) return NotSent(Status::BufferTooSmall);
  if (!IsOpen()) return NotSent(Status::NoCommunication);
  const auto direction = DirectionOf(command);
  LibBlock block(LibCalls::Ata, direction == kLibNoData ? 0 : command.data.size());
  block.Set(AtaBlock::Device, drive_.device);
  block.Set(AtaBlock::Direction, direction);
  block.Set(AtaBlock::FrameOffset, AtaBlock::Frame);
  block.Set(AtaBlock::Flags, AtaFlagsOf(direction, (command.flags & kDma) != 0));
  block.Set(AtaBlock::Length, block.From(AtaBlock::Data).size());
  std::ranges::copy(MakeFrame(command.record), block.From(AtaBlock::Frame).begin());
  if (direction == kLibToDrive) std::ranges::copy(command.data, block.From(AtaBlock::Data).begin());

  const bool ended = library_.Call(LibCalls::Ata, drive_.GetTarget(), block);
  Outcome outcome;
  outcome.kind = CommandKind::Ata;
  outcome.reached = Reached::Transport;
  outcome.lost = Status::AtaCommandFailed;
  // The frame of a command that did not end may be an earlier one's.
  if (ended) {
    outcome.registers = ReadFrame(block.From(AtaBlock::Answer), (command.flags & kExt48) != 0);
  }
  if (outcome.registers.known != 0) {
    const bool isFailure = IsAtaFailure(outcome.registers);
    outcome.reached = isFailure ? Reached::Device : Reached::Done;
    if (!isFailure) CopyBack(block.From(AtaBlock::Data), command);
  }
  KeepAtaImages(command.record, outcome.registers);
  return outcome;
}

SgReply SendLsiScsi(const LsiLibrary& library, const LsiDrive& drive, ByteView cdb,
                    const Command& command) {
  SgReply reply;
  reply.hostStatus = kHostError;
  if (cdb.size() > ScsiBlock::kLongestCdb) return reply;
  const auto direction = DirectionOf(command);
  LibBlock block(LibCalls::Scsi, direction == kLibNoData ? 0 : command.data.size());
  block.Set(ScsiBlock::Device, drive.device);
  block.Set(ScsiBlock::Direction, direction);
  block.Set(ScsiBlock::CdbLength, cdb.size());
  block.Set(ScsiBlock::Length, block.From(ScsiBlock::Data).size());
  std::ranges::copy(cdb, block.From(ScsiBlock::Cdb).begin());
  if (direction == kLibToDrive)
    std::ranges::copy(command.data, block.From(ScsiBlock::Data).begin());
  if (!library.Call(LibCalls::Scsi, drive.GetTarget(), block)) return reply;

  // GOOD, or CHECK CONDITION, which the sense alone tells apart.
  reply.hostStatus = 0;
  const auto sense = block.From(ScsiBlock::Sense).first(ScsiBlock::kSenseSize);
  if (sense.front() != 0) {
    reply.status = kCheckCondition;
    std::ranges::copy(sense, reply.buffer.begin());
    reply.senseLength = sense.size();
  }
  CopyBack(block.From(ScsiBlock::Data), command);
  return reply;
}

}  // namespace Morvu::DeviceManagement
