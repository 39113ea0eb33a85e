#include "operations/settings/SetMaxAddress.h"

#include <algorithm>

#include "devices/commands/CommandSet_ATA.h"
#include "devices/identification/DeviceIdentification.h"
#include "devices/identification/FreshIdentity.h"
#include "devices/identification/Products.h"
#include "devices/model/Adapter.h"
#include "devices/model/Drive.h"
#include "devices/properties/BasicProperties.h"
#include "devices/properties/IdentityProperties.h"
#include "devices/properties/ProductProperties.h"
#include "devices/system/DiskAttributes.h"
#include "devices/system/SystemFacts.h"
#include "frame/Logger.h"
#include "frame/Text.h"
#include "frame/status/Drives.h"
#include "frame/status/NvmeStatus.h"
#include "frame/status/Requests.h"
#include "frame/status/Selection.h"
#include "frame/status/Settings.h"

namespace Morvu {

using DeviceManagement::Device;
using DeviceManagement::SystemFacts;
namespace AtaRow = DeviceManagement::AtaRow;
namespace Properties = DeviceManagement::Properties;

// ---- The transports ----

SendSetMaxAddress::SendSetMaxAddress(Device* device, const NativeMax& native,
                                     ProgressReporter& reporter)
    : Function(device, reporter), native_(native) {
  SendSetMaxAddress::Initialize();
}

void SendSetMaxAddress::Initialize() { EndInitialize(Status::ReadyToRun); }

std::int32_t SendSetMaxAddress::Execute() {
  if (!BeginExecute()) return false;
  SetMaxAddress();
  return GetErrorCode() == Status::Completed;
}

namespace {

// The standard wants the read directly before the set.
struct AtaPair {
  std::string_view start, read, set;  // lines of the log
  const DeviceManagement::AtaCommand& readRow;
  const DeviceManagement::AtaCommand& setRow;
};
constexpr AtaPair kWide = {"Using 48-bit commands.", "Read native max Ext", "Set Max Address Ext",
                           AtaRow::ReadNativeMaxAddressExt, AtaRow::SetMaxAddressExt};
constexpr AtaPair kNarrow = {"Using 28-bit commands.", "Read native max", "Set Max Address",
                             AtaRow::ReadNativeMaxAddress, AtaRow::SetMaxAddress};
// Bit 0 of the Count register: over power cycles too.
constexpr std::uint32_t kKept = 1;

void LogCompletion(std::string_view command, StatusCode result) {
  MORVU_LOG(kLogDebug, "SetMaxAddress",
            std::string(command) +
                " completed with status code = " + std::to_string(ToToldNumber(result)));
}

}  // namespace

void SendSetMaxAddress_ATA::SetMaxAddress() {
  const auto& pair = native_.is48Bit ? kWide : kNarrow;
  MORVU_LOG(kLogDebug, "SetMaxAddress", pair.start);
  auto result = ata_->Send(pair.readRow);
  LogCompletion(pair.read, result);
  // Behind a failed read the set would be refused, or be another command.
  if (result == Status::Completed) {
    result = ata_->Send(pair.setRow, {.lba = value_, .count = kKept});
    LogCompletion(pair.set, result);
  }
  if (result == Status::Completed) {
    MORVU_LOG(kLogInfo, "SetMaxAddress", "Set max address completed successfully.");
    return End(Status::Completed);
  }
  MORVU_LOG(kLogError, "SetMaxAddress", "Set max address failed.");
  Note("A drive takes its maximum once in a power cycle: it may need one before.");
  End(Status::SetNativeMaxFailed);
}

NVMe_SetMaxLba::NVMe_SetMaxLba(Device* device, std::uint64_t value, ProgressReporter& reporter)
    : SetFeature(device, 0xC1, static_cast<std::uint32_t>(value),
                 static_cast<std::uint32_t>(value >> 32), reporter) {
  MORVU_LOG(kLogInfo, "NVMe_SetMaxLba", "DW11 = " + ToHexNumber(value & 0xFFFFFFFF));
  MORVU_LOG(kLogInfo, "NVMe_SetMaxLba", "DW12 = " + ToHexNumber(value >> 32));
  NVMe_SetMaxLba::Initialize();
}

void NVMe_SetMaxLba::Initialize() {
  const auto code = GetErrorCode();  // as the base was left by its own
  const bool lacksNvme = code == Status::ReadyToRun && nvme_ == nullptr;
  EndInitialize(lacksNvme ? Status::NotSupportedByDrive : code);
}

std::uint64_t SendSetMaxAddress_NVMe::ToTold() const {
  if (value_ == native_.last) return native_.told;
  if (native_.last == native_.told) return value_;
  return std::min((value_ << 3) + 7, native_.told);
}

void SendSetMaxAddress_NVMe::SetMaxAddress() {
  NVMe_SetMaxLba set(device_, ToTold(), GetReporter());
  if (set.GetErrorCode() == Status::ReadyToRun) set.Execute();
  TakeResult(set);
  if (GetErrorCode() != Status::Completed || adapter_ == nullptr) return;
  MORVU_LOG(kLogDebug, "SetMaxAddress", "Issue adapter reset.");
  const auto reset = adapter_->ResetAdapter();
  if (reset == Status::Completed) {
    MORVU_LOG(kLogDebug, "SetMaxAddress", "Rescan System Devices.");
    return;
  }
  Note("The maximum was set, but the controller could not be reset.");
  End(reset);
}

// ---- The drive ----

namespace {

bool IsSata(const Device& device) { return device.HasCommandSet(DeviceManagement::Protocol::Ata); }

std::optional<std::uint64_t> LastOf(const Device& device) {
  const auto* property = device.GetProperties().Find(Properties::MaximumLBA);
  if (property == nullptr || !property->HasValue()) return std::nullopt;
  return property->AsUnsigned();
}

// By IDENTIFY, which resets no link. What does not come, or from another drive, is not known.
std::optional<std::uint64_t> ReadLast(Device& device) {
  if (IsSata(device)) {
    const auto told = DeviceManagement::ReadFreshIdentity(device);
    if (!told || !DeviceManagement::IsIdentityOf(*told, device)) return std::nullopt;
    return told->lastLba;
  }
  const auto serial = device.GetString(Properties::SerialNumber);
  device.GetProperties().Remove(Properties::MaximumLBA);
  const bool isRead = DeviceManagement::IdentifyDevice(&device) &&
                      device.GetString(Properties::SerialNumber) == serial;
  return isRead ? LastOf(device) : std::nullopt;
}

std::string DescribeSize(std::uint64_t last) {
  return std::to_string(last + 1) + " sectors, the last one at LBA " + std::to_string(last);
}

}  // namespace

struct SetMaxAddress::Rules {
  static bool Nameless(SetMaxAddress& set) {
    return !DeviceManagement::HasIdentity(*set.GetDevice());
  }

  // clang-format off
  static constexpr Refusal<SetMaxAddress> kTable[] = {
      {OfDevice<Refuse::NotConnected>,              Status::NoCommunication},
      {OfDevice<Refuse::RaidVolume>,                Status::RaidVolume},
      {OfDevice<Refuse::NotMorvu>,                  Status::NotAMorvuDrive},
      {OfDevice<Refuse::RaidMember>,                Status::RaidMemberRefused},
      {OfDevice<Refuse::DeviceFault>,               Status::DeviceFault},
      {OfDevice<Refuse::FailureReported>,           Status::DisableLogical},
      {Nameless,                                    Status::NoDeviceSelected},
      {Refuse::PartitionsNotToldTo<SetMaxAddress>,  Status::PartitionCheckFailed},
      {Refuse::PartitionMet<SetMaxAddress>,         Status::HasPartition},
  };
  // clang-format on
};

SetMaxAddress::SetMaxAddress(Device* device, std::uint64_t value, ProgressReporter& reporter)
    : Erasure(device, nullptr, reporter), value_(value) {
  SetMaxAddress::Initialize();
}

void SetMaxAddress::Initialize() {
  BeginInitialize();
  auto code = FirstRefusal<SetMaxAddress>(Rules::kTable, *this);
  if (device_ != nullptr && device_->GetBool(Properties::LSI) &&
      device_->GetString(Properties::OEM) == "Lenovo") {
    code = Status::InvalidSku;
  }
  if (code == Status::ReadyToRun) code = FindObstacle();
  if (code == Status::ReadyToRun) MakeSender();
  EndInitialize(code);
}

// All that can be known before data are lost for a setting that then cannot be made.
StatusCode SetMaxAddress::FindObstacle() {
  if (ata_ == nullptr && nvme_ == nullptr) return Status::NotSupportedByDrive;
  if (nvme_ != nullptr) before_ = LastOf(*device_);
  const auto code = ata_ != nullptr ? CheckAta() : FindOtherSpaces();
  return code == Status::ReadyToRun ? ReadNativeMax() : code;
}

StatusCode SetMaxAddress::CheckAta() {
  if (DeviceManagement::ProductOf(*device_).hasOemAttributes) {
    saves_ = CheckRemainingSaves(*device_, false);
    if (saves_->code != Status::ReadyToRun) return saves_->code;
  }
  const auto identity = DeviceManagement::ReadFreshIdentity(*ata_);
  if (!identity) return Status::NoCommunication;
  if (!identity->addressing) {
    Note("The drive does not say which commands it has.");
    return Status::ReadNativeMaxFailed;
  }
  before_ = identity->lastLba;
  const auto& addressing = *identity->addressing;
  if (!addressing.hasSetMax) {
    Note(DescribeNoSetMax(addressing));
    return Status::ReadNativeMaxFailed;
  }
  if (addressing.isSetMaxOn && !addressing.hasSetMaxPassword) return Status::ReadyToRun;
  Note(addressing.isSetMaxOn ? "A SET MAX password locks the drive's maximum."
                             : "The drive's Host Protected Area feature set is off.");
  return Status::SetNativeMaxFailed;
}

// The set changes the controller's drive, whatever namespaces stand on it.
StatusCode SetMaxAddress::FindOtherSpaces() {
  const auto disks = SystemFacts::Read().FindWholeDisks(device_->GetPath().GetDevicePath());
  if (!disks) return Status::PartitionCheckFailed;
  if (disks->size() == 1) return Status::ReadyToRun;
  Note("The maximum is that of a drive with one namespace; this one has " +
       std::to_string(disks->size()) + ".");
  return Status::NotSupportedByDrive;
}

StatusCode SetMaxAddress::ReadNativeMax() {
  GetMaxAddress get(device_, GetReporter());
  if (get.GetErrorCode() == Status::ReadyToRun) get.Execute();
  for (const auto& remark : get.GetRemarks()) Tell(remark);
  if (get.GetErrorCode() != Status::Completed) return get.GetErrorCode();
  native_ = get.GetNativeMax();
  return Status::ReadyToRun;
}

void SetMaxAddress::MakeSender() {
  if (ata_ != nullptr) {
    sender_ = std::make_unique<SendSetMaxAddress_ATA>(device_, native_, GetReporter());
  } else {
    sender_ = std::make_unique<SendSetMaxAddress_NVMe>(device_, native_, GetReporter());
  }
}

std::int32_t SetMaxAddress::Execute() {
  if (!BeginErase()) return false;
  if (sender_ == nullptr) {
    MORVU_LOG(kLogDebug, "Execute", "Drive connection failed.");
    End(Status::NoCommunication);
    return false;
  }
  if (value_ == 0 || value_ > native_.last) {
    End(Status::InvalidArguments);
    return false;
  }
  sender_->SetMaxLBA(value_);
  sender_->SetMaxAddress();
  shown_ = ReadLast(*device_);
  TakeResult(*sender_);
  if (GetErrorCode() != Status::Completed) return false;
  TellSize();
  SetPercent(100);
  return true;
}

void SetMaxAddress::TellSize() {
  if (!shown_) {
    Warn("The drive does not tell its size now; " + DescribeSize(value_) + ", were set.");
    return;
  }
  if (*shown_ != value_) {
    const auto set = DescribeSize(value_);
    // A controller that is not reset may keep to what it had.
    if (ata_ == nullptr && shown_ == before_) {
      return Note("The drive still has " + DescribeSize(*shown_) +
                  "; what was set comes with its power cycle: " + set + ".");
    }
    return Warn("The drive has " + DescribeSize(*shown_) + ", and not what was set: " + set + ".");
  }
  Note("The drive now has " + DescribeSize(*shown_) + ".");
  const auto bytes = (*shown_ + 1) * device_->GetUInt(Properties::SectorSize);
  const auto kernels = DeviceManagement::FindKernelSize(device_->GetPath().GetDevicePath());
  if (kernels && *kernels != bytes) {
    Note("The system still takes it for a disk of " + std::to_string(*kernels) + " bytes; it has " +
         std::to_string(bytes) + ".");
  }
}

StatusCode SetMaxAddress::RunPermitted() {
  const ErasePermit permit(*device_, false);
  if (permit.GetCode() == Status::ReadyToRun) {
    Allow(permit);
    permit.Flush();
    Execute();
    return GetErrorCode();
  }
  shown_ = before_;  // nothing was changed
  Note(permit.GetReason().empty() ? "The drive is in use." : permit.GetReason() + ".");
  for (auto& line : permit.GetUse().Describe()) Note(Printable(line));
  End(permit.GetCode());
  return GetErrorCode();
}

}  // namespace Morvu
