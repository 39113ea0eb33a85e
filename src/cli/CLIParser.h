// Argument lines: options with their values, their help, and questions to the user.
#pragma once

#include <iosfwd>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "cli/CLIParameter.h"
#include "cli/ProgressLine.h"
#include "frame/StatusCode.h"

namespace Morvu {

// What ParseArguments can find wrong.
namespace ParseError {
inline constexpr StatusCode ValueMissing = 903;
inline constexpr StatusCode ValueNotNumeric = 904;
inline constexpr StatusCode UnknownOption = 905;
inline constexpr StatusCode FlagWithValue = 907;
inline constexpr StatusCode SecondValue = 908;
}  // namespace ParseError

// Where a command line reads its answers and writes its texts. Nothing is owned; all
// outlives the parser. `coloured` turns colour marks into the terminal's sequences;
// otherwise they are left out. `progress` shows how far a long run is.
struct CLIStreams {
  std::istream& in;
  std::ostream& out;
  bool coloured = false;
  ProgressLine& progress = ProgressLine::None();
};

class CLIParser {
 public:
  // `toolName` stands in front of the examples in help texts.
  CLIParser(const CLIStreams& streams, std::string_view toolName);
  virtual ~CLIParser();
  CLIParser(const CLIParser&) = delete;
  CLIParser& operator=(const CLIParser&) = delete;

  // Reads the options from argv[1] on. 0, or the code of the last error; each error
  // prints its line, and none stops the scan.
  virtual StatusCode ParseArguments(int argc, const char* const* argv);

  void AddParameter(std::unique_ptr<CLIParameter> parameter);
  // Null when there is none. The parser keeps it.
  CLIParameter* FindParameter(std::string_view name) const;
  // The same for a word of the line, which may be an alias.
  CLIParameter* FindOption(std::string_view word) const;
  // In the order of registration.
  const std::vector<std::unique_ptr<CLIParameter>>& GetParameters() const { return parameters_; }

  // The option was given; false for an unknown one.
  bool HasOption(std::string_view name) const;
  // The option's first value, empty when it has none.
  std::string GetArgument(std::string_view name) const;
  std::vector<std::string> GetArguments(std::string_view name) const;

  // Empty for a hidden parameter.
  std::string GetParameterHelp(const CLIParameter& parameter) const;

  // Shows the text in a frame and asks the question. True for a line "y" or "yes", in
  // either case, and nothing else; the end of input counts as no. With `reading` false
  // any line is waited for, and the answer is true.
  virtual bool Confirm(std::string_view text, std::string_view prompt, bool reading = true);

  // The text folded at blanks to 77 visible columns. A longer word stays whole.
  static std::string WrapText(std::string_view text);

  // Writes a text with its colour marks carried out; PrintLine ends the line.
  virtual void Print(std::string_view text);
  virtual void PrintLine(std::string_view text = {});
  // Whoever reads the output has all of it; false when it could not be written.
  bool Flush();
  ProgressLine& GetProgress() { return streams_.progress; }

 protected:
  const std::string& GetToolName() const { return toolName_; }
  std::ostream& GetOutput() { return streams_.out; }
  // Tells a fault of the argument line, which ParseArguments returns the last one of.
  virtual void TellFault(StatusCode code, std::string_view text, std::string_view subject);

 private:
  // Takes the values behind the option at `index`; the index behind the last one.
  int TakeValues(CLIParameter& parameter, int index, int argc, const char* const* argv,
                 StatusCode& result);

  CLIStreams streams_;
  std::string toolName_;
  std::vector<std::unique_ptr<CLIParameter>> parameters_;
};

}  // namespace Morvu
