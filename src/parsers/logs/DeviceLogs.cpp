// The methods and options that read logs as they are.
#include <cryptopp/base64.h>
#include <cryptopp/filters.h>

#include <string>

#include "frame/Text.h"
#include "frame/status/Drives.h"
#include "frame/status/Files.h"
#include "frame/status/Health.h"
#include "messaging/XmlMessaging.h"
#include "messaging/features/FeatureRecord.h"
#include "messaging/features/JobContext.h"
#include "messaging/features/ParserReply.h"
#include "operations/Operation.h"
#include "parsers/logs/ReadLog.h"

namespace Morvu {

using DeviceManagement::Device;

namespace {

// ---- The end of a run ----

std::string ToBase64(ByteView bytes) {
  std::string text;
  const CryptoPP::StringSource source(
      bytes.data(), bytes.size(), true,
      new CryptoPP::Base64Encoder(new CryptoPP::StringSink(text), false));
  return text;
}

void AddData(XmlMessaging::Message& reply, ByteView bytes, std::string_view key) {
  auto property = std::make_unique<XmlMessaging::Property>("data", ToBase64(bytes));
  property->SetAttribute("type", "binary");
  property->SetAttribute("encoding", "base64");
  property->SetAttribute("key", key);
  reply.properties.push_back(std::move(property));
}

// The run, and its data to the file that the call names, or to the reply. `context` is null at
// the prompt.
StatusCode Run(const FeatureCall& call, JobContext* context, ReadLog::ReadLog& log,
               std::string_view key) {
  if (log.GetErrorCode() == Status::ReadyToRun) log.Execute();
  TellRemarks(log, call.face);
  const auto result = log.GetErrorCode();
  const auto data = log.GetData();
  const auto file = call.arguments.GetText(kFileArgument);
  if (result != Status::Completed && data.empty()) return result;
  if (!file.empty()) {
    if (data.empty() || !call.face.SaveBinary(data, file)) return Status::FileNotWritten;
  } else if (context != nullptr && context->reply != nullptr) {
    AddData(*context->reply, data, key);
  }
  return result;
}

// ---- The general purpose log ----

constexpr std::string_view kAddressArgument = "LogAddress";
constexpr std::string_view kPageArgument = "PageNum";
constexpr std::string_view kSectorsArgument = "Sectors";

constexpr std::uint64_t kMostAddress = 0xFF, kMostPage = 0xFFFF, kMostSectors = 0xFFFF;

// Decimal, or hexadecimal behind "0x". A number of too many digits is the largest.
std::optional<std::uint64_t> ParseNumber(std::string_view text) {
  const bool isHex = text.starts_with("0x") || text.starts_with("0X");
  const auto digits = isHex ? text.substr(2) : text;
  if (const auto number = isHex ? ParseHex(digits) : ParseDecimal(digits)) return number;
  constexpr std::string_view kDigits = "0123456789ABCDEFabcdef";
  const auto known = kDigits.substr(0, isHex ? kDigits.size() : 10);
  if (digits.empty() || digits.find_first_not_of(known) != digits.npos) return std::nullopt;
  return ~std::uint64_t{0};
}

// None, and a person is told, for a text that is no number of the range.
std::optional<std::uint64_t> TakeNumber(const FeatureCall& call, std::string_view argument,
                                        std::string_view missing, std::uint64_t most,
                                        std::string_view noNumber, std::string_view tooLarge) {
  const auto number = ParseNumber(call.arguments.GetText(argument, missing));
  if (number && *number <= most) return number;
  call.face.Say(number ? tooLarge : noNumber);
  return std::nullopt;
}

StatusCode ReadPage(const FeatureCall& call, JobContext* context) {
  const auto address = TakeNumber(call, kAddressArgument, "0", kMostAddress,
                                  "Error: The log address should be a decimal or hex value.",
                                  "Error: The max allowed value for log address is 255 (0xFF).");
  if (!address) return Status::InvalidArguments;
  const auto page = TakeNumber(call, kPageArgument, "0", kMostPage,
                               "Error: The page number should be a decimal or hex value.",
                               "Error: The max allowed value for page number is 65535 (0xFFFF).");
  if (!page) return Status::InvalidArguments;
  constexpr std::string_view kSectorsError =
      "Error: The number of sectors must be at least 0x01 and no more than 65535 (0xFFFF).";
  auto sectors =
      TakeNumber(call, kSectorsArgument, "1", kMostSectors, kSectorsError, kSectorsError);
  if (!sectors) return Status::InvalidArguments;
  if (*sectors == 0) {
    call.face.Say(kSectorsError);
    return Status::InvalidArguments;
  }
  ReadLog::ReadLog log(&call.GetDevice(), static_cast<std::uint8_t>(*address),
                       static_cast<std::uint16_t>(*page), static_cast<std::uint16_t>(*sectors),
                       call.face.GetReporter());
  return Run(call, context, log, "GPL");
}

// ---- The runs ----

template <typename Log>
StatusCode ReadVendorLog(const FeatureCall& call, JobContext* context, std::string_view key) {
  Log log(&call.GetDevice(), call.face.GetReporter());
  return Run(call, context, log, key);
}
StatusCode ReadEventLog(const FeatureCall& call, JobContext* context) {
  return ReadVendorLog<ReadLog::ReadLog_EventLog>(call, context, "Event Log");
}
StatusCode ReadNlog(const FeatureCall& call, JobContext* context) {
  return ReadVendorLog<ReadLog::ReadLog_Nlog>(call, context, "Read NLog");
}

using LogRun = StatusCode (*)(const FeatureCall& call, JobContext* context);

// At the prompt a log is always for a file.
template <LogRun Read>
StatusCode RunOption(const FeatureCall& call) {
  if (call.arguments.GetText(kFileArgument).empty()) return Status::InvalidArguments;
  return Read(call, nullptr);
}
template <LogRun Read>
StatusCode RunMethod(const FeatureCall& call, JobContext& context) {
  return Read(call, &context);
}

StatusCode AssessPage(Device& device) { return ReadLog::ReadLog(&device, 0, 0, 1).GetErrorCode(); }
template <typename Log>
StatusCode Assess(Device& device) {
  return Log(&device).GetErrorCode();
}

// ---- The family ----

constexpr StatusCode kHiddenCodes[] = {Status::NotAMorvuDrive, Status::RaidVolume,
                                       Status::NotSupportedByDrive};
constexpr MethodParameter kFileParameters[] = {{kFileArgument, "string", true}};
constexpr MethodParameter kPageParameters[] = {{kAddressArgument, "uint8", true},
                                               {kPageArgument, "uint16", true},
                                               {kSectorsArgument, "uint16", true},
                                               {kFileArgument, "string", true}};
constexpr CimMethod kMethods[] = {
    {.name = "ReadLog",
     .targetType = "device",
     .prompt = true,
     .parameters = kPageParameters,
     .hiddenCodes = kHiddenCodes,
     .assess = &AssessPage,
     .run = &RunMethod<ReadPage>},
    {.name = "ReadEventLog",
     .displayName = "Read Event Log",
     .description = "Read the device's event log binary and save it to a file.",
     .category = "standard",
     .targetType = "device",
     .parameters = kFileParameters,
     .hiddenCodes = kHiddenCodes,
     .assess = &Assess<ReadLog::ReadLog_EventLog>,
     .run = &RunMethod<ReadEventLog>},
    {.name = "ReadNlog",
     .displayName = "Read NLog",
     .description = "Read the device's nlog binary and save it to a file.",
     .category = "standard",
     .targetType = "device",
     .parameters = kFileParameters,
     .hiddenCodes = kHiddenCodes,
     .assess = &Assess<ReadLog::ReadLog_Nlog>,
     .run = &RunMethod<ReadNlog>},
};

constexpr std::string_view kPageText[] = {
    "Read the general purpose log binary and save it to the given filename."};
constexpr ArgumentDeclaration kPageArguments[] = {
    {"(filename)", "(Required) Name of the file to save the GPL binary data to.", kFileArgument},
    {"[log address]",
     "(Optional)  Address of the GPL to read. Value must be a decimal integer literal. Default = "
     "0.",
     kAddressArgument},
    {"[page #]",
     "(Optional) Log page to start reading at. Value must be a decimal integer literal. Default = "
     "0.",
     kPageArgument},
    {"[sectors]",
     "(Optional) Number of sectors to read from the given GPL address. Value must be a decimal "
     "integer literal. Default = 1.",
     kSectorsArgument},
};
constexpr std::string_view kPageExamples[] = {"-drive_index 1 -read_gpl supporttedGPL.bin 0 0 1"};

constexpr std::string_view kEventText[] = {
    "Read the Event Log binary and save it to the given filename."};
constexpr ArgumentDeclaration kEventArguments[] = {
    {"(filename)", "(Required) Name of the file to save the Event Log binary data to.",
     kFileArgument}};
constexpr std::string_view kEventExamples[] = {"-drive_index 1 -read_eventlog eventlog_binary.bin"};

constexpr std::string_view kNlogText[] = {
    "Read the NLog binary and save it to the given filename."};
constexpr ArgumentDeclaration kNlogArguments[] = {
    {"(filename)", "(Required) Name of the file to save the NLog binary data to.", kFileArgument}};
constexpr std::string_view kNlogExamples[] = {"-drive_index 1 -read_nlog nlog_binary.bin"};

constexpr OptionDeclaration kOptions[] = {
    {.name = "-read_gpl",
     .kind = OptionKind::Texts,
     .category = OptionCategory::Feature,
     .descriptions = kPageText,
     .arguments = kPageArguments,
     .examples = kPageExamples,
     .run = &RunOption<ReadPage>},
    {.name = "-read_eventlog",
     .kind = OptionKind::Text,
     .category = OptionCategory::Feature,
     .descriptions = kEventText,
     .arguments = kEventArguments,
     .examples = kEventExamples,
     .run = &RunOption<ReadEventLog>},
    {.name = "-read_nlog",
     .kind = OptionKind::Text,
     .category = OptionCategory::Feature,
     .descriptions = kNlogText,
     .arguments = kNlogArguments,
     .examples = kNlogExamples,
     .run = &RunOption<ReadNlog>},
};

}  // namespace

extern constexpr FeatureRecord DeviceLogsRecord = {
    .name = "DeviceLogs",
    .needsDrive = true,
    .isSequence = true,
    .onSeveral = OnSeveral::Each,
    .methods = kMethods,
    .options = kOptions,
};

}  // namespace Morvu
