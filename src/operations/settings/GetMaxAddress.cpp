#include "operations/settings/GetMaxAddress.h"

#include "devices/commands/CommandSet_ATA.h"
#include "devices/identification/FreshIdentity.h"
#include "devices/properties/BasicProperties.h"
#include "frame/Logger.h"
#include "frame/status/Drives.h"
#include "frame/status/NvmeStatus.h"
#include "frame/status/Settings.h"
#include "messaging/XmlMessaging.h"
#include "operations/Operation.h"
#include "operations/SettingProperty.h"
#include "parsers/nvme/GetFeature_NVMe.h"

namespace Morvu {

using DeviceManagement::Device;
namespace Properties = DeviceManagement::Properties;

namespace {

constexpr std::uint8_t kNativeMaxFeature = 0xC2;
// No drive has more, and what is below can be counted in bytes.
constexpr std::uint64_t kMostSectors = std::uint64_t{1} << 48;

}  // namespace

// ---- The transports ----

bool SendGetMaxAddress::Take(const NativeMax& nativeMax) {
  if (nativeMax.last == 0 || nativeMax.told >= kMostSectors) return Fail();
  nativeMax_ = nativeMax;
  End(Status::Completed);
  return true;
}

bool SendGetMaxAddress::Fail() {
  End(Status::ReadNativeMaxFailed);
  return false;
}

SendGetMaxAddress_ATA::SendGetMaxAddress_ATA(Device* device, ProgressReporter& reporter)
    : SendGetMaxAddress(device, reporter) {
  SendGetMaxAddress_ATA::Initialize();
}

void SendGetMaxAddress_ATA::Initialize() { EndInitialize(Status::ReadyToRun); }

bool SendGetMaxAddress_ATA::ReadNativeMax() {
  MORVU_LOG(kLogDebug, "ReadNativeMax", "Determining native max of the drive...");
  const auto result = ata_->ataReadNativeMaxAddressExt();
  MORVU_LOG(kLogDebug, "ReadNativeMax",
            "Read native max 48-bit command returned with status = " +
                std::to_string(ToToldNumber(result)));
  if (result == Status::Completed) {
    const auto last = ata_->GetAnswer().lba;
    return Take({.last = last, .told = last, .is48Bit = true});
  }
  MORVU_LOG(kLogWarning, "ReadNativeMax",
            "Read native max ext command faild. Try issuing 28bit command.");
  if (Read28Bit()) return true;
  // A drive may take the next SET MAX for the second half of the pair: any other command
  // ends that.
  ata_->ReadUnseen();
  return Fail();
}

bool SendGetMaxAddress_ATA::Read28Bit() {
  const auto identity = DeviceManagement::ReadFreshIdentity(*ata_);
  if (!identity || !identity->addressing) return false;
  if (!identity->addressing->hasSetMax) Note(DescribeNoSetMax(*identity->addressing));
  if (identity->addressing->has48Bit || ata_->ataReadNativeMaxAddress() != Status::Completed) {
    return false;
  }
  constexpr std::uint64_t kOrMore = 0xFFFFFFF;
  const auto& answer = ata_->GetAnswer();
  const auto last = answer.lba | (answer.device & std::uint64_t{0x0F}) << 24;
  return last != kOrMore && Take({.last = last, .told = last});
}

SendGetMaxAddress_NVMe::SendGetMaxAddress_NVMe(Device* device, ProgressReporter& reporter)
    : SendGetMaxAddress(device, reporter) {
  SendGetMaxAddress_NVMe::Initialize();
}

void SendGetMaxAddress_NVMe::Initialize() {
  EndInitialize(Refuse::FailureReported(*device_) ? Status::DisableLogical : Status::ReadyToRun);
}

bool SendGetMaxAddress_NVMe::ReadNativeMax() {
  MORVU_LOG(kLogDebug, "ReadNativeMax", "Determining native max of the drive...");
  GetFeature_NVMe get(device_, *FindNvmeFeature(kNativeMaxFeature));
  if (get.GetErrorCode() != Status::ReadyToRun) return Fail();
  MORVU_LOG(kLogDebug, "ReadNativeMax", "Executing NVMe get feature for native max.");
  if (get.Execute() == 0) {
    MORVU_LOG(kLogError, "ReadNativeMax", "Failed to execute NVMe get feature for native max");
    if (auto words = DescribeNvmeStatus(get.GetErrorCode()); !words.empty()) {
      Note(std::move(words));
    }
    return Fail();
  }
  const auto told = ReadLittle64(get.GetData(), 0);
  const bool isLarge = device_->GetUInt(Properties::SectorSize) == 4096;
  const auto last = isLarge ? told >> 3 : told;
  if (!Take({.last = last, .told = told})) return false;
  MORVU_LOG(kLogDebug, "ReadNativeMax", "Success! NativeMax = " + std::to_string(last));
  return true;
}

// ---- The reader ----

struct GetMaxAddress::Rules {
  static constexpr Refusal<GetMaxAddress> kTable[] = {
      {OfDevice<Refuse::NotConnected>, Status::NoCommunication},
      {OfDevice<Refuse::RaidVolume>, Status::RaidVolume},
  };
};

GetMaxAddress::GetMaxAddress(Device* device, ProgressReporter& reporter)
    : Function(device, reporter) {
  GetMaxAddress::Initialize();
}

void GetMaxAddress::Initialize() {
  auto code = FirstRefusal<GetMaxAddress>(Rules::kTable, *this);
  if (code == Status::ReadyToRun) {
    if (ata_ != nullptr) {
      sender_ = std::make_unique<SendGetMaxAddress_ATA>(device_, GetReporter());
    } else if (nvme_ != nullptr) {
      sender_ = std::make_unique<SendGetMaxAddress_NVMe>(device_, GetReporter());
    }
    code = sender_ == nullptr ? Status::NotSupportedByDrive : sender_->GetErrorCode();
  }
  EndInitialize(code);
}

std::int32_t GetMaxAddress::Execute() {
  if (!BeginExecute()) return false;
  if (sender_ == nullptr) {
    End(Status::NoCommunication);
    return false;
  }
  const bool isRead = sender_->ReadNativeMax();
  TakeResult(*sender_);
  nativeMax_ = sender_->GetNativeMax();
  return isRead;
}

std::unique_ptr<XmlMessaging::Property> GetNativeMaxProperty(JobContext*,
                                                             const PropertyEntry& entry,
                                                             Device* device) {
  auto element = DescribeSetting(entry, device, [](Device& drive) -> SettingReading {
    GetMaxAddress get(&drive, NoReporter());
    if (get.GetErrorCode() == Status::ReadyToRun) get.Execute();
    return {get.GetErrorCode(), std::to_string(get.GetNativeMax().last), JoinRemarks(get)};
  });
  const bool isRead = device != nullptr && element != nullptr && !element->value.empty();
  if (isRead) element->SetAttribute("status", std::to_string(Status::Completed.Value()));
  return element;
}

}  // namespace Morvu
