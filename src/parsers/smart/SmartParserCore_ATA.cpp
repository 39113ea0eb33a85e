#include "parsers/smart/SmartParserCore_ATA.h"

#include <array>

#include "devices/commands/CommandSet_ATA.h"
#include "devices/identification/Products.h"
#include "devices/properties/ProductProperties.h"
#include "frame/Logger.h"
#include "frame/Text.h"
#include "frame/status/Health.h"
#include "parsers/smart/SmartAttributeEntry.h"
#include "parsers/smart/SmartAttribute_ATA.h"

namespace Morvu {

using namespace DeviceManagement;

namespace {

constexpr std::size_t kSectorSize = 512;
using Sector = std::array<std::uint8_t, kSectorSize>;

// Both sectors: a revision, then the entries.
constexpr std::size_t kFirstEntry = 2;
constexpr std::size_t kEntryCount = 30;

constexpr std::uint16_t kPreFailure = 1 << 0;

// The largest sector of a drive, for the read whose data nobody looks at.

// The percentage that a normalized value of the wear indicator stands for, by way of
// a fraction in double precision, cut to an integer: 29 gives 28. Made by the compiler,
// so that no floating-point unit has its own opinion.
constexpr auto kLifePercent = [] {
  std::array<std::uint8_t, 256> percent{};
  for (std::size_t i = 0; i < percent.size(); ++i) {
    const double fraction = static_cast<double>(i) / 100.0;
    percent[i] = static_cast<std::uint8_t>(static_cast<double>(fraction * 100.0));
  }
  return percent;
}();
static_assert(kLifePercent[100] == 100 && kLifePercent[29] == 28 && kLifePercent[1] == 1);

// What stands behind the attributes, the drive's capabilities among it: never all zero.
constexpr std::size_t kBehindEntries = kFirstEntry + SmartEntry::kSize * kEntryCount;
static_assert(kBehindEntries < kSectorSize);

// The layer below may tell no residual: a sector that came short is known by its
// checksum and by what is missing. A checksum alone may be a drive's own fault.
bool IsShort(ByteView data) { return SumOf(data) != 0 && IsZero(data.subspan(kBehindEntries)); }

// Whether an attribute has no threshold because the sector came short, or not at all.
bool LacksThresholds(ByteView data, ByteView thresholds) {
  if (SumOf(thresholds) == 0 && !IsZero(thresholds)) return false;
  for (auto at = kFirstEntry; at < kBehindEntries; at += SmartEntry::kSize) {
    if (data[at] != 0 && IsZero(thresholds.subspan(at, SmartEntry::kSize))) return true;
  }
  return false;
}

bool IsWorkload(std::string_view id) { return id == "E2" || id == "E3" || id == "E4"; }

void CheckSum(ByteView sector, std::string_view name) {
  const auto text = std::string(name);
  if (SumOf(sector) != 0) {
    MORVU_LOG(kLogWarning, "ParseSMART", "The checksum of the SMART " + text + " sector is wrong.");
  } else if (IsZero(sector)) {
    MORVU_LOG(kLogWarning, "ParseSMART", "There is nothing in the SMART " + text + " sector.");
  }
}

}  // namespace

SmartParserCore_ATA::SmartParserCore_ATA(Device* device) : SmartParserCore(device) { Initialize(); }

std::vector<std::string> SmartParserCore_ATA::GetHeader() const {
  return {"ID", "Description", "Raw", "Normalized", "Threshold", "Worst", "Status", "Result"};
}

void SmartParserCore_ATA::Initialize() {
  StartAfresh();
  EndInitialize(Status::ReadyToRun);
}

bool SmartParserCore_ATA::ReadSectors(ByteSpan data, ByteSpan thresholds) {
  if (ata_ == nullptr) return Fail(Status::SmartDataFailed, "SMART Read Data failed.");
  ata_->ReadUnseen();
  if (ata_->ataSmartReadData(data) != 0) {
    return Fail(Status::SmartDataFailed, "SMART Read Data failed.");
  }
  CheckSum(data, "data");
  if (IsShort(data)) return Fail(Status::SmartDataFailed, "SMART Read Data failed.");
  MORVU_LOG(kLogInfo, "ParseSMART", "SMART Read Data successful.");
  if (ata_->ataSmartReadThresholds(thresholds) != 0) {
    return Fail(Status::SmartThresholdsFailed, "SMART Read Threshold failed.");
  }
  CheckSum(thresholds, "threshold");
  if (LacksThresholds(data, thresholds)) {
    return Fail(Status::SmartThresholdsFailed, "SMART Read Threshold failed.");
  }
  MORVU_LOG(kLogInfo, "ParseSMART", "SMART Read Threshold successful.");
  return true;
}

bool SmartParserCore_ATA::ParseSMART() {
  Sector data{};
  Sector thresholds{};
  if (!ReadSectors(data, thresholds)) return false;
  MORVU_LOG(kLogDebug, "ParseSMART", "Parsing.");
  ParseSectors(data, thresholds);
  MORVU_LOG(kLogInfo, "ParseSMART", "Parsing Passed.");
  return true;
}

void SmartParserCore_ATA::ParseSectors(ByteView data, ByteView thresholds) {
  hasFailed_ = false;
  isWornOut_ = false;
  for (std::size_t i = 0; i < kEntryCount; ++i) {
    const auto offset = kFirstEntry + i * SmartEntry::kSize;
    if (offset + SmartEntry::kSize > data.size()) break;
    // The threshold of an attribute is the one in its place, whatever ID stands there.
    AddAttribute(data.subspan(offset, SmartEntry::kSize),
                 ReadByte(thresholds, offset + SmartEntry::kThreshold));
  }
  smartHealth_ = isWornOut_ ? 5 : hasFailed_ ? 50 : 100;
  for (const auto& [id, attribute] : attributes_) table_.Append(attribute->ToRows());
}

void SmartParserCore_ATA::AddAttribute(ByteView entry, std::uint8_t threshold) {
  const auto number = ReadField(entry, SmartEntry::kId);
  if (number == 0) return;
  auto id = ToHexNumber(number, 2);
  if (IsWorkload(id) && ProductOf(*device_).hidesWorkload) return;

  const auto flags = ReadField<std::uint16_t>(entry, SmartEntry::kFlags);
  const auto normalized = ReadField<std::uint8_t>(entry, SmartEntry::kNormalized);
  if (id == "E9") {
    smartLife_ = kLifePercent[normalized];
    isWornOut_ = isWornOut_ || normalized == 1;
  }
  // The RAID adapter's drives keep something else above the hours.
  const bool isShortRaw = id == "09" && device_->GetBool(Properties::LSI);
  const auto raw = ReadField(entry, isShortRaw ? SmartEntry::kShortRaw : SmartEntry::kRaw);

  const bool counts = (flags & kPreFailure) != 0 || id == "B8";
  const bool fails = counts && normalized <= threshold;
  hasFailed_ = hasFailed_ || fails;
  auto description = LookUpAttributeName(*device_, id);
  attributes_[id] = std::make_unique<SmartAttribute_ATA>(
      *device_, id, std::move(description), raw, normalized, threshold,
      ReadField<std::uint8_t>(entry, SmartEntry::kWorst), flags, fails ? "Fail" : "Pass");
}

}  // namespace Morvu
