// What every Feature has from its base.
#include <gtest/gtest.h>

#include "messaging/features/Feature.h"
#include "support/LogLines.h"

namespace Morvu {
namespace {

constexpr int kInitializeLine = __LINE__ + 4;
class AFeature : public Feature {
 public:
  AFeature() : Feature(nullptr, NoReporter()) { Initialize(); }
  void Initialize() override { EndInitialize(Status::ReadyToRun); }
  std::int32_t Execute() override { return BeginExecute() ? 1 : 0; }
};

TEST(Features, LogTheirStepsUnderTheLineThatWroteThem) {
  Testing::LogLines log;
  AFeature feature;
  feature.Execute();
  const auto at = [](int line) { return "FeatureTest:" + std::to_string(line); };
  std::vector<std::string> places;
  for (const auto& record : log.records) {
    places.push_back(record.file + ":" + std::to_string(record.line) + " " + record.function);
  }
  ASSERT_EQ(4u, places.size());
  EXPECT_EQ(at(kInitializeLine) + " Initialize", places[1]);
  EXPECT_EQ(at(kInitializeLine + 1) + " Execute", places[2]);
  EXPECT_EQ(at(kInitializeLine + 1) + " Execute", places[3]);
  EXPECT_EQ(Status::NoCommunication, feature.GetErrorCode());
}

// What a Feature tells whoever runs it, in order.
class ToldReporter : public ProgressReporter {
 public:
  void SetPercent(std::int32_t percent) override { told += " percent=" + std::to_string(percent); }
  void SetState(std::int32_t state) override { told += " state=" + std::to_string(state); }
  void SetErrorCode(StatusCode code) override { told += " code=" + std::to_string(code.Value()); }
  bool IsCancelRequested() override { return isCanceled; }

  std::string told;
  bool isCanceled = false;
};

// Ends in a code of its own.
class InnerFeature : public Feature {
 public:
  explicit InnerFeature(ProgressReporter& reporter) : Feature(nullptr, reporter) { Initialize(); }
  void Initialize() override { EndInitialize(Status::ReadyToRun); }
  std::int32_t Execute() override {
    SetPercent(40);
    End(Status::NoCommunication);
    return IsCancelRequested() ? 1 : 0;
  }
};

class OuterFeature : public Feature {
 public:
  explicit OuterFeature(ProgressReporter& reporter) : Feature(nullptr, reporter) {}
  void Initialize() override {}
  std::int32_t Execute() override {
    InnerFeature inner(GetReporter());
    const auto result = inner.Execute();
    End(Status::Completed);
    return result;
  }
};

TEST(Features, TellAValueThatTheyHaveOnce) {
  ToldReporter reporter;
  OuterFeature feature(reporter);
  for (int i = 0; i < 3; ++i) feature.SetErrorCode(Status::Running);
  for (int i = 0; i < 3; ++i) feature.SetState(FeatureState::Failed);
  for (int i = 0; i < 3; ++i) feature.SetPercent(7);
  feature.SetErrorCode(Status::NotRun);
  EXPECT_EQ(" code=74 state=1 percent=7 code=5", reporter.told);
  // The values that it has from its beginning are told by nobody.
  ToldReporter fresh;
  OuterFeature other(fresh);
  other.SetErrorCode(Status::NotRun);
  other.SetState(FeatureState::Running);
  other.SetPercent(0);
  EXPECT_EQ("", fresh.told);
}

TEST(Features, TellOfThoseInsideThemThePercentAlone) {
  ToldReporter reporter;
  OuterFeature feature(reporter);
  EXPECT_EQ(0, feature.Execute());
  EXPECT_EQ(" percent=40 code=0 state=0", reporter.told);
  reporter.isCanceled = true;
  EXPECT_EQ(1, OuterFeature(reporter).Execute());
}

TEST(Reporters, OfAPartTellThePercentOfTheWhole) {
  ToldReporter reporter;
  for (std::size_t part = 0; part < 3; ++part) {
    InnerReporter inner(reporter, part, 3);
    for (const auto percent : {5, 100}) inner.SetPercent(percent);
  }
  EXPECT_EQ(" percent=1 percent=33 percent=35 percent=66 percent=68 percent=100", reporter.told);
}

}  // namespace
}  // namespace Morvu
