#include "operations/settings/MaxAddress.h"

#include <algorithm>
#include <optional>
#include <string>
#include <vector>

#include "devices/properties/BasicProperties.h"
#include "frame/Logger.h"
#include "frame/Text.h"
#include "frame/status/Partitions.h"
#include "messaging/XmlMessaging.h"
#include "messaging/features/FeatureRecord.h"
#include "operations/Operation.h"
#include "operations/SettingProperty.h"
#include "operations/erase/Format.h"
#include "operations/settings/SetMaxAddress.h"

namespace Morvu {

using DeviceManagement::Device;
namespace Properties = DeviceManagement::Properties;

namespace {

constexpr std::uint64_t kLeastValue = 2097151;
constexpr std::uint64_t kGigabyte = 1'000'000'000;

enum class Unit : std::uint8_t { Native, Percent, Capacity, Value };

// How somebody wants the address to be found.
struct Metric {
  Unit unit;
  std::uint64_t number = 0;
};

void LogMetric(const Metric& metric) {
  constexpr std::string_view kTexts[] = {"native option set.", "percent option set with value of ",
                                         "capacity option set with value of ",
                                         "value option set with value "};
  const bool isNative = metric.unit == Unit::Native;
  MORVU_LOG(kLogInfo, "MaxAddress",
            std::string(kTexts[static_cast<std::size_t>(metric.unit)]) +
                (isNative ? "" : std::to_string(metric.number)));
}

// A drive as far as addresses go; its sectors can be counted in bytes.
struct Size {
  std::uint64_t native;
  std::uint64_t sectorSize;

  std::uint64_t MostGigabytes() const { return (native + 1) * sectorSize / kGigabyte; }
};

Size SizeOf(const SetMaxAddress& set) {
  return {set.GetNativeMax(), set.GetDevice()->GetUInt(Properties::SectorSize)};
}

// What needs no drive to be known to be wrong.
bool IsPossible(const Metric& metric) {
  switch (metric.unit) {
    case Unit::Native:
      return true;
    case Unit::Percent:
      return metric.number >= 1 && metric.number <= 100;
    case Unit::Capacity:
      return metric.number > 0;
    case Unit::Value:
      return metric.number >= kLeastValue;
  }
  return false;
}

// None where it is out of the drive's range.
std::optional<std::uint64_t> FindTarget(const Metric& metric, const Size& size) {
  if (!IsPossible(metric)) return std::nullopt;
  std::uint64_t target = size.native;
  switch (metric.unit) {
    case Unit::Native:
      break;
    case Unit::Percent:
      target = static_cast<std::uint64_t>(static_cast<double>(metric.number) / 100 *
                                          static_cast<double>(size.native));
      break;
    case Unit::Capacity:
      if (metric.number > size.MostGigabytes()) return std::nullopt;
      // A whole number of gigabytes may end one sector behind the last.
      target = std::min(metric.number * kGigabyte / size.sectorSize, size.native);
      break;
    case Unit::Value:
      if (metric.number > size.native) return std::nullopt;
      target = metric.number;
      break;
  }
  if (target == 0) return std::nullopt;
  return target;
}

}  // namespace

// ---- The property ----

namespace {

std::optional<Metric> ParseProperty(std::string_view text) {
  if (IEquals(text, "native")) return Metric{Unit::Native};
  auto unit = Unit::Value;
  if (text.ends_with('%')) {
    unit = Unit::Percent;
    text.remove_suffix(1);
  } else if (text.size() > 2 && IEquals(text.substr(text.size() - 2), "gb")) {
    unit = Unit::Capacity;
    text.remove_suffix(2);
  }
  const auto number = ParseDecimal(text);
  if (!number) return std::nullopt;
  return Metric{unit, *number};
}

StatusCode Write(SetMaxAddress& set, const Metric& metric) {
  if (set.GetErrorCode() != Status::ReadyToRun) return set.GetErrorCode();
  const auto target = FindTarget(metric, SizeOf(set));
  if (!target) return Status::InvalidArguments;
  set.SetMaxLBA(*target);
  return set.RunPermitted();
}

}  // namespace

StatusCode SetMaximumLba(XmlMessaging::Property& request, Device& device) {
  const auto metric = ParseProperty(request.value);
  if (request.GetAttribute("name") != Properties::MaximumLBA.name || !metric ||
      !IsPossible(*metric)) {
    return Status::InvalidArguments;
  }
  LogMetric(*metric);
  SetMaxAddress set(&device, SetMaxAddress::kNotChosen, NoReporter());
  const auto code = Write(set, *metric);
  request.SetAttribute("detail", JoinRemarks(set));
  if (set.GetSaves() && set.GetSaves()->count >= 0) {
    request.SetAttribute("remainingSaves", std::to_string(set.GetSaves()->count));
  }
  if (code != Status::Completed) return code;
  request.SetAttribute("powercycle", BoolText(true));
  if (set.GetShownMax()) request.SetAttribute("shows", std::to_string(*set.GetShownMax()));
  return code;
}

// ---- The family ----

namespace {

constexpr std::string_view kMetricArgument = "metric";
constexpr std::string_view kValueArgument = "value";

struct MetricWord {
  std::string_view word;
  Unit unit;
};
constexpr MetricWord kMetricWords[] = {
    {"value", Unit::Value},
    {"percent", Unit::Percent},
    {"capacity", Unit::Capacity},
    {"native", Unit::Native},
};

std::optional<Metric> ParseWords(const CallArguments& arguments) {
  const auto* row =
      std::ranges::find(kMetricWords, arguments.GetText(kMetricArgument), &MetricWord::word);
  if (row == std::end(kMetricWords)) return std::nullopt;
  const bool isNative = row->unit == Unit::Native;
  if (isNative == arguments.Has(kValueArgument)) return std::nullopt;
  if (isNative) return Metric{Unit::Native};
  const auto number = ParseDecimal(arguments.GetText(kValueArgument));
  if (!number) return std::nullopt;
  return Metric{row->unit, *number};
}

std::string DescribeRange(const Metric& metric, const Size& size) {
  const auto number = std::to_string(metric.number);
  if (metric.unit == Unit::Capacity) {
    return "Invalid capacity value given: " + number +
           ". Max Capacity = " + std::to_string(size.MostGigabytes());
  }
  if (metric.unit == Unit::Value) {
    return "Invalid LBA value given: " + number + ". Min value = " + std::to_string(kLeastValue) +
           " Max value = " + std::to_string(size.native);
  }
  return "Invalid percent value given.";
}

StatusCode RefuseUnchanged(const SetMaxAddress& set, Face& face) {
  TellRemarks(set, face);
  if (set.GetErrorCode() == Status::HasPartition) {
    face.Say("Nothing was done: the drive has partitions, or is in use. Erase it before.");
  }
  return set.GetErrorCode();
}

// A disk that is used as a whole shows no partition, and a forced erase would pass it over.
StatusCode LookAtUse(Device& device, Face& face) {
  const ErasePermit look(device, false);
  const auto code = look.GetCode();
  if (code == Status::ReadyToRun) return code;
  face.Say("Nothing was done: " +
           (look.GetReason().empty() ? "the drive is in use. Erase it before" : look.GetReason()) +
           ".");
  for (const auto& line : look.GetUse().Describe()) face.Say(Printable(line));
  return code;
}

StatusCode EraseBefore(const SetMaxAddress& set, Face& face) {
  auto& device = *set.GetDevice();
  const bool isNvme = device.HasCommandSet(DeviceManagement::Protocol::Nvme);
  face.Say("WARNING! Changing the drive's MAX LBA requires a Secure Erase! ");
  auto notes = set.GetSaves() ? set.GetSaves()->lines : std::vector<std::string>();
  if (!isNvme) notes.emplace_back("A drive takes its maximum once in a power cycle.");
  return Format::Runner(device, isNvme ? GetCurrentLayout(device) : FormatSettings(), face,
                        Join(notes, "\n"));
}

void TellFailure(const SetMaxAddress& set, Face& face) {
  const std::string gone = "The data are gone";
  if (set.IsShownUnchanged()) return face.Say(gone + ", the maximum is unchanged.");
  face.Say(gone + (set.GetShownMax()
                       ? "; the drive's last LBA is " + std::to_string(*set.GetShownMax()) + " now."
                       : "; the drive does not tell which maximum it has now."));
}

StatusCode RunMaxAddress(const FeatureCall& call) {
  auto& face = call.face;
  const auto metric = ParseWords(call.arguments);
  if (!metric) {
    MORVU_LOG(kLogError, "RunCLI", "Invalid options given for -max_address.");
    face.Say("Error: Invalid options given for -max_address. See -help for proper usage.");
    return Status::InvalidArguments;
  }
  LogMetric(*metric);
  if (metric->unit == Unit::Percent && !IsPossible(*metric)) {
    face.Say(DescribeRange(*metric, {}));
    return Status::InvalidArguments;
  }
  SetMaxAddress set(&call.GetDevice(), SetMaxAddress::kNotChosen, face.GetReporter());
  if (set.GetErrorCode() != Status::ReadyToRun) return RefuseUnchanged(set, face);
  const auto target = FindTarget(*metric, SizeOf(set));
  if (!target) {
    face.Say(DescribeRange(*metric, SizeOf(set)));
    return Status::InvalidArguments;
  }
  set.SetMaxLBA(*target);
  if (const auto code = LookAtUse(call.GetDevice(), face); code != Status::ReadyToRun) return code;
  if (const auto code = EraseBefore(set, face); code != Status::Completed) return code;
  face.Say("Setting Max LBA...");
  const auto code = set.RunPermitted();
  if (code == Status::Completed)
    face.Say("Successfully set MAX LBA. Please power cycle the drive.");
  TellRemarks(set, face);
  if (code != Status::Completed) TellFailure(set, face);
  return code;
}

constexpr std::string_view kDescriptions[] = {
    "Set the drive's maximum LBA value. THIS FEATURE WILL FORMAT THE DRIVE BEFORE CHANGING THE MAX "
    "LBA! The Tool will prompt prior to formatting the drive. The max LBA can be set based on "
    "different metrics: value, percent, capacity, and native. Use this function if you wish to "
    "over provision your drive."};
constexpr std::string_view kWords[] = {"value", "percent", "capacity", "native"};
constexpr ArgumentDeclaration kArguments[] = {
    {"(metric)",
     "(Required) Specify how you want to determine the max LBA value. Supported metric values are:",
     kMetricArgument, kWords},
    {"(metric)",
     "value; Must specify (value) argument. This represents a specific LBA value and must be at "
     "least: 2097151. Must be a decimal integer literal."},
    {"(metric)",
     "percent; Must specify (value) argument. This represents a percentage of overall drive "
     "capacity. Given value must be between 1-100"},
    {"(metric)",
     "capacity; Must specify (value) argument. This represents the size in GB to set . Must be a "
     "decimal integer literal."},
    {"(metric)",
     "native; (value) argument is not required. This will reset the selected drive back to it's "
     "native max."},
    {"(value)",
     "(Required) The value is required for all metrics except native.",
     kValueArgument,
     {},
     true},
};
constexpr std::string_view kExamples[] = {
    "-drive_index 1 -max_address native",
    "-drive_index 1 -max_address capacity 50",
    "-drive_index 1 -max_address percent 25",
    "-drive_index 1 -max_address value 12345",
};
constexpr OptionDeclaration kOptions[] = {
    {.name = "-max_address",
     .kind = OptionKind::Texts,
     .category = OptionCategory::Feature,
     .descriptions = kDescriptions,
     .arguments = kArguments,
     .examples = kExamples,
     .run = &RunMaxAddress},
};

}  // namespace

extern constexpr FeatureRecord MaxAddressRecord = {
    .name = "MaxAddress",
    .group = HelpGroup::Change,
    .destroys = true,
    .needsDrive = true,
    .isSequence = true,
    .options = kOptions,
};

}  // namespace Morvu
