#include "devices/commands/CommandPath.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <limits>

#include "devices/commands/AtaExchange.h"
#include "devices/queue/CommandQueue.h"
#include "devices/queue/TransferDisk.h"
#include "frame/Logger.h"
#include "frame/Text.h"
#include "frame/status/Commands.h"

namespace Morvu::DeviceManagement {
namespace {

constexpr std::chrono::seconds kDefaultTimeout{5};

Transfer DirectionOf(std::uint8_t flags) {
  return flags & kWrite ? Transfer::Write : Transfer::Read;
}

std::string AsText(const CommandPath::Image& image) {
  std::string text;
  for (const auto byte : image) {
    if (!text.empty()) text += '~';
    text += std::to_string(byte);
  }
  return text;
}

}  // namespace

CommandPath::CommandPath(std::string devicePath, std::string_view protocol,
                         std::string_view description, std::chrono::seconds timeout)
    : devicePath_(std::move(devicePath)),
      protocol_(protocol),
      description_(description),
      timeout_(timeout) {
  (void)CommandPath::Open();  // the path is closed then, which its user tests
}

CommandPath::~CommandPath() { (void)CommandPath::Close(); }

StatusCode CommandPath::Open() {
  if (handle_ >= 0) (void)CommandPath::Close();
  // Read-only: commands pass all the same, and the close of a block node that was open for
  // writing makes udev read the disk anew. A name without a folder is no node's.
  if (devicePath_.starts_with('/')) {
    handle_ = open(devicePath_.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
  }
  return handle_ >= 0 ? Status::Completed : Status::NoCommunication;
}

StatusCode CommandPath::Close() {
  disk_.reset();
  if (handle_ < 0) return Status::Completed;
  const int result = close(handle_);
  handle_ = -1;
  return result < 0 ? Status::CloseFailed : Status::Completed;
}

bool CommandPath::Adopt(int handle) {
  (void)CommandPath::Close();
  handle_ = fcntl(handle, F_DUPFD_CLOEXEC, 0);
  return handle_ >= 0;
}

StatusCode CommandPath::OpenDisk(std::string_view serialNumber) {
  disk_.reset();
  diskSerial_ = serialNumber;
  if (!IsOpen()) return Status::NoCommunication;
  auto disk = std::make_shared<const TransferDisk>(devicePath_, diskSerial_, Transfer::Read);
  const auto code = disk->GetStatus();
  if (code == Status::Completed) disk_ = std::move(disk);
  return code;
}

// A disk for one write is opened by itself: what is only read is not open for writing.
StatusCode CommandPath::OpenFor(std::uint8_t flags, std::shared_ptr<const TransferDisk>& disk) {
  if (!IsOpen()) return Status::NoCommunication;
  if (flags & kWrite) {
    disk = std::make_shared<const TransferDisk>(devicePath_, diskSerial_, Transfer::Write);
    return disk->GetStatus();
  }
  const auto code = disk_ == nullptr ? OpenDisk(std::string(diskSerial_)) : Status::Completed;
  disk = disk_;
  return code;
}

StatusCode CommandPath::SendFile(std::uint64_t offset, std::uint8_t flags, ByteSpan data) {
  if (!IsOpen()) return Status::NoCommunication;
  if (data.empty()) return Status::BufferTooSmall;
  std::shared_ptr<const TransferDisk> disk;
  if (const auto code = OpenFor(flags, disk); code != Status::Completed) return code;
  return TransferFile(*disk, DirectionOf(flags), offset, data);
}

StatusCode CommandPath::SendFile(std::uint64_t offset, std::uint8_t flags, ByteSpan data,
                                 const TransferNotification& notification) {
  if (queue_ == nullptr || !queue_->HasWorkers()) return SendFile(offset, flags, data);
  if (!IsOpen()) return Status::NoCommunication;
  if (data.empty()) return Status::BufferTooSmall;
  std::shared_ptr<const TransferDisk> disk;
  if (const auto code = OpenFor(flags, disk); code != Status::Completed) return code;
  const bool isQueued = queue_->Enqueue(std::make_unique<QueuedCommand_SendFile>(
      std::move(disk), offset, DirectionOf(flags), data, data.size(), notification));
  return isQueued ? Status::Completed : Status::ReadOrWriteFailed;
}

bool CommandPath::CreateWorkers(std::uint32_t total, std::uint32_t count) {
  if (queue_ == nullptr) queue_ = std::make_unique<CommandQueue>();
  return queue_->CreateWorkers(total, count);
}

void CommandPath::StopWorkers() {
  if (queue_ != nullptr) queue_->StopWorkers();
}

bool CommandPath::WorkersIdle() const { return queue_ == nullptr || queue_->WorkersIdle(); }

StatusCode CommandPath::SendOpcode(const Command& command) {
  outcome_ = SendOpcodeCore(command);
  LogCommand();
  return ToStatus(outcome_);
}

std::uint32_t CommandPath::GetTimeoutMs(const Command& command) const {
  constexpr std::chrono::milliseconds kMost{std::numeric_limits<std::uint32_t>::max()};
  const auto timeout = command.timeout.count() != 0 ? command.timeout : timeout_;
  const bool fits = timeout < std::chrono::duration_cast<std::chrono::seconds>(kMost);
  return static_cast<std::uint32_t>((fits ? std::chrono::milliseconds(timeout) : kMost).count());
}

void CommandPath::CopyTo(CommandPath& clone) const {
  clone.protocol_ = protocol_;
  clone.description_ = description_;
  clone.deviceFault_ = deviceFault_;
}

void CommandPath::KeepAtaImages(ByteView record, const AtaAnswer& answer) {
  sentBuffer_.fill(0);
  std::ranges::copy(record, sentBuffer_.begin());
  receivedBuffer_ = sentBuffer_;
  PutRegisters(answer, receivedBuffer_);
  if (answer.Has(AtaAnswer::kLow)) deviceFault_ = (answer.status & AtaStatus::DeviceFault) != 0;
}

std::string CommandPath::GetSentAsText() const { return AsText(sentBuffer_); }

std::string CommandPath::GetReceivedAsText() const { return AsText(receivedBuffer_); }

void CommandPath::LogCommand() const {
  MORVU_LOG(kLogInfo, "LogCommand", "Sent:\n" + HexDump(sentBuffer_));
  MORVU_LOG(kLogInfo, "LogCommand", "Received:\n" + HexDump(receivedBuffer_));
}

std::string HexDump(ByteView bytes) {
  constexpr std::size_t kPerLine = 16;
  std::string dump;
  for (std::size_t offset = 0; offset < bytes.size(); offset += kPerLine) {
    const auto line = bytes.subspan(offset, std::min(kPerLine, bytes.size() - offset));
    if (offset != 0) dump += '\n';
    dump += ToHexNumber(offset, 4) + ": ";
    std::string text;
    for (std::size_t i = 0; i < line.size(); ++i) {
      dump += ToHex(line.subspan(i, 1)) + (i == 7 ? "  " : " ");
      text += line[i] >= 33 && line[i] <= 126 ? static_cast<char>(line[i]) : '.';
    }
    dump += " " + text;
  }
  return dump;
}

CommandPath_Plain::CommandPath_Plain(std::string devicePath)
    : CommandPath(std::move(devicePath), Transport::None, "None", kDefaultTimeout) {}

std::unique_ptr<CommandPath> CommandPath_Plain::Clone() const {
  auto clone = std::make_unique<CommandPath_Plain>(devicePath_);
  CopyTo(*clone);
  return clone;
}

Outcome CommandPath_Plain::SendOpcodeCore(const Command&) {
  return NotSent(Status::NotImplemented);
}

}  // namespace Morvu::DeviceManagement
