// A SCSI disk (SPC-4, SBC-3).
#include <cstring>
#include <vector>

#include "Bytes.h"
#include "Devices.h"
#include "Firmware.h"
#include "ScsiReplies.h"

namespace Simulator {

namespace {

constexpr std::uint8_t kWriteBufferFamily = 0x1F;

void TestUnitReady(Drive& drive, Transaction& transaction) {
  if (drive.State().scsi.stopped) transaction.SetSense(0x02, 0x04, 0x02);
}

void RequestSense(Drive&, Transaction& transaction) { ReplyRequestSense(transaction); }

void StartStop(Drive& drive, Transaction& transaction) {
  drive.State().scsi.stopped = (transaction.command[4] & 1) == 0;
}

void Nothing(Drive&, Transaction&) {}

struct Span {
  std::uint64_t lba, blocks;
};

Span DecodeSpan(const std::uint8_t* cdb) {
  switch (cdb[0] >> 5) {
    case 0:
      return {GetBig(cdb + 1, 3) & 0x1FFFFF, cdb[4] != 0 ? cdb[4] : 256u};
    case 4:
      return {GetBig(cdb + 2, 8), GetBig(cdb + 10, 4)};
    case 5:
      return {GetBig(cdb + 2, 4), GetBig(cdb + 6, 4)};
    default:
      return {GetBig(cdb + 2, 4), GetBig(cdb + 7, 2)};
  }
}

bool InMedium(Drive& drive, Transaction& transaction, const Span& span) {
  const auto sectors = drive.State().sectors;
  if (drive.State().scsi.stopped) {
    transaction.SetSense(0x02, 0x04, 0x02);
    return false;
  }
  if (span.lba < sectors && span.blocks <= sectors - span.lba) return true;
  if (span.lba == sectors && span.blocks == 0) return true;
  transaction.SetSense(0x05, 0x21, 0x00);
  return false;
}

void ReadOrWrite(Drive& drive, Transaction& transaction) {
  const auto span = DecodeSpan(transaction.command);
  if (!InMedium(drive, transaction, span)) return;
  const auto size = span.blocks * drive.State().sectorSize;
  const auto offset = span.lba * drive.State().sectorSize;
  const bool write = (transaction.command[0] & 0x0F) == 0x0A;
  const auto wanted = write ? Direction::ToDevice : Direction::FromDevice;
  if (size == 0) return;
  if (transaction.direction != wanted || transaction.length < size)
    return transaction.Refuse(0x24, 0x00);
  const bool done = write ? drive.WriteMedium(0, offset, transaction.data, size)
                          : drive.ReadMedium(0, offset, transaction.data, size);
  if (!done) {
    transaction.SetSense(0x03, 0x11, 0x00, drive.State().scsi.descriptorSense != 0);
    const auto bad = drive.FindBad(0, offset, size);
    if (bad) transaction.SetInformation(*bad / drive.State().sectorSize);
    return;
  }
  transaction.transferred = static_cast<std::uint32_t>(size);
}

void Verify(Drive& drive, Transaction& transaction) {
  InMedium(drive, transaction, DecodeSpan(transaction.command));
}

// DOWNLOAD MICROCODE: modes 04h and 05h take a whole image, 06h and 07h pieces.
// A piece must begin where the one before ended; offset 0 begins an image.
void WriteBuffer(Drive& drive, Transaction& transaction) {
  const auto* cdb = transaction.command;
  auto& firmware = drive.State().scsi.firmware;
  const std::uint8_t mode = cdb[1] & kWriteBufferFamily;
  const auto size = static_cast<std::uint32_t>(GetBig(cdb + 6, 3));
  const auto offset = static_cast<std::uint32_t>(GetBig(cdb + 3, 3));
  if (mode < 0x04 || mode > 0x07) return transaction.Refuse(0x24, 0x00);
  if (size == 0) return;
  if (transaction.direction != Direction::ToDevice || transaction.length < size)
    return transaction.Refuse(0x24, 0x00);
  const bool pieces = mode >= 0x06;
  // Of an image that names its size the drive knows that no other begins in the middle.
  const bool isOurs = size >= sizeof kImageMark - 1 &&
                      std::memcmp(transaction.data, kImageMark, sizeof kImageMark - 1) == 0;
  const bool overwrites = offset == 0 && firmware.running && firmware.imageBlocks != 0 && !isOurs;
  if (overwrites || !TakePiece(firmware, offset, size, 1, {transaction.data, size})) {
    firmware.running = 0;
    return transaction.Refuse(0x26, 0x00);
  }
  ++firmware.transfers;
  transaction.transferred = size;
  if (firmware.imageBlocks == 0 && pieces) return;  // ends where another command begins
  if (!IsWhole(firmware)) return;
  SetText(drive.State().firmware, Revision(firmware).substr(0, 4));
  firmware.running = 0;
  ++firmware.activations;
}

void FinishDownload(Drive& drive) {
  auto& firmware = drive.State().scsi.firmware;
  if (!firmware.running) return;
  firmware.running = 0;
  if (!IsWhole(firmware) && firmware.imageBlocks != 0) return;
  SetText(drive.State().firmware, Revision(firmware).substr(0, 4));
  ++firmware.activations;
}

// A log page with its header filled in at the end (SPC-4, 7.3).
class LogPage {
 public:
  explicit LogPage(std::uint8_t page) : bytes_{page, 0, 0, 0} {}
  void AddParameter(std::uint16_t code, std::uint64_t value, std::size_t width) {
    const std::uint8_t head[] = {static_cast<std::uint8_t>(code >> 8),
                                 static_cast<std::uint8_t>(code), 0x03,
                                 static_cast<std::uint8_t>(width)};
    bytes_.insert(bytes_.end(), std::begin(head), std::end(head));
    for (auto left = width; left-- > 0;) {
      AddByte(left < sizeof value ? static_cast<std::uint8_t>(value >> (8 * left)) : 0);
    }
  }
  void AddByte(std::uint8_t byte) { bytes_.push_back(byte); }
  const std::vector<std::uint8_t>& Finish() {
    bytes_[3] = static_cast<std::uint8_t>(bytes_.size() - 4);
    return bytes_;
  }

 private:
  std::vector<std::uint8_t> bytes_;
};

struct LogPageRow {
  std::uint8_t page;
  void (*fill)(const ScsiState& scsi, LogPage& page);
};

constexpr std::uint64_t kBytesWritten = 123'456'789'000, kMinutes = 1234 * 60;

// clang-format off
constexpr LogPageRow kLogPages[] = {
    {0x00, nullptr},  // the list of these
    {0x02, [](const ScsiState&, LogPage& page) { page.AddParameter(5, kBytesWritten, 8); page.AddParameter(6, 0, 8); }},
    {0x03, [](const ScsiState& scsi, LogPage& page) { page.AddParameter(6, scsi.mediaErrors, 10); }},
    {0x0D, [](const ScsiState&, LogPage& page) { page.AddParameter(0, 28, 2); page.AddParameter(1, 70, 2); }},
    {0x10, [](const ScsiState& scsi, LogPage& page) {
       // Byte 0: the test's code, short, and its result.
       const bool isDone = scsi.selfTestResult != 0xFF;
       page.AddParameter(1, isDone ? std::uint64_t{0x20u | scsi.selfTestResult} << 56 : 0, 8);
       for (int i = 0; i < 8; ++i) page.AddByte(0);
     }},
    {0x11, [](const ScsiState& scsi, LogPage& page) { page.AddParameter(1, scsi.percentageUsed, 4); }},
    {0x15, [](const ScsiState&, LogPage& page) { page.AddParameter(0, kMinutes << 32, 8); }},
    {0x2F, [](const ScsiState& scsi, LogPage& page) { page.AddParameter(0, (scsi.predictsFailure ? 0x5D00u : 0u) << 16 | 28u << 8, 4); }},
};
// clang-format on

void LogSense(Drive& drive, Transaction& transaction) {
  const auto* cdb = transaction.command;
  for (const auto& row : kLogPages) {
    if (row.page != (cdb[2] & 0x3F)) continue;
    LogPage page(row.page);
    if (row.fill != nullptr) {
      row.fill(drive.State().scsi, page);
    } else {
      for (const auto& each : kLogPages) page.AddByte(each.page);
    }
    auto bytes = page.Finish();
    // The value of a self-test's parameter is 16 bytes long.
    if (row.page == 0x10) bytes[7] = 16;
    transaction.Reply(bytes.data(), std::min<std::size_t>(bytes.size(), GetBig(cdb + 7, 2)));
    return;
  }
  transaction.Refuse(0x24, 0x00);
}

struct ScsiRow {
  std::uint8_t opcode;
  std::uint8_t length;
  void (*handler)(Drive&, Transaction&);
};

// clang-format off
constexpr ScsiRow kRows[] = {
    {0x00, 6, TestUnitReady},     {0x03, 6, RequestSense},      {0x08, 6, ReadOrWrite},
    {0x0A, 6, ReadOrWrite},         {0x12, 6, ReplyScsiInquiry},  {0x1A, 6, ReplyModeSense},
    {0x1B, 6, StartStop},         {0x1D, 6, Nothing},           {0x25, 10, ReplyReadCapacity},
    {0x28, 10, ReadOrWrite},        {0x2A, 10, ReadOrWrite},        {0x2F, 10, Verify},
    {0x35, 10, Nothing},          {0x3B, 10, WriteBuffer},      {0x4D, 10, LogSense},
    {0x5A, 10, ReplyModeSense},   {0x88, 16, ReadOrWrite},        {0x8A, 16, ReadOrWrite},
    {0x91, 16, Nothing},          {0x9E, 16, ReplyReadCapacity}, {0xA8, 12, ReadOrWrite},
    {0xAA, 12, ReadOrWrite},
};
// clang-format on

void RunRow(Drive& drive, Transaction& transaction) {
  for (const auto& row : kRows) {
    if (row.opcode != transaction.command[0] || transaction.commandLength < row.length) continue;
    return row.handler(drive, transaction);
  }
  transaction.Refuse(0x20, 0x00);
}

}  // namespace

void ExecuteScsiDrive(Drive& drive, Transaction& transaction) {
  if (transaction.command[0] != 0x3B) FinishDownload(drive);
  RunRow(drive, transaction);
  const bool isFixed = transaction.senseLength != 0 && (transaction.sense[0] & 0x7F) == 0x70;
  if (!isFixed || !drive.State().scsi.descriptorSense) return;
  transaction.SetSense(transaction.sense[2], transaction.sense[12], transaction.sense[13], true);
}

void MakeScsi(DriveState& state, const DriveSpec& spec) {
  state.scsi.blankInquirySerial = spec.inquirySerial ? 0 : 1;
  state.scsi.percentageUsed = 1;
  state.scsi.selfTestResult = 0xFF;
}

void PowerCycleScsi(Drive& drive) {
  drive.State().scsi.stopped = 0;
  drive.State().scsi.firmware.running = 0;
}

}  // namespace Simulator
