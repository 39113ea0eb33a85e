#include "Documentation.h"

#include <algorithm>
#include <string_view>
#include <vector>

#include "cli/ToolOptions.h"
#include "frame/Text.h"

namespace MorvuTool {
namespace {

using Morvu::CLIParameter;
using Morvu::CLIParser;
using Morvu::OptionCategory;
using Morvu::OptionKind;

struct Section {
  OptionCategory category;
  std::string_view title;
};
constexpr Section kSections[] = {
    {OptionCategory::Tool, "TOOL OPTIONS"},
    {OptionCategory::DriveSelection, "DRIVE SELECTION"},
    {OptionCategory::Feature, "FEATURES"},
    {OptionCategory::Modifier, "MODIFIERS"},
};

constexpr std::string_view kExitStatus =
    R"(.SH EXIT STATUS
.TP
.B 0
The run ended well: status code 0, or 18 (the drive has current firmware).
.TP
.B 1 to 255
The status code whose text the tool printed last, unless listed below.
.TP
.B 24 to 42
Status codes 284 to 302.
.TP
.B 46 to 55
Status codes 273 to 282.
.TP
.B 56 to 58
Status codes 260 to 262.
.TP
.B 59
Status code 269.
.TP
.B 60 to 65
The argument line was carried out only in part: an option without its value (60), a value that is
not numeric (61), an unknown option (62), a flag with a value (64), a second value (65).
.TP
.B 99
An error of the operating system.
.TP
.B 100
Any other failure.
)";

constexpr std::string_view kRights =
    R"(.SH RIGHTS
Drives are reached through /dev/sg* and /dev/nvme*; opening them and sending commands to them takes
the rights of root (CAP_SYS_RAWIO and CAP_SYS_ADMIN). Without them the tool tells what is missing.
)";

constexpr std::string_view kCompletion =
    R"bash(# bash completion for @NAME@
_@NAME@() {
  local current="${COMP_WORDS[COMP_CWORD]}" previous="${COMP_WORDS[COMP_CWORD-1]}" nodes
  COMPREPLY=()
  if [[ $current != -* ]]; then
    case "$previous" in
      -drive_path)
        nodes="$(compgen -G '/dev/sg[0-9]*'; compgen -G '/dev/nvme[0-9]*')"
        COMPREPLY=($(compgen -W "$nodes" -- "$current"))
        return ;;
      @WITH_FILE@)
        compopt -o filenames 2>/dev/null
        COMPREPLY=($(compgen -f -- "$current")) ;;
      @WITH_VALUE@)
        return ;;
    esac
    [[ -n $current ]] && return
  fi
  COMPREPLY+=($(compgen -W "@OPTIONS@" -- "$current"))
}
complete -F _@NAME@ @NAME@
)bash";

// A text with what troff would read otherwise made plain.
std::string Escape(std::string_view text) {
  auto plain = Morvu::ReplaceAll(text, "\\", "\\e");
  plain = Morvu::ReplaceAll(plain, "-", "\\-");
  if (plain.starts_with('.') || plain.starts_with('\'')) plain = "\\&" + plain;
  return plain;
}

std::string DescribeOption(const CLIParameter& parameter, std::string_view toolName) {
  std::string text = ".TP\n.B " + Escape(parameter.GetName());
  for (const auto& name : parameter.GetArgumentNames()) text += " \\fI" + Escape(name) + "\\fP";
  text += "\n";
  const char* separator = "";
  for (const auto& paragraph : parameter.GetDescriptions()) {
    text += separator + Escape(paragraph) + "\n";
    separator = ".IP\n";
  }
  for (std::size_t i = 0; i < parameter.GetArgumentNames().size(); ++i) {
    text += ".RS\n.TP\n.I " + Escape(parameter.GetArgumentNames()[i]) + "\n";
    separator = "";
    for (const auto& line : parameter.GetArgumentTexts()[i]) {
      text += separator + Escape(line) + "\n";
      separator = ".br\n";
    }
    text += ".RE\n";
  }
  for (const auto& example : parameter.GetExamples()) {
    text += ".IP\n.EX\n" + Escape(std::string(toolName) + " " + example) + "\n.EE\n";
  }
  return text;
}

}  // namespace

std::string MakeManualPage(const CLIParser& parser, const Morvu::ToolConfig& config) {
  const std::string name(config.toolName);
  auto text = ".TH " + Morvu::ToUpper(name) + " 8 \"\" \"" + name + " " +
              std::string(config.version) + "\" \"System Administration\"\n.SH NAME\n" + name +
              " \\- manage Morvu solid\\-state drives\n.SH SYNOPSIS\n.B " + name +
              "\n[\\fIdrive selection\\fP] [\\fIfeature\\fP [\\fIarguments\\fP]] "
              "[\\fImodifiers\\fP]\n.SH DESCRIPTION\n";
  for (const auto& paragraph : Morvu::Split(config.description, ';')) {
    text += Escape(paragraph) + "\n.PP\n";
  }
  for (const auto& section : kSections) {
    std::string options;
    for (const auto& parameter : parser.GetParameters()) {
      if (parameter->IsHidden() || parameter->GetCategory() != section.category) continue;
      options += DescribeOption(*parameter, name);
    }
    if (!options.empty()) text += ".SH " + std::string(section.title) + "\n" + options;
  }
  return text + std::string(kExitStatus) + std::string(kRights);
}

std::string MakeBashCompletion(const CLIParser& parser, const Morvu::ToolConfig& config) {
  std::vector<std::string> options;
  std::vector<std::string> withFile = {"-"};  // "-" stands for no option: a case needs a pattern
  std::vector<std::string> withValue = {"-"};
  for (const auto& parameter : parser.GetParameters()) {
    if (parameter->IsHidden()) continue;
    const auto& name = parameter->GetName();
    options.push_back(name);
    const bool takesFile = std::ranges::any_of(
        parameter->GetArgumentNames(), [](const auto& each) { return each == "[filename]"; });
    if (takesFile) withFile.push_back(name);
    const auto kind = parameter->GetKind();
    if (kind == OptionKind::Numbers || kind == OptionKind::Text) withValue.push_back(name);
  }
  auto text = Morvu::ReplaceAll(kCompletion, "@NAME@", config.toolName);
  text = Morvu::ReplaceAll(text, "@OPTIONS@", Morvu::Join(options, " "));
  text = Morvu::ReplaceAll(text, "@WITH_FILE@", Morvu::Join(withFile, "|"));
  return Morvu::ReplaceAll(text, "@WITH_VALUE@", Morvu::Join(withValue, "|"));
}

namespace {

// Option and arguments, and what it does: two cells.
std::string MakeOptionCells(const Morvu::OptionDeclaration& option) {
  std::string text = "| `" + std::string(option.name);
  std::string_view last;
  for (const auto& row : option.arguments) {
    if (row.name != last) text += " " + std::string(row.name);
    last = row.name;
  }
  text += "` |";
  for (const auto paragraph : option.descriptions) text += " " + std::string(paragraph);
  return text + " |";
}

std::string_view YesIf(bool condition) { return condition ? " yes |" : " |"; }

}  // namespace

std::string MakeOptionTables(std::span<const Morvu::FeatureRecord* const> features) {
  std::string text =
      "| Feature | What it does | Needs a selected drive | Destroys data |\n|---|---|---|---|\n";
  for (const auto* feature : features) {
    for (const auto& option : feature->options) {
      const bool isFeature = option.category == OptionCategory::Feature;
      text += MakeOptionCells(option);
      text += YesIf(isFeature && feature->needsDrive);
      text += YesIf(isFeature && feature->destroys);
      text += '\n';
    }
  }
  text += "\n| Option | What it does |\n|---|---|\n";
  for (const auto& option : Morvu::GetToolOptions()) text += MakeOptionCells(option) + '\n';
  return text;
}

}  // namespace MorvuTool
