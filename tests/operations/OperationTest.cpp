// What the operations share.
#include <gtest/gtest.h>

#include <sstream>

#include "cli/QRKCLI.h"
#include "operations/MethodDescriptions.h"
#include "operations/Operation.h"

namespace Morvu {
namespace {

// ---- Refusals ----

struct Refusable {
  DeviceManagement::Device* GetDevice() const { return nullptr; }
  bool first = false, second = false;
};

constexpr Refusal<Refusable> kTable[] = {
    {[](Refusable& operation) { return operation.first; }, 97},
    {[](Refusable& operation) { return operation.second; }, 45},
};

TEST(Refusals, TheFirstThatHoldsGivesTheCode) {
  Refusable operation;
  EXPECT_EQ(1, FirstRefusal(kTable, operation));
  operation.second = true;
  EXPECT_EQ(45, FirstRefusal(kTable, operation));
  operation.first = true;
  EXPECT_EQ(97, FirstRefusal(kTable, operation));
}

TEST(Refusals, WithoutADeviceItsTestsHold) {
  constexpr Refusal<Refusable> table[] = {{OfDevice<Refuse::RaidVolume>, 97}};
  Refusable operation;
  EXPECT_EQ(97, FirstRefusal(table, operation));
}

// ---- Parameters ----

TEST(Parameters, AreReadFromTheirTexts) {
  const auto method = XmlMessaging::Object::Parse(
      "<Object><Property name='text'>a</Property><Property name='text'>b</Property>"
      "<Property name='yes'>True</Property><Property name='no'>true</Property>"
      "<Property name='number'>7</Property><Property name='large'>256</Property>"
      "<Property name='huge'>99999999999999999999</Property>"
      "<Property name='negative'>-1</Property><Property name='word'>seven</Property></Object>");
  EXPECT_EQ("b", GetTextParameter(*method, "text"));
  EXPECT_EQ("extended", GetTextParameter(*method, "absent", "extended"));
  EXPECT_TRUE(GetBoolParameter(*method, "yes"));
  EXPECT_FALSE(GetBoolParameter(*method, "no"));
  EXPECT_FALSE(GetBoolParameter(*method, "absent"));
  EXPECT_EQ(7, GetNumberParameter<std::uint8_t>(*method, "number"));
  EXPECT_EQ(0, GetNumberParameter<std::uint8_t>(*method, "absent"));
  EXPECT_EQ(0, GetNumberParameter<std::uint8_t>(*method, "word"));
  // Out of range must not become a good setting.
  EXPECT_EQ(255, GetNumberParameter<std::uint8_t>(*method, "large"));
  EXPECT_EQ(255, GetNumberParameter<std::uint8_t>(*method, "huge"));
  EXPECT_EQ(255, GetNumberParameter<std::uint8_t>(*method, "negative"));
  EXPECT_EQ(256, GetNumberParameter<std::uint16_t>(*method, "large"));
}

// ---- Descriptions ----

TEST(Descriptions, TellTheStatusOfMethodsThatHaveIt) {
  EXPECT_EQ(nullptr, DescribeMethod("SecureErase", 45, {45, 97, 3}));
  const auto erase = DescribeMethod("SecureErase", 12, {45, 97, 3});
  ASSERT_EQ(1u, erase->lists.size());
  EXPECT_EQ("status", erase->lists[0]->GetAttribute("type"));
  EXPECT_EQ("12", erase->lists[0]->objects[0]->properties[0]->value);
  EXPECT_TRUE(DescribeMethod("SecureErase")->lists.empty());
  EXPECT_TRUE(DescribeMethod("ReadScan", 1)->lists.empty());
  EXPECT_EQ(nullptr, DescribeMethod("Explode"));
}

// ---- Confirmation ----

struct Question {
  StatusCode code;
  bool isPrompt, force;
  std::string answer;
  StatusCode result;
  std::string shown;  // a part of what is printed; empty when nothing may be
};

class Confirmation : public ::testing::TestWithParam<Question> {};

TEST_P(Confirmation, Decides) {
  const auto& [code, isPrompt, force, answer, result, shown] = GetParam();
  std::istringstream in(answer);
  std::ostringstream out;
  const ToolConfig config{};
  QRKCLI cli({}, config, {in, out});
  constexpr EraseTexts texts{"Unable to wipe.", "WARNING! You wipe!", "Proceed?"};

  EXPECT_EQ(result, ConfirmErase(code, isPrompt ? &cli : nullptr, force, texts));

  if (shown.empty()) {
    EXPECT_EQ("", out.str());
  } else {
    EXPECT_NE(std::string::npos, out.str().find(shown)) << out.str();
  }
}

INSTANTIATE_TEST_SUITE_P(
    Operation, Confirmation,
    ::testing::Values(Question{1, false, false, "", 1, ""}, Question{13, false, false, "", 13, ""},
                      Question{13, false, true, "", 1, ""}, Question{45, false, true, "", 45, ""},
                      Question{45, true, true, "", 45, "Unable to wipe."},
                      Question{1, true, true, "n", 1, ""}, Question{13, true, true, "n", 1, ""},
                      Question{1, true, false, "y\n", 1, "WARNING! You wipe!"},
                      Question{13, true, false, "Y\n", 1, "detected a partition"},
                      Question{1, true, false, "n\n", 81, "Proceed? (Y|N): "},
                      Question{1, true, false, "", 81, "Proceed? (Y|N): "},
                      Question{13, true, false, "\n", 81, "Proceed? (Y|N): "}));

}  // namespace
}  // namespace Morvu
