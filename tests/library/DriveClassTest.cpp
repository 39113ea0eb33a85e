// The subjects "MorvuSSD" and "Device" through the exported functions, on simulated drives.
#include <gtest/gtest.h>

#include <map>
#include <regex>
#include <span>

#include "Host.h"
#include "Outline.h"
#include "TestFleet.h"

namespace MorvuHost {
namespace {

using Simulator::Fault;
using Simulator::Kind;

TEST(DriveClasses, AreDescribedAsTheFileHas) {
  Host host;
  const auto reply = host.Call("<Message subject='supported functionality'/>");
  EXPECT_EQ(0, reply.ErrorCode());
  std::map<std::string, std::string> described;
  std::string all;
  for (const auto& [tag, subject] : ParseMessage(reply.Text())) {
    if (tag != "Subject") continue;
    const auto name = AttributeText(subject, "cimClass");
    described[name] = Outline(tag, subject);
    all += name == "Device" ? "Device: as MorvuSSD\n" : described[name];
  }
  ExpectGolden("classes.txt", all);
  const std::regex own("cimClass=\"Device\"");
  EXPECT_EQ(described["MorvuSSD"],
            std::regex_replace(described["Device"], own, "cimClass=\"MorvuSSD\""));
}

class DriveClass : public ::testing::Test {
 protected:
  Simulator::SimulatedDrive AddSata(std::string_view serial = "BTWL402600K4480QGN") {
    return fleet_.Add({.model = "MORVU SSDSC2BB480G4",
                       .serial = std::string(serial),
                       .firmware = "D2010370",
                       .sectors = 937703088});
  }

  Reply Scan(const std::string& content = "", const std::string& attributes = "") {
    return Ask(content, "scan='True' " + attributes);
  }
  Reply Ask(const std::string& content, const std::string& attributes = "") {
    return host_.Ask(content, attributes);
  }

  Simulator::TestFleet fleet_;
  Host host_;
};

TEST_F(DriveClass, ListsADriveAsTheFileHas) {
  auto drive = AddSata();
  drive.AddPartition(1 << 30, "/srv");
  const auto reply = Scan();
  ASSERT_EQ(1u, reply.Listed().size());
  EXPECT_EQ(0, reply.ErrorCode());
  ExpectGolden("sata_drive.txt", Outline("Object", *reply.Listed().front()));
}

TEST_F(DriveClass, ListsAnNvmeDriveAsTheFileHas) {
  fleet_.Add({.kind = Kind::Nvme,
              .model = "MORVU SSDPE2MD800G4",
              .serial = "CVFT4030004F800CGN",
              .firmware = "8DV10151",
              .sectors = 1562824368});
  const auto reply = Scan();
  ASSERT_EQ(1u, reply.Listed().size());
  ExpectGolden("nvme_drive.txt", Outline("Object", *reply.Listed().front()));
}

TEST_F(DriveClass, ListsTheProductsThatAreShownAlone) {
  fleet_.Add({.model = "MORVU SSDSC2CF240F3"});  // a product, but not for hosts
  fleet_.Add({.model = "MORVU OF TOMORROW"});
  AddSata();
  const auto reply = Scan();
  ASSERT_EQ(1u, reply.Listed().size());
  EXPECT_EQ("BTWL402600K4480QGN", PropertyText(*reply.Listed().front(), "SerialNumber"));
}

// Of several blanks none is left out: the name of one drive must not become another's.
TEST_F(DriveClass, SelectsASerialNumberAsItWasSpelled) {
  const std::pair<std::string, std::string> kSpelled[] = {
      {"BTWL 1", "BTWL 1"}, {"BTWL  1", "BTWL  1"}, {"BTWL  <", "BTWL  &lt;"}};
  for (const auto& [serial, key] : kSpelled) AddSata(serial);
  Scan();
  for (const auto& [serial, key] : kSpelled) {
    const auto text = Ask(KeyObject("SerialNumber", " " + key + "\n")).Text();
    EXPECT_NE(text.find("uniqueId=\"" + key + "\""), text.npos) << text;
  }
}

TEST_F(DriveClass, KeepsItsListUntilTheNextScan) {
  auto drive = AddSata("BTWL000000000480QG");
  EXPECT_EQ(0u, Ask("").Listed().size());
  EXPECT_TRUE(drive.Journal().empty());
  EXPECT_EQ(1u, Scan().Listed().size());
  AddSata("BTWL000000001480QG");
  EXPECT_EQ(1u, Ask("").Listed().size());
  EXPECT_EQ(2u, Scan().Listed().size());
}

TEST_F(DriveClass, LeavesOutADriveThatNoLongerAnswers) {
  auto first = AddSata("BTWL000000000480QG");
  auto second = AddSata("BTWL000000001480QG");
  ASSERT_EQ(2u, Scan().Listed().size());
  second.Inject(Fault::Vanish());

  const auto gone = Ask(Drive("BTWL000000001480QG"));
  EXPECT_EQ(0u, gone.Listed().size());
  EXPECT_EQ(245, gone.ErrorCode());
  const auto both = Ask(KeyObject("Index", "0") + KeyObject("Index", "1"));
  EXPECT_EQ(1u, both.Listed().size());
  EXPECT_EQ(0, both.ErrorCode());
}

std::vector<std::string> PartitionIds(const Reply& reply) {
  std::vector<std::string> ids;
  for (const auto* drive : reply.Listed()) {
    for (const auto& [tag, list] : *drive) {
      if (tag != "List" || AttributeText(list, "name") != "Partition") continue;
      for (const auto& [inner, object] : list) {
        if (inner == "Object") ids.push_back(PropertyText(object, "Id"));
      }
    }
  }
  return ids;
}

TEST_F(DriveClass, NamesAPartitionByTheSameIdAfterEachScan) {
  auto drive = AddSata();
  drive.AddPartition(1 << 30, "/srv");
  drive.AddPartition(1 << 20);
  const auto ids = PartitionIds(Scan());
  ASSERT_EQ(2u, ids.size());
  EXPECT_NE(ids[0], ids[1]);
  EXPECT_EQ(ids, PartitionIds(Scan()));
  AddSata("BTWL000000001480QG").AddPartition(1 << 20);
  const auto more = PartitionIds(Scan());
  ASSERT_EQ(3u, more.size());
  EXPECT_EQ(ids, std::vector(more.begin(), more.begin() + 2));
}

struct Request {
  std::string content;
  int code;
};

TEST_F(DriveClass, EndsRequestsWithTheirCodeAndSendsNothingForThoseThatItRefuses) {
  const std::string method = Method("HostController"), first = KeyObject("Index", "0");
  const Request kOfNoDrive[] = {{"", 0}, {first, 245}, {first + method, 245}};
  // Without a class's Object the drive is selected untested.
  const Request kOfOne[] = {
      {"", 0},
      {method, 0},
      {Method("NoSuchMethod"), 270},
      {method + Method("NoSuchMethod"), 271},
      {KeyObject("Index", "7") + method, 245},
      {"<Property direction='o' name='MaximumLBA'>native</Property>", 73},
      {"<Property name='MaximumLBA'>native</Property>", 73},
      {"<Property name='MaximumLBA'/>", 73},
      {"<Property direction='i' name='SerialNumber' powercycle='True'>X</Property>", 73},
      {"<Property direction='i' name='NoSuchProperty'>red</Property>", 272},
      {"<Property direction='io' name='NoSuchProperty'>red</Property>", 272},
      {"<Property direction='i' name='maximumlba'>native</Property><!--NoSuch-->", 272},
      {"<Property direction='i' name='MaximumLBA'>native</Property><Property name='PhySpeed'/>",
       73},
  };
  const Request kOfTwo[] = {
      {"", 0}, {method, 245}, {"<Property direction='io' name='MaximumLBA'>native</Property>", 73}};
  std::vector<Simulator::SimulatedDrive> drives;
  for (const std::span<const Request> requests :
       {std::span<const Request>(kOfNoDrive), {kOfOne}, {kOfTwo}}) {
    Scan();
    for (const auto& [content, code] : requests) {
      SCOPED_TRACE(content);
      for (auto& drive : drives) drive.ClearJournal();
      const auto reply = Ask(content);
      EXPECT_EQ(code, reply.ErrorCode());
      EXPECT_EQ("100", reply.Job("PercentComplete"));
      EXPECT_EQ("MorvuSSD", reply.Attribute("subject"));
      EXPECT_EQ("", reply.Attribute("powercycle"));
      if (content.empty()) {
        EXPECT_EQ(drives.size(), reply.Listed().size());
      }
      if (code == 0) continue;
      EXPECT_TRUE(reply.Listed().empty());
      for (const auto& drive : drives) EXPECT_EQ(std::vector<std::uint8_t>(), drive.Opcodes());
    }
    drives.push_back(AddSata("BTWL00000000" + std::to_string(drives.size()) + "480QG"));
  }
}

// Names in any letters; what a drive has none of is left out.
TEST_F(DriveClass, ShowsThePropertiesThatAreNamed) {
  AddSata();
  const auto reply = Scan(
      "<Object name='cimProperties'><Property name='serialnumber'/><Property name='NoSuchColour'/>"
      "<Property name='MaximumLBA'/></Object>"
      "<Object name='cimProperties'><Property name='SMARTEnabled'/><Property name='Bootloader'/>"
      "</Object>");
  EXPECT_EQ(0, reply.ErrorCode());
  std::string shown;
  for (const auto& [tag, property] : *reply.Listed().at(0)) {
    if (tag == "Property") shown += AttributeText(property, "name") + "=" + property.data() + ";";
  }
  EXPECT_EQ(
      "SerialNumber=BTWL402600K4480QGN;NoSuchColour=Property does not exist.;MaximumLBA=937703088;"
      "SMARTEnabled=True;",
      shown);
}

// Detection knows this model by the name that the system has for it.
TEST_F(DriveClass, ShowsADriveThatItCannotReachByItsNameAlone) {
  auto drive = fleet_.Add({.model = "VM0160MHYB", .serial = "CVPO000000000160"});
  drive.Inject(Fault::IoctlError(EPERM));
  const auto reply = Scan("<Object name='cimProperties'><Property name='Index'/></Object>",
                          "includeMethods='True'");
  ASSERT_EQ(1u, reply.Listed().size());
  ExpectGolden("unreachable_drive.txt", Outline("Object", *reply.Listed().front()));
}

TEST_F(DriveClass, TabulatesTheHostController) {
  AddSata();
  Scan();
  const auto message = ParseMessage(Ask(Method("HostController")).Text());
  std::string tables;
  for (const auto& [tag, list] : message) {
    if (tag == "List" && AttributeText(list, "type") == "table") tables += Outline(tag, list);
  }
  ExpectGolden("host_controller.txt", tables);
}

}  // namespace
}  // namespace MorvuHost
