#include "cli/CLIParameter.h"

#include <algorithm>

namespace Morvu {

CLIParameter::CLIParameter(std::string_view name, OptionKind kind, OptionCategory category,
                           std::string_view description, std::string_view example)
    : name_(name), kind_(kind), category_(category) {
  AddDescription(description);
  AddExample(example);
}

CLIParameter::CLIParameter(const OptionDeclaration& declaration)
    : CLIParameter(declaration.name, declaration.kind, declaration.category, {}, {}) {
  scan_ = declaration.scan;
  for (const auto text : declaration.descriptions) AddDescription(text);
  for (const auto& argument : declaration.arguments) AddArgument(argument.text, argument.name);
  for (const auto text : declaration.examples) AddExample(text);
}

bool CLIParameter::IsCalled(std::string_view word) const {
  return word == name_ || std::ranges::find(aliases_, word) != aliases_.end();
}

void CLIParameter::AddDescription(std::string_view text) {
  if (!text.empty()) descriptions_.emplace_back(text);
}

void CLIParameter::AddExample(std::string_view text) {
  if (!text.empty()) examples_.emplace_back(text);
}

void CLIParameter::AddArgument(std::string_view text, std::string_view argumentName) {
  const auto known = std::ranges::find(argumentNames_, argumentName);
  const auto index = static_cast<std::size_t>(known - argumentNames_.begin());
  if (known == argumentNames_.end()) {
    argumentNames_.emplace_back(argumentName);
    argumentTexts_.emplace_back();
  }
  argumentTexts_[index].emplace_back(text);
}

CLICommand::CLICommand(std::span<const OptionDeclaration> options) {
  for (const auto& option : options) {
    parameters_.push_back(std::make_unique<CLIParameter>(option));
  }
}

CLICommand GetFeatureDefinition(const FeatureRecord& feature) {
  return CLICommand(feature.options);
}

}  // namespace Morvu
