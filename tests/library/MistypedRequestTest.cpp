// Requests with a slip of the pen: those that change a drive are refused before anything is
// sent to any drive, the others do what of them is understood and log the rest.
#include <gmock/gmock.h>

#include <algorithm>
#include <fstream>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

#include "Host.h"
#include "TestFleet.h"

namespace MorvuHost {
namespace {

using ::testing::HasSubstr;

constexpr std::string_view kDrive = "BTWL402600K4480QGN";
constexpr std::string_view kNvmeDrive = "CVFT4030004F800CGN";

const std::string kErase = Method("SecureErase");

struct Slip {
  std::string_view what;
  std::string content;
  int code;
  std::string reason{};  // a part of it
  std::string root{};    // more attributes of the Message
};

class MistypedRequests : public ::testing::Test {
 protected:
  MistypedRequests() { host_.Call(kScan); }

  Reply Ask(const std::string& content, const std::string& root = {}) {
    return host_.Ask(content, root);
  }

  Simulator::TestFleet fleet_;
  Simulator::SimulatedDrive sata_ =
      fleet_.Add({.model = "MORVU SSDSC2BB480G4", .serial = std::string(kDrive), .sectors = 256});
  Simulator::SimulatedDrive nvme_ = fleet_.Add({.kind = Simulator::Kind::Nvme,
                                                .model = "MORVU SSDPE2MD800G4",
                                                .serial = std::string(kNvmeDrive),
                                                .sectors = 256});
  Host host_;
};

const std::string kKey =
    "<Property name='SerialNumber' key='True'>" + std::string(kDrive) + "</Property>";
const std::string kWrite = "<Property direction='io' name='MaximumLBA'>native</Property>";

// clang-format off
const Slip kSlips[] = {
    // The Object that names the drive.
    {"class's attribute in small letters", "<Object cimclass='MorvuSSD'>" + kKey + "</Object>" + kErase, 73, "Object cimclass='MorvuSSD'"},
    {"the same for firmware", "<Object cimclass='MorvuSSD'>" + kKey + "</Object>" + Method("FirmwareUpdate", Parameter("file", "/x")), 73, "Object cimclass='MorvuSSD'"},
    {"class in small letters", "<Object cimClass='morvussd'>" + kKey + "</Object>" + kErase, 73},
    {"no Object", kErase, 245, "key"},
    {"no key", "<Object cimClass='MorvuSSD'/>" + kErase, 245, "key"},
    {"a key that is none", "<Object cimClass='MorvuSSD'><Property name='SerialNumber' Key='True'>" + std::string(kDrive) + "</Property></Object>" + kErase, 73, "'Key'"},
    {"a key that is doubtful", "<Object cimClass='MorvuSSD'><Property name='SerialNumber' key='yes'>" + std::string(kDrive) + "</Property></Object>" + kErase, 73, "'yes'"},
    {"a key of another property", "<Object cimClass='MorvuSSD'><Property name='PhySpeed' key='True'>1</Property></Object>" + kErase, 73, "'PhySpeed'"},
    {"an index that is none", "<Object cimClass='MorvuSSD'><Property name='Index' key='True'>one</Property>" + kKey + "</Object>" + kErase, 73, "'one'"},
    {"two keys", "<Object cimClass='MorvuSSD'>" + kKey + "<Property name='Index' key='True'>0</Property></Object>" + kErase, 73, "behind another"},
    {"an unknown property of the drive", "<Object cimClass='MorvuSSD'>" + kKey + "<Property name='Colour'>red</Property></Object>" + kErase, 73, "'Colour'"},
    {"the key's text as an attribute", "<Object cimClass='MorvuSSD'><Property name='SerialNumber' key='True' value='" + std::string(kDrive) + "'/></Object>" + kErase, 73, "'value'"},
    // The method and its parameters.
    {"a parameter's name", Drive(kNvmeDrive) + Method("Format", Parameter("LBAFormt", "2")), 73, "'LBAFormt'"},
    {"a parameter's letters", Drive(kDrive) + Method("SecureErase", Parameter("enhancederase", "True")), 73, "'enhancederase'"},
    {"a parameter of another method", Drive(kDrive) + Method("SecureErase", Parameter("Crypto", "True")), 73, "'Crypto'"},
    {"a boolean", Drive(kDrive) + Method("SecureErase", Parameter("EnhancedErase", "yes")), 73, "'yes'"},
    {"an empty boolean", Drive(kDrive) + Method("Delete", Parameter("Crypto", "")), 73, "''"},
    {"a number", Drive(kNvmeDrive) + Method("Format", Parameter("LBAFormat", "two")), 73, "'two'"},
    {"a number beyond its type", Drive(kNvmeDrive) + Method("Format", Parameter("LBAFormat", "258")), 73, "'258'"},
    {"a parameter twice", Drive(kDrive) + Method("SecureErase", Parameter("EnhancedErase", "True") + Parameter("EnhancedErase", "False")), 73, "twice"},
    {"a parameter's text as an attribute", Drive(kDrive) + Method("SecureErase", "<Property name='EnhancedErase' value='True'/>"), 73, "'value'"},
    {"a file's text as an attribute", Drive(kDrive) + Method("FirmwareUpdate", "<Property name='file' value='/x'/>"), 73, "'value'"},
    {"a parameter's tag", Drive(kDrive) + Method("SecureErase", "<property name='EnhancedErase'>True</property>"), 73, "'property'"},
    {"a parameter without a Property", Drive(kDrive) + Method("SecureErase", "EnhancedErase"), 73, "text of Object"},
    {"a parameter as an attribute", Drive(kDrive) + "<Object type='method' name='SecureErase' EnhancedErase='True'/>", 73, "'EnhancedErase'"},
    {"an attribute twice", Drive(kDrive) + "<Object type='method' name='SecureErase' name='Delete'/>", 73, "twice"},
    {"an Object in the method", Drive(kDrive) + Method("SecureErase", Drive(kDrive)), 73},
    // A method that would not run, and a list that would look like its good end.
    {"the method's type", Drive(kDrive) + "<Object type='Method' name='SecureErase'/>", 73, "'SecureErase'"},
    {"the method's letters", Drive(kDrive) + "<Object type='Method' name='secureerase'/>", 73, "'secureerase'"},
    {"no type", Drive(kDrive) + "<Object name='Sanitize'/>", 73, "'Sanitize'"},
    {"the method's tag", Drive(kDrive) + "<object type='method' name='SecureErase'/>", 73, "'object'"},
    {"the name's attribute", Drive(kDrive) + "<Object type='method' Name='Delete'/>", 73, "'Name'"},
    {"the method's name at the drive", "<Object cimClass='MorvuSSD' name='SecureErase'>" + kKey + "</Object>", 73, "where it names no method"},
    {"the method in the root", Drive(kDrive), 73, "cimMethod", "cimMethod='SecureErase'"},
    // The rest of the request.
    {"an unknown Object", Drive(kDrive) + "<Object name='Partitions'/>" + kErase, 73, "'Partitions'"},
    {"an unknown attribute", Drive(kDrive) + kErase, 73, "'force'", "force='True'"},
    {"a scan that is doubtful", Drive(kDrive) + kErase, 73, "'yes'", "scan='yes'"},
    {"a scan", Drive(kDrive) + Method("SecureErase", Parameter("Force", "True")), 73, "'Force'", "scan='True'"},
    {"a List", Drive(kDrive) + kErase + "<List/>", 73, "List"},
    // Property writes.
    {"the Object of a write", "<Object cimclass='MorvuSSD'>" + kKey + "</Object>" + kWrite, 73, "Object"},
    {"an attribute of a write", Drive(kDrive) + "<Property direction='io' Name='x' name='MaximumLBA'>native</Property>", 73, "'Name'"},
    {"a direction", Drive(kDrive) + "<Property direction='in' name='MaximumLBA'>native</Property>", 73, "'in'"},
    {"a value that is no text", Drive(kDrive) + "<Property direction='io' name='MaximumLBA' value='native'/>", 73, "'value'"},
};
// clang-format on

TEST_F(MistypedRequests, SendNothingToAnyDrive) {
  sata_.ClearJournal();
  nvme_.ClearJournal();
  for (const auto& slip : kSlips) {
    SCOPED_TRACE(slip.what);
    const auto reply = Ask(slip.content, slip.root);
    EXPECT_EQ(slip.code, reply.ErrorCode());
    EXPECT_THAT(reply.Attribute("reason"), HasSubstr(slip.reason));
    EXPECT_NE("", reply.Attribute("reason"));
    EXPECT_EQ(std::vector<std::uint8_t>(), sata_.Opcodes());
    EXPECT_EQ(std::vector<std::uint8_t>(), nvme_.Opcodes());
  }
}

// The description of a drive and of a method as the library gave them may be sent back.
TEST_F(MistypedRequests, AreNoneWithWhatAListShows) {
  sata_.AddPartition();
  host_.Call(kScan);
  auto text = Ask(Drive(kDrive), "includeMethods='True'").Text();
  const auto begin = text.find("<Object cimClass=\"MorvuSSD\"");
  text = text.substr(begin, text.find("</List></Message>") - begin);
  const auto method = text.substr(text.find("<Object category=\"advanced\" description=\"blah"));
  auto erase = method.substr(0, method.find("</List></Object>")) + "</List></Object>";
  for (const auto* name : {"EnhancedErase", "force"}) {
    const auto at = erase.find("name=\"" + std::string(name) + "\"");
    const auto end = erase.find("/>", at);
    erase.replace(end, 2, ">1</Property>");
  }
  const auto reply = Ask(text + erase);
  EXPECT_EQ("", reply.Attribute("reason"));
  EXPECT_EQ(0, reply.ErrorCode()) << text << erase;
}

TEST_F(MistypedRequests, AreNoneWithAnyFormOfABoolean) {
  sata_.AddPartition();
  host_.Call(kScan);
  const std::pair<std::string_view, int> kForms[] = {
      {"False", 13}, {"false", 13}, {"0", 13}, {"True", 0}, {"true", 0}, {"1", 0},
  };
  for (const auto& [form, code] : kForms) {
    EXPECT_EQ(code,
              Ask(Drive(kDrive) + Method("SecureErase", Parameter("force", form))).ErrorCode())
        << form;
  }
  // An ATA drive's crypto setting is its enhanced erase: without it, the normal one.
  for (const auto* form : {"False", "false", "0", "1"}) {
    sata_.ClearJournal();
    const auto erase = Method("Delete", Parameter("Crypto", form) + Parameter("force", "1"));
    EXPECT_EQ(0, Ask(Drive(kDrive) + erase).ErrorCode());
    const auto journal = sata_.Journal();
    const auto sent = std::ranges::find(journal, 0xF4, &Simulator::JournalEntry::AtaOpcode);
    ASSERT_NE(sent, journal.end());
    EXPECT_EQ(std::string_view(form) == "1" ? 2 : 0, sent->dataHead.at(0) & 2) << form;
  }
  EXPECT_EQ(2u, Ask("", "scan='1'").Listed().size());
}

// A request that changes nothing does what of it is understood, and tells the log.
TEST_F(MistypedRequests, ThatChangeNothingAreAnsweredAndLogged) {
  const auto path = fleet_.Folder() + "/log.txt";
  ASSERT_EQ(0,
            Library().EnableLogger(path.data(), static_cast<std::uint32_t>(path.size()), 2, true));
  EXPECT_EQ(
      1u,
      Ask("<Object cimClass='Device'>" + kKey + "</Object><Objekt/>", "sort='up'").Listed().size());
  EXPECT_EQ(0, Ask(Drive(kDrive) + Method("SmartParser", Parameter("file", "x"))).ErrorCode());
  host_.Call(
      "<Message subject='Notification'><Property name='Enabled'>False</Property>"
      "<Property name='Scan'>True</Property></Message>");
  Library().DisableLogger();
  std::ostringstream log;
  log << std::ifstream(path).rdbuf();
  for (const auto* part :
       {"MorvuSSD: element 'Objekt' of Message", "MorvuSSD: attribute 'sort' of Message",
        "MorvuSSD: Property 'file' of Object 'SmartParser'",
        "Notification: Property 'Scan' of Message"}) {
    EXPECT_THAT(log.str(), HasSubstr("Not understood in a request for " + std::string(part)));
  }
  EXPECT_THAT(log.str(), ::testing::Not(HasSubstr("'Enabled'")));
}

}  // namespace
}  // namespace MorvuHost
