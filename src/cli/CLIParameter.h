// One option of a command line.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "messaging/features/FeatureRecord.h"

namespace Morvu {

class CLIParameter {
 public:
  CLIParameter(std::string_view name, OptionKind kind, OptionCategory category,
               std::string_view description, std::string_view example);
  explicit CLIParameter(const OptionDeclaration& declaration);

  void AddAlias(std::string_view word) { aliases_.emplace_back(word); }
  void AddDescription(std::string_view text);
  void AddExample(std::string_view text);
  // A second text for a name that is already there goes to the same entry.
  void AddArgument(std::string_view text, std::string_view argumentName);

  const std::string& GetName() const { return name_; }
  // By its name or an alias.
  bool IsCalled(std::string_view word) const;
  const std::string& GetText() const { return text_; }
  OptionKind GetKind() const { return kind_; }
  OptionCategory GetCategory() const { return category_; }
  OptionScan GetScan() const { return scan_; }
  bool IsGiven() const { return given_; }
  std::size_t CountMentions() const { return mentions_; }  // on the line
  bool IsHidden() const { return hidden_; }
  bool IsSupported() const { return supported_; }
  const std::vector<std::string>& GetValues() const { return values_; }
  const std::vector<std::string>& GetDescriptions() const { return descriptions_; }
  const std::vector<std::string>& GetArgumentNames() const { return argumentNames_; }
  // The help lines of each argument, index by index with the names.
  const std::vector<std::vector<std::string>>& GetArgumentTexts() const { return argumentTexts_; }
  const std::vector<std::string>& GetExamples() const { return examples_; }

  void SetText(std::string_view text) { text_ = text; }
  void SetKind(OptionKind kind) { kind_ = kind; }
  void SetGiven(bool given) { given_ = given; }
  void AddMention() { ++mentions_; }
  void SetHidden(bool hidden) { hidden_ = hidden; }              // left out of the help
  void SetSupported(bool supported) { supported_ = supported; }  // refused when it is not
  void AddValue(std::string_view value) { values_.emplace_back(value); }
  void ClearValues() { values_.clear(); }

 private:
  std::string name_;
  std::vector<std::string> aliases_;
  std::string text_;
  OptionKind kind_;
  bool given_ = false;
  std::size_t mentions_ = 0;
  bool hidden_ = false;
  OptionCategory category_;
  OptionScan scan_ = OptionScan::Any;
  bool supported_ = true;
  std::vector<std::string> values_;
  std::vector<std::string> descriptions_;
  std::vector<std::string> argumentNames_;
  std::vector<std::vector<std::string>> argumentTexts_;
  std::vector<std::string> examples_;
};

// The options of one family.
class CLICommand {
 public:
  explicit CLICommand(std::span<const OptionDeclaration> options);

  std::vector<std::unique_ptr<CLIParameter>> TakeParameters() { return std::move(parameters_); }

 private:
  std::vector<std::unique_ptr<CLIParameter>> parameters_;
};

CLICommand GetFeatureDefinition(const FeatureRecord& feature);

}  // namespace Morvu
