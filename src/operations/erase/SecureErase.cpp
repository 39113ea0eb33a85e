#include "operations/erase/SecureErase.h"

#include <algorithm>
#include <array>
#include <chrono>

#include "cli/HeldSignals.h"
#include "frame/Logger.h"
#include "frame/Platform.h"
#include "operations/Operation.h"

namespace Morvu {

using DeviceManagement::CommandSet_ATA;
using DeviceManagement::Device;
using DeviceManagement::SelectedDevices;
using DeviceManagement::TimeoutGuard;
using XmlMessaging::Object;
namespace Properties = DeviceManagement::Properties;

namespace {

// The data of the security commands (ACS-3, table 158): one ATA block.
using PasswordBlock = std::array<std::uint8_t, 512>;
constexpr std::size_t kPasswordOffset = 2;
constexpr std::uint8_t kEnhancedErase = 0x02;  // bit 0 clear: the user password
static_assert(SecureErase::kPassword.size() <= 32);

constexpr std::uint32_t kEraseTimeoutSeconds = 7200;
constexpr std::chrono::seconds kPause{1};

constexpr std::string_view kBarringSystems[] = {"WIN8", "SERVER2012", "WIN8.1", "SERVER2012R2"};
constexpr std::string_view kOpalInUse[] = {"Opal Activated", "Session Started", "Unknown"};

constexpr EraseTexts kTexts = {
    .unable = "Unable to Secure Erase the selected drive.",
    .warning = "WARNING! You have selected to secure erase the drive!",
    .prompt = "Proceed with the secure erase?",
};

constexpr std::string_view kOptionName = "-secure_erase";
constexpr std::string_view kDescriptions[] = {
    "Secure erase the selected drive. The Tool will prompt prior to issuing the secure erase.",
    "WARNING! SECURE ERASE WILL ERASE ALL DATA ON THE DRIVE!",
};
constexpr std::string_view kExamples[] = {"-drive_index 1 -secure_erase"};
constexpr OptionDeclaration kOption = {
    .name = kOptionName,
    .kind = OptionKind::Flag,
    .category = OptionCategory::Feature,
    .descriptions = kDescriptions,
    .arguments = {},
    .examples = kExamples,
};

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
  static bool PartitionsUnknown(SecureErase& erase) {
    return !erase.force_ && Refuse::PartitionsUnknown(*erase.device_);
  }
  static bool PartitionsUnasked(SecureErase& erase) {
    return !erase.force_ && Refuse::PartitionsUnasked(*erase.device_);
  }
  static bool HasPartition(SecureErase& erase) {
    return !erase.force_ && Refuse::HasPartition(*erase.device_);
  }
  static bool SecurityEnabled(SecureErase& erase) {
    return erase.device_->GetBool(Properties::SecurityEnabled);
  }
  // A drive that is going to be power-cycled is put in standby first.
  static bool FrozenAndAwake(SecureErase& erase) {
    return erase.IsFrozen() && !erase.StandbyImmediate();
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
      {PartitionsUnknown,                    Status::NoCommunication},
      {PartitionsUnasked,                    Status::PartitionCheckFailed},
      {HasPartition,                         Status::HasPartition},
      {SecurityEnabled,                      Status::EraseSecurityEnabled},
      {FrozenAndAwake,                       Status::EraseStandbyFailed},
      {Frozen,                               Status::SecurityFrozen},
  };
  // clang-format on
};

SecureErase::SecureErase(Device* device, bool force, bool enhanced,
                         const ProgressReporter* reporter)
    : Function(device, reporter), force_(force), enhanced_(enhanced) {
  SecureErase::Initialize();
}

void SecureErase::Initialize() { EndInitialize(FirstRefusal<SecureErase>(Rules::kTable, *this)); }

std::int32_t SecureErase::Execute() {
  if (!BeginExecute()) return false;
  if (MayErase(*device_, force_)) return SecureEraseProcess();
  End(Status::NoCommunication);
  return false;
}

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

  if (!Send(&CommandSet_ATA::ataSecuritySetPassword)) {
    return Fail("Security enable failed.", Status::SetPasswordFailed);
  }
  MORVU_LOG(kLogInfo, "SecureEraseProcess",
            "Security enabled. Password is '" + std::string(kPassword) + "'.");
  SetPercent(3);
  SleepFor(kPause);
  SetPercent(10);
  StandbyImmediate();

  // No command may come between prepare and erase.
  if (!ErasePrepare()) return Fail("Erase Prepare failed.", Status::ErasePrepareFailed);
  MORVU_LOG(kLogInfo, "SecureEraseProcess", "Erase Prepare successful.");
  SetPercent(20);
  if (IsCanceledLocked()) return false;
  SleepFor(kPause);
  SetPercent(40);
  if (IsCanceledLocked()) return false;
  if (!EraseUnit()) return Fail("Erase failed.", Status::EraseUnitFailed);

  MORVU_LOG(kLogInfo, "SecureEraseProcess", "Erased successfully.");
  SetPercent(90);
  StandbyImmediate();
  End(Status::Completed);
  MORVU_LOG(kLogInfo, "SecureEraseProcess", "Passed.");
  CleanUp();
  return true;
}

bool SecureErase::IsFrozen() const { return device_->GetBool(Properties::SecurityFrozen); }

bool SecureErase::Send(PasswordCommand command) {
  PasswordBlock block{};
  if (enhanced_) block[0] = kEnhancedErase;
  std::ranges::copy(kPassword, block.begin() + kPasswordOffset);
  return (ata_->*command)(block) == Status::Completed;
}

bool SecureErase::ErasePrepare() {
  PasswordBlock block{};
  return ata_->ataSecurityErasePrepare(block) == Status::Completed;
}

bool SecureErase::EraseUnit() {
  const TimeoutGuard timeout(device_->GetPath(), kEraseTimeoutSeconds);
  return Send(&CommandSet_ATA::ataSecurityEraseUnit);
}

bool SecureErase::IsCanceled() {
  if (!IsCancelRequested()) return false;
  MORVU_LOG(kLogWarning, "SecureEraseProcess", "Canceled");
  SetErrorCode(Status::Canceled);
  SetState(FeatureState::Running);
  return true;
}

bool SecureErase::IsCanceledLocked() {
  if (!IsCanceled()) return false;
  Send(&CommandSet_ATA::ataSecurityUnlock);
  Send(&CommandSet_ATA::ataSecurityDisablePassword);
  return true;
}

bool SecureErase::Fail(std::string_view text, StatusCode code) {
  MORVU_LOG(kLogError, "SecureEraseProcess", text);
  End(code);
  CleanUp();
  return false;
}

// Covers every way out on which the password may still be set.
void SecureErase::CleanUp() {
  Send(&CommandSet_ATA::ataSecurityUnlock);
  SetPercent(95);
  Send(&CommandSet_ATA::ataSecurityDisablePassword);
  SetPercent(100);
}

StatusCode SecureErase::Runner(Device& device, QRKCLI* cli, const JobContext& context, bool force,
                               bool enhanced) {
  HeldSignals signals;
  const auto* reporter = cli != nullptr ? signals.GetReporter() : context.reporter;
  SecureErase erase(&device, false, enhanced, reporter);
  const bool hadPartition = erase.GetErrorCode() == Status::HasPartition;
  const auto answer = ConfirmErase(erase.GetErrorCode(), cli, force, kTexts);
  if (answer != Status::ReadyToRun) return answer;

  erase.SetForce(true);
  if (hadPartition) {
    // The partition stood before the drive's security state, which still counts.
    erase.Initialize();
    const auto state = ConfirmErase(erase.GetErrorCode(), cli, true, kTexts);
    if (state != Status::ReadyToRun) return state;
  }
  if (cli != nullptr) {
    cli->PrintLine("Secure Erasing the drive...");
    signals.Hold();
  }
  if (erase.Execute() && hadPartition && cli != nullptr) {
    cli->PrintLine("Please power cycle the drive or system in order to update the partition list");
  }
  return erase.GetErrorCode();
}

std::unique_ptr<Object> SecureErase::Describe(Device* device) {
  if (device == nullptr) return DescribeMethod("SecureErase");
  return DescribeMethod("SecureErase", SecureErase(device, false, false, nullptr).GetErrorCode(),
                        {Status::NotAMorvuDrive, Status::RaidVolume, Status::NoAtaDriver});
}

StatusCode SecureErase::Run(JobContext& context, const Object& method, SelectedDevices& devices) {
  auto* device = BeginMethod(context, devices);
  if (device == nullptr) return Status::NoDeviceSelected;
  return Runner(*device, nullptr, context, GetBoolParameter(method, "force"),
                GetBoolParameter(method, "EnhancedErase"));
}

CLICommand SecureErase::GetFeatureDefinition() { return CLICommand(kOption); }

StatusCode SecureErase::RunCLI(QRKCLI& cli, SelectedDrives devices) {
  const bool isAsked = BeginRunCLI(cli, kOptionName);
  auto* device = GetPickedDrive(cli, devices);
  if (!isAsked || device == nullptr) return cli.Finish(Status::InvalidArguments);
  return cli.Finish(Runner(*device, &cli, JobContext(), cli.HasOption("-force"), false));
}

}  // namespace Morvu
