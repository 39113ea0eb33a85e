// What morvussd adds to the driver: the exit status, the manual page, the completion.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <map>
#include <sstream>

#include "Documentation.h"
#include "ExitStatus.h"
#include "Tool.h"
#include "messaging/drive_class/Features.h"

namespace MorvuTool {
namespace {

TEST(ExitStatus, IsZeroForAGoodEndAlone) {
  EXPECT_EQ(ToExitStatus(0, 0), 0);
  EXPECT_EQ(ToExitStatus(18, 0), 0);
  EXPECT_EQ(ToExitStatus(0, 905), 62);
  EXPECT_EQ(ToExitStatus(18, 903), 60);
  EXPECT_EQ(ToExitStatus(87, 905), 87);
  EXPECT_EQ(ToExitStatus(255, 0), 255);
  EXPECT_EQ(ToExitStatus(-5, 0), kExitOsError);
  EXPECT_EQ(ToExitStatus(256, 0), kExitUnknown);
  EXPECT_EQ(ToExitStatus(1 << 16, 0), kExitUnknown);
}

TEST(ExitStatus, TellsTheCodesAbove255Apart) {
  std::map<int, int> codes;
  for (const int code : {260, 261, 262, 269, 273, 274, 275, 276, 277, 278, 279, 280, 281,
                         282, 284, 285, 286, 287, 288, 289, 290, 291, 292, 293, 294, 295,
                         296, 297, 298, 299, 300, 301, 302, 903, 904, 905, 907, 908}) {
    const int exitStatus = ToExitStatus(Morvu::StatusCode::FromValue(code), 0);
    EXPECT_GE(exitStatus, 24) << code;
    EXPECT_LE(exitStatus, 65) << code;
    EXPECT_TRUE(codes.emplace(exitStatus, code).second)
        << code << " and " << codes[exitStatus] << " both end with " << exitStatus;
  }
}

TEST(Documentation, TellsEveryOption) {
  std::istringstream in;
  std::ostringstream out;
  const Morvu::QRKCLI cli(Morvu::GetFeatures(), GetToolConfig(), {in, out});
  const auto page = MakeManualPage(cli, GetToolConfig());
  const auto completion = MakeBashCompletion(cli, GetToolConfig());
  for (const auto& parameter : cli.GetParameters()) {
    const auto& name = parameter->GetName();
    EXPECT_THAT(page, ::testing::HasSubstr(".TP\n.B \\" + name)) << name;
    EXPECT_THAT(completion, ::testing::ContainsRegex("[\" ]" + name + "[\" ]")) << name;
  }
  EXPECT_EQ(completion.find('@'), std::string::npos);
}

}  // namespace
}  // namespace MorvuTool
