#include "operations/testing/DataIntegrity.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>

#include "devices/model/PartitionTable.h"
#include "devices/properties/AdapterProperties.h"
#include "devices/properties/BasicProperties.h"
#include "devices/properties/DriverProperties.h"
#include "devices/system/BlockNode.h"
#include "devices/system/KernelFiles.h"
#include "devices/system/SystemFacts.h"
#include "frame/Bytes.h"
#include "frame/Files.h"
#include "frame/Logger.h"
#include "frame/Platform.h"
#include "frame/RandomNumbers.h"
#include "frame/Text.h"
#include "frame/status/Drives.h"
#include "frame/status/Files.h"
#include "frame/status/Partitions.h"
#include "frame/status/Requests.h"
#include "frame/status/Selection.h"
#include "frame/status/Testing.h"
#include "operations/Operation.h"

namespace Morvu {

using DeviceManagement::BlockNode;
using DeviceManagement::Device;
using DeviceManagement::Partition;
using DeviceManagement::PartitionMount;
namespace Properties = DeviceManagement::Properties;

namespace {

constexpr std::uint64_t kFastSize = 0x4000'0000;   // 1 GiB
constexpr std::uint64_t kLeastFree = 0x4000'0000;  // stays free of it, and a little more
constexpr std::uint64_t kLargestFile = 0xC000'0000;
constexpr std::size_t kPiece = 0x10'0000;
constexpr std::size_t kStampEvery = 4096;
constexpr std::uint8_t kGround = 0x5A;
constexpr double kWriteShare = 65;

constexpr std::string_view kFilePrefix = "--=={Morvu_Integrity_File_";
constexpr std::string_view kUnnamed = "_";

std::string FileName(std::size_t number) {
  return std::string(kFilePrefix) + std::to_string(number) + "}==--.bin";
}

// On these a direct read comes from the medium. On any other the file is dropped from the page
// cache before it is read; one that is kept by a program of its own, as ntfs-3g does it, is read
// by way of the node's cache, which is emptied too.
constexpr std::string_view kDirectTypes[] = {"ext4", "ext3", "ext2", "xfs", "vfat", "btrfs"};

// How many of a file's pages the system holds in memory; none when it cannot be asked.
std::optional<std::size_t> CountCachedPages(int file, std::uint64_t size) {
  constexpr std::uint64_t kWindow = 64 << 20;
  const auto page = static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
  std::size_t count = 0;
  for (std::uint64_t at = 0; at < size; at += kWindow) {
    const auto length = static_cast<std::size_t>(std::min(kWindow, size - at));
    void* mapped = mmap64(nullptr, length, PROT_READ, MAP_SHARED, file, static_cast<off64_t>(at));
    if (mapped == MAP_FAILED) return std::nullopt;
    std::vector<unsigned char> pages((length + page - 1) / page);
    const bool isTold = mincore(mapped, length, pages.data()) == 0;
    munmap(mapped, length);
    if (!isTold) return std::nullopt;
    count += static_cast<std::size_t>(
        std::ranges::count_if(pages, [](unsigned char state) { return (state & 1) != 0; }));
  }
  return count;
}

}  // namespace

struct DataIntegrity::Rules {
  static bool NoPartition(DataIntegrity& test) { return test.partition_ == nullptr; }
  static bool Unnamed(DataIntegrity& test) { return test.partition_->GetName() == kUnnamed; }
  static bool Raw(DataIntegrity& test) { return test.partition_->IsRaw(); }
  // Names are compared whole: /dev/sda1 is not /dev/sda10.
  static bool OfAnother(DataIntegrity& test) {
    const auto own = DeviceManagement::FindPartitionsNow(test.device_->GetPath().GetDevicePath());
    return !own || std::ranges::none_of(*own, [&](const std::string& name) {
      return "/dev/" + name == test.partition_->GetName();
    });
  }

  // clang-format off
  static constexpr Refusal<DataIntegrity> kTable[] = {
      {OfDevice<Refuse::NotConnected>,       Status::NoCommunication},
      {OfDevice<Refuse::ForeignRaidVolume>,  Status::RaidVolume},
      {OfDevice<Refuse::Foreign>,            Status::NotAMorvuDrive},
      {OfDevice<Refuse::RaidMember>,         Status::RaidMemberRefused},
      {OfDevice<Refuse::StorageSpaceMember>, Status::StorageSpaceMember},
      {NoPartition,                          Status::NoPartition},
      {Unnamed,                              Status::NoPartitionLetter},
      {OfAnother,                            Status::NoDeviceSelected},
      {Raw,                                  Status::NoFormattedPartition},
  };
  // clang-format on
};

DataIntegrity::DataIntegrity(Device* device, const Partition* partition, bool full,
                             ProgressReporter& reporter)
    : Function(device, reporter),
      partition_(partition),
      full_(full),
      run_(RandomNumbers::MakeSeed()),
      expected_(kPiece),
      read_(kPiece) {
  DataIntegrity::Initialize();
}

DataIntegrity::~DataIntegrity() = default;

void DataIntegrity::Initialize() {
  auto code = FirstRefusal<DataIntegrity>(Rules::kTable, *this);
  if (code == Status::ReadyToRun) code = Prepare();
  EndInitialize(code);
}

// The mount, and the room that there is without what an earlier run has left.
StatusCode DataIntegrity::Prepare() {
  mount_ = std::make_unique<PartitionMount>(partition_->GetName());
  if (mount_->GetStatus() != Status::Completed) {
    Note(mount_->GetStatus() == Status::DriveHeld
             ? "Another data integrity test runs on this machine."
             : "The partition could not be mounted on " + mount_->GetFolder() + ".");
    return mount_->GetStatus();
  }
  Purge();
  const auto free = mount_->GetFreeBytes();
  if (free < 0) return Status::FreeSpaceUnknown;
  return static_cast<std::uint64_t>(free) > kLeastFree ? Status::ReadyToRun
                                                       : Status::NotEnoughFreeSpace;
}

std::int32_t DataIntegrity::Execute() {
  MORVU_LOG(kLogInfo, "Execute", "Executing...");
  if (mount_ == nullptr || !mount_->IsListed()) {
    End(Status::NoCommunication);
    return false;
  }
  if (!BeginExecute()) return false;
  const bool isPassed = Test();
  Purge();
  if (!isPassed) return false;
  MORVU_LOG(kLogInfo, "Execute", "Passed.");
  SetPercent(100);
  End(Status::Completed);
  return true;
}

bool DataIntegrity::Test() {
  const auto free = mount_->GetFreeBytes();
  if (free < 0) return Stop(Status::FreeSpaceUnknown, "Failed to query free space on partition.");
  // In whole stamps, as direct reads want it.
  const auto room = static_cast<std::uint64_t>(free) / kStampEvery * kStampEvery;
  if (full_) MORVU_LOG(kLogInfo, "Execute", "Full scan selected.");
  const auto target = full_ ? room : kFastSize;
  MORVU_LOG(kLogDebug, "Execute", "Trying to test " + std::to_string(target) + " bytes.");
  MORVU_LOG(kLogInfo, "Execute", "Found " + std::to_string(free) + " bytes free.");
  if (room <= kLeastFree) {
    return Stop(Status::NotEnoughFreeSpace, "Not enough free space on partition.");
  }
  return WriteFiles(target) && VerifyFiles();
}

// ---- Writing ----

bool DataIntegrity::WriteFiles(std::uint64_t target) {
  FileHandle file;
  std::uint64_t written = 0;
  while (written < target) {
    if (IsCancelRequested()) return Cancel();
    if (!file.IsOpen() || sizes_.back() >= kLargestFile) {
      if (file.IsOpen() && !EndFile(file)) return false;
      if (!CreateNext(file)) return false;
    }
    const auto free = mount_->GetFreeBytes();
    if (free < 0) return Stop(Status::FreeSpaceUnknown, "Failed to read freespace.");
    if (static_cast<std::uint64_t>(free) <= kLeastFree) {
      MORVU_LOG(kLogInfo, "Execute", "Done writing data.");
      break;
    }
    const auto size = static_cast<std::size_t>(std::min<std::uint64_t>(kPiece, target - written));
    if (!WritePiece(file, sizes_.back(), size)) return false;
    sizes_.back() += size;
    SetPercent(static_cast<std::int32_t>(static_cast<double>(written) /
                                         static_cast<double>(target) * kWriteShare));
    written += size;
  }
  if (written == 0) return Stop(Status::NotEnoughFreeSpace, "Nothing could be written.");
  return EndFile(file);
}

bool DataIntegrity::CreateNext(FileHandle& file) {
  const auto name = FileName(sizes_.size());
  MORVU_LOG(kLogDebug, "Execute", "Creating new file: " + mount_->GetFolder() + "/" + name + ".");
  file = OpenFileAt(mount_->GetHandle(), name, O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW, 0600);
  if (!file.IsOpen()) {
    return Stop(Status::NotEnoughFreeSpace,
                "File not created: " + mount_->GetFolder() + "/" + name + ".");
  }
  sizes_.push_back(0);
  return true;
}

bool DataIntegrity::WritePiece(const FileHandle& file, std::uint64_t offset, std::size_t size) {
  const auto data = expected_.Get().first(size);
  FillPattern(sizes_.size() - 1, offset, data);
  return WriteWhole(file, data, offset) ||
         Stop(Status::NotEnoughFreeSpace, "Failed to write to file.");
}

// What fsync tells of is a write that failed.
bool DataIntegrity::EndFile(FileHandle& file) {
  int result = 0;
  do {
    result = fsync(file.Get());
  } while (result != 0 && errno == EINTR);
  if (result != 0) return Stop(Status::NotEnoughFreeSpace, "Failed to write to file.");
  posix_fadvise64(file.Get(), 0, 0, POSIX_FADV_DONTNEED);
  file = FileHandle();
  return true;
}

// The ground, and in each 4 KiB whose they are: a write that was lost, or went to another place,
// leaves other bytes than these.
void DataIntegrity::FillPattern(std::uint64_t file, std::uint64_t offset, ByteSpan data) const {
  std::ranges::fill(data, kGround);
  for (std::size_t at = 0; at + kStampEvery <= data.size(); at += kStampEvery) {
    const auto stamp = data.subspan(at);
    WriteLittle(run_, 0, 8, stamp);
    WriteLittle(file, 8, 8, stamp);
    WriteLittle(offset + at, 16, 8, stamp);
  }
}

// ---- Reading ----

bool DataIntegrity::VerifyFiles() {
  MORVU_LOG(kLogInfo, "Execute", "Continuing to read and verify step.");
  const auto writePercent = GetPercent();
  for (std::size_t i = 0; i < sizes_.size(); ++i) {
    if (IsCancelRequested()) return Cancel();
    if (!VerifyFile(i, writePercent)) return false;
  }
  return true;
}

bool DataIntegrity::VerifyFile(std::size_t number, std::int32_t writePercent) {
  const auto name = FileName(number);
  const auto size = sizes_[number];
  MORVU_LOG(kLogInfo, "Execute", "Scanning file: " + mount_->GetFolder() + "/" + name + ".");
  bool isDirect = false;
  const auto file = OpenForReading(name, isDirect);
  struct stat64 told {};
  if (!file.IsOpen()) return Stop(Status::FileNotOpened, "Failed to open file.");
  if (fstat64(file.Get(), &told) != 0) {
    return Stop(Status::FileNotOpened, "Failed to open file to get the file size.");
  }
  if (static_cast<std::uint64_t>(told.st_size) != size) {
    return Stop(Status::DataMismatch, "The file is not as long as it was written.");
  }
  MORVU_LOG(kLogInfo, "Execute",
            "Reading and verifying " + std::to_string(size) + " bytes of data.");
  if (!isDirect) DropFromCache(file, size);
  const auto share = (100 - writePercent) / static_cast<double>(sizes_.size());
  for (std::uint64_t position = 0; position < size;) {
    if (IsCancelRequested()) return Cancel();
    const auto piece = static_cast<std::size_t>(std::min<std::uint64_t>(kPiece, size - position));
    if (ReadPiece(file, position, piece) != piece) {
      return Stop(Status::FileNotRead, "Failed to read from file.");
    }
    const auto expected = expected_.Get().first(piece);
    FillPattern(number, position, expected);
    if (!std::ranges::equal(expected, read_.Get().first(piece))) {
      return Stop(Status::DataMismatch, "Data verification failed.");
    }
    testedBytes_ += piece;
    position += piece;
    const auto part = static_cast<double>(position) / static_cast<double>(size);
    const auto percent = writePercent + (part + static_cast<double>(number)) * share;
    SetPercent(std::min(static_cast<std::int32_t>(percent), 99));
  }
  return true;
}

FileHandle DataIntegrity::OpenForReading(const std::string& name, bool& isDirect) {
  constexpr int kFlags = O_RDONLY | O_NOFOLLOW;
  isDirect = std::ranges::count(kDirectTypes, mount_->GetType()) > 0;
  if (isDirect) {
    auto file = OpenFileAt(mount_->GetHandle(), name, kFlags | O_DIRECT);
    if (file.IsOpen() || errno != EINVAL) return file;
    isDirect = false;
  }
  return OpenFileAt(mount_->GetHandle(), name, kFlags);
}

void DataIntegrity::DropFromCache(const FileHandle& file, std::uint64_t size) {
  const BlockNode node(partition_->GetName(), BlockNode::Access::Plain);
  const bool isFlushed = node.IsOpen() && node.Flush() == 0;
  const bool isDropped = posix_fadvise64(file.Get(), 0, 0, POSIX_FADV_DONTNEED) == 0;
  const auto cached = CountCachedPages(file.Get(), size);
  if ((isFlushed && isDropped && cached == 0) || isCacheTold_) return;
  isCacheTold_ = true;
  Warn("Some of the data may have been read from the system's memory, not from the drive.");
}

std::size_t DataIntegrity::ReadPiece(const FileHandle& file, std::uint64_t offset,
                                     std::size_t size) {
  auto data = read_.Get().first(size);
  std::ranges::fill(data, std::uint8_t{0});  // a read that brings nothing must not pass
  std::size_t at = 0;
  while (at < size) {
    const auto count =
        pread64(file.Get(), data.data() + at, size - at, static_cast<off64_t>(offset + at));
    if (count < 0 && errno == EINTR) continue;
    if (count <= 0) return at;
    const auto end = at + static_cast<std::size_t>(count);
    // A short direct read goes on from the last whole block of it; one without any is the file's
    // end, which another process has put there.
    const auto whole = end == size ? end : end / kStampEvery * kStampEvery;
    if (whole <= at) return end;
    at = whole;
  }
  return at;
}

// ---- The end ----

void DataIntegrity::Purge() {
  for (const auto& name :
       DeviceManagement::ListFolderAt(mount_->GetHandle()).value_or(std::vector<std::string>())) {
    if (name.starts_with(kFilePrefix)) unlinkat(mount_->GetHandle(), name.c_str(), 0);
  }
  RemoveTestFiles(kFilePrefix);
}

bool DataIntegrity::Stop(StatusCode code, std::string_view line) {
  MORVU_LOG(kLogError, "Execute", line);
  Note(std::string(line));
  End(code);
  return false;
}

bool DataIntegrity::Cancel() {
  MORVU_LOG(kLogInfo, "Execute", "Stopped.");
  SetErrorCode(Status::Canceled);
  SetState(FeatureState::Running);
  return false;
}

// ---- Both faces ----

StatusCode DataIntegrity::Runner(Device& device, const Partition* partition, bool full, Face& face,
                                 ProgressReporter& reporter) {
  DataIntegrity test(&device, partition, full, reporter);
  if (test.GetErrorCode() == Status::ReadyToRun) {
    test.Execute();
    face.Say("Tested " + std::to_string(test.GetTestedBytes()) + " bytes in " +
             std::to_string(test.GetFileCount()) + " files.");
    face.Report("BytesTested", test.GetTestedBytes());
  }
  TellRemarks(test, face);
  return test.GetErrorCode();
}

namespace {

constexpr std::string_view kType = "type";
constexpr std::string_view kFull = "full", kFast = "fast";

constexpr std::string_view kDescriptions[] = {
    "Execute a data integrity scan on the selected drive."};
constexpr std::string_view kTypeWords[] = {kFast, kFull};
constexpr ArgumentDeclaration kArguments[] = {
    {"[type]",
     "(Optional) Type of data integrity scan to run. Supported types are: fast, full. Defaults to "
     "fast",
     kType, kTypeWords},
};
constexpr std::string_view kExamples[] = {"-drive_index 1 -data_integrity",
                                          "-drive_index 1 -data_integrity full"};

// A drive that lost data: of several partitions, no refusal of another may hide it.
bool HasFoundFault(StatusCode code) {
  constexpr StatusCode kFaults[] = {Status::DataMismatch, Status::FileNotRead,
                                    Status::FileNotOpened};
  return std::ranges::count(kFaults, code) > 0;
}

// A person's test goes over all partitions of the drive; the last code that is not good counts.
StatusCode RunDataIntegrity(const FeatureCall& call) {
  const auto type = call.arguments.GetText(kType, kFast);
  if (type != kFull && type != kFast) return Status::InvalidArguments;
  auto& device = call.GetDevice();
  const auto& partitions = device.GetPartitions();
  auto& reporter = call.face.GetReporter();
  if (partitions.empty()) return DataIntegrity::Runner(device, nullptr, false, call.face, reporter);
  StatusCode overall = Status::Completed;
  call.face.Begin("");
  for (std::size_t i = 0; i < partitions.size(); ++i) {
    call.face.Say("Running data integrity on the following partition: ");
    ResultTable table;
    AppendPartition(table, partitions[i], partitions[i].ReadSpace());
    call.face.Show(table);
    call.face.Say();
    InnerReporter part(reporter, i, partitions.size());
    const auto code = DataIntegrity::Runner(device, &partitions[i], type == kFull, call.face, part);
    if (partitions.size() > 1) call.face.Say("Partition Result: " + GetStatusText(code));
    if (code == Status::Canceled) return code;
    if (code != Status::Completed && (HasFoundFault(code) || !HasFoundFault(overall))) {
      overall = code;
    }
  }
  return overall;
}

StatusCode RunDataIntegrityMethod(const FeatureCall& call, JobContext&) {
  if (call.partitions.size() != 1) return Status::NoDeviceSelected;
  return DataIntegrity::Runner(call.GetDevice(), &call.partitions.front(),
                               call.arguments.GetFlag(kFull), call.face, call.face.GetReporter());
}

// By what is known: a list mounts nothing and sends nothing.
StatusCode AssessDataIntegrity(Device& device) {
  const bool isRaid = device.GetBool(Properties::MorvuRAID);
  if (Refuse::RaidVolume(device) && !isRaid) return Status::RaidVolume;
  if (Refuse::NotMorvu(device) && !isRaid) return Status::NotAMorvuDrive;
  if (Refuse::RaidMember(device)) return Status::RaidMemberRefused;
  if (Refuse::StorageSpaceMember(device)) return Status::StorageSpaceMember;
  return device.GetPartitions().empty() ? Status::NoPartition : Status::ReadyToRun;
}

constexpr MethodParameter kParameters[] = {{kFull, "boolean"}};
constexpr StatusCode kHiddenCodes[] = {Status::RaidVolume, Status::RaidMemberRefused,
                                       Status::NotAMorvuDrive};
constexpr CimMethod kMethods[] = {
    {.name = "DataIntegrity",
     .displayName = "Data Integrity",
     .category = "standard",
     .targetType = "partition",
     .parameters = kParameters,
     .hasStatus = true,
     .hiddenCodes = kHiddenCodes,
     .assess = &AssessDataIntegrity,
     .run = &RunDataIntegrityMethod},
};
constexpr OptionDeclaration kOptions[] = {
    {.name = "-data_integrity",
     .kind = OptionKind::Texts,
     .category = OptionCategory::Feature,
     .descriptions = kDescriptions,
     .arguments = kArguments,
     .examples = kExamples,
     .run = &RunDataIntegrity},
};

}  // namespace

extern constexpr FeatureRecord DataIntegrityRecord = {
    .name = "DataIntegrity",
    .group = HelpGroup::Test,
    .needsDrive = true,
    .isShared = true,
    .methods = kMethods,
    .options = kOptions,
};

}  // namespace Morvu
