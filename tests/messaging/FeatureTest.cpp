// What every Feature has from its base.
#include <gtest/gtest.h>

#include "frame/Logger.h"
#include "messaging/features/Feature.h"

namespace Morvu {
namespace {

class PlaceLogger : public Logger {
 public:
  PlaceLogger() : Logger("") {
    SetLogLevel(kLogAll);
    SetCurrentLogger(this);
  }
  ~PlaceLogger() override { SetCurrentLogger(nullptr); }

  void Write(const LogRecord& record) override {
    places.push_back(record.file + ":" + std::to_string(record.line) + " " + record.function);
  }

  std::vector<std::string> places;
};

constexpr int kInitializeLine = __LINE__ + 4;
class AFeature : public Feature {
 public:
  AFeature() : Feature(nullptr, NoReporter()) { Initialize(); }
  void Initialize() override { EndInitialize(Status::ReadyToRun); }
  std::int32_t Execute() override { return BeginExecute() ? 1 : 0; }
};

TEST(Features, LogTheirStepsUnderTheLineThatWroteThem) {
  PlaceLogger logger;
  AFeature feature;
  feature.Execute();
  const auto at = [](int line) { return "FeatureTest:" + std::to_string(line); };
  ASSERT_EQ(4u, logger.places.size());
  EXPECT_EQ(at(kInitializeLine) + " Initialize", logger.places[1]);
  EXPECT_EQ(at(kInitializeLine + 1) + " Execute", logger.places[2]);
  EXPECT_EQ(at(kInitializeLine + 1) + " Execute", logger.places[3]);
  EXPECT_EQ(Status::NoCommunication, feature.GetErrorCode());
}

}  // namespace
}  // namespace Morvu
