#include "parsers/logs/PhyCountersParser.h"

#include <algorithm>
#include <string>

#include "devices/commands/CommandPath.h"
#include "devices/identification/Products.h"
#include "frame/Logger.h"
#include "frame/Text.h"
#include "frame/status/Drives.h"
#include "messaging/PageTable.h"
#include "messaging/features/FeatureRecord.h"
#include "messaging/features/ParserReply.h"
#include "operations/Operation.h"
#include "parsers/logs/ReadLog.h"

namespace Morvu {

using DeviceManagement::Device;

namespace {

constexpr std::uint8_t kPhyLog = 0x11;

struct PhyCounter {
  std::uint16_t identifier;
  std::string_view description;
};

// clang-format off
constexpr PhyCounter kCounters[] = {
    {0x001, "Command failed and ICRC error bit set to one in Error register"},
    {0x002, "R_ERRP response for Data FIS"},
    {0x003, "R_ERRP response for Device-to-Host Data FIS"},
    {0x004, "R_ERRP response for Host-to-Device Data FIS"},
    {0x005, "R_ERRP response for non-Data FIS"},
    {0x006, "R_ERRP response for Device-to-Host non-Data FIS"},
    {0x007, "R_ERRP response for Host-to-Device non-Data FIS"},
    {0x008, "Device-to-Host non-Data FIS retries"},
    {0x009, "Transitions from drive PHYRDY to drive PHYRDYn"},
    {0x00A, "Signature Device-to-Host Register FISes sent due to a COMRESET"},
    {0x00B, "CRC errors within a Host-to-Device FIS"},
    {0x00D, "Non-CRC errors within a Host-to-Device FIS"},
    {0x00F, "R_ERRP response for Host-to-Device Data FIS due to CRC errors"},
    {0x010, "R_ERRP response for Host-to-Device Data FIS due to non-CRC errors"},
    {0x012, "R_ERRP response for Host-to-Device non-Data FIS due to CRC errors"},
    {0x013, "R_ERRP response for Host-to-Device non-Data FIS due to non-CRC errors"},

    {0xC00, "(Port Multiplier) Host-to-Device non-Data FIS R_ERRP ending status due to collision"},
    {0xC01, "(Port Multiplier) Signature Register\u2013 Device-to-Host FISes"},
    {0xC02, "(Port Multiplier) Corrupt CRC propagation of Device-to-Host FISes"},
};
// clang-format on
static_assert(std::ranges::is_sorted(kCounters, std::ranges::less_equal{},
                                     &PhyCounter::identifier));

constexpr std::size_t kFirstCounter = 4;
constexpr std::size_t kChecksum = 511;  // behind the last place of a counter
// Of an identifier word; a vendor's counter bears the highest bit.
constexpr std::uint16_t kIdentifier = 0x8FFF;
constexpr unsigned kSizeShift = 12, kSizeMask = 7;

// Bytes of a value, by its size code.
constexpr std::size_t CountBytes(unsigned code) { return code >= 1 && code <= 4 ? code * 2 : 2; }

std::string_view Describe(std::uint16_t identifier) {
  const auto row = std::ranges::lower_bound(kCounters, identifier, {}, &PhyCounter::identifier);
  return row != std::end(kCounters) && row->identifier == identifier ? row->description : "Unknown";
}

}  // namespace

void AppendPhyCounters(ByteView log, ResultTable& table) {
  log = log.first(std::min(log.size(), kChecksum));
  for (std::size_t at = kFirstCounter; at + 2 <= log.size();) {
    const auto word = ReadLittle16(log, at);
    const std::uint16_t identifier = word & kIdentifier;
    const unsigned code = word >> kSizeShift & kSizeMask;
    const auto bytes = CountBytes(code);
    at += 2;
    // What does not fit whole is no value.
    if (identifier == 0 || bytes > log.size() - at) return;
    const auto value = ReadLittle(log, at, bytes);
    at += bytes;
    MORVU_LOG(kLogInfo, "Execute",
              "PHY Event identtifier found: " + std::to_string(identifier) +
                  "\nPHY Counter size: " + std::to_string(code) +
                  "\nPHY Counter Value: " + std::to_string(value));
    table.AppendRow({"0x" + ToHexNumber(identifier, 3), std::string(Describe(identifier)),
                     std::to_string(value)});
  }
}

PhyCountersParser::PhyCountersParser(Device* device, ProgressReporter& reporter)
    : Parser(device, reporter) {
  PhyCountersParser::Initialize();
}

void PhyCountersParser::Initialize() {
  table_.AppendRow({"Counter ID", "Description", "Counter Value"}, true);
  auto code = ReadLog::ReadLog(device_, kPhyLog, 0, 1).GetErrorCode();
  if (code == Status::ReadyToRun && !DeviceManagement::ProductOf(*device_).hasOemAttributes) {
    code = Status::NotSupportedByDrive;
  }
  if (code == Status::ReadyToRun && Refuse::FailureReported(*device_)) {
    code = Status::DisableLogical;
  }
  EndInitialize(code);
}

std::int32_t PhyCountersParser::Execute() {
  MORVU_LOG(kLogInfo, "Execute", "Executing...");
  rawLog_.clear();
  ReadLog::ReadLog read(device_, kPhyLog, 0, 1);
  if (read.GetErrorCode() == Status::ReadyToRun && read.Execute() != 0) {
    rawLog_.assign(read.GetData().begin(), read.GetData().end());
    MORVU_LOG(kLogInfo, "Execute", "Raw Buffer Data: \n" + DeviceManagement::HexDump(rawLog_));
    if (SumOf(rawLog_) != 0) {
      Warn("The log's checksum is wrong: it may have come short, and its values be wrong.");
    }
    AppendPhyCounters(rawLog_, table_);
  }
  TakeResult(read);
  return GetErrorCode() == Status::Completed;
}

// ---- The family ----

namespace {

StatusCode RunPhyCounters(const FeatureCall& call) {
  PhyCountersParser parser(&call.GetDevice(), call.face.GetReporter());
  if (parser.GetErrorCode() == Status::ReadyToRun && parser.Execute() != 0) {
    call.face.Show(parser.GetTable());
  }
  TellRemarks(parser, call.face);
  return parser.GetErrorCode();
}

StatusCode RunPhyCountersMethod(const FeatureCall& call, JobContext& context) {
  PhyCountersParser parser(&call.GetDevice(), call.face.GetReporter());
  if (parser.GetErrorCode() == Status::ReadyToRun) parser.Execute();
  TellRemarks(parser, call.face);
  return ReplyTable(call, context, parser, parser.GetTitle());
}

StatusCode AssessPhyCounters(Device& device) { return PhyCountersParser(&device).GetErrorCode(); }

constexpr std::string_view kDescriptions[] = {"Display the PHY Counters data to the screen."};
constexpr std::string_view kExamples[] = {"-drive_index 1 -phy_counters"};
constexpr MethodParameter kParameters[] = {{kFileArgument, "string", true}};
constexpr StatusCode kHiddenCodes[] = {Status::NotAMorvuDrive, Status::RaidVolume,
                                       Status::NotSupportedByDrive};
constexpr CimMethod kMethods[] = {
    {.name = "PhyCounters",
     .displayName = "Phy Counters",
     .category = "advanced",
     .targetType = "device",
     .parameters = kParameters,
     .hasTable = true,
     .hiddenCodes = kHiddenCodes,
     .assess = &AssessPhyCounters,
     .run = &RunPhyCountersMethod},
};
constexpr OptionDeclaration kOptions[] = {
    {.name = "-phy_counters",
     .kind = OptionKind::Flag,
     .category = OptionCategory::Feature,
     .descriptions = kDescriptions,
     .arguments = {},
     .examples = kExamples,
     .run = &RunPhyCounters},
};

}  // namespace

extern constexpr FeatureRecord PhyCountersParserRecord = {
    .name = "PhyCountersParser",
    .needsDrive = true,
    .isSequence = true,
    .onSeveral = OnSeveral::Each,
    .methods = kMethods,
    .options = kOptions,
};

}  // namespace Morvu
