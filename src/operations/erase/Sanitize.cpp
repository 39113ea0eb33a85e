#include "operations/erase/Sanitize.h"

#include <algorithm>
#include <chrono>

#include "devices/commands/CommandSet_ATA.h"
#include "devices/properties/SecurityProperties.h"
#include "frame/Logger.h"
#include "frame/Platform.h"
#include "frame/status/Drives.h"
#include "frame/status/Erase.h"
#include "frame/status/Partitions.h"
#include "frame/status/Requests.h"
#include "frame/status/Testing.h"
#include "operations/Operation.h"
#include "operations/erase/EraseEnd.h"
#include "operations/erase/EraseWitness.h"

namespace Morvu {

using DeviceManagement::Device;
namespace Properties = DeviceManagement::Properties;

namespace {

// The Count register of SANITIZE STATUS EXT (ACS-3, 7.36.8).
constexpr std::uint16_t kCompleted = 0x8000;  // without error
constexpr std::uint16_t kInProgress = 0x4000;
constexpr std::uint16_t kFrozen = 0x2000;
// LBA 15:0 while no sanitize is under way.
constexpr std::uint16_t kProgressEnd = 0xFFFF;

constexpr std::uint8_t kFailureMode = 0;
constexpr int kMostRounds = 300;
constexpr std::chrono::seconds kRoundPause{1};
constexpr std::int32_t kTopPercent = 80;  // while the drive is at work

// The reasons that a refused SANITIZE command tells in LBA 7:0 (ACS-3, 7.36.8).
constexpr StatusCode kReasonCodes[] = {
    Status::SanitizeReasonNotReported,
    Status::SanitizeUnsuccessful,
    Status::SanitizeUnsupported,
    Status::SanitizeFrozen,
};

constexpr std::string_view kBarringSystems[] = {"WIN8.1", "SERVER2012R2"};

constexpr EraseTexts kTexts = {
    .unable = "Unable to issue sanitize on the selected drive.",
    .warning = "WARNING! You have selected to issue Sanatize command!",
    .prompt = "Proceed with the sanitize?",
    .begin = "Issuing sanitize...",
    .caution = "WARNING! Do not power off the drive while sanitize is executing.",
};

constexpr std::string_view kBlock = "block";
constexpr std::string_view kCrypto = "crypto";
constexpr std::string_view kTypes[] = {kBlock, kCrypto};

constexpr std::string_view kDescriptions[] = {
    "Issue an ATA Sanitize command to the selected drive. The Tool will prompt prior to issuing "
    "the command.",
    "WARNING! SANITIZE WILL ERASE ALL DATA ON THE DRIVE!",
};
constexpr ArgumentDeclaration kArguments[] = {
    {"(type)",
     "(Required) Specify the type of Sanitize erase. Supported values are 'block' and 'crypto'.",
     "SanitizeType", kTypes},
};
constexpr std::string_view kExamples[] = {
    "-drive_index 1 -sanitize block",
    "-drive_index 1 -sanitize crypto",
};

}  // namespace

struct Sanitize::Rules {
  static bool SystemBars(Sanitize& sanitize) {
    return std::ranges::find(kBarringSystems, sanitize.osName_) != std::end(kBarringSystems);
  }
  static bool Unsupported(Sanitize& sanitize) {
    return !sanitize.device_->GetBool(Properties::SanitizeSupported);
  }
  static bool CryptoUnsupported(Sanitize& sanitize) {
    return sanitize.crypto_ &&
           !sanitize.device_->GetBool(Properties::SanitizeCryptoScrambleSupported);
  }
  static bool BlockUnsupported(Sanitize& sanitize) {
    return !sanitize.crypto_ && !sanitize.device_->GetBool(Properties::SanitizeBlockEraseSupported);
  }
  static bool Frozen(Sanitize& sanitize) { return sanitize.IsSanitizeFrozen(); }

  // clang-format off
  static constexpr Refusal<Sanitize> kTable[] = {
      {OfDevice<Refuse::NotConnected>,       Status::NoCommunication},
      {OfDevice<Refuse::RaidVolume>,         Status::RaidVolume},
      {OfDevice<Refuse::NotMorvu>,           Status::NotAMorvuDrive},
      {SystemBars,                           Status::SanitizeBarredBySystem},
      {OfDevice<Refuse::RaidMember>,         Status::RaidMemberRefused},
      {OfDevice<Refuse::NoAta>,              Status::NoAtaDriver},
      {Unsupported,                          Status::SanitizeUnsupported},
      {CryptoUnsupported,                    Status::SanitizeCommandUnsupported},
      {BlockUnsupported,                     Status::SanitizeCommandUnsupported},
      {OfDevice<Refuse::StorageSpaceMember>, Status::StorageSpaceMember},
      {OfDevice<Refuse::DeviceFault>,        Status::DeviceFault},
      {OfDevice<Refuse::FailureReported>,    Status::DisableLogical},
      {Frozen,                               Status::SanitizeFrozen},
      {Refuse::PartitionsNotToldTo<Sanitize>, Status::PartitionCheckFailed},
      {Refuse::PartitionMet<Sanitize>,       Status::HasPartition},
  };
  // clang-format on
};

Sanitize::Sanitize(Device* device, const ErasePermit* permit, bool crypto,
                   ProgressReporter& reporter)
    : Erasure(device, permit, reporter), crypto_(crypto) {
  Sanitize::Initialize();
}

void Sanitize::Initialize() {
  BeginInitialize();
  EndInitialize(FirstRefusal<Sanitize>(Rules::kTable, *this));
}

StatusCode Sanitize::Refuse(StatusCode code) {
  const bool isFrozen = code == Status::SanitizeFrozen;
  return isFrozen && !StandbyImmediate() ? Status::StandbyFailed : code;
}

std::int32_t Sanitize::Execute() {
  if (!BeginErase()) return false;
  EraseWitness witness(*device_);
  const auto code = SanitizeProcess();
  if (code == Status::Completed) {
    if (const auto remark = DescribeVerdict(witness.Compare())) Tell(*remark);
  }
  SetErrorCode(code);
  if (code == Status::Completed) return true;
  SetState(FeatureState::Failed);
  return false;
}

bool Sanitize::IsSanitizeFrozen() {
  if (ata_ == nullptr) return false;
  (void)ata_->ataSanitizeStatus(0);
  return (ata_->GetAnswer().count & kFrozen) != 0;
}

StatusCode Sanitize::SanitizeProcess() {
  StatusCode result = Status::NotRun;
  if (crypto_) {
    MORVU_LOG(kLogInfo, "SanitizeProcess", "Sending Sanitize Crypto Scramble.");
    result = ata_->ataSanitizeCryptoScramble(kFailureMode);
  } else {
    MORVU_LOG(kLogInfo, "SanitizeProcess", "Sending Sanitize Block Erase.");
    result = ata_->ataSanitizeBlockErase(kFailureMode);
  }
  if (result == Status::Completed) return GetSanitizeResult();
  MORVU_LOG(kLogError, "SanitizeProcess",
            "Sanitize command failed with error: " + std::to_string(result.Value()));
  return Status::SanitizeUnsuccessful;
}

StatusCode Sanitize::GetSanitizeResult() {
  for (int round = 0; round < kMostRounds; ++round) {
    StatusCode code = Status::Completed;
    const bool isOver = IsOver(code);
    if (code != Status::Completed) return code;
    if (isOver) {
      SetPercent(100);
    } else if (GetPercent() < kTopPercent) {
      SetPercent(GetPercent() + 1);
    }
    if (IsCancelRequested()) {
      MORVU_LOG(kLogWarning, "GetSanitizeResult", "Canceled");
      return Status::Canceled;
    }
    SleepFor(kRoundPause);
    if (isOver) return Status::Completed;
  }
  return Status::SanitizeTimedOut;
}

bool Sanitize::IsOver(StatusCode& code) {
  const auto result = ata_->ataSanitizeStatus(0);
  const auto answer = ata_->GetAnswer();
  if (result != Status::Completed) {
    const auto reason = static_cast<std::uint8_t>(answer.lba);
    MORVU_LOG(kLogError, "GetSanitizeResult",
              "Sanitize Status command failed. Getting result for Sanitize Command. Sanitize error "
              "code = " +
                  std::to_string(reason));
    code = reason < std::size(kReasonCodes) ? kReasonCodes[reason] : Status::SanitizeFailed;
    return false;
  }
  const auto progress = static_cast<std::uint16_t>(answer.lba);
  MORVU_LOG(kLogInfo, "GetSanitizeResult",
            "Sanitize Progress Indicator = " + std::to_string(progress));
  MORVU_LOG(kLogInfo, "GetSanitizeResult",
            "Sanitize Count field = " + std::to_string(answer.count >> 8));
  // Some adapters hand on the lower half of the count alone, which leaves the progress.
  const bool isTold = answer.Has(DeviceManagement::AtaAnswer::kUpper);
  const bool isIdle = isTold && (answer.count & kInProgress) == 0;
  if (isIdle && (answer.count & kCompleted) == 0) {
    Warn("The drive does not say that the sanitize was completed without error.");
    MORVU_LOG(kLogWarning, "GetSanitizeResult", GetRemarks().back().text);
  }
  return progress == kProgressEnd || isIdle;
}

StatusCode Sanitize::Runner(Device& device, Face& face, std::string_view type) {
  if (type != kBlock && type != kCrypto) return Status::SanitizeCommandUnsupported;
  Sanitize sanitize(&device, nullptr, type == kCrypto, face.GetReporter());
  return RunErase(sanitize, face, kTexts);
}

namespace {

StatusCode RunSanitize(const FeatureCall& call) {
  return Sanitize::Runner(call.GetDevice(), call.face, call.arguments.GetText("SanitizeType"));
}

constexpr MethodParameter kParameters[] = {{"SanitizeType", "string", true}, {"force", "boolean"}};
constexpr CimMethod kMethods[] = {
    {.name = "Sanitize",
     .displayName = "Sanitize",
     .category = "advanced",
     .targetType = "device",
     .prompt = true,
     .parameters = kParameters,
     .run = &RunAsMethod<RunSanitize>},
};
constexpr OptionDeclaration kOptions[] = {
    {.name = "-sanitize",
     .kind = OptionKind::Text,
     .category = OptionCategory::Feature,
     .descriptions = kDescriptions,
     .arguments = kArguments,
     .examples = kExamples,
     .run = &RunSanitize},
};

}  // namespace

extern constexpr FeatureRecord SanitizeRecord = {
    .name = "Sanitize",
    .group = HelpGroup::Erase,
    .destroys = true,
    .needsDrive = true,
    .isSequence = true,
    .methods = kMethods,
    .options = kOptions,
};

}  // namespace Morvu
