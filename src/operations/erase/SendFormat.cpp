#include "operations/erase/SendFormat.h"

#include <optional>

#include "devices/commands/CommandSet_NVME.h"
#include "devices/identification/DeviceIdentification.h"
#include "devices/properties/BasicProperties.h"
#include "devices/system/SystemNodes.h"
#include "frame/Logger.h"
#include "frame/status/Drives.h"
#include "frame/status/Partitions.h"
#include "operations/Operation.h"
#include "operations/erase/EraseEnd.h"
#include "operations/erase/EraseWitness.h"
#include "operations/erase/Sanitize.h"
#include "operations/erase/SecureErase.h"

namespace Morvu {

using DeviceManagement::Device;
using DeviceManagement::PropertyList;
namespace Properties = DeviceManagement::Properties;

namespace {

void LogStatus(std::string_view text, StatusCode code) {
  MORVU_LOG(kLogInfo, "Initialize", std::string(text) + std::to_string(code.Value()));
}

// Numbered from 1, while logical units are numbered from 0. Nothing for a drive that is
// a controller alone, whose unit is none of a namespace, and where the kernel told none.
std::optional<std::uint32_t> GetNamespace(const PropertyList& properties) {
  const auto node = DeviceManagement::ParseNvmeNode(properties.GetString(Properties::DevicePath));
  const auto* unit = properties.Find(Properties::Lun);
  if (!node || !node->space || unit == nullptr || !unit->HasValue()) return std::nullopt;
  return static_cast<std::uint32_t>(unit->AsUnsigned()) + 1;
}

}  // namespace

struct SendFormat::Rules {
  static constexpr Refusal<SendFormat> kTable[] = {
      {Refuse::PartitionsNotToldTo<SendFormat>, Status::PartitionCheckFailed},
      {Refuse::PartitionMet<SendFormat>, Status::HasPartition},
  };
};

void SendFormat::Initialize() {
  BeginInitialize();
  SetErrorCode(FirstRefusal<SendFormat>(Rules::kTable, *this));
  LogStatus("Send Format - Status = ", GetErrorCode());
}

// ---- ATA ----

SendFormat_ATA::SendFormat_ATA(Device* device, std::uint8_t secureErase, const ErasePermit* permit,
                               ProgressReporter& reporter)
    : SendFormat(device, {.secureErase = secureErase}, permit, reporter) {
  SendFormat_ATA::Initialize();
}

void SendFormat_ATA::Initialize() {
  erase_ = ChooseErase();
  SetErrorCode(erase_->GetErrorCode());
  LogStatus("Send Format ATA - Initialize with status = ", GetErrorCode());
}

std::int32_t SendFormat_ATA::Execute() {
  const auto result = erase_->Execute();
  TakeResult(*erase_);
  return result;
}

StatusCode SendFormat_ATA::Refuse(StatusCode code) { return erase_->Refuse(code); }

std::optional<std::chrono::minutes> SendFormat_ATA::GetDuration(
    const DeviceManagement::FreshIdentity& identity) const {
  return erase_->GetDuration(identity);
}

std::unique_ptr<Erasure> SendFormat_ATA::ChooseErase() {
  const bool isEnhanced = settings_.secureErase == 1;
  auto erase = std::make_unique<SecureErase>(device_, GetPermit(), isEnhanced, GetReporter());
  const bool isWindows8 = osName_ == "WIN8";
  if (erase->GetErrorCode() != Status::SecurityFrozen && !isWindows8 && osName_ != "WIN8.1") {
    return erase;
  }
  auto sanitize = std::make_unique<Sanitize>(device_, GetPermit(), isEnhanced, GetReporter());
  if (sanitize->GetErrorCode() == Status::ReadyToRun || isWindows8) return sanitize;
  return erase;
}

// ---- NVMe ----

SendFormat_NVMe::SendFormat_NVMe(Device* device, const FormatSettings& settings,
                                 const ErasePermit* permit, ProgressReporter& reporter)
    : SendFormat(device, settings, permit, reporter) {
  SendFormat_NVMe::Initialize();
}

void SendFormat_NVMe::Initialize() {
  SendFormat::Initialize();
  // A controller alone has nothing to format; its number is no namespace's.
  if (!GetNamespace(device_->GetProperties())) SetErrorCode(Status::NotSupportedByDrive);
  LogStatus("Send Format NVMe - Status = ", GetErrorCode());
}

std::int32_t SendFormat_NVMe::Execute() {
  if (!BeginErase()) return false;
  SetPercent(20);
  const auto space = GetNamespace(device_->GetProperties());
  if (!space) {
    End(Status::NotSupportedByDrive);
    return false;
  }
  EraseWitness witness(*device_);
  const auto result = nvme_->nvmeFormatNVM({.nsid = *space,
                                            .lbaFormat = settings_.lbaFormat,
                                            .metadata = settings_.metadata,
                                            .protection = settings_.protectionInformation,
                                            .protectionLocation = settings_.protectionInfoLocation,
                                            .secureErase = settings_.secureErase});
  if (result == Status::Completed) {
    UpdateProperties(*device_);  // sectors may have another size now
    if (const auto remark = DescribeVerdict(witness.Compare())) Tell(*remark);
  }
  SetState(result == Status::Completed ? FeatureState::Finished : FeatureState::Failed);
  SetErrorCode(result);
  SetPercent(100);
  return result == Status::Completed;
}

}  // namespace Morvu
