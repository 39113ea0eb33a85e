#include "cli/CLIParser.h"

#include <algorithm>
#include <istream>
#include <ostream>

#include "frame/Text.h"
#include "messaging/ResultTable.h"

namespace Morvu {
namespace {

constexpr std::size_t kFoldColumns = 77;
constexpr std::int64_t kHelpWidth = 75;
// What the texts of arguments and their names share; the dash takes a column of its own.
constexpr std::int64_t kArgumentsWidth = 68;
constexpr std::int64_t kQuestionWidth = 70;

// An argument vector is the caller's: an entry may be missing.
std::string_view Entry(int argc, const char* const* argv, int index) {
  if (index >= argc || argv[index] == nullptr) return {};
  return argv[index];
}

bool IsOption(std::string_view entry) { return entry.starts_with("-"); }

// One column of texts under a title, unframed.
std::string TitledTable(std::string_view title, const std::vector<std::string>& rows) {
  ResultTable table;
  table.AppendRow({std::string(title)}, true);
  for (const auto& row : rows) table.AppendRow({row});
  table.SetColumnWidth(0, kHelpWidth);
  return table.ToText(false, false);
}

std::string ArgumentsTable(const CLIParameter& parameter) {
  ResultTable table;
  table.AppendRow({"Arguments"}, true);
  std::int64_t nameWidth = 0;
  const auto& names = parameter.GetArgumentNames();
  for (std::size_t i = 0; i < names.size(); ++i) {
    nameWidth = std::max(nameWidth, static_cast<std::int64_t>(names[i].size()));
    bool isFirst = true;
    for (const auto& text : parameter.GetArgumentTexts()[i]) {
      table.AppendRow({isFirst ? names[i] : "", isFirst ? "-" : "", text});
      isFirst = false;
    }
  }
  table.SetColumnWidth(0, nameWidth);
  table.SetColumnWidth(1, 1);
  table.SetColumnWidth(2, kArgumentsWidth - nameWidth);
  return table.ToText(false, false);
}

bool IsYes(std::string_view answer) { return IEquals(answer, "y") || IEquals(answer, "yes"); }

// The bytes of the colour mark that begins at `at`; 0 when none does.
std::size_t MarkLength(std::string_view text, std::size_t at) {
  const auto rest = text.substr(at);
  if (rest.starts_with("</c>")) return 4;
  if (!rest.starts_with("<c:")) return 0;
  const auto end = rest.find('>');
  return end == rest.npos ? 0 : end + 1;
}

std::string FoldLine(std::string_view line) {
  std::string folded;
  std::size_t column = 0;
  std::size_t lastBlank = std::string::npos;  // in `folded`, on its last line
  std::size_t columnAfterBlank = 0;
  for (std::size_t at = 0; at < line.size();) {
    if (const auto mark = MarkLength(line, at); mark != 0) {
      folded += line.substr(at, mark);
      at += mark;
      continue;
    }
    folded += line[at];
    ++column;
    if (line[at] == ' ') {
      lastBlank = folded.size() - 1;
      columnAfterBlank = column;
    } else if (column > kFoldColumns && lastBlank != std::string::npos) {
      folded[lastBlank] = '\n';
      lastBlank = std::string::npos;
      column -= columnAfterBlank;
    }
    ++at;
  }
  return folded;
}

}  // namespace

CLIParser::CLIParser(const CLIStreams& streams, std::string_view toolName)
    : streams_(streams), toolName_(toolName) {}

CLIParser::~CLIParser() = default;

StatusCode CLIParser::ParseArguments(int argc, const char* const* argv) {
  StatusCode result = Status::Completed;
  for (int i = 1; i < argc;) {
    const auto entry = Entry(argc, argv, i);
    auto* parameter = FindOption(entry);
    if (parameter == nullptr || !parameter->IsSupported()) {
      TellFault(result = ParseError::UnknownOption, "Given parameter not supported: ", entry);
      ++i;
      continue;
    }
    parameter->SetGiven(true);
    parameter->AddMention();
    const auto kind = parameter->GetKind();
    const bool noValue = i + 1 == argc || IsOption(Entry(argc, argv, i + 1));
    if (kind == OptionKind::Flag) {
      if (!noValue) {
        TellFault(result = ParseError::FlagWithValue,
                  "Provided a value to a bool type argument: ", entry);
      }
      i += noValue ? 1 : 2;
    } else if (!noValue) {
      i = TakeValues(*parameter, i, argc, argv, result);
    } else {
      parameter->ClearValues();
      if (kind != OptionKind::Texts) {
        TellFault(result = ParseError::ValueMissing, "Parameter is not a bool type. ",
                  parameter->GetName());
      }
      ++i;
    }
  }
  return result;
}

int CLIParser::TakeValues(CLIParameter& parameter, int index, int argc, const char* const* argv,
                          StatusCode& result) {
  parameter.ClearValues();
  int i = index + 1;
  for (; i < argc && !IsOption(Entry(argc, argv, i)); ++i) {
    const auto value = Entry(argc, argv, i);
    if (parameter.GetKind() == OptionKind::Numbers && !IsDecimal(value)) {
      TellFault(result = ParseError::ValueNotNumeric, "Value is not numeric type: ", value);
    } else if (parameter.GetKind() == OptionKind::Text && !parameter.GetValues().empty()) {
      TellFault(result = ParseError::SecondValue,
                "Value already added for given paramter: ", parameter.GetName());
    } else {
      parameter.AddValue(value);
    }
  }
  return i;
}

void CLIParser::TellFault(StatusCode, std::string_view text, std::string_view subject) {
  streams_.out << "ERROR: " << text << subject << '\n';
}

void CLIParser::AddParameter(std::unique_ptr<CLIParameter> parameter) {
  if (parameter) parameters_.push_back(std::move(parameter));
}

CLIParameter* CLIParser::FindParameter(std::string_view name) const {
  const auto found = std::ranges::find_if(
      parameters_, [&](const auto& parameter) { return parameter->GetName() == name; });
  return found == parameters_.end() ? nullptr : found->get();
}

CLIParameter* CLIParser::FindOption(std::string_view word) const {
  const auto found = std::ranges::find_if(
      parameters_, [&](const auto& parameter) { return parameter->IsCalled(word); });
  return found == parameters_.end() ? nullptr : found->get();
}

bool CLIParser::HasOption(std::string_view name) const {
  const auto* parameter = FindParameter(name);
  return parameter != nullptr && parameter->IsGiven();
}

std::string CLIParser::GetArgument(std::string_view name) const {
  const auto* parameter = FindParameter(name);
  if (parameter == nullptr || parameter->GetValues().empty()) return {};
  return parameter->GetValues().front();
}

std::vector<std::string> CLIParser::GetArguments(std::string_view name) const {
  const auto* parameter = FindParameter(name);
  return parameter == nullptr ? std::vector<std::string>() : parameter->GetValues();
}

std::string CLIParser::GetParameterHelp(const CLIParameter& parameter) const {
  if (parameter.IsHidden()) return {};
  std::string help = parameter.GetName();
  for (const auto& name : parameter.GetArgumentNames()) help += " " + name;

  std::vector<std::string> tables = {TitledTable("Description", parameter.GetDescriptions())};
  if (!parameter.GetArgumentNames().empty()) tables.push_back(ArgumentsTable(parameter));
  if (!parameter.GetExamples().empty()) {
    auto examples = parameter.GetExamples();
    for (auto& example : examples) example = toolName_ + " " + example;
    tables.push_back(TitledTable("Example", examples));
  }
  return help + "\n" + Join(tables, "\n\n") + "\n\n";
}

bool CLIParser::Confirm(std::string_view text, std::string_view prompt, bool reading) {
  const ProgressLine::Gap gap(streams_.progress);
  ResultTable table;
  table.AppendText(text, "~", false);
  table.SetColumnWidth(0, kQuestionWidth);
  PrintLine(table.ToText());
  if (!prompt.empty()) Print(std::string(prompt) + " (Y|N): ");
  streams_.out.flush();

  std::string answer;
  std::getline(streams_.in, answer);
  return !reading || IsYes(answer);
}

std::string CLIParser::WrapText(std::string_view text) {
  auto lines = Split(text, '\n');
  for (auto& line : lines) line = FoldLine(line);
  return Join(lines, "\n");
}

void CLIParser::Print(std::string_view text) {
  const ProgressLine::Gap gap(streams_.progress);
  if (streams_.coloured) {
    WriteColoured(streams_.out, text);
  } else {
    WriteMarkedUp(streams_.out, text);
  }
  if (gap.IsInRun()) streams_.out.flush();
}

bool CLIParser::Flush() { return static_cast<bool>(streams_.out.flush()); }

void CLIParser::PrintLine(std::string_view text) {
  const ProgressLine::Gap gap(streams_.progress);
  Print(text);
  streams_.out << '\n';
  if (gap.IsInRun()) streams_.out.flush();
}

}  // namespace Morvu
