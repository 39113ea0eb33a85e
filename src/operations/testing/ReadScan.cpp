#include "operations/testing/ReadScan.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <limits>

#include "devices/commands/CommandSet_ATA.h"
#include "devices/commands/CommandSet_NVME.h"
#include "devices/commands/CommandSet_SCSI.h"
#include "devices/identification/FreshIdentity.h"
#include "devices/model/Medium.h"
#include "devices/properties/BasicProperties.h"
#include "devices/properties/SecurityProperties.h"
#include "frame/Logger.h"
#include "frame/RandomNumbers.h"
#include "frame/Text.h"
#include "frame/status/Commands.h"
#include "frame/status/Drives.h"
#include "operations/Operation.h"
#include "operations/testing/BlockReader.h"

namespace Morvu {

using DeviceManagement::Device;
using DeviceManagement::TimeoutGuard;
namespace Properties = DeviceManagement::Properties;

namespace {

// A drive's own recovery of a sector takes longer than a path's five seconds, at which the
// kernel would reset the link in the middle of it.
constexpr std::chrono::seconds kLeastTimeout{30};
constexpr std::chrono::seconds kDetailPause{1};

// The next smaller read behind one that was lost on the way.
constexpr std::uint32_t LowerCount(std::uint32_t count) { return count < 128 ? 1 : 127; }

std::int32_t PercentOf(std::uint64_t done, std::uint64_t all) {
  constexpr std::int32_t kLastBeforeEnd = 99;
  const auto percent = static_cast<double>(done) * 100.0 / static_cast<double>(all);
  return std::min(static_cast<std::int32_t>(percent), kLastBeforeEnd);
}

std::string OneDecimal(double value) {
  char text[64];
  std::snprintf(text, sizeof text, "%.1f", value);
  return text;
}

std::string Milliseconds(std::chrono::microseconds time) {
  return OneDecimal(static_cast<double>(time.count()) / 1e3) + " ms";
}

std::string Range(std::uint64_t first, std::uint64_t last) {
  return "LBA " + std::to_string(first) + " to " + std::to_string(last);
}

}  // namespace

struct ReadScan::Rules {
  // clang-format off
  static bool IsUnreadableMember(ReadScan& scan) {
    const auto product = scan.device_->GetString(Properties::Product);
    return Refuse::RaidMember(*scan.device_) && (product == "Yarrowick" || product == "Yarrowick SLC");
  }
  static constexpr Refusal<ReadScan> kTable[] = {
      {OfDevice<Refuse::NotConnected>, Status::NoCommunication},
      {OfDevice<Refuse::RaidVolume>,   Status::RaidVolume},
      {OfDevice<Refuse::NotMorvu>,     Status::NotAMorvuDrive},
      {IsUnreadableMember,             Status::RaidMemberRefused},
      {OfDevice<Refuse::DeviceFault>,  Status::DeviceFault},
  };
  // clang-format on
};

ReadScan::ReadScan(Device* device, const ReadScanPlan& plan, ProgressReporter& reporter)
    : Function(device, reporter), plan_(plan), blockCount_(BlockReader::kMostBlocks) {
  ReadScan::Initialize();
}

void ReadScan::Initialize() { EndInitialize(FirstRefusal<ReadScan>(Rules::kTable, *this)); }

double ReadScan::GetRate() const {
  const auto seconds = std::chrono::duration<double>(findings_.elapsed).count();
  if (seconds <= 0) return 0;
  return static_cast<double>(findings_.blocks) * blockSize_ / seconds;
}

std::int32_t ReadScan::Execute() {
  if (!BeginExecute() || !Prepare()) return false;
  auto& path = device_->GetCommandPath();
  const TimeoutGuard timeout(path, std::max(kLeastTimeout, path.GetTimeout()));
  BlockReader reader(*device_, blockSize_);
  if (reader.GetStatus() != Status::Completed) {
    Note("The drive's disk could not be opened for reading.");
    return Fail(reader.GetStatus());
  }
  begin_ = shown_ = Clock::now();
  const bool isPassed = Scan(reader);
  findings_.elapsed = std::chrono::duration_cast<std::chrono::microseconds>(Clock::now() - begin_);
  if (!isPassed) return false;
  MORVU_LOG(kLogInfo, "Execute", "Passed.");
  SetPercent(100);
  End(Status::Completed);
  return true;
}

// The sizes by which all is reckoned, and a range that lies on the drive.
bool ReadScan::Prepare() {
  const auto blocks = DeviceManagement::CountBlocks(*device_);
  const auto blockSize = DeviceManagement::GetBlockSize(*device_);
  constexpr std::uint64_t kLeast = 2;  // block 0, and one to scan
  // Behind what an offset in bytes holds another block would be read in the place of the one meant.
  constexpr std::uint64_t kMostBytes = std::numeric_limits<off64_t>::max();
  if (!blocks || !blockSize || *blocks < kLeast || *blocks > kMostBytes / *blockSize) {
    Note("The drive does not tell a size that could be scanned.");
    return Fail(Status::NoCommunication);
  }
  blocks_ = *blocks;
  blockSize_ = *blockSize;
  if (plan_.kind == ReadScanPlan::Kind::Random) {
    if (plan_.count != 0) return true;
    Note("Nothing was read: the number of LBAs is 0.");
    return Fail(Status::InvalidArguments);
  }
  if (plan_.kind == ReadScanPlan::Kind::Full) {
    plan_.first = 1;
    plan_.last = blocks_;
  }
  if (plan_.last <= plan_.first || plan_.first >= blocks_) {
    Note("Nothing was read: the drive's last LBA is " + std::to_string(blocks_ - 1) + ".");
    return Fail(Status::InvalidArguments);
  }
  if (plan_.last > blocks_) {
    plan_.last = blocks_;
    MORVU_LOG(kLogInfo, "ExecuteCustom",
              "Input LBA was larger than the max LBA. Changing last LBA to " +
                  std::to_string(plan_.last));
    Note("The range ends with the drive's last LBA, " + std::to_string(blocks_ - 1) + ".");
  }
  return true;
}

bool ReadScan::Scan(BlockReader& reader) {
  if (IsCancelRequested()) return Cancel();
  if (ReadSome(reader, 0, 1) == 0) return false;
  // It tells whether the drive can be read at all, and is of a full scan's range alone. That it
  // took long, out of standby, tells nothing of the others.
  if (plan_.kind != ReadScanPlan::Kind::Full) {
    findings_ = {};
    begin_ = shown_ = Clock::now();
  }
  return plan_.kind == ReadScanPlan::Kind::Random ? ExecuteRandom(reader) : ExecuteCustom(reader);
}

bool ReadScan::ExecuteRandom(BlockReader& reader) {
  MORVU_LOG(kLogInfo, "ExecuteRandom",
            "Randomly scanning " + std::to_string(plan_.count) + " LBAs.");
  constexpr std::uint64_t kFirst = 1;
  RandomNumbers random(plan_.seed);
  for (auto remaining = plan_.count; remaining > 0;) {
    if (IsCancelRequested()) return Cancel();
    const auto lba = kFirst + random.Below(blocks_ - kFirst);
    const auto count = ReadSome(reader, lba, std::min(remaining, blocks_ - lba));
    if (count == 0) return false;
    remaining -= count;
    ShowProgress(plan_.count - remaining, plan_.count);
  }
  return true;
}

bool ReadScan::ExecuteCustom(BlockReader& reader) {
  const auto all = plan_.last - plan_.first;
  MORVU_LOG(kLogInfo, "ExecuteCustom", "Scanning " + std::to_string(all) + " LBAs.");
  for (auto lba = plan_.first; lba < plan_.last;) {
    if (IsCancelRequested()) return Cancel();
    const auto count = ReadSome(reader, lba, plan_.last - lba);
    if (count == 0) return false;
    lba += count;
    ShowProgress(lba - plan_.first, all);
  }
  return true;
}

std::uint32_t ReadScan::ReadSome(BlockReader& reader, std::uint64_t lba, std::uint64_t most) {
  auto count = static_cast<std::uint32_t>(std::min<std::uint64_t>(most, blockCount_));
  auto read = ReadTimed(reader, lba, count);
  if (read.end == BlockRead::End::Transport) {
    if (IsCancelRequested()) {
      Cancel();
      return 0;
    }
    // One that was short of itself, of block 0 or at the drive's end, tells nothing of longer ones.
    const bool isWhole = count == blockCount_;
    count = std::min(count, LowerCount(count));
    if (isWhole) blockCount_ = count;
    MORVU_LOG(kLogWarning, "ReadSome",
              "A read was lost on the way to or from the drive; from here on " +
                  std::to_string(blockCount_) + " blocks are read at a time.");
    read = ReadTimed(reader, lba, count);
  }
  if (read.end != BlockRead::End::Good) {
    FailRead(reader, lba, count, read);
    return 0;
  }
  KeepRead(lba, count);
  return count;
}

BlockRead ReadScan::ReadTimed(BlockReader& reader, std::uint64_t lba, std::uint32_t count) {
  const auto begin = Clock::now();
  const auto read = reader.Read(lba, count);
  const auto time = std::chrono::duration_cast<std::chrono::microseconds>(Clock::now() - begin);
  if (time > findings_.slowest) {
    findings_.slowest = time;
    findings_.slowestLba = lba;
  }
  return read;
}

void ReadScan::KeepRead(std::uint64_t lba, std::uint32_t count) {
  const auto last = lba + count - 1;
  const bool isFirst = findings_.blocks == 0;
  findings_.first = isFirst ? lba : std::min(findings_.first, lba);
  findings_.last = isFirst ? last : std::max(findings_.last, last);
  findings_.blocks += count;
}

// The detail first: it goes with the percent.
void ReadScan::ShowProgress(std::uint64_t done, std::uint64_t all) {
  const auto now = Clock::now();
  if (now - shown_ >= kDetailPause) {
    shown_ = now;
    findings_.elapsed = std::chrono::duration_cast<std::chrono::microseconds>(now - begin_);
    SetDetail(OneDecimal(GetRate() / 1e6) + " MB/s, slowest read " +
              Milliseconds(findings_.slowest));
  }
  SetPercent(PercentOf(done, all));
}

// Where nothing tells which block of a read failed, each is read by itself up to the first one
// that fails. A cancel, or a read that is lost, leaves the range as it is known.
void ReadScan::Narrow(BlockReader& reader, std::uint64_t lba, std::uint32_t count) {
  for (std::uint32_t i = 0; i < count && !IsCancelRequested(); ++i) {
    const auto read = ReadTimed(reader, lba + i, 1);
    if (read.end == BlockRead::End::Transport) return;
    if (read.end == BlockRead::End::Good) continue;
    findings_.failed = {lba + i, lba + i};
    return;
  }
}

bool ReadScan::FailRead(BlockReader& reader, std::uint64_t lba, std::uint32_t count,
                        const BlockRead& read) {
  // Of a disk's reads the system has but an error of input and output for it.
  const bool isSanitizing = (ata_ == nullptr || read.isAborted) && IsSanitizing();
  const bool isDrives = read.end == BlockRead::End::Drive || isSanitizing;
  findings_.failed = {lba, lba + count - 1};
  if (read.failed) {
    findings_.failed = {*read.failed, *read.failed};
  } else if (isDrives && !isSanitizing && count > 1) {
    Narrow(reader, lba, count);
  }
  const auto& [first, last] = *findings_.failed;
  const auto where = first == last
                         ? std::to_string(first)
                         : "between " + std::to_string(first) + " and " + std::to_string(last);
  const auto line = "Failed reading LBA " + where + ".";
  MORVU_LOG(kLogError, "FailRead", line);
  Note(line);
  if (read.isAborted) ExplainAbort();
  if (isSanitizing) {
    Note("A sanitize is in progress, and the drive reads nothing before its end.");
  }
  if (!isDrives) Note("The read was lost on the way to or from the drive.");
  return Fail(isDrives ? Status::ReadError : Status::NoAtaDriver);
}

// A drive that refuses each read has not met a bad block.
void ReadScan::ExplainAbort() {
  const auto identity = DeviceManagement::ReadFreshIdentity(*device_);
  if (identity && identity->properties.GetBool(Properties::SecurityLocked)) {
    Note("The drive is locked by a password, and reads nothing before it is unlocked.");
  }
}

bool ReadScan::IsSanitizing() {
  if (ata_ != nullptr) {
    constexpr std::uint16_t kInProgress = 0x4000;  // SANITIZE STATUS EXT (ACS-3, 7.36.7)
    return device_->GetBool(Properties::SanitizeSupported) &&
           ata_->ataSanitizeStatus(0) == Status::Completed &&
           (ata_->GetAnswer().count & kInProgress) != 0;
  }
  if (nvme_ != nullptr) {
    // Sanitize Status log (NVM Express 1.3, 5.14.1.9.2): the state of the latest sanitize.
    constexpr std::uint8_t kLog = 0x81, kState = 0x07, kInProgress = 0x02;
    constexpr std::uint32_t kController = 0xFFFFFFFF;  // in place of a namespace
    std::array<std::uint8_t, 512> log{};
    return nvme_->nvmeGetLogPage(kLog, log.size() / 4, kController, log) == Status::Completed &&
           (log[2] & kState) == kInProgress;
  }
  if (scsi_ == nullptr) return false;
  (void)scsi_->Send(DeviceManagement::ScsiRow::TestUnitReady);
  return device_->GetCommandPath().GetOutcome().sense.IsSanitizing();
}

bool ReadScan::Fail(StatusCode code) {
  End(code);
  return false;
}

bool ReadScan::Cancel() {
  MORVU_LOG(kLogWarning, "Execute", "Canceled");
  SetErrorCode(Status::Canceled);
  SetState(FeatureState::Running);
  return false;
}

// ---- Both faces ----

namespace {

std::string DescribePlan(const ReadScanPlan& plan) {
  switch (plan.kind) {
    case ReadScanPlan::Kind::Full:
      return "Reading every LBA of the drive.";
    case ReadScanPlan::Kind::Custom:
      return "Reading " + Range(plan.first, plan.last - 1) + ".";
    case ReadScanPlan::Kind::Random:
      break;
  }
  return "Reading " + std::to_string(plan.count) + " LBAs in random places (seed " +
         std::to_string(plan.seed) + ").";
}

void TellFindings(const ReadScan& scan, Face& face) {
  const auto& findings = scan.GetFindings();
  face.Report("BlocksRead", findings.blocks);
  if (findings.blocks != 0) {
    const auto seconds = std::chrono::duration<double>(findings.elapsed).count();
    face.Say("Read " + std::to_string(findings.blocks) + " LBAs, " +
             Range(findings.first, findings.last) + ", in " + OneDecimal(seconds) +
             " s: " + OneDecimal(scan.GetRate() / 1e6) + " MB/s.");
    face.Say("The slowest read took " + Milliseconds(findings.slowest) + ", at LBA " +
             std::to_string(findings.slowestLba) + ".");
    face.Report("FirstLBA", findings.first);
    face.Report("LastLBA", findings.last);
    face.Report("BytesPerSecond", static_cast<std::uint64_t>(scan.GetRate()));
    face.Report("SlowestReadMicroseconds", static_cast<std::uint64_t>(findings.slowest.count()));
    face.Report("SlowestReadLBA", findings.slowestLba);
  }
  if (!findings.failed) return;
  const auto& [first, last] = *findings.failed;
  if (first == last) return face.Report("FailingLBA", first);
  face.Report("FailingFirstLBA", first);
  face.Report("FailingLastLBA", last);
}

}  // namespace

StatusCode ReadScan::Runner(Device& device, const ReadScanPlan& plan, Face& face) {
  ReadScan scan(&device, plan, face.GetReporter());
  if (scan.GetErrorCode() != Status::ReadyToRun) return scan.GetErrorCode();
  face.Begin(DescribePlan(plan));
  scan.Execute();
  TellFindings(scan, face);
  TellRemarks(scan, face);
  return scan.GetErrorCode();
}

namespace {

constexpr std::string_view kTarget = "target", kEnd = "end";
constexpr std::string_view kFull = "full", kFast = "fast";
constexpr std::string_view kSeed = "seed", kSeedOption = "-seed";

constexpr std::string_view kName = "[(number) | (type) | (begin) (end)]";
constexpr std::string_view kDescriptions[] = {
    "Execute a read scan test on the selected drive. Default behavior is a fast read scan."};
constexpr ArgumentDeclaration kArguments[] = {
    {kName, "(Optional) Can specify the type of read scan to perform.", kTarget},
    {kName, "(number) - Specify to randomly read that number of LBAs from the selected drive."},
    {kName, "(type) - Specify fast or full to run corresponding read scan."},
    {kName,
     "(begin) (end) - Execute a read scan on the selected drive from LBA (begin) to LBA (end)."},
};
constexpr std::string_view kExamples[] = {
    "-drive_index 1 -read_scan",
    "-drive_index 1 -read_scan 1000000",
    "-drive_index 1 -read_scan fast",
    "-drive_index 1 -read_scan 0 1000000",
};

constexpr std::string_view kSeedText[] = {
    "Used with -read_scan to repeat a random scan: the same seed reads the same LBAs in the same "
    "order on a drive of the same size."};
constexpr ArgumentDeclaration kSeedArguments[] = {
    {"(number)", "(Required) The seed that a scan before has printed."}};
constexpr std::string_view kSeedExamples[] = {"-drive_index 1 -read_scan fast -seed 42"};

// Nothing, and a line says why, for words that are no plan. A number that 64 bits do not hold is
// none.
std::optional<ReadScanPlan> ParseWords(const CallArguments& arguments, Face& face) {
  using Kind = ReadScanPlan::Kind;
  const auto target = arguments.GetText(kTarget);
  const auto end = arguments.GetText(kEnd);
  const auto number = ParseDecimal(target);
  if (end.empty()) {
    if (target.empty() || target == kFast) return ReadScanPlan{};
    if (target == kFull) return ReadScanPlan{.kind = Kind::Full};
    if (number) return ReadScanPlan{.count = *number};
    face.Say("Error: \"" + target + "\" is neither fast, full nor a number of LBAs.");
    return std::nullopt;
  }
  if (end.find(' ') != end.npos) {
    face.Say("Error: Too many arguments given for -read_scan. See -help for proper usage.");
    return std::nullopt;
  }
  const auto last = ParseDecimal(end);
  if (!number || !last) {
    face.Say("Error: Non-numerical values given for a custom read scan.");
    return std::nullopt;
  }
  if (*last <= *number) {
    face.Say("Error: ending LBA must be greater than the starting LBA.");
    return std::nullopt;
  }
  return ReadScanPlan{.kind = Kind::Custom, .first = *number, .last = *last};
}

StatusCode RunPlan(const FeatureCall& call, ReadScanPlan plan, std::string_view seedName) {
  plan.seed = RandomNumbers::MakeSeed();
  if (call.arguments.Has(seedName)) {
    const auto seed = ParseDecimal(call.arguments.GetText(seedName));
    if (!seed) return Status::InvalidArguments;
    plan.seed = *seed;
  }
  return ReadScan::Runner(call.GetDevice(), plan, call.face);
}

StatusCode RunReadScan(const FeatureCall& call) {
  const auto plan = ParseWords(call.arguments, call.face);
  return plan ? RunPlan(call, *plan, kSeedOption) : Status::InvalidArguments;
}

StatusCode RunReadScanMethod(const FeatureCall& call, JobContext&) {
  ReadScanPlan plan;
  if (call.arguments.GetFlag(kFull)) plan.kind = ReadScanPlan::Kind::Full;
  return RunPlan(call, plan, kSeed);
}

// By what is known: a list sends the drive nothing, least of all reads.
StatusCode AssessReadScan(Device& device) {
  if (Refuse::RaidVolume(device)) return Status::RaidVolume;
  return Refuse::NotMorvu(device) ? Status::NotAMorvuDrive : Status::ReadyToRun;
}

constexpr MethodParameter kParameters[] = {{kFull, "boolean"}, {kSeed, "uint64"}};
constexpr StatusCode kHiddenCodes[] = {Status::NotAMorvuDrive, Status::RaidVolume};
constexpr CimMethod kMethods[] = {
    {.name = "ReadScan",
     .displayName = "Read Scan",
     .category = "standard",
     .targetType = "device",
     .parameters = kParameters,
     .hiddenCodes = kHiddenCodes,
     .assess = &AssessReadScan,
     .run = &RunReadScanMethod},
};
constexpr OptionDeclaration kOptions[] = {
    {.name = "-read_scan",
     .kind = OptionKind::Texts,
     .category = OptionCategory::Feature,
     .descriptions = kDescriptions,
     .arguments = kArguments,
     .examples = kExamples,
     .run = &RunReadScan,
     .restArgument = kEnd},
    {.name = kSeedOption,
     .kind = OptionKind::Numbers,
     .category = OptionCategory::Modifier,
     .descriptions = kSeedText,
     .arguments = kSeedArguments,
     .examples = kSeedExamples,
     .scan = OptionScan::Any},
};

}  // namespace

extern constexpr FeatureRecord ReadScanRecord = {
    .name = "ReadScan",
    .group = HelpGroup::Test,
    .needsDrive = true,
    .isShared = true,
    .onSeveral = OnSeveral::Each,
    .methods = kMethods,
    .options = kOptions,
};

}  // namespace Morvu
