#include "devices/commands/CommandPath_ATA_SCSI.h"

#include <algorithm>
#include <array>

#include "devices/commands/SenseData.h"
#include "frame/status/Commands.h"

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

constexpr std::uint8_t kStatusError = 0x01;
constexpr std::uint8_t kStatusDeviceFault = 0x20;
constexpr std::uint8_t kStatusBusy = 0x80;
constexpr std::uint8_t kErrorAbort = 0x04;
constexpr std::uint8_t kNopRefused[] = {0x41, 0x51, 0x71};

constexpr std::size_t kPreviousRegisters = 5;

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

std::array<std::uint8_t, 16> BuildCdb16(ByteView tf, ByteView previous, std::uint8_t flags) {
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

// Where one sense format keeps the registers.
struct RegisterPlaces {
  std::size_t error, count, lbaLow, device, status;
};
constexpr RegisterPlaces kFixedPlaces = {3, 6, 9, 5, 4};         // SAT-3, table 150
constexpr RegisterPlaces kOldKernelPlaces = {8, 11, 17, 10, 9};  // Linux before 6.11

bool ReadDescriptorRegisters(ByteView sense, ByteSpan tf, ByteSpan previous) {
  constexpr std::uint8_t kAtaStatusReturn = 0x09;
  if (ReadByte(sense, 8) != kAtaStatusReturn || ReadByte(sense, 9) != 12) return false;
  if (sense[10] & 1) {
    previous[Byte::Error] = 0;
    for (std::size_t i = Byte::Count; i <= Byte::LbaHigh; ++i) previous[i] = sense[10 + 2 * i];
  }
  for (std::size_t i = Byte::Error; i <= Byte::LbaHigh; ++i) tf[i] = sense[11 + 2 * i];
  tf[Byte::Device] = sense[20];
  tf[Byte::Status] = sense[21];
  return true;
}

bool ReadFixedRegisters(ByteView bytes, const Sense& sense, ByteSpan tf, ByteSpan previous) {
  if (!sense.IsFixed()) return false;
  // The SCSI layer's own refusal: no ATA device has answered.
  if (sense.IsIllegalRequest(kInvalidOpcode) || sense.IsIllegalRequest(kInvalidFieldInCdb)) {
    return false;
  }
  const bool standard = bytes[kFixedPlaces.status] != 0;
  const auto& places = standard ? kFixedPlaces : kOldKernelPlaces;
  if (bytes[places.status] == 0) return false;
  tf[Byte::Error] = bytes[places.error];
  tf[Byte::Count] = bytes[places.count];
  tf[Byte::LbaLow] = bytes[places.lbaLow];
  if (standard) {
    tf[Byte::LbaMid] = bytes[places.lbaLow + 1];
    tf[Byte::LbaHigh] = bytes[places.lbaLow + 2];
    constexpr std::uint8_t kExtendFlag = 0x80;
    if (bytes[8] & kExtendFlag) previous[Byte::Error] = 0;
  }
  tf[Byte::Device] = bytes[places.device];
  tf[Byte::Status] = bytes[places.status];
  return true;
}

// Whether the sense brought the upper halves of the registers, or says that they are 0.
bool TellsUpperRegisters(ByteView bytes) {
  if (!ReadSense(bytes).IsFixed()) return (ReadByte(bytes, 10) & 1) != 0;
  constexpr std::uint8_t kUpperNonzero = 0x60;  // SAT-3, table 151: of the count, of the LBA
  return bytes[kFixedPlaces.status] != 0 && (bytes[8] & kUpperNonzero) == 0;
}

// False when the sense holds no registers; the records then stay as they were.
bool ReadRegisters(ByteView bytes, ByteSpan tf, ByteSpan previous) {
  const bool found = ReadDescriptorRegisters(bytes, tf, previous) ||
                     ReadFixedRegisters(bytes, ReadSense(bytes), tf, previous);
  if (found) tf[Byte::Control] = 0;
  return found;
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
  // Every ATA device refuses NOP, and this refusal proves that one answers.
  TaskFile tf{};
  TaskFilePrevious previous{};
  std::array<std::uint8_t, 512> data{};
  const auto result = SendOpcode(tf, previous, kRead, data);
  if (result != Status::Completed && result != Status::AtaCommandFailed) return false;
  return std::ranges::find(kNopRefused, tf[Byte::Status]) != std::end(kNopRefused) ||
         tf[Byte::Error] == kErrorAbort;
}

StatusCode CommandPath_ATA_SCSI::SendOpcodeCore(ByteSpan command, ByteSpan reply,
                                                std::uint8_t flags, ByteSpan data,
                                                std::uintptr_t asyncMarker) {
  if (command.size() < TaskFile().size() || reply.size() < kPreviousRegisters) {
    return Status::BufferTooSmall;
  }
  const auto keep = [&](Image& image) {
    image.fill(0);
    std::ranges::copy(command.first(8), image.begin());
    std::ranges::copy(reply.first(std::min<std::size_t>(reply.size(), 8)), image.begin() + 8);
  };

  Image sent;
  keep(sent);
  SenseBuffer sense{};
  StatusCode result = Status::NotRun;
  if (flags & kExt48) {
    auto cdb = BuildCdb16(command, reply, flags);
    result = SendCdb(cdb, sense, flags, data, asyncMarker);
  } else {
    auto cdb = BuildCdb12(command, flags);
    result = SendCdb(cdb, sense, flags, data, asyncMarker);
  }
  sentBuffer_ = sent;
  const bool answered = ReadRegisters(sense, command, reply);
  hasUpperRegisters_ = answered && TellsUpperRegisters(sense);
  keep(receivedBuffer_);
  if (result != Status::Completed) return result;
  if (!answered && ReadSense(sense).TellsFailure()) return Status::AtaCommandFailed;
  const auto status = command[Byte::Status];
  deviceFault_ = (status & kStatusDeviceFault) != 0;
  return status & (kStatusError | kStatusBusy) ? Status::AtaCommandFailed : result;
}

}  // namespace Morvu::DeviceManagement
