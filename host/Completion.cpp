// The completion for bash. What it offers of the machine's drives is what the kernel knows: no
// drive is asked, and none is woken by a key.
#include <algorithm>
#include <string_view>
#include <vector>

#include "Documentation.h"
#include "frame/Text.h"

namespace MorvuTool {
namespace {

using Morvu::CLIParameter;
using Morvu::CLIParser;
using Morvu::OptionKind;
using Names = std::vector<std::string>;

// No text of a drive goes through compgen -W, which would carry out what it finds in it.
constexpr std::string_view kCompletion =
    R"bash(# bash completion for @NAME@

# Adds those of the words that begin with what is typed.
_@NAME@_offer() {  # WORD...
  local word
  for word; do
    [[ $word == "$current"* ]] && COMPREPLY+=("$word")
  done
}

# The disks of the kernel, by the names of their block nodes.
_@NAME@_disks() {
  local path name
  for path in /sys/class/block/*; do
    name="${path##*/}"
    [[ $name =~ ^(sd[a-z]+|nvme[0-9]+n[0-9]+)$ ]] && printf '%s\n' "$name"
  done
}

# The generic nodes of disks, by the names that the kernel has for them.
_@NAME@_generic() {
  local path type
  for path in /sys/class/scsi_generic/sg*; do
    read -r type 2>/dev/null <"$path/device/type" && [[ $type == 0 ]] &&
      printf '%s\n' "${path##*/}"
  done
}

# The nodes that a list shows.
_@NAME@_nodes() {
  { _@NAME@_generic; _@NAME@_disks | grep '^nvme'; } | sed 's|^|/dev/|'
}

_@NAME@_serials() {
  local name serial
  {
    # Vital product data (SPC-4): the serial number stands behind a header of four bytes.
    for name in $(_@NAME@_generic); do
      tail -c +5 "/sys/class/scsi_generic/$name/device/vpd_pg80" | tr -d '\0'
      printf '\n'
    done
    cat /sys/class/nvme/nvme*/serial
  } 2>/dev/null | while read -r serial; do
    [[ $serial =~ ^[A-Za-z0-9._:/-]+$ ]] && printf '%s\n' "$serial"
  done
}

_@NAME@_partitions() {
  local path name
  for path in /sys/class/block/*/partition; do
    path="${path%/partition}" name="${path##*/}"
    [[ $name == sd* || $name == nvme* ]] || continue
    [[ $current == /* ]] && name="/dev/$name"
    printf '%s\n' "$name"
  done
}

_@NAME@() {
  local current="${COMP_WORDS[COMP_CWORD]}" at place
  COMPREPLY=()
  if [[ $current != -* ]]; then
    # The option that the word belongs to, and the word's place behind it.
    for ((at = COMP_CWORD - 1, place = 1; at > 0; --at, ++place)); do
      [[ ${COMP_WORDS[at]} == -* ]] && break
    done
    case "${COMP_WORDS[at]} $place" in
      '-drive_index 1')
        _@NAME@_offer $(seq 0 $(($(_@NAME@_nodes | wc -l) - 1)))
        return ;;
      '-drive_serial 1')
        _@NAME@_offer $(_@NAME@_serials)
        return ;;
      '-drives '*)
        _@NAME@_offer all $(_@NAME@_serials)
        return ;;
      '-drive_letter 1')
        _@NAME@_offer $(_@NAME@_partitions)
        return ;;
      '-drive_path 1')
        _@NAME@_offer $(_@NAME@_nodes) $(_@NAME@_disks | sed -n 's|^sd|/dev/&|p')
        return ;;
@WORDS@      @WITH_FILE@)
        compopt -o filenames 2>/dev/null
        mapfile -t COMPREPLY < <(compgen -f -- "$current") ;;
      @WITH_VALUE@)
        return ;;
    esac
    [[ -n $current ]] && return
  fi
  _@NAME@_offer @OPTIONS@
}
complete -F _@NAME@ @NAME@
)bash";

// The pattern of a case for the first word behind these options.
std::string MakePattern(Names names) {
  if (names.empty()) names.emplace_back();  // a case needs a pattern
  for (auto& name : names) name = "'" + name + " 1'";
  return Morvu::Join(names, "|");
}

// The cases of the arguments that take certain words. Behind one that may be left out the next
// option may stand as well.
std::string MakeWordCases(std::span<const Morvu::FeatureRecord* const> features) {
  std::string text;
  for (const auto* feature : features) {
    for (const auto& option : feature->options) {
      int place = 0;
      for (const auto& argument : option.arguments) {
        if (argument.argument.empty()) continue;
        ++place;
        if (argument.words.empty()) continue;
        const Names words(argument.words.begin(), argument.words.end());
        text += "      '" + std::string(option.name) + " " + std::to_string(place) +
                "')\n        _@NAME@_offer " + Morvu::Join(words, " ");
        text += argument.name.starts_with('[') ? " ;;\n" : "\n        return ;;\n";
      }
    }
  }
  return text;
}

}  // namespace

std::string MakeBashCompletion(const CLIParser& parser, const Morvu::ToolConfig& config,
                               std::span<const Morvu::FeatureRecord* const> features) {
  Names options, withFile, withValue;
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
  auto text = Morvu::ReplaceAll(kCompletion, "@WORDS@", MakeWordCases(features));
  text = Morvu::ReplaceAll(text, "@NAME@", config.toolName);
  text = Morvu::ReplaceAll(text, "@OPTIONS@", Morvu::Join(options, " "));
  text = Morvu::ReplaceAll(text, "@WITH_FILE@", MakePattern(withFile));
  return Morvu::ReplaceAll(text, "@WITH_VALUE@", MakePattern(withValue));
}

}  // namespace MorvuTool
