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
.B 43, 44, 63
Status codes 126, 127, 130, with which a shell ends by itself.
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
.TP
.B 191
The run ended well, and a line that begins with "WARNING!" tells what that does not mean.
.TP
.B 208 to 223
What -health found, as bits beside 208: a drive that fails (1), one that is nearly worn out (2), errors
(4), one without a verdict (8).
.PP
Where the text that was printed last is an NVMe status, the exit status is its number from 1 to 255,
and 100 for larger ones, for 0x012, 0x07E, 0x07F and 0x082.
.SH ENVIRONMENT
.TP
.B PAGER
What -help goes through on a terminal; less without it.
.TP
.B NO_COLOR
Texts have no colours.
.TP
.B TERM
A terminal that is "dumb" gets neither colours nor the line that shows how far a long run is.
)";

constexpr std::string_view kRights =
    R"(.SH RIGHTS
Drives are reached through /dev/sg* and /dev/nvme*; opening them and sending commands to them takes
the rights of root (CAP_SYS_RAWIO and CAP_SYS_ADMIN). Without them the tool tells what is missing.
)";

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
  for (const auto& option : Morvu::GetToolOptions()) {
    if (option.isTold) text += MakeOptionCells(option.declaration) + '\n';
  }
  return text;
}

}  // namespace MorvuTool
