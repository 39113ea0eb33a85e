// The SCSI/ATA translation that stands between SG_IO and a SATA drive (SAT-3),
// as Linux does it: ATA PASS-THROUGH, and the few plain SCSI commands.
#include <cstring>

#include "Ata.h"
#include "Bytes.h"
#include "ScsiReplies.h"

namespace Simulator {

namespace {

constexpr std::uint8_t kPassThrough12 = 0xA1, kPassThrough16 = 0x85;
constexpr std::uint8_t kProtocolDiagnostic = 8;

bool IsPassThrough(const Transaction& transaction) {
  return (transaction.command[0] == kPassThrough16 && transaction.commandLength >= 16) ||
         (transaction.command[0] == kPassThrough12 && transaction.commandLength >= 12);
}

AtaRegisters Decode(const std::uint8_t* cdb) {
  AtaRegisters in;
  in.protocol = static_cast<std::uint8_t>(cdb[1] >> 1 & 0x0F);
  const auto wide = [&](int i) { return static_cast<std::uint64_t>(cdb[i]); };
  if (cdb[0] == kPassThrough12) {
    in.features = cdb[3];
    in.count = cdb[4];
    in.lba = wide(5) | wide(6) << 8 | wide(7) << 16;
    in.device = cdb[8];
    in.command = cdb[9];
    return in;
  }
  in.extended = (cdb[1] & 1) != 0;
  in.features = cdb[4];
  in.count = cdb[6];
  in.lba = wide(8) | wide(10) << 8 | wide(12) << 16;
  if (in.extended) {
    in.features = static_cast<std::uint16_t>(in.features | cdb[3] << 8);
    in.count = static_cast<std::uint16_t>(in.count | cdb[5] << 8);
    in.lba |= wide(7) << 24 | wide(9) << 32 | wide(11) << 40;
  }
  in.device = cdb[13];
  in.command = cdb[14];
  return in;
}

// The ATA Status Return descriptor behind an 8-byte descriptor sense header.
void PutDescriptor(Transaction& transaction, const AtaOutput& out, bool extended) {
  auto* sense = transaction.sense;
  sense[7] = 14;
  sense[8] = 0x09;
  sense[9] = 12;
  sense[10] = extended ? 1 : 0;
  sense[11] = out.error;
  sense[13] = static_cast<std::uint8_t>(out.count);
  sense[15] = static_cast<std::uint8_t>(out.lba);
  sense[17] = static_cast<std::uint8_t>(out.lba >> 8);
  sense[19] = static_cast<std::uint8_t>(out.lba >> 16);
  if (extended) {
    sense[12] = static_cast<std::uint8_t>(out.count >> 8);
    sense[14] = static_cast<std::uint8_t>(out.lba >> 24);
    sense[16] = static_cast<std::uint8_t>(out.lba >> 32);
    sense[18] = static_cast<std::uint8_t>(out.lba >> 40);
  }
  sense[20] = out.device;
  sense[21] = out.status;
  transaction.senseLength = 22;
}

std::uint8_t ExtendedFlags(const AtaOutput& out, bool extended) {
  if (!extended) return 0;
  return static_cast<std::uint8_t>(0x80 | (out.count >> 8 != 0 ? 0x40 : 0) |
                                   (out.lba >> 24 != 0 ? 0x20 : 0));
}

// SAT-3, "ATA pass-through fixed format sense data".
void PutFixed(Transaction& transaction, const AtaOutput& out, bool extended) {
  auto* sense = transaction.sense;
  sense[3] = out.error;
  sense[4] = out.status;
  sense[5] = out.device;
  sense[6] = static_cast<std::uint8_t>(out.count);
  sense[8] = ExtendedFlags(out, extended);
  for (int i = 0; i < 3; ++i) sense[9 + i] = static_cast<std::uint8_t>(out.lba >> (8 * i));
}

// Linux before 6.11 wrote the same fields from byte 8 on, and the sense ends
// after 18 bytes: of the LBA only its lowest byte is left.
void PutFixedOldKernel(Transaction& transaction, const AtaOutput& out, bool extended) {
  auto* sense = transaction.sense;
  sense[8] = out.error;
  sense[9] = out.status;
  sense[10] = out.device;
  sense[11] = static_cast<std::uint8_t>(out.count);
  sense[16] = ExtendedFlags(out, extended);
  sense[17] = static_cast<std::uint8_t>(out.lba);
}

struct SenseCode {
  std::uint8_t key, asc, ascq;
};

// Linux's table from the error register to a sense code, first match.
SenseCode SenseOf(const AtaOutput& out) {
  if ((out.error & kAtaNotFound) != 0) return {0x05, 0x21, 0x00};
  if ((out.error & kAtaUncorrectable) != 0) return {0x03, 0x11, 0x04};
  return {0x0B, 0x00, 0x00};
}

void Answer(Drive& drive, Transaction& transaction, AtaOutput out, bool extended, bool check) {
  transaction.ataStatus = out.status;
  transaction.ataError = out.error;
  transaction.ataDevice = out.device;
  transaction.ataCount = out.count;
  transaction.ataLba = out.lba;
  const bool refused = (out.status & 0xA1) != 0;
  const auto format = drive.State().senseFormat;
  const bool oldKernel = format == SenseFormat::FixedOldKernel;
  // Such a kernel looks at a PIO data-in command before its last DRQ is gone.
  const bool looksFailed = oldKernel && check && out.pioIn && !refused;
  if (looksFailed) out.status = 0x58;
  if (!refused && !check) return;
  if (format == SenseFormat::None) {
    if (refused) transaction.SetSense(0x0B, 0x00, 0x00);
    return;
  }

  const bool failed = refused || looksFailed;
  const auto code = failed ? SenseOf(out) : SenseCode{0x01, 0x00, 0x1D};
  const bool descriptor = format == SenseFormat::Descriptor || (oldKernel && !failed);
  transaction.SetSense(code.key, code.asc, code.ascq, descriptor);
  if (descriptor) {
    PutDescriptor(transaction, out, extended);
  } else if (oldKernel) {
    PutFixedOldKernel(transaction, out, extended);
  } else {
    PutFixed(transaction, out, extended);
  }
}

bool DirectionFits(const Transaction& transaction, const AtaRegisters& in) {
  switch (in.protocol) {
    case 3:
    case kProtocolDiagnostic:
      return true;
    case 4:
      return transaction.direction == Direction::FromDevice || transaction.length == 0;
    case 5:
      return transaction.direction == Direction::ToDevice;
    case 6:
    case 10:
    case 11:
      return transaction.length != 0;
    default:
      return false;
  }
}

void PassThrough(Drive& drive, Transaction& transaction) {
  const auto in = Decode(transaction.command);
  const bool linux = drive.State().ata.refusesDiagnosticProtocol != 0;
  if (!DirectionFits(transaction, in) || (linux && in.protocol == kProtocolDiagnostic)) {
    transaction.Refuse(0x24, 0x00);
    return;
  }
  const bool check = (transaction.command[2] & 0x20) != 0;
  const auto out = ExecuteAta(drive, transaction, in);
  if (out.timedOut) return TimeOutAta(drive, transaction);
  Answer(drive, transaction, out, in.extended, check);
}

// A plain SCSI read or write, done as its ATA command.
void ReadWrite(Drive& drive, Transaction& transaction) {
  const auto* cdb = transaction.command;
  const bool wide = (cdb[0] & 0xE0) == 0x80;
  const bool write = (cdb[0] & 0x0F) == 0x0A;
  const auto lba = wide ? GetBig(cdb + 2, 8) : GetBig(cdb + 2, 4);
  const auto count = wide ? GetBig(cdb + 10, 4) : GetBig(cdb + 7, 2);
  if (count == 0) return;
  if (count > 0xFFFF) return transaction.Refuse(0x24, 0x00);
  AtaRegisters in;
  in.command = write ? 0x35 : 0x25;
  in.extended = true;
  in.protocol = 6;
  in.device = 0x40;
  in.lba = lba;
  in.count = static_cast<std::uint16_t>(count);
  const auto out = ExecuteAta(drive, transaction, in);
  if ((out.status & 1) == 0) return;
  const auto code = SenseOf(out);
  transaction.SetSense(code.key, code.asc, code.ascq);
}

void RunSimple(Drive& drive, Transaction& transaction, std::uint8_t command) {
  AtaRegisters in;
  in.command = command;
  in.protocol = 3;
  const auto out = ExecuteAta(drive, transaction, in);
  if ((out.status & 1) != 0) transaction.SetSense(0x0B, 0x00, 0x00);
}

}  // namespace

Identity Identify(const Transaction& transaction) {
  const auto* command = transaction.command;
  if (transaction.ioctl == Ioctl::Raw) return {CommandClass::Raw, command[0], 0};
  if (transaction.ioctl != Ioctl::SgIo) {
    const auto kind =
        transaction.ioctl == Ioctl::NvmeAdmin ? CommandClass::NvmeAdmin : CommandClass::NvmeIo;
    return {kind, command[0], command[40]};
  }
  if (!IsPassThrough(transaction)) return {CommandClass::Scsi, command[0], command[1]};
  const auto in = Decode(command);
  return {CommandClass::Ata, in.command, static_cast<std::uint8_t>(in.features)};
}

void RefuseAta(Drive& drive, Transaction& transaction, std::uint8_t status, std::uint8_t error,
               std::uint32_t lba) {
  AtaOutput out;
  out.status = status;
  out.error = error;
  out.lba = lba;
  if (!IsPassThrough(transaction)) {
    const auto code = SenseOf(out);
    transaction.SetSense(code.key, code.asc, code.ascq);
    return;
  }
  const auto in = Decode(transaction.command);
  out.device = in.device;
  Answer(drive, transaction, out, in.extended, (transaction.command[2] & 0x20) != 0);
}

void TimeOutAta(Drive& drive, Transaction& transaction) {
  constexpr std::uint8_t kReadyAlone = 0x40;
  const auto in = Decode(transaction.command);
  AtaOutput out;
  out.status = kReadyAlone;
  transaction.ataStatus = out.status;
  transaction.timedOut = true;
  const auto format = drive.State().senseFormat;
  transaction.SetSense(0x0B, 0x00, 0x00, format == SenseFormat::Descriptor);
  if (format == SenseFormat::Descriptor) PutDescriptor(transaction, out, in.extended);
  if (format == SenseFormat::FixedSat3) PutFixed(transaction, out, in.extended);
  if (format == SenseFormat::FixedOldKernel) PutFixedOldKernel(transaction, out, in.extended);
}

void ExecuteAtaDrive(Drive& drive, Transaction& transaction) {
  if (IsPassThrough(transaction)) return PassThrough(drive, transaction);
  switch (transaction.command[0]) {
    case 0x00:
      return;  // TEST UNIT READY
    case 0x03:
      return ReplyRequestSense(transaction);
    case 0x12:
      return ReplyAtaInquiry(drive, transaction);
    case 0x1A:
    case 0x5A:
      return ReplyModeSense(drive, transaction);
    case 0x1B:
      return RunSimple(drive, transaction, (transaction.command[4] & 1) != 0 ? 0xE1 : 0xE0);
    case 0x25:
    case 0x9E:
      return ReplyReadCapacity(drive, transaction);
    case 0x28:
    case 0x2A:
      if (transaction.commandLength >= 10) return ReadWrite(drive, transaction);
      break;
    case 0x88:
    case 0x8A:
      if (transaction.commandLength >= 16) return ReadWrite(drive, transaction);
      break;
    case 0x35:
    case 0x91:
      return RunSimple(drive, transaction, 0xEA);
    default:
      break;
  }
  transaction.Refuse(0x20, 0x00);
}

}  // namespace Simulator
