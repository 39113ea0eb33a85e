#include "cli/JsonDocument.h"

#include <nlohmann/json.hpp>
#include <set>

#include "cli/CLIParameter.h"
#include "cli/QRKCLI.h"
#include "cli/Report.h"
#include "devices/model/Device.h"
#include "devices/properties/BasicProperties.h"
#include "frame/Text.h"
#include "frame/status/NvmeStatus.h"

namespace Morvu {
namespace {

using Json = nlohmann::ordered_json;
using DeviceManagement::Device;
namespace Properties = DeviceManagement::Properties;

// The first rises when a key goes or changes its meaning, the second when one comes.
constexpr int kFormat[] = {1, 0};

// What every reader of a number as a double keeps (RFC 8259, 6).
constexpr std::uint64_t kLargestExact = std::uint64_t{1} << 53;

// A number that a reader may round has its digits beside it.
template <typename Number>
void AddNumber(Json& object, const std::string& name, Number number) {
  object[name] = number;
  const auto size = static_cast<std::uint64_t>(number);
  const bool isExact = number < 0 ? ~size + 1 <= kLargestExact : size <= kLargestExact;
  if (!isExact) object[name + "_text"] = std::to_string(number);
}

void AddProperty(Json& object, const DeviceProperty& property) {
  const auto& name = property.GetName();
  switch (property.GetKind()) {
    case PropertyKind::Boolean:
      object[name] = property.AsBoolean();
      break;
    case PropertyKind::Sint16:
    case PropertyKind::Sint32:
    case PropertyKind::Sint64:
      AddNumber(object, name, property.AsSigned());
      break;
    case PropertyKind::Uint16:
    case PropertyKind::Uint32:
    case PropertyKind::Uint64:
      AddNumber(object, name, property.AsUnsigned());
      break;
    default:
      object[name] = property.ToText();
  }
}

// An NVMe status is a number of its own space, and no code.
Json ToResult(StatusCode code) {
  Json result;
  const auto status = ToNvmeStatus(code);
  result["code"] = status ? Json() : Json(code.Value());
  if (status) result["nvmeStatus"] = *status;
  result["text"] = GetStatusText(code);
  result["isGood"] = IsGoodEnd(code);
  return result;
}

// ---- Drives ----

Json ToIdentity(const Device& device) {
  auto identity = Json::object();
  for (const auto* entry : {&Properties::Index, &Properties::ModelNumber, &Properties::SerialNumber,
                            &Properties::DevicePath}) {
    const auto* property = device.GetProperties().Find(*entry);
    if (property != nullptr && property->HasValue()) AddProperty(identity, *property);
  }
  return identity;
}

Json ToPartition(const Report::Partition& partition) {
  Json object{{"path", partition.path}};
  if (!partition.type.empty()) object["type"] = partition.type;
  const auto add = [&](const char* name, const std::optional<std::uint64_t>& bytes) {
    if (bytes) AddNumber(object, name, *bytes);
  };
  add("sizeBytes", partition.size);
  add("freeBytes", partition.free);
  add("usedBytes", partition.used);
  return object;
}

Json ToDrive(const Report::Drive& drive) {
  Json object;
  object["inUse"] = drive.isHeld;
  if (drive.answers) object["answers"] = *drive.answers;
  if (!drive.verdict.empty()) {
    object["verdict"]["text"] = drive.verdict;
    object["verdict"]["isFailing"] = drive.isFailing ? Json(*drive.isFailing) : Json();
  }
  object["properties"] = Json::object();
  for (const auto& property : drive.properties) AddProperty(object["properties"], property);
  object["partitions"] = Json::array();
  for (const auto& partition : drive.partitions) {
    object["partitions"].push_back(ToPartition(partition));
  }
  return object;
}

// ---- Tables ----

// A cell without colours, and without the colon that a label ends in at the prompt.
std::string ToName(const std::string& text) {
  auto name = Trim(StripMarkup(text));
  if (name.ends_with(':')) name.pop_back();
  return name;
}

// One name a column, and none twice.
std::vector<std::string> NameColumns(const ResultTable& table) {
  const auto count = table.GetColumnCount();
  const auto headers = table.GetHeaderRows();
  std::vector<std::string> names(count);
  if (!headers.empty()) {
    const auto& cells = headers.front()->cells;
    for (std::size_t i = 0; i < cells.size() && i < count; ++i) names[i] = ToName(cells[i].text);
  } else if (count == 2) {
    names = {"name", "value"};
  } else if (count == 3) {
    names = {"section", "name", "value"};
  }
  std::set<std::string> known;
  for (std::size_t i = 0; i < count; ++i) {
    if (names[i].empty()) names[i] = "column " + std::to_string(i);
    while (!known.insert(names[i]).second) names[i] += " " + std::to_string(i);
  }
  return names;
}

// A section's name stands in its first row alone.
Json ToTable(const ResultTable& table) {
  const auto names = NameColumns(table);
  const bool isSectioned = table.GetHeaderRows().empty() && names.size() == 3;
  const bool isLabelled = table.GetHeaderRows().empty() && (names.size() == 2 || isSectioned);
  std::string section;
  auto rows = Json::array();
  for (const auto* row : table.GetDataRows()) {
    auto object = Json::object();
    for (std::size_t i = 0; i < names.size(); ++i) {
      const auto text = i < row->cells.size() ? row->cells[i].text : std::string();
      const bool isLabel = isLabelled && i + 1 < names.size();
      auto cell = isLabel ? ToName(text) : StripMarkup(text);
      if (isSectioned && i == 0) cell = cell.empty() ? section : section = cell;
      object[names[i]] = cell;
    }
    rows.push_back(std::move(object));
  }
  return {{"columns", names}, {"rows", std::move(rows)}};
}

// ---- Runs and the line ----

Json ToRun(const Report::Run& run) {
  Json object{{"feature", run.feature}};
  object["drive"] = run.drive == nullptr ? Json() : ToIdentity(*run.drive);
  object["result"] = run.code ? ToResult(*run.code) : Json();
  object["lines"] = run.lines.Get();
  object["warnings"] = run.warnings.Get();
  object["tables"] = Json::array();
  for (const auto& table : run.tables) object["tables"].push_back(ToTable(table));
  object["figures"] = Json::object();
  for (const auto& [name, value] : run.figures) AddNumber(object["figures"], name, value);
  object["files"] = run.files;
  return object;
}

Json ToFault(const Report::Fault& fault) {
  Json object{{"code", fault.code.Value()}, {"text", fault.text}};
  if (!fault.nearest.empty()) object["nearest"] = fault.nearest;
  return object;
}

Json ToOption(const CLIParameter& option) {
  Json object{{"name", option.GetName()}, {"descriptions", option.GetDescriptions()}};
  object["arguments"] = Json::array();
  for (std::size_t i = 0; i < option.GetArgumentNames().size(); ++i) {
    object["arguments"].push_back(
        {{"name", option.GetArgumentNames()[i]}, {"descriptions", option.GetArgumentTexts()[i]}});
  }
  object["examples"] = option.GetExamples();
  return object;
}

}  // namespace

std::string ToJson(const Report& report, const ToolConfig& tool) {
  Json document;
  document["tool"] = {{"name", tool.toolName}, {"version", tool.version}};
  document["format"] = kFormat;
  document["result"] = ToResult(report.code);
  document["faults"] = Json::array();
  for (const auto& fault : report.faults) document["faults"].push_back(ToFault(fault));
  document["lines"] = report.lines.Get();
  document["warnings"] = report.warnings.Get();
  document["drives"] = Json::array();
  for (const auto& drive : report.drives) document["drives"].push_back(ToDrive(drive));
  document["runs"] = Json::array();
  for (const auto& run : report.GetRuns()) document["runs"].push_back(ToRun(run));
  document["files"] = report.files;
  if (!report.options.empty()) {
    document["options"] = Json::array();
    for (const auto* option : report.options) document["options"].push_back(ToOption(*option));
  }
  if (!report.license.empty()) document["license"] = report.license;
  constexpr auto kReplace = Json::error_handler_t::replace;
  return document.dump(2, ' ', false, kReplace) + "\n";
}

}  // namespace Morvu
