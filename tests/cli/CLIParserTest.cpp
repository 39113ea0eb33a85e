#include <gtest/gtest.h>

#include <memory>
#include <sstream>
#include <vector>

#include "cli/CLIParser.h"

namespace Morvu {
namespace {

constexpr std::string_view kText[] = {"A drive's text."};
constexpr OptionDeclaration kOptions[] = {
    {"-flag", OptionKind::Flag, OptionCategory::Modifier, kText, {}, {}},
    {"-number", OptionKind::Numbers, OptionCategory::DriveSelection, kText, {}, {}},
    {"-text", OptionKind::Text, OptionCategory::Tool, kText, {}, {}},
    {"-texts", OptionKind::Texts, OptionCategory::Feature, kText, {}, {}},
};

class CLIParserTest : public ::testing::Test {
 protected:
  CLIParserTest() {
    for (const auto& option : kOptions)
      parser_.AddParameter(std::make_unique<CLIParameter>(option));
  }

  StatusCode Parse(std::vector<const char*> arguments) {
    arguments.insert(arguments.begin(), "tool");
    return parser_.ParseArguments(static_cast<int>(arguments.size()), arguments.data());
  }

  std::istringstream in_;
  std::ostringstream out_;
  CLIParser parser_{{in_, out_}, "tool"};
};

using Values = std::vector<std::string>;

struct Line {
  std::vector<const char*> arguments;
  StatusCode result;
  std::string_view output;
};

void PrintTo(const Line& line, std::ostream* out) { *out << line.output; }

class CLIParserLines : public CLIParserTest, public ::testing::WithParamInterface<Line> {};

TEST_P(CLIParserLines, GiveTheirCodeAndTheirWords) {
  EXPECT_EQ(Parse(GetParam().arguments), GetParam().result);
  EXPECT_EQ(out_.str(), GetParam().output);
}

const Line kLines[] = {
    {{}, 0, ""},
    {{"-flag"}, 0, ""},
    {{"-flag", "-number", "1", "2", "-text", "a", "-texts"}, 0, ""},
    {{"-flag", "x"}, 907, "ERROR: Provided a value to a bool type argument: -flag\n"},
    {{"-number"}, 903, "ERROR: Parameter is not a bool type. -number\n"},
    {{"-text", "-flag"}, 903, "ERROR: Parameter is not a bool type. -text\n"},
    {{"-number", "1x"}, 904, "ERROR: Value is not numeric type: 1x\n"},
    {{"-number", ""}, 904, "ERROR: Value is not numeric type: \n"},
    {{"-text", "a", "b"}, 908, "ERROR: Value already added for given paramter: -text\n"},
    {{"stray"}, 905, "ERROR: Given parameter not supported: stray\n"},
    {{""}, 905, "ERROR: Given parameter not supported: \n"},
    {{nullptr}, 905, "ERROR: Given parameter not supported: \n"},
    {{"-FLAG"}, 905, "ERROR: Given parameter not supported: -FLAG\nDid you mean -flag?\n"},
    {{"--nubmer"}, 905, "ERROR: Given parameter not supported: --nubmer\nDid you mean -number?\n"},
    {{"-nmb"}, 905, "ERROR: Given parameter not supported: -nmb\n"},
    // A negative number looks like an option.
    {{"-number", "-1"},
     905,
     "ERROR: Parameter is not a bool type. -number\nERROR: Given parameter not supported: -1\n"},
    // The last error wins, and all are told.
    {{"-x", "-flag", "y", "-text", "a", "b"},
     908,
     "ERROR: Given parameter not supported: -x\n"
     "ERROR: Provided a value to a bool type argument: -flag\n"
     "ERROR: Value already added for given paramter: -text\n"},
};
INSTANTIATE_TEST_SUITE_P(Table, CLIParserLines, ::testing::ValuesIn(kLines));

TEST_F(CLIParserTest, KeepsWhatWasGivenBesideErrors) {
  (void)Parse({"-x", "-number", "3", "4x", "5", "-texts", "a", "", "c", "-flag"});
  EXPECT_TRUE(parser_.HasOption("-flag"));
  EXPECT_FALSE(parser_.HasOption("-text"));
  EXPECT_FALSE(parser_.HasOption("-x"));
  EXPECT_EQ(parser_.GetArguments("-number"), (Values{"3", "5"}));
  EXPECT_EQ(parser_.GetArguments("-texts"), (Values{"a", "", "c"}));
  EXPECT_EQ(parser_.GetArgument("-number"), "3");
  EXPECT_EQ(parser_.GetArgument("-flag"), "");
  EXPECT_EQ(parser_.GetArgument("-x"), "");
}

TEST_F(CLIParserTest, TakesTheSecondMentionOfAnOption) {
  EXPECT_EQ(Parse({"-texts", "a", "b", "-number", "1", "-texts", "c", "-number"}), 903);
  EXPECT_EQ(parser_.GetArguments("-texts"), Values{"c"});
  EXPECT_EQ(parser_.GetArguments("-number"), Values{});
}

TEST_F(CLIParserTest, HasNoHelpForAHiddenParameter) {
  auto* text = parser_.FindParameter("-text");
  EXPECT_NE(parser_.GetParameterHelp(*text), "");
  text->SetHidden(true);
  EXPECT_EQ(parser_.GetParameterHelp(*text), "");
}

TEST_F(CLIParserTest, RefusesAnUnsupportedParameter) {
  parser_.FindParameter("-flag")->SetSupported(false);
  EXPECT_EQ(Parse({"-flag"}), 905);
  EXPECT_FALSE(parser_.HasOption("-flag"));
}

TEST_F(CLIParserTest, CarriesTenThousandArguments) {
  std::vector<const char*> arguments(10000, "7");
  arguments[0] = "-number";
  EXPECT_EQ(Parse(arguments), 0);
  EXPECT_EQ(parser_.GetArguments("-number").size(), 9999u);
  EXPECT_EQ(Parse(std::vector<const char*>(10000, "\xff\x1b[31m")), 905);
}

struct TypedAnswer {
  std::string_view input;
  bool reading;
  bool result;
};

void PrintTo(const TypedAnswer& answer, std::ostream* out) { *out << '"' << answer.input << '"'; }

class CLIParserAnswers : public CLIParserTest, public ::testing::WithParamInterface<TypedAnswer> {};

TEST_P(CLIParserAnswers, AreYesForTheLetterAlone) {
  in_.str(std::string(GetParam().input));
  EXPECT_EQ(parser_.Confirm("WARNING! Data ", "Proceed?", GetParam().reading), GetParam().result);
  EXPECT_EQ(out_.str(),
            "--------------------------------------------------------------------------\n"
            "| WARNING! Data                                                          |\n"
            "--------------------------------------------------------------------------\n"
            "Proceed? (Y|N): ");
}

const TypedAnswer kAnswers[] = {
    {"y\n", true, true},   {"Y\n", true, true},   {"yes\n", true, true},
    {"y", true, true},     {"YES\n", true, true}, {"yikes no!\n", true, false},
    {"yy\n", true, false}, {"ye\n", true, false}, {"n\n", true, false},
    {"\n", true, false},   {"", true, false},     {" y\n", true, false},
    {"\n", false, true},   {"", false, true},
};
INSTANTIATE_TEST_SUITE_P(Table, CLIParserAnswers, ::testing::ValuesIn(kAnswers));

TEST_F(CLIParserTest, ReadsOneLineAQuestion) {
  in_.str("no y\ny\n");
  EXPECT_FALSE(parser_.Confirm("First", ""));
  EXPECT_TRUE(parser_.Confirm("Second", ""));
  EXPECT_FALSE(parser_.Confirm("Third", ""));
}

TEST(WrapText, FoldsAtBlanksAndCountsWhatIsSeen) {
  const std::string word(38, 'x');
  EXPECT_EQ(CLIParser::WrapText(word + " " + word), word + " " + word);
  EXPECT_EQ(CLIParser::WrapText(word + " " + word + "y z"), word + "\n" + word + "y z");
  EXPECT_EQ(CLIParser::WrapText("<c:LIGHTRED>" + word + " " + word + "</c>"),
            "<c:LIGHTRED>" + word + " " + word + "</c>");
  const std::string longWord(200, 'w');
  EXPECT_EQ(CLIParser::WrapText("a " + longWord + " b"), "a\n" + longWord + "\nb");
  EXPECT_EQ(CLIParser::WrapText("Two  blanks\nstay"), "Two  blanks\nstay");
  EXPECT_EQ(CLIParser::WrapText(""), "");
}

TEST(CLIParserColours, AreWrittenWhenAskedFor) {
  std::istringstream in;
  std::ostringstream out;
  CLIParser parser({in, out, true}, "tool");
  parser.PrintLine("<c:LIGHTRED>Bad</c>");
  EXPECT_EQ(out.str(), "\x1b[1m\x1b[31mBad\x1b[0m\n");
}

}  // namespace
}  // namespace Morvu
