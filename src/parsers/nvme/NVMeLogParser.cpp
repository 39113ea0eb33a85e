#include "parsers/nvme/NVMeLogParser.h"

#include <limits>

#include "devices/commands/CommandSet_NVME.h"
#include "frame/Logger.h"
#include "frame/status/Commands.h"
#include "frame/status/Drives.h"
#include "frame/status/NvmeStatus.h"
#include "operations/Operation.h"
#include "parsers/nvme/FeatureNamespace.h"

namespace Morvu {

struct NVMeLogParser::Rules {
  // clang-format off
  static constexpr Refusal<NVMeLogParser> kTable[] = {
      {OfDevice<Refuse::NotMorvu>,        Status::NotAMorvuDrive},
      {OfDevice<Refuse::FailureReported>, Status::DisableLogical},
      {OfDevice<Refuse::NoNvme>,          Status::NotSupportedByDrive},
  };
  // clang-format on
};

void NVMeLogParser::Initialize() {
  EndInitialize(FirstRefusal<NVMeLogParser>(Rules::kTable, *this));
}

std::int32_t NVMeLogParser::Execute() {
  table_.Clear();
  logBuffer_.fill(0);
  const auto status = GetErrorCode() != Status::ReadyToRun
                          ? GetErrorCode()
                          : ReadLogPage(*device_, *nvme_, logId_, kNumd, logBuffer_);
  if (status != Status::Completed) {
    Note("The log could not be read: " + GetStatusText(status));
    End(Status::NotRead);
    return 0;
  }
  MORVU_LOG(kLogInfo, "SetData", "Setting Parse Data...");
  ParseData();
  End(Status::Completed);
  return 1;
}

void NVMeLogParser::SetData(std::span<const PageField> fields, std::string_view first,
                            std::string_view second) {
  table_.AppendRow({std::string(first), std::string(second)}, true);
  AppendPage(GetPage(), fields, table_);
}

// ---- SMART / Health Information ----

namespace {

// clang-format off
constexpr PageField kHealth[] = {
    {NvmeHealth::kCriticalWarning, "Critical Warnings",                                      Form::PrefixedDigits},
    {{  0,  1, 0, 1}, "Available Spare Space has fallen below the threshold",                Form::Decimal},
    {{  0,  1, 1, 1}, "Temperature has exceeded a critical threshold",                       Form::Decimal},
    {{  0,  1, 2, 1}, "Device reliability has degraded",                                     Form::Decimal},
    {{  0,  1, 3, 1}, "Media is in a read-only mode",                                        Form::Decimal},
    {{  0,  1, 4, 1}, "Volatile memory backup device has failed",                            Form::Decimal},
    {{  1,  2},       "Temperature (Kelvin)",                                                Form::Decimal},
    {{  3,  1},       "Available Spare Normalized percentage of the remaining spare capacity available", Form::Decimal},
    {{  4,  1},       "Available Spare Threshold Percentage",                                Form::Decimal},
    {{  5,  1},       "Percentage Used",                                                     Form::Decimal},
    {{ 32, 16},       "Data Units Read",                                                     Form::PrefixedHex128},
    {{ 48, 16},       "Data Units Written",                                                  Form::PrefixedHex128},
    {{ 64, 16},       "Host Read Commands",                                                  Form::PrefixedHex128},
    {{ 80, 16},       "Host Write Commands",                                                 Form::PrefixedHex128},
    {{ 96, 16},       "Controller Busy Time",                                                Form::PrefixedHex128},
    {{112, 16},       "Power Cycles",                                                        Form::PrefixedHex128},
    {{128, 16},       "Power On Hours",                                                      Form::PrefixedHex128},
    {{144, 16},       "Unsafe Shutdowns",                                                    Form::PrefixedHex128},
    {{160, 16},       "Media Errors",                                                        Form::PrefixedHex128},
    {{176, 16},       "Number of Error Info Log Entries",                                    Form::PrefixedHex128},
};
// clang-format on

}  // namespace

void SMARTHealthLogParser::ParseData() { SetData(kHealth); }

// ---- Firmware Slot Information ----

namespace {

// The number is that of the byte, which has the slot of the next reset in its upper half.
std::string ActiveSlot(ByteView page, const PagePlace& place) {
  const auto active = ReadField(page, {place.offset, 1, 0, 3});
  const auto next = ReadField(page, {place.offset, 1, 4, 3});
  auto text = Form::Decimal(page, place);
  if (next == 0) return text;
  return text + " (slot " + std::to_string(active) + "; slot " + std::to_string(next) +
         " after the next reset)";
}

// clang-format off
constexpr PageField kSlots[] = {
    {{ 0, 1}, "Active Firmware Slot", ActiveSlot},
    {{ 8, 8}, "Firmware Rev Slot 1",  Form::PrintableText},
    {{16, 8}, "Firmware Rev Slot 2",  Form::PrintableText},
    {{24, 8}, "Firmware Rev Slot 3",  Form::PrintableText},
    {{32, 8}, "Firmware Rev Slot 4",  Form::PrintableText},
    {{40, 8}, "Firmware Rev Slot 5",  Form::PrintableText},
    {{48, 8}, "Firmware Rev Slot 6",  Form::PrintableText},
    {{56, 8}, "Firmware Rev Slot 7",  Form::PrintableText},
};
// clang-format on

}  // namespace

void FirmwareSlotInfoParser::ParseData() { SetData(kSlots); }

// ---- Error Information ----

namespace {

constexpr std::size_t kErrorEntrySize = 64;
constexpr PagePlace kErrorCount{0, 8};

// clang-format off
constexpr PageField kErrorEntry[] = {
    {kErrorCount,    "Error Count Identifier",                     Form::Decimal},
    {{ 8, 2},        "Submission Queue ID",                        Form::Decimal},
    {{10, 2},        "Command ID",                                 Form::Decimal},
    {{12, 2},        "Status Field",                               Form::Decimal},
    {{14, 2},        "Parameter Error Location:",                  Form::Title},
    {{14, 1},        "- Byte in command that contained the error", Form::Decimal},
    {{15, 1, 0, 3},  "- Bit in command that contained the error",  Form::Decimal},
    {{16, 8},        "LBA",                                        Form::Hex},
    {{24, 4},        "Namespace",                                  Form::Decimal},
    {{28, 1},        "Vendor Specific Log Page",                   Form::Decimal},
};
// clang-format on

}  // namespace

void ErrorInfoParser::ParseData() {
  const auto page = GetPage();
  std::size_t number = 0;
  for (std::size_t at = 0; at + kErrorEntrySize <= page.size(); at += kErrorEntrySize) {
    const auto entry = page.subspan(at, kErrorEntrySize);
    if (ReadField(entry, kErrorCount) == 0) continue;
    if (++number == 1) SetData({});
    table_.AppendRow({"Error Info Log Entry", std::to_string(number)});
    AppendPage(entry, kErrorEntry, table_);
  }
  if (number != 0) return;
  table_.AppendRow({"Notification"}, true);
  table_.AppendRow({"No error logs found on selected drive."});
}

// ---- Endurance Manager Statistics ----

namespace {

// clang-format off
constexpr PageField kEndurance[] = {
    {{ 0, 2}, "Version",                                   Form::Decimal},
    {{ 2, 1}, "Enabled Bit",                               Form::Decimal},
    {{ 3, 1}, "Endurance Throttle Active Bit",             Form::Decimal},
    {{ 4, 4}, "Target Total Drive Life Days",              Form::Decimal},
    {{ 8, 4}, "Total NAND Cycle Limit",                    Form::Decimal},
    {{12, 4}, "Total Power On Hours while EM is enabled",  Form::Decimal},
};
// clang-format on

}  // namespace

void EMStatisticsParser::ParseData() {
  SetData(kEndurance, "Endurance Manager Statistics", "Values");
}

// ---- Temperature Statistics, in degrees Celsius ----

namespace {

constexpr PagePlace kCurrentTemperature{0, 8};

// clang-format off
constexpr PageField kTemperatures[] = {
    {kCurrentTemperature, "Current Temperature",                          Form::Decimal},
    {{  8, 8},            "Overtemp shutdown Flag for Last Drive Overheat", Form::Decimal},
    {{ 16, 8},            "Overtemp shutdown Flag for Life Drive Overheat", Form::Decimal},
    {{ 24, 8},            "Highest Temperature",                          Form::Decimal},
    {{ 32, 8},            "Lowest Temperature",                           Form::Decimal},
    {{ 80, 8},            "Maximum operating temperature",                Form::Decimal},
    {{ 96, 8},            "Minimum operating temperature",                Form::Decimal},
    {{104, 8},            "Estimated offset in Celsius",                  Form::Signed},
};
// clang-format on

}  // namespace

void TempStatisticsParser::ParseData() { SetData(kTemperatures); }

std::optional<std::int16_t> TempStatisticsParser::GetCurrentTemperature() const {
  const auto page = GetPage();
  // A log without anything in it tells of no temperature, not of 0 degrees.
  if (IsZero(page)) return std::nullopt;
  const auto degrees = static_cast<std::int64_t>(ReadField(page, kCurrentTemperature));
  using Limits = std::numeric_limits<std::int16_t>;
  if (degrees < Limits::min() || degrees > Limits::max()) return std::nullopt;
  return static_cast<std::int16_t>(degrees);
}

}  // namespace Morvu
