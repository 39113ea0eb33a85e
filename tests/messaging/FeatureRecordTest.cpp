// The records of the families, and the arguments of their calls.
#include <gmock/gmock.h>

#include <set>

#include "messaging/drive_class/Features.h"

namespace Morvu {
namespace {

TEST(FeatureRecords, AreWholeAndBearNamesOfTheirOwn) {
  std::set<std::string_view> records, options;
  for (const auto* feature : GetFeatures()) {
    SCOPED_TRACE(feature->name);
    EXPECT_TRUE(records.insert(feature->name).second);
    EXPECT_FALSE(feature->methods.empty() && feature->options.empty());
    // Who loses data has chosen the drive, and was asked.
    EXPECT_TRUE(feature->needsDrive || !feature->destroys);
    for (const auto& method : feature->methods) {
      EXPECT_NE(method.run, nullptr) << method.name;
      EXPECT_TRUE(method.prompt || !feature->destroys) << method.name;
      // What is hidden by a code needs a code.
      EXPECT_TRUE(method.assess != nullptr || (method.hiddenCodes.empty() && !method.hasStatus));
    }
    for (const auto& option : feature->options) {
      EXPECT_TRUE(options.insert(option.name).second) << option.name;
      EXPECT_TRUE(option.name.starts_with('-')) << option.name;
      EXPECT_EQ(option.run != nullptr, option.category == OptionCategory::Feature) << option.name;
      EXPECT_FALSE(option.descriptions.empty()) << option.name;
      EXPECT_TRUE(option.scan == OptionScan::Partitions || !feature->destroys) << option.name;
    }
  }
}

// The first row of an argument, and no other, names it for the call.
TEST(FeatureRecords, NameEachArgumentOnce) {
  for (const auto* feature : GetFeatures()) {
    for (const auto& option : feature->options) {
      if (option.category != OptionCategory::Feature) continue;
      std::string_view last;
      std::set<std::string_view> names;
      for (const auto& row : option.arguments) {
        EXPECT_EQ(row.argument.empty(), row.name == last) << option.name << ' ' << row.text;
        if (!row.argument.empty()) {
          EXPECT_TRUE(names.insert(row.argument).second) << row.name;
        }
        last = row.name;
      }
    }
  }
}

// ---- Arguments ----

TEST(CallArguments, AreReadFromTheirTexts) {
  CallArguments arguments;
  arguments.Set("text", "a");
  arguments.Set("text", "b");
  arguments.Set("empty", "");
  arguments.Set("yes", "True");
  arguments.Set("no", "true");
  EXPECT_EQ(arguments.GetText("text", "c"), "b");
  EXPECT_EQ(arguments.GetText("empty", "c"), "");
  EXPECT_EQ(arguments.GetText("absent", "c"), "c");
  EXPECT_TRUE(arguments.Has("empty"));
  EXPECT_FALSE(arguments.Has("absent"));
  EXPECT_TRUE(arguments.GetFlag("yes"));
  EXPECT_FALSE(arguments.GetFlag("no"));
  EXPECT_FALSE(arguments.GetFlag("absent"));
}

// What is out of range must not become a good setting.
TEST(CallArguments, OfNumbersAreNumbersOrNone) {
  const std::pair<std::string, std::optional<std::uint8_t>> kNumbers[] = {
      {"7", 7}, {"007", 7}, {"255", 255},  {"256", 255}, {"99999999999999999999", 255},
      {"", {}}, {"-1", {}}, {"seven", {}}, {"1x", {}},   {" 1", {}},
  };
  for (const auto& [text, value] : kNumbers) {
    CallArguments arguments;
    arguments.Set("number", text);
    EXPECT_EQ(arguments.GetNumber<std::uint8_t>("number"), value) << text;
    EXPECT_EQ(arguments.GetNumber<std::uint8_t>("absent"), 0);
  }
}

}  // namespace
}  // namespace Morvu
