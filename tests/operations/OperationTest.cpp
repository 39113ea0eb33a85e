// What the operations share.
#include <gtest/gtest.h>

#include <sstream>

#include "cli/Prompt.h"
#include "cli/QRKCLI.h"
#include "messaging/drive_class/MethodCall.h"
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
  cli.FindParameter("-force")->SetGiven(force);
  Prompt prompt(cli);
  MessageFace message(NoReporter(), force);
  Face& face = isPrompt ? static_cast<Face&>(prompt) : message;
  constexpr EraseTexts texts{"Unable to wipe.", "WARNING! You wipe!", "Proceed?"};

  EXPECT_EQ(result, ConfirmErase(code, face, texts));

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
