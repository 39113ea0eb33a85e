// The records of the families: what they declare to hosts and users agrees with what was
// told, and the arguments of their calls.
#include <gmock/gmock.h>

#include <algorithm>
#include <set>

#include "frame/Text.h"
#include "messaging/XmlMessaging.h"
#include "messaging/drive_class/Features.h"
#include "messaging/drive_class/MorvuSSD.h"

namespace Morvu {
namespace {

// ---- Methods ----

struct ToldMethod {
  std::string_view name, displayName, category, targetType, marks, tableName, description,
      parameters;
};
constexpr ToldMethod kToldMethods[] = {
#include "messaging/ToldMethods.inc"
};

// What a family declares without having been told among the others.
constexpr ToldMethod kMoreMethods[] = {
    {"Sanitize", "Sanitize", "advanced", "device", "P", "", "",
     "SanitizeType:string*,force:boolean"},
};

std::string DescribeParameters(const XmlMessaging::Object& method) {
  std::string text;
  for (const auto& parameter : method.properties) {
    if (!text.empty()) text += ',';
    text += parameter->GetAttribute("name") + ':' + parameter->GetAttribute("type");
    if (parameter->GetAttribute("required") == BoolText(true)) text += '*';
    EXPECT_EQ(parameter->GetAttribute("direction"), "i");
  }
  return text;
}

std::string DescribeMarks(const CimMethod& method, const XmlMessaging::Object& object) {
  std::string marks;
  if (object.GetAttribute("prompt") == BoolText(true)) marks += 'P';
  if (object.GetAttribute("cancelSupported") == BoolText(false)) marks += 'N';
  if (method.hasStatus) marks += 'S';
  if (!object.lists.empty()) marks += 'T';
  return marks;
}

const ToldMethod* FindTold(std::span<const ToldMethod> table, std::string_view name) {
  const auto row = std::ranges::find(table, name, &ToldMethod::name);
  return row == table.end() ? nullptr : &*row;
}

TEST(DriveMethods, AreDescribedAsTheyWereTold) {
  for (const auto& row : GetDriveMethods()) {
    const auto& method = *row.method;
    SCOPED_TRACE(method.name);
    const auto* told = FindTold(kToldMethods, method.name);
    if (told == nullptr) told = FindTold(kMoreMethods, method.name);
    ASSERT_NE(told, nullptr);
    const auto object = method.Describe(nullptr);
    EXPECT_EQ(object->GetAttribute("type"), "method");
    EXPECT_EQ(object->GetAttribute("name"), told->name);
    EXPECT_EQ(object->GetAttribute("displayName"), told->displayName);
    EXPECT_EQ(object->GetAttribute("category"), told->category);
    EXPECT_EQ(object->GetAttribute("targetType"), told->targetType);
    EXPECT_EQ(object->GetAttribute("description"), told->description);
    EXPECT_EQ(DescribeMarks(method, *object), told->marks);
    EXPECT_EQ(DescribeParameters(*object), told->parameters);
    EXPECT_EQ(method.tableName, told->tableName);
    EXPECT_EQ(FindDriveMethod(method.name), &row);
    // What is hidden by a code needs a code.
    EXPECT_TRUE(method.assess != nullptr || (method.hiddenCodes.empty() && !method.hasStatus));
  }
  EXPECT_EQ(FindDriveMethod("Explode"), nullptr);
}

TEST(DriveMethods, AreThoseThatWereToldInByteOrder) {
  std::vector<std::string_view> names, told;
  for (const auto& row : GetDriveMethods()) names.push_back(row.method->name);
  for (const auto& row : kToldMethods) told.push_back(row.name);
  for (const auto& row : kMoreMethods) told.push_back(row.name);
  std::ranges::sort(told);
  EXPECT_EQ(names, told);
}

// ---- Records ----

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

struct Number {
  std::string text;
  std::optional<std::uint8_t> value;
};
class CallNumbers : public ::testing::TestWithParam<Number> {};

TEST_P(CallNumbers, AreNumbersOrNone) {
  CallArguments arguments;
  arguments.Set("number", GetParam().text);
  EXPECT_EQ(arguments.GetNumber<std::uint8_t>("number"), GetParam().value) << GetParam().text;
  EXPECT_EQ(arguments.GetNumber<std::uint8_t>("absent"), 0);
}

// What is out of range must not become a good setting.
INSTANTIATE_TEST_SUITE_P(FeatureRecords, CallNumbers,
                         ::testing::Values(Number{"7", 7}, Number{"007", 7}, Number{"255", 255},
                                           Number{"256", 255}, Number{"99999999999999999999", 255},
                                           Number{"", {}}, Number{"-1", {}}, Number{"seven", {}},
                                           Number{"1x", {}}, Number{" 1", {}}));

}  // namespace
}  // namespace Morvu
