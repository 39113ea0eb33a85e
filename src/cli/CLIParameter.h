// One option of a command line, and the data that a family declares it by.
#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace Morvu {

// What may stand behind an option.
enum class OptionKind : std::uint32_t {
  Flag = 0,     // nothing
  Numbers = 1,  // decimal numbers, at least one
  Text = 2,     // exactly one text
  Texts = 3,    // any number of texts, also none
};

enum class OptionCategory : std::uint32_t {
  Tool = 0,
  DriveSelection = 1,
  Feature = 2,
  Modifier = 3,
};

// One help line of an argument. Rows with the same name follow each other and are
// the lines of one argument.
struct ArgumentDeclaration {
  std::string_view name;  // "[filename]" when it may be left out, "(type)" when not
  std::string_view text;
};

// An option as its family declares it, in static storage. Examples stand without
// the tool's name.
struct OptionDeclaration {
  std::string_view name;  // with its dash
  OptionKind kind;
  OptionCategory category;
  std::span<const std::string_view> descriptions;  // paragraphs
  std::span<const ArgumentDeclaration> arguments;
  std::span<const std::string_view> examples;
};

class CLIParameter {
 public:
  CLIParameter(std::string_view name, OptionKind kind, OptionCategory category,
               std::string_view description, std::string_view example);
  explicit CLIParameter(const OptionDeclaration& declaration);

  void AddDescription(std::string_view text);
  void AddExample(std::string_view text);
  // A second text for a name that is already there goes to the same entry.
  void AddArgument(std::string_view text, std::string_view argumentName);

  const std::string& GetName() const { return name_; }
  const std::string& GetText() const { return text_; }
  OptionKind GetKind() const { return kind_; }
  OptionCategory GetCategory() const { return category_; }
  bool IsGiven() const { return given_; }
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
  void SetHidden(bool hidden) { hidden_ = hidden; }              // left out of the help
  void SetSupported(bool supported) { supported_ = supported; }  // refused when it is not
  void AddValue(std::string_view value) { values_.emplace_back(value); }
  void ClearValues() { values_.clear(); }

 private:
  std::string name_;
  std::string text_;
  OptionKind kind_;
  bool given_ = false;
  bool hidden_ = false;
  OptionCategory category_;
  bool supported_ = true;
  std::vector<std::string> values_;
  std::vector<std::string> descriptions_;
  std::vector<std::string> argumentNames_;
  std::vector<std::vector<std::string>> argumentTexts_;
  std::vector<std::string> examples_;
};

// The options of one Feature family, as its GetFeatureDefinition returns them.
class CLICommand {
 public:
  explicit CLICommand(const OptionDeclaration& option)
      : CLICommand(std::span<const OptionDeclaration>(&option, 1)) {}
  explicit CLICommand(std::span<const OptionDeclaration> options);

  // Adds one that was built by hand.
  void AddParameter(std::unique_ptr<CLIParameter> parameter);
  std::vector<std::unique_ptr<CLIParameter>> TakeParameters() { return std::move(parameters_); }

 private:
  std::vector<std::unique_ptr<CLIParameter>> parameters_;
};

}  // namespace Morvu
