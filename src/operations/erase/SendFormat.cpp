#include "operations/erase/SendFormat.h"

#include "devices/commands/CommandSet_NVME.h"
#include "devices/properties/BasicProperties.h"
#include "frame/Logger.h"
#include "frame/status/Drives.h"
#include "frame/status/Partitions.h"
#include "operations/Operation.h"
#include "operations/erase/Sanitize.h"
#include "operations/erase/SecureErase.h"

namespace Morvu {

using DeviceManagement::Device;
using DeviceManagement::NvmeCompletion;
using DeviceManagement::PropertyList;
using DeviceManagement::TimeoutGuard;
namespace Properties = DeviceManagement::Properties;

namespace {

constexpr std::uint32_t kFormatTimeoutSeconds = 7200;

void LogStatus(std::string_view text, StatusCode code) {
  MORVU_LOG(kLogInfo, "Initialize", std::string(text) + std::to_string(code.Value()));
}

// Numbered from 1, while logical units are numbered from 0; 0 when it is not known.
std::uint32_t GetNamespace(const PropertyList& properties) {
  const auto* unit = properties.Find(Properties::Lun);
  if (unit == nullptr || !unit->HasValue()) return 0;
  return static_cast<std::uint32_t>(unit->AsUnsigned()) + 1;
}

}  // namespace

struct SendFormat::Rules {
  static constexpr Refusal<SendFormat> kTable[] = {
      {Unforced<Refuse::PartitionsUnknown>, Status::NoCommunication},
      {Unforced<Refuse::PartitionsUnasked>, Status::PartitionCheckFailed},
      {Unforced<Refuse::HasPartition>, Status::HasPartition},
  };
};

void SendFormat::Initialize() {
  SetErrorCode(FirstRefusal<SendFormat>(Rules::kTable, *this));
  LogStatus("Send Format - Status = ", GetErrorCode());
}

// ---- ATA ----

SendFormat_ATA::SendFormat_ATA(Device* device, std::uint8_t secureErase, bool force,
                               ProgressReporter& reporter)
    : SendFormat(device, {.secureErase = secureErase}, force, reporter) {
  SendFormat_ATA::Initialize();
}

void SendFormat_ATA::Initialize() {
  SetErrorCode(ChooseErase()->GetErrorCode());
  LogStatus("Send Format ATA - Initialize with status = ", GetErrorCode());
}

std::int32_t SendFormat_ATA::Execute() {
  const auto erase = ChooseErase();
  if (erase->GetErrorCode() != Status::ReadyToRun) {
    // What a partition hid before, such as a password of the drive's owner.
    End(erase->GetErrorCode());
    return false;
  }
  const auto result = erase->Execute();
  TakeResult(*erase);
  return result;
}

std::unique_ptr<Function> SendFormat_ATA::ChooseErase() {
  auto erase = std::make_unique<SecureErase>(device_, force_, enhanced_, GetReporter());
  auto sanitize = std::make_unique<Sanitize>(device_, force_, enhanced_, GetReporter());
  const bool isWindows8 = osName_ == "WIN8";
  const bool mayErase =
      erase->GetErrorCode() != Status::SecurityFrozen && !isWindows8 && osName_ != "WIN8.1";
  const bool maySanitize = sanitize->GetErrorCode() == Status::ReadyToRun || isWindows8;
  if (!mayErase && maySanitize) return sanitize;
  return erase;
}

// ---- NVMe ----

SendFormat_NVMe::SendFormat_NVMe(Device* device, const FormatSettings& settings, bool force,
                                 ProgressReporter& reporter)
    : SendFormat(device, settings, force, reporter) {
  SendFormat_NVMe::Initialize();
}

void SendFormat_NVMe::Initialize() {
  SendFormat::Initialize();
  LogStatus("Send Format NVMe - Status = ", GetErrorCode());
}

std::int32_t SendFormat_NVMe::Execute() {
  if (!BeginExecute()) return false;
  if (!MayErase(*device_, force_)) {
    End(Status::NoCommunication);
    return false;
  }
  SetPercent(20);
  const TimeoutGuard timeout(device_->GetPath(), kFormatTimeoutSeconds);
  const TimeoutGuard controllerTimeout(nvme_->GetPath(), kFormatTimeoutSeconds);
  NvmeCompletion completion;
  const auto result =
      nvme_->nvmeFormatNVM(GetNamespace(device_->GetProperties()), settings_.lbaFormat,
                           settings_.metadata, settings_.protectionInformation,
                           settings_.protectionInfoLocation, settings_.secureErase, completion);
  SetState(result == Status::Completed ? FeatureState::Finished : FeatureState::Failed);
  SetErrorCode(result);
  SetPercent(100);
  return result == Status::Completed;
}

}  // namespace Morvu
