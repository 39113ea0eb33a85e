// The drive class on drives made by hand: what a request selects, what it is answered,
// and what a drive's Object holds.
#include <gmock/gmock.h>

#include "devices/model/Drive.h"
#include "devices/properties/BasicProperties.h"
#include "devices/properties/DriverProperties.h"
#include "devices/properties/IdentityProperties.h"
#include "devices/properties/ScanProperties.h"
#include "frame/Text.h"
#include "messaging/XmlMessaging.h"
#include "messaging/drive_class/DeviceSelection.h"
#include "messaging/drive_class/MorvuSSD.h"

namespace Morvu {
namespace {

using DeviceManagement::Device;
using DeviceManagement::Drive;
using DeviceManagement::Partition;
using DeviceManagement::SelectedDevices;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using XmlMessaging::Message;
using XmlMessaging::Object;
namespace Properties = DeviceManagement::Properties;

// A drive without a node, which answers as it is told.
class HandMadeDrive : public Drive {
 public:
  explicit HandMadeDrive(std::string_view serial, bool isMorvu = true) {
    AddProperty(Properties::SerialNumber, serial);
    AddProperty(Properties::Morvu, isMorvu);
  }
  bool AskConnection() override { return answers; }
  std::unique_ptr<Device> Clone() const override {
    auto clone = std::make_unique<HandMadeDrive>("");
    clone->CopyFrom(*this);
    clone->answers = answers;
    return clone;
  }

  bool answers = true;
};

// A job's context without a job, on drives of its own.
class DriveClass : public ::testing::Test, protected NoJobServices, protected SilentReporter {
 protected:
  HandMadeDrive& Add(std::string_view serial, bool isMorvu = true) {
    auto& drive = *drives_.emplace_back(std::make_unique<HandMadeDrive>(serial, isMorvu));
    drive.AddProperty(Properties::Index, static_cast<std::int32_t>(drives_.size()) - 1);
    return drive;
  }

  // The reply to a request of this content; its result is in `code`.
  std::unique_ptr<Message> Ask(std::string_view content, std::string_view subject = "MorvuSSD",
                               std::string_view attributes = "") {
    request_ = Message::Parse("<Message " + std::string(attributes) + ">" + std::string(content) +
                              "</Message>");
    if (request_ == nullptr) throw std::invalid_argument("the request is no message");
    JobContext context;
    context.request = request_.get();
    context.subject = subject;
    context.reporter = this;
    context.services = this;
    return HandleMorvuSSD(context);
  }

  // The serial numbers of the drives in the reply, in order.
  std::vector<std::string> List(std::string_view content, std::string_view subject = "MorvuSSD") {
    const auto reply = Ask(content, subject);
    std::vector<std::string> serials;
    for (const auto& object : reply->lists.back()->objects) {
      serials.push_back(object->GetAttribute("uniqueId"));
    }
    return serials;
  }

  std::vector<Device*> Drives() const {
    std::vector<Device*> drives;
    for (const auto& drive : drives_) drives.push_back(drive.get());
    return drives;
  }

  void SelectDevices(SelectedDevices& selected, const Message* request) override {
    Morvu::SelectDevices(Drives(), request, selected);
  }
  void SetNotifyProgress(bool notify) override { notifiesProgress = notify; }
  void SetPercent(std::int32_t value) override { percent = value; }
  void SetState(std::int32_t value) override { state = value; }
  void SetErrorCode(StatusCode value) override { code = value; }

  StatusCode code = -1;
  std::int32_t percent = -1;
  std::int32_t state = -1;
  bool notifiesProgress = false;

 private:
  std::vector<std::unique_ptr<HandMadeDrive>> drives_;
  std::unique_ptr<Message> request_;
};

std::string KeyObject(std::string_view cimClass, std::string_view name, std::string_view text) {
  return "<Object cimClass='" + std::string(cimClass) + "'><Property key='True' name='" +
         std::string(name) + "'>" + std::string(text) + "</Property></Object>";
}

// ---- Selection ----

struct Selection {
  std::string content;
  std::vector<std::string> selected;
};

void PrintTo(const Selection& selection, std::ostream* out) { *out << selection.content; }

class Selecting : public DriveClass, public ::testing::WithParamInterface<Selection> {};

TEST_P(Selecting, PicksTheDrivesThatTheRequestNames) {
  Add("SERIAL0");
  Add("SERIAL1");
  Add("OTHER", false);
  Add("1");  // the index of another
  Add("DEAD").answers = false;

  EXPECT_EQ(GetParam().selected, List(GetParam().content, "Device"));
  EXPECT_EQ(GetParam().selected.empty() ? 245 : 0, code);
}

INSTANTIATE_TEST_SUITE_P(
    DriveClass, Selecting,
    ::testing::Values(
        Selection{KeyObject("MorvuSSD", "SerialNumber", "SERIAL1"), {"SERIAL1"}},
        Selection{KeyObject("MorvuSSD", "Index", "0"), {"SERIAL0"}},
        Selection{KeyObject("MorvuSSD", "SerialNumber", "1"), {"SERIAL1", "1"}},
        Selection{KeyObject("MorvuSSD", "Index", "abc"), {}},
        Selection{KeyObject("MorvuSSD", "Index", "-1"), {}},
        // What merely reads as 0 or as 1 names no drive.
        Selection{KeyObject("MorvuSSD", "SerialNumber", "NOSUCHDRIVE"), {}},
        Selection{KeyObject("MorvuSSD", "SerialNumber", "1SERIAL"), {}},
        Selection{KeyObject("MorvuSSD", "Index", "99999999999999999999"), {}},
        Selection{KeyObject("MorvuSSD", "SerialNumber", ""), {}},
        Selection{KeyObject("MorvuSSD", "SerialNumber", "serial1"), {}},
        Selection{KeyObject("MorvuSSD", "SerialNumber", "OTHER"), {}},
        Selection{KeyObject("Device", "SerialNumber", "OTHER"), {"OTHER"}},
        Selection{KeyObject("MorvuSSD", "SerialNumber", "DEAD"), {}},
        Selection{KeyObject("MorvuSSD", "Index", "0") + KeyObject("Device", "Index", "2"),
                  {"SERIAL0", "OTHER"}},
        Selection{"<Object cimClass='MorvuSSD'><Property name='SerialNumber'>SERIAL0</Property>"
                  "</Object>",
                  {}},
        // The first key counts; an "Index" that is no number is none.
        Selection{"<Object cimClass='MorvuSSD'><Property key='True' name='Index'>abc</Property>"
                  "<Property key='True' name='SerialNumber'>SERIAL0</Property></Object>",
                  {"SERIAL0"}},
        Selection{"", {"SERIAL0", "SERIAL1", "OTHER", "1", "DEAD"}},
        Selection{"<Object cimClass='Unknown'/>", {"SERIAL0", "SERIAL1", "OTHER", "1", "DEAD"}}));

TEST_F(DriveClass, PartitionIsSelectedByItsId) {
  EXPECT_EQ(0u, HandMadeDrive("").GetPartitionId(Partition("")));
  auto& first = Add("SERIAL0");
  auto& second = Add("SERIAL1");
  for (auto* drive : {&first, &second}) {
    drive->GetPartitions().emplace_back("/dev/sdx1");
    drive->GetPartitions().emplace_back("/dev/sdx2");
  }
  const auto id = std::to_string(second.GetPartitionId(second.GetPartitions()[1]));
  const auto select = [&](const std::string& content) {
    SelectedDevices selected;
    Morvu::SelectDevices(Drives(), Message::Parse("<Message>" + content + "</Message>").get(),
                         selected);
    return selected;
  };
  const auto partition = [](const std::string& text) {
    return "<Object name='Partition'><Property name='Id'>" + text + "</Property></Object>";
  };

  // A partition alone names no drive: all are selected.
  const auto selected = select(partition(id));
  EXPECT_EQ(2u, selected.devices.size());
  ASSERT_EQ(1u, selected.partitions.size());
  EXPECT_EQ("/dev/sdx2", selected.partitions[0].GetName());
  const auto both = select(partition(id) + KeyObject("MorvuSSD", "Index", "1"));
  EXPECT_EQ(1u, both.devices.size());
  EXPECT_EQ(1u, both.partitions.size());
  EXPECT_EQ(0u, select(partition("1")).partitions.size());
  EXPECT_EQ(0u, select(partition(id + "x")).partitions.size());
  EXPECT_EQ(0u, select("<Object name='Partition'/>").partitions.size());
}

// ---- Requests and their results ----

struct Request {
  std::string_view what;
  std::string content;
  StatusCode code;
};

void PrintTo(const Request& request, std::ostream* out) { *out << request.what; }

const std::string kMethod = "<Object type='method' name='HostController'/>";
const std::string kUnknownMethod = "<Object type='method' name='Explode'/>";
const std::string kOne = KeyObject("MorvuSSD", "Index", "0");

class Requests : public DriveClass, public ::testing::WithParamInterface<Request> {};

TEST_P(Requests, EndWithTheirCode) {
  Add("SERIAL0");
  Add("SERIAL1");

  const auto reply = Ask(GetParam().content);

  EXPECT_EQ(GetParam().code, code);
  EXPECT_EQ(100, percent);
  EXPECT_EQ(GetParam().code == 0 ? 0 : 1, state);
  ASSERT_FALSE(reply->lists.empty());
  const auto& list = *reply->lists.back();
  EXPECT_EQ("MorvuSSD", list.GetAttribute("name"));
  EXPECT_EQ("MorvuSSD", list.GetAttribute("cimClass"));
  EXPECT_EQ("o", list.GetAttribute("direction"));
  EXPECT_EQ("MorvuSSD", reply->GetAttribute("subject"));
}

INSTANTIATE_TEST_SUITE_P(
    DriveClass, Requests,
    ::testing::Values(
        Request{"list", "", 0}, Request{"method", kOne + kMethod, 0},
        Request{"method of two drives", kMethod, 245},
        Request{"unknown method", kOne + kUnknownMethod, 270},
        Request{"two methods", kOne + kMethod + kUnknownMethod, 271},
        Request{"method of no drive", KeyObject("Device", "Index", "7") + kMethod, 245},
        Request{"two properties", kOne + "<Property name='a'/><Property name='b'/>", 73},
        Request{"property of two drives", "<Property direction='io' name='MaximumLBA'/>", 73},
        Request{"property read only by direction",
                kOne + "<Property direction='o' name='MaximumLBA'>native</Property>", 73},
        Request{"property without a direction", kOne + "<Property name='MaximumLBA'/>", 73},
        Request{"unknown property", kOne + "<Property direction='i' name='Colour'>red</Property>",
                272},
        Request{"name in other letters",
                kOne + "<Property direction='i' name='maximumlba'>native</Property>", 272},
        Request{"property that cannot be written",
                kOne + "<Property direction='i' name='SerialNumber'>X</Property>", 73}));

TEST_F(DriveClass, WithoutDrivesRepliesAnEmptyList) {
  EXPECT_THAT(List(""), IsEmpty());
  EXPECT_EQ(0, code);
  EXPECT_THAT(List(KeyObject("MorvuSSD", "Index", "0")), IsEmpty());
  EXPECT_EQ(245, code);
}

TEST_F(DriveClass, HostCannotClaimThatAPowerCycleIsNeeded) {
  Add("SERIAL0");
  const auto reply =
      Ask("<Property direction='i' name='SerialNumber' powercycle='True'>X</Property>");
  EXPECT_EQ(73, code);
  EXPECT_EQ("", reply->GetAttribute("powercycle"));
}

// ---- The Object of a drive ----

TEST_F(DriveClass, SubjectShowsItsDrives) {
  Add("OURS");
  Add("OTHERS", false);
  EXPECT_THAT(List("", "MorvuSSD"), ElementsAre("OURS"));
  EXPECT_THAT(List("", "Device"), ElementsAre("OURS", "OTHERS"));

  const auto reply = Ask("", "Device");
  EXPECT_EQ("MorvuSSD", reply->lists[0]->objects[0]->GetAttribute("cimClass"));
  EXPECT_EQ("Device", reply->lists[0]->objects[1]->GetAttribute("cimClass"));
}

std::vector<std::string> PropertyNames(const Object& object) {
  std::vector<std::string> names;
  for (const auto& property : object.properties) names.push_back(property->GetAttribute("name"));
  return names;
}

TEST_F(DriveClass, ShowsThePropertiesThatAreNamed) {
  auto& drive = Add("SERIAL0");
  drive.AddProperty(Properties::SMARTEnabled, true);
  drive.AddProperty(Properties::MaximumLBA, std::uint64_t{0xFFFFFFFFFF});

  const auto reply =
      Ask("<Object name='cimProperties'><Property name='serialnumber'/><Property name='Colour'/>"
          "<Property name='MaximumLBA'/></Object>"
          "<Object name='cimProperties'><Property name='SMARTEnabled'/><Property name='Firmware'/>"
          "</Object>");

  EXPECT_EQ(0, code);
  const auto& object = *reply->lists[0]->objects[0];
  EXPECT_THAT(PropertyNames(object),
              ElementsAre("SerialNumber", "Colour", "MaximumLBA", "SMARTEnabled"));
  EXPECT_EQ("SERIAL0", object.properties[0]->value);
  EXPECT_EQ("True", object.properties[0]->GetAttribute("key"));
  EXPECT_EQ("Property does not exist.", object.properties[1]->value);
  EXPECT_EQ("1099511627775", object.properties[2]->value);
  EXPECT_EQ("io", object.properties[2]->GetAttribute("direction"));
  EXPECT_EQ("False", object.properties[2]->GetAttribute("required"));
  EXPECT_EQ("True", object.properties[3]->value);
}

TEST_F(DriveClass, ShowsNoMoreThanTheErrorOfADriveItCannotReach) {
  auto& drive = Add("SERIAL0");
  drive.AddProperty(Properties::ModelNumber, "MODEL");
  drive.AddProperty(Properties::DriverCommunicationError, std::uint32_t{286});

  const auto reply = Ask("<Object name='cimProperties'><Property name='Index'/></Object>",
                         "MorvuSSD", "includeMethods='True'");

  const auto& object = *reply->lists[0]->objects[0];
  EXPECT_THAT(PropertyNames(object),
              ElementsAre("ModelNumber", "SerialNumber", "DriverCommunicationError"));
  EXPECT_EQ("o", object.properties[0]->GetAttribute("direction"));
  EXPECT_EQ("286", object.properties[2]->value);
  EXPECT_EQ("286", object.properties[2]->GetAttribute("value"));
  EXPECT_THAT(object.objects, IsEmpty());
}

std::vector<std::string> MethodNames(const Object& object) {
  std::vector<std::string> names;
  for (const auto& method : object.objects) names.push_back(method->GetAttribute("name"));
  return names;
}

TEST_F(DriveClass, ShowsMethodsWhenAsked) {
  Add("OURS");
  Add("OTHERS", false);
  const auto plain = Ask("", "Device");
  EXPECT_THAT(MethodNames(*plain->lists[0]->objects[0]), IsEmpty());

  const auto reply = Ask("", "Device", "includeMethods='True'");
  EXPECT_THAT(MethodNames(*reply->lists[0]->objects[0]), ::testing::Contains("HostController"));
  EXPECT_THAT(MethodNames(*reply->lists[0]->objects[1]),
              ::testing::Not(::testing::Contains("HostController")));
}

TEST_F(DriveClass, ShowsTheMembersOfALogicalDrive) {
  auto& drive = Add("VOLUME");
  for (const auto* path : {"/dev/sg4", "/dev/sg5"}) {
    auto member = std::make_unique<HandMadeDrive>(path);
    member->AddProperty(Properties::DevicePath, path);
    drive.GetChildren().push_back(std::move(member));
  }

  const auto reply = Ask("");

  const auto& list = *reply->lists[0]->objects[0]->lists.at(0);
  EXPECT_EQ("RAIDMember", list.GetAttribute("name"));
  ASSERT_EQ(2u, list.objects.size());
  EXPECT_EQ("/dev/sg4", list.objects[0]->GetAttribute("name"));
  EXPECT_EQ("/dev/sg5", list.objects[1]->GetAttribute("name"));
}

// ---- HostController ----

TEST_F(DriveClass, HostControllerTabulatesTheController) {
  auto& drive = Add("SERIAL0");
  drive.AddProperty(Properties::ControllerIDEMode, true);
  drive.AddProperty(Properties::DriverMajorVersion, 6);

  const auto reply = Ask(kMethod);

  ASSERT_EQ(2u, reply->lists.size());
  const auto& table = *reply->lists[0];
  EXPECT_EQ("HostController", table.GetAttribute("name"));
  EXPECT_EQ("table", table.GetAttribute("type"));
  ASSERT_EQ(8u, table.objects.size());
  std::vector<std::string> rows;
  for (const auto& object : table.objects) {
    EXPECT_EQ("0", object->GetAttribute("row"));
    std::string row;
    for (const auto& cell : object->properties) {
      row += cell->GetAttribute("name") + cell->GetAttribute("column") + "=" + cell->value + ";";
    }
    rows.push_back(row);
  }
  EXPECT_EQ("Category0=TRANS_Controller;Field1=TRANS_Description;Value2=;", rows[0]);
  EXPECT_EQ("Category0=TRANS_Controller;Field1=TRANS_IDE Mode;Value2=True;", rows[1]);
  EXPECT_EQ("Category0=TRANS_Driver;Field1=TRANS_Major Version;Value2=6;", rows[5]);
}

TEST_F(DriveClass, HostControllerOfAnotherMakeIsEmpty) {
  Add("OTHERS", false);
  EXPECT_EQ(1u, Ask(kMethod, "Device")->lists.size());
  EXPECT_EQ(0, code);
}

// ---- Tables ----

TEST(DriveProperties, AreNamedOnce) {
  for (const auto& row : GetDriveProperties()) {
    EXPECT_EQ(&row, FindDriveProperty(row.GetName())) << row.GetName();
    EXPECT_TRUE(row.direction == "io" || row.setter == nullptr) << row.GetName();
  }
  EXPECT_EQ(nullptr, FindDriveProperty("serialnumber"));
}

}  // namespace
}  // namespace Morvu
