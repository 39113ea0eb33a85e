#include "parsers/logs/SendReadLog.h"

#include <algorithm>
#include <cstring>

#include "devices/commands/CommandSet_ATA.h"
#include "devices/commands/CommandSet_NVME.h"
#include "frame/Logger.h"
#include "frame/status/Commands.h"
#include "frame/status/NvmeStatus.h"
#include "parsers/nvme/FeatureNamespace.h"

namespace Morvu::ReadLog {

using DeviceManagement::CommandSet_ATA;
using DeviceManagement::CommandSet_NVME;
using DeviceManagement::Device;
namespace AtaRow = DeviceManagement::AtaRow;
namespace NvmeRow = DeviceManagement::NvmeRow;
namespace Protocol = DeviceManagement::Protocol;

namespace {

// The log address stands in LBA 7:0, the page in LBA 15:8 and 39:32.
constexpr std::uint64_t LogLba(std::uint8_t address, std::uint16_t page) {
  return std::uint64_t{address} | (page & 0xFFull) << 8 | (page >> 8 & 0xFFull) << 32;
}

constexpr std::size_t kNvmePiece = 0x400 * 4;

}  // namespace

std::unique_ptr<SendReadLog> SendReadLog::Make(Device& device, const Log& log, const LogPart& part,
                                               ByteSpan buffer, ProgressReporter& reporter) {
  if (device.HasCommandSet(Protocol::Ata)) {
    return std::make_unique<SendReadLog_ATA>(&device, log, part, buffer, reporter);
  }
  if (device.HasCommandSet(Protocol::Nvme)) {
    return std::make_unique<SendReadLog_NVMe>(&device, log, part, buffer, reporter);
  }
  return nullptr;
}

void SendReadLog::Initialize() { EndInitialize(Status::ReadyToRun); }

bool SendReadLog::Fail(std::string_view text, StatusCode code) {
  MORVU_LOG(kLogError, "Execute", text);
  End(code);
  return false;
}

template <typename Send>
bool SendReadLog::SendPieces(std::size_t most, std::string_view failure, Send&& send) {
  for (std::size_t done = 0; done < buffer_.size();) {
    if (IsCancelRequested()) return Fail("Canceled.", Status::Canceled);
    const auto piece = buffer_.subspan(done, std::min(most, buffer_.size() - done));
    // What a short answer leaves is 0, not what the memory held before.
    std::memset(piece.data(), 0, piece.size());
    const StatusCode result = send(done, piece);
    if (result != Status::Completed) {
      if (ToNvmeStatus(result)) Note(DescribeNvmeStatus(result));
      return Fail(failure, Status::ReadLogExtFailed);
    }
    done += piece.size();
    SetPercent(static_cast<std::int32_t>(std::uint64_t{done} * 100 / buffer_.size()));
  }
  MORVU_LOG(kLogInfo, "Execute", "Passed.");
  End(Status::Completed);
  return true;
}

// ---- ATA ----

SendReadLog_ATA::SendReadLog_ATA(Device* device, const Log& log, const LogPart& part,
                                 ByteSpan buffer, ProgressReporter& reporter)
    : SendReadLog(device, log, part, buffer.first(buffer.size() / kBlock * kBlock), reporter) {
  Initialize();
}

std::int32_t SendReadLog_ATA::Execute() {
  if (!BeginExecute()) return false;
  ReadDirectory();
  // A command names no more blocks than its chunk; the page in it is always the first.
  return SendPieces(
      log_.chunkSectors * kBlock, "Read Log Ext command failed.", [&](std::size_t, ByteSpan piece) {
        const auto blocks = static_cast<std::uint32_t>(piece.size() / kBlock);
        return ata_->Send(AtaRow::ReadLogExt,
                          {.lba = LogLba(log_.address, part_.page), .count = blocks}, piece);
      });
}

// Also a test: a drive whose last command failed may fail the first read behind it.
void SendReadLog_ATA::ReadDirectory() {
  if (SendDirectory()) return;
  MORVU_LOG(kLogError, "Execute", "Clearing error and resending command.");
  ata_->ReadUnseen();
  (void)SendDirectory();
}

bool SendReadLog_ATA::SendDirectory() {
  hasDirectory_ =
      ata_->Send(AtaRow::ReadLogExt, {.lba = 0, .count = 1}, directory_) == Status::Completed;
  return hasDirectory_;
}

// ACS-3, A.2: a word for each log.
std::optional<std::uint16_t> SendReadLog_ATA::GetListedBlocks() const {
  const auto blocks = ReadLittle16(directory_, log_.address * 2u);
  if (!hasDirectory_ || log_.address == 0 || blocks == 0) return std::nullopt;
  return blocks;
}

// ---- NVMe ----

SendReadLog_NVMe::SendReadLog_NVMe(Device* device, const Log& log, const LogPart& part,
                                   ByteSpan buffer, ProgressReporter& reporter)
    : SendReadLog(device, log, part, buffer.first(buffer.size() / 4 * 4), reporter) {
  Initialize();
}

std::int32_t SendReadLog_NVMe::Execute() {
  if (!BeginExecute()) return false;
  const auto nsid = GetNamespace(*device_);
  return SendPieces(kNvmePiece, "Read Log command failed.", [&](std::size_t done, ByteSpan piece) {
    return nvme_->Send(NvmeRow::ReadVendorLog,
                       {.nsid = nsid,
                        .dwords = static_cast<std::uint32_t>(piece.size() / 4),
                        .offset = part_.offset + static_cast<std::uint32_t>(done / 4),
                        .logId = log_.address},
                       piece);
  });
}

}  // namespace Morvu::ReadLog
