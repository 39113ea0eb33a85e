#include "operations/testing/BlockReader.h"

#include <algorithm>

#include "devices/commands/CommandSet_ATA.h"
#include "devices/identification/FreshIdentity.h"
#include "devices/properties/BasicProperties.h"
#include "devices/queue/TransferDisk.h"
#include "frame/Logger.h"
#include "frame/status/Commands.h"
#include "frame/status/Testing.h"

namespace Morvu {

using namespace DeviceManagement;

namespace {

bool HasErrorBits(const Outcome& outcome, std::uint8_t bits) {
  const auto& registers = outcome.registers;
  return registers.Has(AtaAnswer::kLow) && (registers.status & AtaStatus::Error) != 0 &&
         (registers.error & bits) != 0;
}

bool IsReached(const Outcome& outcome, Reached reached) { return outcome.reached == reached; }

// A read that ended like one of these was lost on the way; of any other end the drive is the cause.
struct LostRead {
  const char* what;
  bool (*holds)(const Outcome& outcome);
};
// clang-format off
constexpr LostRead kLostReads[] = {
    {"not sent",                     [](const Outcome& o) { return IsReached(o, Reached::NotSent); }},
    {"the call failed",              [](const Outcome& o) { return IsReached(o, Reached::CallFailed); }},
    {"the adapter failed",           [](const Outcome& o) { return IsReached(o, Reached::Transport); }},
    {"the layer refused the length", [](const Outcome& o) { return IsReached(o, Reached::Layer); }},
    {"it ended short",               [](const Outcome& o) { return IsReached(o, Reached::Short); }},
    {"a parity error on the way",    [](const Outcome& o) { return o.sense.key == SenseKey::AbortedCommand && o.sense.asc == kTransportParityError; }},
    {"a CRC error on the way",       [](const Outcome& o) { return HasErrorBits(o, AtaError::InterfaceCrc); }},
    // What a time-out looks like behind the kernel's SATA layer.
    {"no answer",                    [](const Outcome& o) { return o.registers.known == 0 && o.sense.key == SenseKey::AbortedCommand && o.sense.Is(0x00); }},
    {"it was not begun",             [](const Outcome& o) { return o.sense.IsUnitAttention(); }},
};
// clang-format on

// A command that did not go out has no outcome.
constexpr StatusCode kRefusedHere[] = {Status::BufferTooSmall, Status::LbaOutOfRange,
                                       Status::CountOutOfRange};

// The block of the range whose address ends in these low bits; nothing when there is none.
std::optional<std::uint64_t> FindInRange(std::uint64_t bits, unsigned width, std::uint64_t lba,
                                         std::uint32_t count) {
  const auto size = std::uint64_t{1} << width;
  auto found = (lba & ~(size - 1)) | (bits & (size - 1));
  if (found < lba) found += size;
  if (found - lba >= count) return std::nullopt;
  return found;
}

// An address stands in the registers of a read that met a sector that it could not read or not
// find (ACS-3, 9.3), as far as the layer hands them on. 28 and 48 bits are told apart by what came
// back: a command that names its address in 28 bits has the upper ones in Device.
std::optional<std::uint64_t> FindFailedBlock(const Outcome& outcome, std::uint64_t lba,
                                             std::uint32_t count) {
  const auto& registers = outcome.registers;
  if (HasErrorBits(outcome, AtaError::Uncorrectable | AtaError::IdNotFound)) {
    if (!registers.Has(AtaAnswer::kMiddle)) return FindInRange(registers.lba, 8, lba, count);
    const auto device = std::uint64_t{registers.device} & 0x0F;
    if (!CommandSet_ATA::NeedExt(lba, count)) {
      return FindInRange((registers.lba & 0xFFFFFF) | device << 24, 28, lba, count);
    }
    return FindInRange(registers.lba, registers.Has(AtaAnswer::kUpper) ? 48 : 24, lba, count);
  }
  const auto& sense = outcome.sense;
  const bool isMedium = sense.key == SenseKey::MediumError && sense.asc == kUnrecoveredReadError;
  if (!isMedium || !sense.information) return std::nullopt;
  const auto information = *sense.information;
  if (information < lba || information - lba >= count) return std::nullopt;
  return information;
}

}  // namespace

BlockRead JudgeAtaRead(const Outcome& outcome, std::uint64_t lba, std::uint32_t count) {
  BlockRead read;
  read.code = ToStatus(outcome);
  if (read.code == Status::Completed) return read;
  const auto* lost =
      std::ranges::find_if(kLostReads, [&](const LostRead& row) { return row.holds(outcome); });
  if (lost != std::end(kLostReads)) {
    MORVU_LOG(kLogWarning, "JudgeAtaRead",
              "A read of " + std::to_string(count) + " blocks from LBA " + std::to_string(lba) +
                  " was lost: " + lost->what);
    read.end = BlockRead::End::Transport;
    return read;
  }
  read.end = BlockRead::End::Drive;
  read.isAborted = HasErrorBits(outcome, AtaError::Abort) &&
                   !HasErrorBits(outcome, AtaError::Uncorrectable | AtaError::IdNotFound);
  read.failed = FindFailedBlock(outcome, lba, count);
  return read;
}

BlockReader::BlockReader(Device& device, std::uint32_t blockSize)
    : device_(device),
      blockSize_(blockSize),
      buffer_(std::size_t{kMostBlocks} * blockSize),
      status_(device.HasCommandSet(Protocol::Ata) ? Status::Completed : OpenDisk()) {}

StatusCode BlockReader::OpenDisk() {
  auto& path = device_.GetPath();
  const auto code = path.OpenDisk(device_.GetString(Properties::SerialNumber));
  if (code != Status::Completed || !device_.HasCommandSet(Protocol::Nvme)) return code;
  const auto identity = ReadFreshIdentity(device_, path.GetDisk()->GetHandle());
  if (identity && IsIdentityOf(*identity, device_)) return Status::Completed;
  MORVU_LOG(kLogError, "OpenDisk", path.GetDisk()->GetPath() + " is not this drive's.");
  return Status::NoCommunication;
}

StatusCode BlockReader::Send(std::uint64_t lba, std::uint32_t count, ByteSpan data) {
  auto* ata = device_.GetCommandSetAs<CommandSet_ATA>(Protocol::Ata);
  if (ata == nullptr) return device_.GetPath().SendFile(lba * blockSize_, kRead, data);
  if (!device_.GetBool(Properties::RAIDMember)) return ata->ReadBlocks(data, lba, count);
  return ata->Send(CommandSet_ATA::NeedExt(lba, count) ? AtaRow::ReadVendorExt : AtaRow::ReadVendor,
                   {.lba = lba, .count = count}, data);
}

BlockRead BlockReader::Read(std::uint64_t lba, std::uint32_t count) {
  const auto code = Send(lba, count, buffer_.Get().first(std::size_t{count} * blockSize_));
  if (code == Status::Completed) return {};
  const bool wasSent = std::ranges::count(kRefusedHere, code) == 0;
  if (device_.HasCommandSet(Protocol::Ata) && wasSent) {
    return JudgeAtaRead(device_.GetCommandPath().GetOutcome(), lba, count);
  }
  const bool isDrives = code == Status::ReadError;
  return {.end = isDrives ? BlockRead::End::Drive : BlockRead::End::Transport, .code = code};
}

}  // namespace Morvu
