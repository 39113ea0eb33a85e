#include "parsers/nvme/GetFeature_NVMe.h"

#include <algorithm>

#include "devices/commands/CommandSet_NVME.h"
#include "devices/identification/Products.h"
#include "devices/model/Device.h"
#include "devices/model/DriveHold.h"
#include "devices/properties/BasicProperties.h"
#include "devices/properties/NvmeFeatureProperties.h"
#include "devices/properties/SettingProperties.h"
#include "frame/Logger.h"
#include "frame/Text.h"
#include "frame/status/Drives.h"
#include "frame/status/Selection.h"
#include "messaging/XmlMessaging.h"
#include "messaging/features/FeatureRecord.h"
#include "messaging/features/JobContext.h"
#include "messaging/features/ParserReply.h"
#include "operations/Operation.h"
#include "operations/SettingProperty.h"
#include "parsers/nvme/FeatureNamespace.h"

namespace Morvu {

using DeviceManagement::Device;
using DeviceManagement::DriveHold;
namespace Properties = DeviceManagement::Properties;

namespace {

// ---- Forms ----

// Kelvins as degrees Celsius, in 16 bits: what is below wraps, as the field does.
std::string Celsius(ByteView page, const PagePlace& place) {
  constexpr std::uint16_t kZeroCelsius = 273;
  return std::to_string(
      static_cast<std::uint16_t>(ReadField<std::uint16_t>(page, place) - kZeroCelsius));
}
std::string CelsiusWithUnit(ByteView page, const PagePlace& place) {
  return Celsius(page, place) + " degree C";
}

std::string Wattage(ByteView page, const PagePlace& place) {
  constexpr std::string_view kWattages[] = {"25W", "20W", "10W"};
  const auto setting = ReadField<std::uint8_t>(page, place);
  const auto text = setting < std::size(kWattages) ? kWattages[setting] : "Unknown";
  return std::to_string(setting) + " (" + std::string(text) + ")";
}

// ---- Fields, as NVMe 1.0, 5.12.1 lays them out ----

constexpr PagePlace Bits(std::uint8_t low, std::uint8_t bits) { return {0, 4, low, bits}; }

using Field = NvmeFeatureField;
// clang-format off
constexpr Field kRaw = {{{0, 4}, "Raw Value", Form::PrefixedDigits}};

constexpr Field kArbitration[] = {
    kRaw,
    {{Bits( 0,  3), "Arbitration Burst",                         Form::Decimal}, &Properties::ArbitrationBurst},
    {{Bits( 8,  8), "Low Priority Weight",                       Form::Decimal}, &Properties::LowPriorityWeightArbitration},
    {{Bits(16,  8), "Medium Priority Weight",                    Form::Decimal}, &Properties::MediumPriorityWeightArbitration},
    {{Bits(24,  8), "High Priority Weight",                      Form::Decimal}, &Properties::HighPriorityWeightArbitration},
};
constexpr Field kPowerManagement[] = {
    kRaw,
    {{Bits( 0,  5), "Power State",                               Form::Decimal}, &Properties::NVMePowerState},
};
constexpr Field kTempThreshold[] = {
    kRaw,
    {{Bits( 0, 16), "Temperature Threshold",                     CelsiusWithUnit}, &Properties::TempThreshold, Celsius},
};
constexpr Field kErrorRecovery[] = {
    kRaw,
    {{Bits( 0, 16), "Time Limited Error Recovery (100 ms)",      Form::Decimal}, &Properties::TimeLimitedErrorRecovery},
};
constexpr Field kVolatileWriteCache[] = {
    kRaw,
    {{Bits( 0,  1), "Volatile Write Cache Enable",               Form::Decimal}},
};
constexpr Field kNumberOfQueues[] = {
    kRaw,
    {{Bits(16, 16), "Number of IO Completion Queues Requested",  Form::Decimal}, &Properties::IOCompletionQueuesRequested},
    {{Bits( 0, 16), "Number of IO Submission Queues Requested",  Form::Decimal}, &Properties::IOSubmissionQueuesRequested},
};
constexpr Field kInterruptCoalescing[] = {
    kRaw,
    {{Bits( 0,  8), "Aggregation Threshold",                     Form::Decimal}, &Properties::AggregationThreshold},
    {{Bits( 8,  8), "Aggregation Time",                          Form::Decimal}, &Properties::AggregationTime},
};
constexpr Field kInterruptVectorConfig[] = {
    kRaw,
    {{Bits( 0, 16), "Interrupt Vector",                          Form::Decimal}},
    {{Bits(16,  1), "Coalescing Disable",                        Form::Decimal}},
};
constexpr Field kWriteAtomicity[] = {
    kRaw,
    {{Bits( 0,  1), "Disable Normal",                            Form::Decimal}, &Properties::WriteAtomicityDisableNormal},
};
constexpr Field kAsyncEventConfig[] = {
    kRaw,
    {{Bits( 0,  8), "SMART / Health Critical Warnings",          Form::Decimal}, &Properties::AsynchronousEventConfiguration},
};
constexpr Field kNativeMaxLba[] = {
    {{{0, 8},       "Native Max LBA",                            Form::PrefixedHex}},
};
constexpr Field kPowerGovernor[] = {
    {{Bits( 0,  8), "Power Governor Setting",                    Wattage}},
};
// clang-format on

constexpr NvmeFeature kFeatures[] = {
#include "parsers/nvme/NvmeFeatures.inc"
};
static_assert(std::size(kFeatures) == 12);
static_assert(std::ranges::is_sorted(kFeatures, std::ranges::less_equal{}, &NvmeFeature::id));

std::uint32_t ReadResult(const DeviceManagement::CommandSet_NVME& nvme) {
  return nvme.GetPath().GetOutcome().nvmeResult;
}

}  // namespace

std::span<const NvmeFeature> GetNvmeFeatures() { return kFeatures; }

const NvmeFeature* FindNvmeFeature(std::uint8_t id) {
  const auto* row = std::ranges::find(kFeatures, id, &NvmeFeature::id);
  return row == std::end(kFeatures) ? nullptr : row;
}

struct GetFeature_NVMe::Rules {
  // clang-format off
  static constexpr Refusal<GetFeature_NVMe> kTable[] = {
      {OfDevice<Refuse::NotMorvu>,        Status::NotAMorvuDrive},
      {OfDevice<Refuse::FailureReported>, Status::DisableLogical},
      {OfDevice<Refuse::NoNvme>,          Status::NotSupportedByDrive},
  };
  // clang-format on
};

GetFeature_NVMe::GetFeature_NVMe(Device* device, const NvmeFeature& feature,
                                 ProgressReporter& reporter)
    : Parser(device, reporter), feature_(feature) {
  GetFeature_NVMe::Initialize();
}

void GetFeature_NVMe::Initialize() {
  table_.AppendRow({"Field", "Value"}, true);
  EndInitialize(FirstRefusal<GetFeature_NVMe>(Rules::kTable, *this));
}

std::int32_t GetFeature_NVMe::Execute() {
  const auto data = ByteSpan(buffer_).first(feature_.dwords * 4);
  const auto status = SendToFeature(*device_, FeatureAim::Controller, [&](std::uint32_t nsid) {
    return nvme_->nvmeGetFeatures(feature_.id, nsid, feature_.dwords, data);
  });
  if (status == Status::Completed) ParseData();
  End(status);
  return status == Status::Completed;
}

void GetFeature_NVMe::ParseData() {
  result_ = ReadResult(*nvme_);
  auto page = buffer_;
  if (feature_.dwords == 0) WriteLittle32(result_, 0, page);
  if (feature_.dwords != 0 && DeviceManagement::ProductOf(*device_).hasNvmeAttributes &&
      device_->GetUInt(Properties::SectorSize) == 4096) {
    WriteLittle64(ReadLittle64(page, 0) >> 9, 0, page);
  }
  for (const auto& row : feature_.fields) {
    table_.AppendRow({std::string(row.field.label), ShowField(page, row.field)});
  }
}

// ---- Properties ----

namespace {

DriveReading ReadFeature(Device& device, const NvmeFeature& feature) {
  GetFeature_NVMe get(&device, feature);
  if (get.GetErrorCode() == Status::ReadyToRun) get.Execute();
  return {get.GetErrorCode(), get.GetResult()};
}

DriveReading ReadFeatureOnce(JobContext* context, Device& device, const NvmeFeature& feature) {
  if (context == nullptr) return ReadFeature(device, feature);
  const std::pair<const Device*, std::uint8_t> key(&device, feature.id);
  const auto known = context->readings.find(key);
  if (known != context->readings.end()) return known->second;
  return context->readings.emplace(key, ReadFeature(device, feature)).first->second;
}

}  // namespace

std::unique_ptr<XmlMessaging::Property> GetNvmeFeatureProperty(JobContext* context,
                                                               const PropertyEntry& entry,
                                                               Device* device) {
  const NvmeFeature* feature = nullptr;
  const NvmeFeatureField* field = nullptr;
  for (const auto& candidate : kFeatures) {
    const auto row = std::ranges::find(candidate.fields, &entry, &NvmeFeatureField::property);
    if (row == candidate.fields.end()) continue;
    feature = &candidate;
    field = &*row;
  }
  if (feature == nullptr) return nullptr;
  return DescribeSetting(entry, device, [&](Device& drive) -> SettingReading {
    const auto reading = ReadFeatureOnce(context, drive, *feature);
    std::array<std::uint8_t, 4> page{};
    WriteLittle32(reading.value, 0, page);
    return {reading.code, field->propertyForm(page, field->field.place)};
  });
}

// ---- The family ----

namespace {

constexpr std::string_view kIdArgument = "fid";

StatusCode RunGetFeature(const FeatureCall& call) {
  const auto id = call.arguments.GetNumber<std::uint8_t>(kIdArgument);
  if (!call.arguments.Has(kIdArgument) || !id) return Status::InvalidArguments;
  const auto* feature = FindNvmeFeature(*id);
  if (feature == nullptr || !feature->isOption) return Status::InvalidFeatureId;
  const DriveHold hold(call.GetDevice(), DriveHold::Kind::Moment);
  if (!hold.IsTaken()) return hold.GetStatus();
  GetFeature_NVMe get(&call.GetDevice(), *feature, call.face.GetReporter());
  if (get.GetErrorCode() == Status::ReadyToRun && get.Execute() != 0) {
    call.face.Show(get.GetTable());
  }
  return get.GetErrorCode();
}

// All features: a table for each that the drive tells, and the code of the first that it
// does not.
StatusCode RunGetFeatureMethod(const FeatureCall& call, JobContext& context) {
  auto& reporter = call.face.GetReporter();
  const DriveHold hold(call.GetDevice(), DriveHold::Kind::Moment);
  if (!hold.IsTaken()) return hold.GetStatus();
  StatusCode result = Status::Completed;
  std::size_t done = 0;
  for (const auto& feature : kFeatures) {
    if (reporter.IsCancelRequested()) return Status::Canceled;
    // Without the job's reporter: the job is not at its end with the first table.
    GetFeature_NVMe get(&call.GetDevice(), feature);
    if (get.GetErrorCode() != Status::ReadyToRun) return get.GetErrorCode();
    if (get.Execute() != 0) AddToReply(context, get.ToXml(false), get.GetTitle());
    if (result == Status::Completed) result = get.GetErrorCode();
    reporter.SetPercent(static_cast<std::int32_t>(++done * 100 / std::size(kFeatures)));
  }
  return result;
}

StatusCode AssessGetFeature(Device& device) {
  return GetFeature_NVMe(&device, kFeatures[0]).GetErrorCode();
}

constexpr std::string_view kDescriptions[] = {
    "Display the given NVMe feature ID data to the screen."};
constexpr ArgumentDeclaration kArguments[] = {
    {"(fid)",
     "(Required) The feature ID to parse. fid must be a decimal integer literal. Supported feature "
     "ID's are:",
     kIdArgument},
    {"(fid)", "1 - Arbitration"},
    {"(fid)", "2 - Power Management"},
    {"(fid)", "4 - Temperature Threshold"},
    {"(fid)", "5 - Error Recovery"},
    {"(fid)", "7 - Number of Queues"},
    {"(fid)", "8 - Interrupt Coalescing"},
    {"(fid)", "9 - Interrupt Vector Configuration"},
    {"(fid)", "10 - Write Atomicity"},
    {"(fid)", "11 - Asynchronous Event Configuration"},
    {"(fid)", "194 - Native Max LBA"},
    {"(fid)", "198 - Power Governor"},
};
constexpr std::string_view kExamples[] = {"-drive_index 1 -get_feature 1"};
constexpr StatusCode kHiddenCodes[] = {Status::NotSupportedByDrive};
constexpr CimMethod kMethods[] = {
    {.name = "GetFeatureNVMe",
     .category = "standard",
     .targetType = "device",
     .hasTable = true,
     .hiddenCodes = kHiddenCodes,
     .assess = &AssessGetFeature,
     .run = &RunGetFeatureMethod},
};
constexpr OptionDeclaration kOptions[] = {
    {.name = "-get_feature",
     .kind = OptionKind::Text,
     .category = OptionCategory::Feature,
     .descriptions = kDescriptions,
     .arguments = kArguments,
     .examples = kExamples,
     .run = &RunGetFeature},
};

}  // namespace

extern constexpr FeatureRecord GetFeature_NVMeRecord = {
    .name = "GetFeature_NVMe",
    .needsDrive = true,
    .onSeveral = OnSeveral::Each,
    .methods = kMethods,
    .options = kOptions,
};

}  // namespace Morvu
