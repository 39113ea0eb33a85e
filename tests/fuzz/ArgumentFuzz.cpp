// Argument lines of any bytes: entries are what stands between NUL bytes. The line
// always asks for help, so that no drive is looked for, and never for a log.
#include <cstddef>
#include <cstdint>
#include <sstream>
#include <string>
#include <vector>

#include "cli/QRKCLI.h"

namespace {

constexpr std::string_view kText[] = {"A feature's text, with enough words to fold the line."};
constexpr Morvu::ArgumentDeclaration kArguments[] = {{"[file]", "A file."}};
constexpr std::string_view kExamples[] = {"-drive_index 1 -feature"};
// Not reached: the line asks for help.
Morvu::StatusCode Run(const Morvu::FeatureCall&) { __builtin_trap(); }

constexpr Morvu::OptionDeclaration kOptions[] = {{"-feature", Morvu::OptionKind::Texts,
                                                  Morvu::OptionCategory::Feature, kText, kArguments,
                                                  kExamples, Morvu::OptionScan::Partitions, &Run}};
constexpr Morvu::FeatureRecord kFeature = {.name = "Feature", .options = kOptions};
constexpr const Morvu::FeatureRecord* kFeatures[] = {&kFeature};

std::vector<std::string> SplitEntries(const std::uint8_t* data, std::size_t size) {
  std::vector<std::string> entries(1);
  for (std::size_t i = 0; i < size; ++i) {
    if (data[i] == 0) {
      entries.emplace_back();
    } else {
      entries.back() += static_cast<char>(data[i]);
    }
  }
  std::erase(entries, "-log");
  if (entries.empty()) entries.emplace_back();
  return entries;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const auto entries = SplitEntries(data, size);
  std::vector<const char*> arguments = {"tool"};
  for (const auto& entry : entries) arguments.push_back(entry.c_str());
  arguments.push_back("-help");
  arguments.push_back(entries.front().c_str());

  std::istringstream in(entries.back());
  std::ostringstream out;
  const Morvu::ToolConfig config{.toolName = "tool",
                                 .productName = "Tool",
                                 .version = "1",
                                 .legalLines = {},
                                 .closingNote = "",
                                 .description = "A;B",
                                 .license = "",
                                 .defaultOption = "-help",
                                 .scanOptions = {}};
  Morvu::QRKCLI cli(kFeatures, config, {in, out, size % 2 == 0});
  if (cli.runCLI(static_cast<int>(arguments.size()), arguments.data()) != 0) __builtin_trap();
  cli.Confirm(entries.back(), entries.front());
  return 0;
}
