// The drive class on drives made by hand, this maker's and others', which no scan lists for a
// host: what a request selects, and as what each is shown.
#include <gmock/gmock.h>

#include "devices/model/Drive.h"
#include "devices/properties/BasicProperties.h"
#include "devices/properties/DriverProperties.h"
#include "devices/properties/ScanProperties.h"
#include "messaging/XmlMessaging.h"
#include "messaging/drive_class/DeviceSelection.h"
#include "messaging/drive_class/MorvuSSD.h"

namespace Morvu {
namespace {

using DeviceManagement::Device;
using DeviceManagement::Drive;
using DeviceManagement::Partition;
using DeviceManagement::SelectedDevices;
using ::testing::IsEmpty;
using XmlMessaging::Message;
namespace Properties = DeviceManagement::Properties;

class DriveClass : public ::testing::Test, protected NoJobServices {
 protected:
  Drive& Add(std::string_view serial, bool isMorvu = true) {
    auto& drive = *drives_.emplace_back(std::make_unique<Drive>());
    drive.AddProperty(Properties::SerialNumber, serial);
    drive.AddProperty(Properties::Morvu, isMorvu);
    drive.AddProperty(Properties::Index, static_cast<std::int32_t>(drives_.size()) - 1);
    return drive;
  }

  void SelectDevices(SelectedDevices& selected, const Message* request) override {
    std::vector<Device*> drives;
    for (const auto& drive : drives_) drives.push_back(drive.get());
    areNamed_ = CloneSelected(drives, request, selected);
  }
  SelectedDevices Select(const std::string& content) {
    SelectedDevices selected;
    SelectDevices(selected, Message::Parse("<Message>" + content + "</Message>").get());
    return selected;
  }

  std::unique_ptr<Message> Ask(const std::string& content, std::string_view subject) {
    const auto request = Message::Parse("<Message includeMethods='1'>" + content + "</Message>");
    JobContext context;
    context.request = request.get();
    context.subject = subject;
    context.services = this;
    return HandleMorvuSSD(context);
  }

  bool areNamed_ = false;  // by the last request

 private:
  std::vector<std::unique_ptr<Drive>> drives_;
};

std::string KeyObject(std::string_view cimClass, std::string_view name, std::string_view text) {
  return "<Object cimClass='" + std::string(cimClass) + "'><Property key='True' name='" +
         std::string(name) + "'>" + std::string(text) + "</Property></Object>";
}

TEST_F(DriveClass, SelectsTheDrivesThatTheRequestNames) {
  struct Selection {
    std::string content;
    std::vector<std::string> selected;
    bool areNamed = true;
  };
  const Selection kSelections[] = {
      {KeyObject("MorvuSSD", "SerialNumber", "SERIAL1"), {"SERIAL1"}},
      {KeyObject("MorvuSSD", "Index", "0"), {"SERIAL0"}},
      {KeyObject("MorvuSSD", "SerialNumber", "1"), {"SERIAL1", "1"}},
      {KeyObject("MorvuSSD", "Index", "abc"), {}},
      {KeyObject("MorvuSSD", "Index", "-1"), {}},
      // What merely reads as 0 or as 1 names no drive.
      {KeyObject("MorvuSSD", "SerialNumber", "NOSUCHDRIVE"), {}},
      {KeyObject("MorvuSSD", "SerialNumber", "1SERIAL"), {}},
      {KeyObject("MorvuSSD", "Index", "99999999999999999999"), {}},
      {KeyObject("MorvuSSD", "SerialNumber", ""), {}},
      {KeyObject("MorvuSSD", "SerialNumber", "serial1"), {}},
      {KeyObject("MorvuSSD", "SerialNumber", "OTHER"), {}},
      {KeyObject("Device", "SerialNumber", "OTHER"), {"OTHER"}},
      {KeyObject("MorvuSSD", "Index", "0") + KeyObject("Device", "Index", "2"),
       {"SERIAL0", "OTHER"}},
      {"<Object cimClass='MorvuSSD'><Property name='SerialNumber'>SERIAL0</Property></Object>", {}},
      // The first key counts; an "Index" that is no number is none.
      {"<Object cimClass='MorvuSSD'><Property key='True' name='Index'>abc</Property>"
       "<Property key='True' name='SerialNumber'>SERIAL0</Property></Object>",
       {"SERIAL0"}},
      {"", {"SERIAL0", "SERIAL1", "OTHER", "1"}, false},
      {"<Object cimClass='Unknown'/>", {"SERIAL0", "SERIAL1", "OTHER", "1"}, false},
  };
  Add("SERIAL0");
  Add("SERIAL1");
  Add("OTHER", false);
  Add("1");  // the index of another
  for (const auto& row : kSelections) {
    const auto selected = Select(row.content);
    std::vector<std::string> serials;
    for (const auto& drive : selected.devices) {
      serials.push_back(drive->GetString(Properties::SerialNumber));
    }
    EXPECT_EQ(row.selected, serials) << row.content;
    EXPECT_EQ(row.areNamed, areNamed_) << row.content;
  }
}

TEST_F(DriveClass, SelectsAPartitionByItsId) {
  EXPECT_EQ(0u, Drive().GetPartitionId(Partition("")));
  auto& first = Add("SERIAL0");
  auto& second = Add("SERIAL1");
  for (auto* drive : {&first, &second}) {
    drive->GetPartitions().emplace_back("/dev/sdx1");
    drive->GetPartitions().emplace_back("/dev/sdx2");
  }
  const auto id = std::to_string(second.GetPartitionId(second.GetPartitions()[1]));
  const auto partition = [](const std::string& text) {
    return "<Object name='Partition'><Property name='Id'>" + text + "</Property></Object>";
  };
  // A partition alone names no drive: all are selected.
  const auto selected = Select(partition(id));
  EXPECT_EQ(2u, selected.devices.size());
  ASSERT_EQ(1u, selected.partitions.size());
  EXPECT_EQ("/dev/sdx2", selected.partitions[0].GetName());
  const auto both = Select(partition(id) + KeyObject("MorvuSSD", "Index", "1"));
  EXPECT_EQ(1u, both.devices.size());
  EXPECT_EQ(1u, both.partitions.size());
  for (const auto& none :
       {partition("1"), partition(id + "x"), std::string("<Object name='Partition'/>")}) {
    EXPECT_THAT(Select(none).partitions, IsEmpty()) << none;
  }
}

TEST_F(DriveClass, ShowsAndTabulatesTheDrivesOfOthersAsDevicesAlone) {
  Add("OTHERS", false);
  Add("OURS").AddProperty(Properties::ControllerIDEMode, true);
  const auto tabulate = [&](std::string_view index) {
    return Ask(
        KeyObject("Device", "Index", index) + "<Object type='method' name='HostController'/>",
        "Device");
  };
  EXPECT_EQ(1u, tabulate("0")->lists.size());
  EXPECT_EQ("True", tabulate("1")->lists[0]->objects[1]->properties[2]->value);
  EXPECT_EQ(1u, Ask("", "MorvuSSD")->lists[0]->objects.size());
  const auto reply = Ask("", "Device");
  const auto& drives = reply->lists[0]->objects;
  ASSERT_EQ(2u, drives.size());
  for (const bool isOurs : {false, true}) {
    EXPECT_EQ(isOurs ? "MorvuSSD" : "Device", drives[isOurs]->GetAttribute("cimClass"));
    EXPECT_EQ(isOurs, std::ranges::any_of(drives[isOurs]->objects, [](const auto& method) {
                return method->GetAttribute("name") == "HostController";
              }));
  }
}

}  // namespace
}  // namespace Morvu
