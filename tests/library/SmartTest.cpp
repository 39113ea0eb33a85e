// SMART as a host sees it.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>
#include <iterator>
#include <map>
#include <optional>
#include <string>

#include "Host.h"
#include "support/SceneSweep.h"

namespace MorvuHost {
namespace {

using Morvu::Testing::Scene;
using Morvu::Testing::SweepFaults;
using Morvu::Testing::SweptRun;
using Simulator::Fault;
using Simulator::Kind;
using ::testing::AnyOf;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;
using ::testing::Pair;

const std::string kReadBySerial = Drive("BTWL1") + Method("SmartParser");
constexpr std::string_view kReadAll = "<Message subject='SMARTAttribute'/>";

// Two drives with SMART data, and one that the library does not list.
class Smart : public ::testing::Test {
 protected:
  Smart() {
    sata_ = fleet_.Add({.model = "MORVU SSDSC2BB480G4", .serial = "BTWL1"});
    nvme_ = fleet_.Add({.kind = Kind::Nvme, .model = "MORVU SSDPE2MD800G4", .serial = "CVFT1"});
    fleet_.Add({.kind = Kind::Scsi, .model = "SIMULATED SAS", .serial = "S7A1"});
    host_.Call(kScan);
  }
  Simulator::TestFleet fleet_;
  Simulator::SimulatedDrive sata_, nvme_;
  Host host_;
};

TEST_F(Smart, MethodGivesTheTable) {
  const auto reply = host_.Ask(kReadBySerial);
  EXPECT_EQ(reply.ErrorCode(), 0);
  EXPECT_EQ(reply.Job("JobState"), "7");
  EXPECT_THAT(reply.Text(),
              HasSubstr("<List cimClass=\"SMARTAttribute\" direction=\"o\" displayName=\"SMART "
                        "Details\" name=\"SMARTDetails\" type=\"table\" uniqueId=\"BTWL1\">"));
  const auto rows = reply.Listed();
  ASSERT_EQ(rows.size(), 18U);
  EXPECT_EQ(AttributeText(*rows[0], "row"), "0");
  EXPECT_EQ(PropertyText(*rows[0], "Name"), "BTWL1.05");
  EXPECT_EQ(PropertyText(*rows[8], "ID"), "B8");
  EXPECT_EQ(PropertyText(*rows[8], "Threshold"), "90");
  EXPECT_EQ(PropertyText(*rows[8], "Action"), "Pass");
  EXPECT_THAT(reply.Text(), HasSubstr("Current degree C"));
}

TEST_F(Smart, ItsCommandsAreRecordedWhereTheRequestWantsThem) {
  const auto path = fleet_.Folder() + "/record.xml";
  const auto reply = host_.Ask(kReadBySerial, "record='" + path + "'");
  EXPECT_EQ(reply.ErrorCode(), 0);
  EXPECT_THAT(reply.Text(), HasSubstr("recorded=\"" + path + "\""));
  std::ifstream record(path);
  const std::string written{std::istreambuf_iterator<char>(record), {}};
  EXPECT_THAT(written, HasSubstr("name=\"tf\">D001004FC240B000"));
  sata_.ClearJournal();
  const auto nowhere = "record='" + fleet_.Folder() + "/none/record.xml'";
  EXPECT_EQ(host_.Ask(kReadBySerial, nowhere).ErrorCode(), 122);
  EXPECT_THAT(sata_.Opcodes(), Not(testing::Contains(0xB0)));
}

TEST_F(Smart, MethodTellsWhyItCouldNotRead) {
  sata_.Inject(Fault::Fail().OnOpcode(0xB0).OnFeature(0xD1));
  const auto reply = host_.Ask(kReadBySerial);
  EXPECT_EQ(reply.ErrorCode(), 22);
  EXPECT_EQ(reply.Job("JobState"), "7");
  EXPECT_THAT(reply.Listed(), IsEmpty());
}

TEST_F(Smart, MethodIsOffered) {
  const auto reply = host_.Call("<Message subject='Device' includeMethods='True'/>");
  std::map<std::string, bool> offered;
  for (const auto* drive : reply.Listed()) {
    bool& offers = offered[PropertyText(*drive, "SerialNumber")];
    for (const auto& [tag, child] : *drive) {
      if (tag == "Object") offers = offers || AttributeText(child, "name") == "SmartParser";
    }
  }
  EXPECT_THAT(offered, ElementsAre(Pair("BTWL1", true), Pair("CVFT1", true)));
}

TEST_F(Smart, SubjectReadsAllDrives) {
  const auto reply = host_.Call(kReadAll);
  EXPECT_EQ(reply.ErrorCode(), 0);
  EXPECT_EQ(reply.Attribute("subject"), "SMARTAttribute");
  EXPECT_THAT(reply.Text(), HasSubstr("uniqueId=\"BTWL1\""));
  EXPECT_THAT(reply.Text(), HasSubstr("uniqueId=\"CVFT1\""));
  EXPECT_THAT(reply.Text(), Not(HasSubstr("uniqueId=\"S7A1\"")));
  EXPECT_EQ(reply.Listed().size(), 18U + 8U);
}

TEST(SmartWithoutDrives, IsNotRunOrFindsNoDevice) {
  Simulator::TestFleet fleet;
  Host host;
  host.Call(kScan);
  EXPECT_EQ(host.Call(kReadAll).ErrorCode(), 5);
  EXPECT_EQ(host.Call("<Message subject='SMARTAttribute'><Object cimClass='Device'/></Message>")
                .ErrorCode(),
            245);
  EXPECT_EQ(host.Ask(kReadBySerial).ErrorCode(), 245);
}

// The whole road: selection, clone, method, reply.
struct HostScene : Scene {
  HostScene() : Scene({.model = "MORVU SSDSC2BB480G4", .serial = "BTWL1"}) {}
  void Prepare() override {
    host.emplace();
    host->Call(kScan);
  }
  Morvu::StatusCode Run(Morvu::ProgressReporter&) override {
    reply = host->Ask(kReadBySerial);
    return Morvu::StatusCode::FromValue(reply.ErrorCode());
  }
  std::optional<Host> host;
  Reply reply;
};

void CheckRun(const HostScene& scene, const SweptRun& run) {
  const auto& met = run.Met();
  const bool isSmart = met.AtaOpcode() == 0xB0;
  if (isSmart && met.Features() == 0xDA) {
    EXPECT_EQ(run.code, 0);  // the table is there, and the verdict is not known
    EXPECT_THAT(scene.reply.Text(), ::testing::HasSubstr(">Unknown: the drive&apos;s answer"));
  } else if (isSmart) {
    EXPECT_EQ(run.code, met.Features() == 0xD0 ? 23 : 22);
  } else if (met.AtaOpcode() == 0xC8) {
    EXPECT_EQ(run.code, 0);  // the read whose data nobody looks at
  } else {
    // A drive that does not answer is not selected, or refused.
    EXPECT_THAT(run.code.Value(), AnyOf(0, 4, 245));
  }
  EXPECT_EQ(scene.reply.Listed().empty(), run.code != 0);
  EXPECT_EQ(scene.reply.Job("JobState"), "7");
}

TEST(SmartSweep, OverARefusal) { SweepFaults<HostScene>(Fault::Fail().Times(1), CheckRun); }
TEST(SmartSweep, OverATimeOut) { SweepFaults<HostScene>(Fault::Hang().Times(1), CheckRun); }
TEST(SmartSweep, OverADriveThatGoes) {
  SweepFaults<HostScene>(Fault::Vanish(), [](const HostScene& scene, const SweptRun& run) {
    const bool isLast = run.Met().AtaOpcode() == 0xB0 && run.Met().Features() == 0xDA;
    EXPECT_THAT(run.code.Value(), AnyOf(4, 22, 23, 245, isLast ? 0 : 4));
    EXPECT_EQ(scene.reply.Job("JobState"), "7");
  });
}

}  // namespace
}  // namespace MorvuHost
