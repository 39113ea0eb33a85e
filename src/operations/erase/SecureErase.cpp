#include "operations/erase/SecureErase.h"

#include <algorithm>
#include <chrono>

#include "devices/properties/BasicProperties.h"
#include "devices/properties/ScanProperties.h"
#include "devices/properties/SecurityProperties.h"
#include "frame/Logger.h"
#include "frame/Platform.h"
#include "frame/status/Drives.h"
#include "frame/status/Erase.h"
#include "frame/status/Partitions.h"
#include "frame/status/Requests.h"
#include "operations/Operation.h"
#include "operations/erase/EraseEnd.h"
#include "operations/erase/EraseWitness.h"

namespace Morvu {

using DeviceManagement::Device;
namespace Properties = DeviceManagement::Properties;

namespace {

constexpr std::chrono::seconds kPause{1};

constexpr std::string_view kBarringSystems[] = {"WIN8", "SERVER2012", "WIN8.1", "SERVER2012R2"};
constexpr std::string_view kOpalInUse[] = {"Opal Activated", "Session Started", "Unknown"};

constexpr EraseTexts kTexts = {
    .unable = "Unable to Secure Erase the selected drive.",
    .warning = "WARNING! You have selected to secure erase the drive!",
    .prompt = "Proceed with the secure erase?",
    .begin = "Secure Erasing the drive...",
    .afterwards = "Please power cycle the drive or system in order to update the partition list",
};

constexpr std::string_view kDescriptions[] = {
    "Secure erase the selected drive. The Tool will prompt prior to issuing the secure erase.",
    "WARNING! SECURE ERASE WILL ERASE ALL DATA ON THE DRIVE!",
};
constexpr std::string_view kExamples[] = {"-drive_index 1 -secure_erase"};

bool Contains(std::span<const std::string_view> names, std::string_view name) {
  return std::ranges::find(names, name) != names.end();
}

}  // namespace

struct SecureErase::Rules {
  static bool SystemBars(SecureErase& erase) { return Contains(kBarringSystems, erase.osName_); }
  static bool SecurityUnsupported(SecureErase& erase) {
    return !erase.device_->GetBool(Properties::SecuritySupported) &&
           erase.device_->GetString(Properties::ErrorString).empty();
  }
  static bool OpalInUse(SecureErase& erase) {
    return Contains(kOpalInUse, erase.device_->GetString(Properties::OpalState));
  }
  static bool SecurityEnabled(SecureErase& erase) {
    return erase.device_->GetBool(Properties::SecurityEnabled);
  }
  static bool Frozen(SecureErase& erase) { return erase.IsFrozen(); }

  // clang-format off
  static constexpr Refusal<SecureErase> kTable[] = {
      {OfDevice<Refuse::NotConnected>,       Status::NoCommunication},
      {OfDevice<Refuse::RaidVolume>,         Status::RaidVolume},
      {OfDevice<Refuse::NotMorvu>,           Status::NotAMorvuDrive},
      {OfDevice<Refuse::RaidMember>,         Status::RaidMemberRefused},
      {SystemBars,                           Status::EraseBarredBySystem},
      {OfDevice<Refuse::NoAta>,              Status::NoAtaDriver},
      {OfDevice<Refuse::StorageSpaceMember>, Status::StorageSpaceMember},
      {OfDevice<Refuse::DeviceFault>,        Status::DeviceFault},
      {SecurityUnsupported,                  Status::EraseSecurityUnsupported},
      {OpalInUse,                            Status::OpalActiveOrUnknown},
      {Refuse::PartitionsNotToldTo<SecureErase>, Status::PartitionCheckFailed},
      {Refuse::PartitionMet<SecureErase>,    Status::HasPartition},
      {SecurityEnabled,                      Status::EraseSecurityEnabled},
      {Frozen,                               Status::SecurityFrozen},
  };
  // clang-format on
};

SecureErase::SecureErase(Device* device, const ErasePermit* permit, bool enhanced,
                         ProgressReporter& reporter)
    : Erasure(device, permit, reporter), enhanced_(enhanced) {
  SecureErase::Initialize();
}

void SecureErase::Initialize() {
  BeginInitialize();
  EndInitialize(FirstRefusal<SecureErase>(Rules::kTable, *this));
}

StatusCode SecureErase::Refuse(StatusCode code) {
  const bool isFrozen = code == Status::SecurityFrozen;
  return isFrozen && !StandbyImmediate() ? Status::EraseStandbyFailed : code;
}

std::optional<std::chrono::minutes> SecureErase::GetDuration(
    const DeviceManagement::FreshIdentity& identity) const {
  return enhanced_ ? identity.enhancedEraseTime : identity.eraseTime;
}

std::int32_t SecureErase::Execute() { return BeginErase() && SecureEraseProcess(); }

bool SecureErase::SecureEraseProcess() {
  if (IsFrozen()) {
    MORVU_LOG(kLogError, "SecureEraseProcess", "Security freeze detected. Failing.");
    StandbyImmediate();
    End(Status::SecurityFrozen);
    return false;
  }
  MORVU_LOG(kLogInfo, "SecureEraseProcess", "Security freeze not detected.");
  SetPercent(1);
  if (IsCanceled()) return false;

  EraseWitness witness(*device_);
  const auto code = EraseByPassword();
  if (code == Status::Completed) {
    MORVU_LOG(kLogInfo, "SecureEraseProcess", "Passed.");
    if (const auto remark = DescribeVerdict(witness.Compare())) Tell(*remark);
  }
  if (code != Status::Canceled) End(code);
  return code == Status::Completed;
}

bool SecureErase::IsFrozen() const { return device_->GetBool(Properties::SecurityFrozen); }

StatusCode SecureErase::EraseByPassword() {
  ErasePassword password(*ata_, enhanced_);
  const auto code = SendErase(password);
  const bool isCanceled = code == Status::Canceled;
  if (!isCanceled) SetPercent(95);
  TellPassword(password.TakeOff());
  if (!isCanceled) SetPercent(100);
  return code;
}

StatusCode SecureErase::SendErase(ErasePassword& password) {
  if (password.Set() != Status::Completed) {
    return Fail("Security enable failed.", Status::SetPasswordFailed);
  }
  MORVU_LOG(kLogInfo, "SecureEraseProcess",
            "Security enabled. Password is '" + std::string(ErasePassword::kText) + "'.");
  SetPercent(3);
  SleepFor(kPause);
  SetPercent(10);
  StandbyImmediate();

  if (IsCanceled()) return Status::Canceled;
  SleepFor(kPause);
  if (IsCanceled()) return Status::Canceled;

  // No command may come between prepare and erase, and the fewer can the shorter it is.
  if (ata_->ataSecurityErasePrepare() != Status::Completed) {
    return Fail("Erase Prepare failed.", Status::ErasePrepareFailed);
  }
  MORVU_LOG(kLogInfo, "SecureEraseProcess", "Erase Prepare successful.");
  SetPercent(20);
  SetPercent(40);
  if (password.EraseUnit() != Status::Completed) {
    return Fail("Erase failed.", Status::EraseUnitFailed);
  }
  MORVU_LOG(kLogInfo, "SecureEraseProcess", "Erased successfully.");
  SetPercent(90);
  StandbyImmediate();
  return Status::Completed;
}

bool SecureErase::IsCanceled() {
  if (!IsCancelRequested()) return false;
  MORVU_LOG(kLogWarning, "SecureEraseProcess", "Canceled");
  SetErrorCode(Status::Canceled);
  SetState(FeatureState::Running);
  return true;
}

StatusCode SecureErase::Fail(std::string_view text, StatusCode code) {
  MORVU_LOG(kLogError, "SecureEraseProcess", text);
  return code;
}

void SecureErase::TellPassword(ErasePassword::State state) {
  const auto password = "'" + std::string(ErasePassword::kText) + "'";
  switch (state) {
    case ErasePassword::State::Off:
      MORVU_LOG(kLogInfo, "SecureEraseProcess", "The password was taken off again.");
      return;
    case ErasePassword::State::On:
      Warn(
          "The password could not be taken off: the drive is locked from its next power cycle "
          "on. The password is " +
          password + ".");
      break;
    case ErasePassword::State::Unknown:
      Warn(
          "Whether the password was taken off again could not be seen: the drive may be locked. "
          "The password is " +
          password + ".");
      break;
  }
  MORVU_LOG(kLogError, "SecureEraseProcess", GetRemarks().back().text);
}

StatusCode SecureErase::Runner(Device& device, Face& face, bool enhanced) {
  SecureErase erase(&device, nullptr, enhanced, face.GetReporter());
  return RunErase(erase, face, kTexts);
}

namespace {

// The option has no word for the enhanced erase.
StatusCode RunSecureErase(const FeatureCall& call) {
  return SecureErase::Runner(call.GetDevice(), call.face, call.arguments.GetFlag("EnhancedErase"));
}

StatusCode AssessSecureErase(Device& device) {
  return SecureErase(&device, nullptr, false, NoReporter()).GetErrorCode();
}

constexpr MethodParameter kParameters[] = {{"EnhancedErase", "boolean"}, {"force", "boolean"}};
constexpr StatusCode kHiddenCodes[] = {Status::NotAMorvuDrive, Status::RaidVolume,
                                       Status::NoAtaDriver};
constexpr CimMethod kMethods[] = {
    {.name = "SecureErase",
     .displayName = "Secure Erase",
     .description = "blah blah blah secure erase",
     .category = "advanced",
     .targetType = "device",
     .prompt = true,
     .parameters = kParameters,
     .hasStatus = true,
     .hiddenCodes = kHiddenCodes,
     .assess = &AssessSecureErase,
     .run = &RunAsMethod<RunSecureErase>},
};
constexpr OptionDeclaration kOptions[] = {
    {.name = "-secure_erase",
     .kind = OptionKind::Flag,
     .category = OptionCategory::Feature,
     .descriptions = kDescriptions,
     .arguments = {},
     .examples = kExamples,
     .run = &RunSecureErase},
};

}  // namespace

extern constexpr FeatureRecord SecureEraseRecord = {
    .name = "SecureErase",
    .group = HelpGroup::Erase,
    .destroys = true,
    .needsDrive = true,
    .isSequence = true,
    .methods = kMethods,
    .options = kOptions,
};

}  // namespace Morvu
