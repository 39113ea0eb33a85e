#include "parsers/logs/ReadLog.h"

#include <algorithm>
#include <string>

#include "devices/identification/Products.h"
#include "frame/Logger.h"
#include "frame/status/Drives.h"
#include "frame/status/Health.h"
#include "operations/Operation.h"

namespace Morvu::ReadLog {

using DeviceManagement::Device;
using DeviceManagement::ProductOf;
namespace Protocol = DeviceManagement::Protocol;

namespace {

constexpr std::uint32_t kAtaChunk = 0xFF;
constexpr std::uint8_t kNvmeLogs = 4;

// The header of an NVMe drive's log, in words of 4 bytes: where its data begin and end.
constexpr std::size_t kOuterHeader = 4096;
constexpr std::size_t kFirstWord = 1, kEndWord = 2;
std::uint64_t ReadPosition(ByteView header, std::size_t word) {
  return std::uint64_t{ReadLittle32(header, word * 4)} * 4;
}

constexpr std::size_t BlocksOf(std::uint64_t bytes) {
  return static_cast<std::size_t>((bytes + kBlock - 1) / kBlock);
}

}  // namespace

struct ReadLog::Rules {
  static bool NoLogs(ReadLog& log) { return log.ata_ == nullptr && log.nvme_ == nullptr; }

  // clang-format off
  static constexpr Refusal<ReadLog> kTable[] = {
      {OfDevice<Refuse::NotConnected>,      Status::NoCommunication},
      {OfDevice<Refuse::ForeignRaidVolume>, Status::RaidVolume},
      {OfDevice<Refuse::Foreign>,           Status::NotAMorvuDrive},
      {NoLogs,                              Status::NotSupportedByDrive},
  };
  // clang-format on
};

ReadLog::ReadLog(Device* device, ProgressReporter& reporter) : Function(device, reporter) {}

ReadLog::ReadLog(Device* device, std::uint8_t address, std::uint16_t page, std::uint16_t sectors,
                 ProgressReporter& reporter)
    : Function(device, reporter),
      log_{.address = address, .byteSize = static_cast<std::uint32_t>(sectors * kBlock)},
      part_{.page = page} {
  ReadLog::Initialize();
}

StatusCode ReadLog::FindRefusal() { return FirstRefusal<ReadLog>(Rules::kTable, *this); }

void ReadLog::Initialize() { EndInitialize(FindRefusal()); }

ReadLog::Choice ReadLog::ChooseVendorLog(LogChooser ataLog, const Log& nvmeLog) {
  if (const auto code = FindRefusal(); code != Status::ReadyToRun) return {code, {}};
  const auto& product = ProductOf(*device_);
  Choice choice = {Status::ReadyToRun, {}};
  if (nvme_ != nullptr && product.hasNvmeAttributes) {
    choice.log = nvmeLog;
  } else if (ata_ != nullptr && product.hasOemAttributes) {
    choice.log = ataLog(*device_);
  } else {
    choice.code = Status::NotSupportedByDrive;
  }
  if (choice.code == Status::ReadyToRun && Refuse::FailureReported(*device_)) {
    choice.code = Status::DisableLogical;
  }
  return choice;
}

bool ReadLog::Read(ByteSpan buffer, const LogPart& part, ProgressReporter& reporter) {
  sender_ = SendReadLog::Make(*device_, log_, part, buffer, reporter);
  if (sender_ == nullptr) return Fail("No way to the logs.", Status::NotSupportedByDrive);
  if (sender_->Execute() != 0) return true;
  TakeResult(*sender_);
  buffer_.clear();
  return false;
}

ByteSpan ReadLog::Renew(std::size_t size) {
  buffer_ = {};
  buffer_.resize(size, boost::container::default_init);
  return {buffer_.data(), buffer_.size()};
}

bool ReadLog::ReadBeginning() { return Read(Renew(log_.byteSize), {}, NoReporter()); }

bool ReadLog::Fail(std::string_view text, StatusCode code) {
  MORVU_LOG(kLogError, "Execute", text);
  Note(std::string(text));
  buffer_.clear();
  Function::End(code);
  return false;
}

bool ReadLog::Pass() {
  Function::End(Status::Completed);
  SetPercent(100);
  return true;
}

std::int32_t ReadLog::Execute() {
  MORVU_LOG(kLogInfo, "Execute", "Executing...");
  if (!Read(Renew(log_.byteSize), part_, GetReporter())) return false;
  if (ata_ == nullptr) {
    if (log_.address >= kNvmeLogs || part_.page != 0) {
      Note("An NVMe drive has the logs 0 to 3, without pages: log " +
           std::to_string(log_.address % kNvmeLogs) + " was read from its beginning.");
    }
  } else if (log_.byteSize > kAtaChunk * kBlock) {
    Warn(
        "More than 255 blocks were read, by several commands for the same page: the data are "
        "those of the log only where the drive goes on by itself.");
  }
  return Pass();
}

// ---- Event Log ----

ReadLog_EventLog::ReadLog_EventLog(Device* device, ProgressReporter& reporter)
    : ReadLog(device, reporter) {
  ReadLog_EventLog::Initialize();
}

void ReadLog_EventLog::Initialize() {
  const auto [code, log] = ChooseVendorLog(&EventLog_ATA, EventLog_NVMe);
  log_ = log;
  EndInitialize(code);
}

std::int32_t ReadLog_EventLog::Execute() {
  MORVU_LOG(kLogInfo, "Execute", "Executing...");
  if (nvme_ != nullptr) return ReadNvme();
  return Read(Renew(log_.byteSize), {}, GetReporter()) && Pass();
}

bool ReadLog_EventLog::ReadNvme() {
  if (!ReadBeginning()) return false;
  const auto total = ReadPosition(GetData(), kEndWord);
  if (total == 0 || total > kMostBytes) {
    return Fail("The header of the log tells a size of " + std::to_string(total) + " bytes.",
                Status::FailureInLog);
  }
  return Read(Renew(static_cast<std::size_t>(total)), {}, GetReporter()) && Pass();
}

// ---- NLog ----

ReadLog_Nlog::ReadLog_Nlog(Device* device, ProgressReporter& reporter) : ReadLog(device, reporter) {
  ReadLog_Nlog::Initialize();
}

void ReadLog_Nlog::Initialize() {
  const auto [code, log] = ChooseVendorLog(&Nlog_ATA, Nlog_NVMe);
  log_ = log;
  EndInitialize(code);
}

std::int32_t ReadLog_Nlog::Execute() {
  MORVU_LOG(kLogInfo, "Execute", "Executing...");
  if (!ReadBeginning()) return false;
  return nvme_ != nullptr ? ReadNvme() : ReadAta();
}

bool ReadLog_Nlog::ReadAta() {
  const std::uint64_t total = GetNlogTotalBytes(GetData());
  const auto listed = sender_->GetListedBlocks();
  const auto most = listed.value_or(0xFFFF);
  const auto blocks = BlocksOf(total);
  if (total < kNlogLeastTotal || blocks > most) {
    return Fail("The header of the NLog tells a size of " + std::to_string(total) +
                    " bytes; the drive's directory of logs has " + std::to_string(most * kBlock) +
                    ".",
                Status::UnexpectedNlog);
  }
  // The last entry may end in a block more, which is read where the drive has it.
  const auto whole = BlocksOf(total + kNlogUncounted);
  const auto image = Renew((listed ? std::min<std::size_t>(whole, most) : blocks) * kBlock);
  return Read(image, {}, GetReporter()) && End(FilterNlog_ATA(image));
}

bool ReadLog_Nlog::ReadNvme() {
  const auto first = ReadPosition(GetData(), kFirstWord);
  const auto end = ReadPosition(GetData(), kEndWord);
  if (end < first || end - first > kMostBytes) {
    return Fail("The header of the NLog tells of data from byte " + std::to_string(first) +
                    " to byte " + std::to_string(end) + ".",
                Status::UnexpectedNlog);
  }
  // The header stays in front: positions count from it.
  const auto header = std::move(buffer_);
  const auto image = Renew(kOuterHeader + static_cast<std::size_t>(end - first));
  std::ranges::copy(header, image.begin());
  if (!Read(image.subspan(kOuterHeader), {.offset = kOuterHeader / 4}, GetReporter())) return false;
  return End(FilterNlog_NVMe(image));
}

bool ReadLog_Nlog::End(const FilteredNlog& filtered) {
  const auto& [outcome, size] = filtered;
  buffer_.resize(size);
  if (outcome == NlogFilter::Damaged) {
    constexpr std::string_view kText =
        "An entry of the NLog does not lie inside it: the data are as the drive gave them, with "
        "all entries.";
    MORVU_LOG(kLogError, "Execute", kText);
    Tell({false, std::string(kText)});
    Function::End(Status::UnexpectedNlog);
    SetPercent(100);
    return false;
  }
  if (outcome == NlogFilter::NotKnown) {
    Note("The header of the NLog is of another kind: the data are as the drive gave them.");
  }
  return Pass();
}

}  // namespace Morvu::ReadLog
