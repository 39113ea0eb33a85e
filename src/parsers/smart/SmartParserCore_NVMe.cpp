#include "parsers/smart/SmartParserCore_NVMe.h"

#include <array>

#include "devices/commands/CommandSet_NVME.h"
#include "devices/identification/Products.h"
#include "devices/properties/BasicProperties.h"
#include "frame/Logger.h"
#include "frame/Text.h"
#include "frame/status/Health.h"
#include "parsers/nvme/FeatureNamespace.h"
#include "parsers/smart/SmartAttributeEntry.h"

namespace Morvu {

using namespace DeviceManagement;

namespace {

constexpr std::uint8_t kAttributeLog = 0xCA;
constexpr std::uint32_t kDwords = 0x81;
constexpr std::size_t kTransferSize = kDwords * 4;
constexpr std::size_t kListSize = 512;
static_assert(kListSize <= kTransferSize);

}  // namespace

SmartParserCore_NVMe::SmartParserCore_NVMe(Device* device) : SmartParserCore(device) {
  Initialize();
}

std::vector<std::string> SmartParserCore_NVMe::GetHeader() const {
  return {"ID", "Description", "Raw", "Normalized"};
}

void SmartParserCore_NVMe::Initialize() {
  StartAfresh();
  const bool isInFamily = device_ != nullptr && ProductOf(*device_).hasNvmeAttributes;
  EndInitialize(isInFamily ? Status::ReadyToRun : Status::NotSupportedByDrive);
}

StatusCode SmartParserCore_NVMe::ReadLog(ByteSpan data) {
  if (nvme_ == nullptr) return Status::NotSupportedByDrive;
  return nvme_->nvmeGetLogPage(kAttributeLog, kDwords, GetNamespace(*device_), data);
}

bool SmartParserCore_NVMe::ParseSMART() {
  std::array<std::uint8_t, kTransferSize> data{};
  if (ReadLog(data) != 0) return Fail(Status::SmartDataFailed, "SMART Read Data failed.");
  MORVU_LOG(kLogInfo, "ParseSMART", "Read NVMe SMART Attributes successful.");
  return ParseList(ByteView(data).first(kListSize));
}

bool SmartParserCore_NVMe::ParseList(ByteView list) {
  for (std::size_t offset = 0; offset < list.size(); offset += SmartEntry::kSize) {
    if (list[offset] == 0) return true;
    if (list.size() - offset < SmartEntry::kSize) break;
    AddAttribute(list.subspan(offset, SmartEntry::kSize));
  }
  MORVU_LOG(kLogDebug, "ParseSMART", "Offset went beyond buffer length.");
  return false;
}

void SmartParserCore_NVMe::AddAttribute(ByteView entry) {
  auto id = ToHexNumber(ReadField(entry, SmartEntry::kId));
  auto attribute = std::make_unique<SmartAttribute>(
      *device_, id, LookUpAttributeName(*device_, id), ReadField(entry, SmartEntry::kRaw),
      ReadField<std::uint8_t>(entry, SmartEntry::kNormalized));
  table_.Append(attribute->ToRows());
  attributes_[std::move(id)] = std::move(attribute);
}

}  // namespace Morvu
