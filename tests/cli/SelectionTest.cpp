// Which drives a line that selects one asks: that one.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <unistd.h>

#include <filesystem>

#include "TestFleet.h"
#include "support/CommandLine.h"
#include "support/HeldDrive.h"

namespace Morvu::Testing {
namespace {

using Simulator::Kind;
using Simulator::SimulatedDrive;
using Simulator::TestFleet;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

class SelectionTest : public testing::Test {
 protected:
  SelectionTest() {
    fleet_.Drive("/dev/sg1").AddPartition();
    std::filesystem::create_directories(fleet_.Folder() + "/dev/sd-by-id");
    std::filesystem::create_symlink("../sdb", fleet_.Folder() + "/dev/sd-by-id/link");
  }

  TestFleet fleet_;
  SimulatedDrive foreign_ = fleet_.Add({.model = "ANOTHER MAKER'S SSD", .serial = "FOREIGN"});
  SimulatedDrive sata_ = fleet_.Add({.model = "MORVU SSDSC2BB480G4", .serial = "SATA1"});
  SimulatedDrive nvme_ = fleet_.Add({.kind = Kind::Nvme, .serial = "NVME1"});
  SimulatedDrive two_ = fleet_.Add({.kind = Kind::Nvme, .serial = "NVME2", .namespaces = 2});
  SimulatedDrive sas_ = fleet_.Add({.kind = Kind::Scsi, .model = "SSD400SAS", .serial = "SAS1"});
};

struct SelectionCase {
  std::string name;
  std::vector<std::string> words;
  std::string path;  // of the drive that is shown; empty when none is
  bool asksOthers = false;
};

class OneDriveTest : public SelectionTest, public testing::WithParamInterface<SelectionCase> {};

TEST_P(OneDriveTest, IsAskedAlone) {
  const auto outcome = RunToolLine(GetParam().words);
  EXPECT_EQ(!GetParam().path.empty(), outcome.code == 0) << outcome.output;
  for (auto* drive : {&foreign_, &sata_, &nvme_, &two_, &sas_}) {
    const bool isShown = outcome.output.find(drive->Node() + " ") != std::string::npos;
    EXPECT_EQ(drive->Node() == GetParam().path, isShown) << drive->Node();
    if (!GetParam().asksOthers && !isShown) {
      EXPECT_THAT(drive->Journal(), IsEmpty()) << drive->Node();
    }
  }
}

INSTANTIATE_TEST_SUITE_P(
    Lines, OneDriveTest,
    testing::Values(SelectionCase{"Generic", {"-drive_path", "/dev/sg1"}, "/dev/sg1"},
                    SelectionCase{"Block", {"-drive_path", "/dev/sdb"}, "/dev/sg1"},
                    SelectionCase{"Link", {"-drive_path", "/dev/sd-by-id/link"}, "/dev/sg1"},
                    SelectionCase{"Namespace", {"-drive_path", "/dev/nvme0n1"}, "/dev/nvme0n1"},
                    SelectionCase{"Controller", {"-drive_path", "/dev/nvme0"}, "/dev/nvme0n1"},
                    SelectionCase{"PartitionIsNoDrive", {"-drive_path", "/dev/sdb1"}, ""},
                    SelectionCase{"NoSuchPath", {"-drive_path", "/dev/sg9"}, ""},
                    SelectionCase{"Serial", {"-drive_serial", "SATA1"}, "/dev/sg1"},
                    SelectionCase{"NvmeSerial", {"-drive_serial", "NVME1"}, "/dev/nvme0n1"},
                    SelectionCase{"SasSerial", {"-drive_serial", "SAS1"}, "/dev/sg2"},
                    SelectionCase{"NoSuchSerial", {"-drive_serial", "SATA2"}, "", true},
                    SelectionCase{"Index", {"-drive_index", "4"}, "/dev/sg1", true}),
    [](const auto& run) { return run.param.name; });

// Which of them is meant cannot be told.
TEST_F(SelectionTest, AControllerWithSeveralNamespacesNamesNone) {
  const auto outcome = RunToolLine({"-drive_path", "/dev/nvme1"});
  EXPECT_NE(0, outcome.code);
  EXPECT_THAT(outcome.output, Not(HasSubstr("/dev/nvme1n")));
}

// Alone it has the number that the list of all gives it.
TEST_F(SelectionTest, ADriveKeepsItsNumber) {
  EXPECT_THAT(RunToolLine({"-drive_path", "/dev/sg1"}).output,
              testing::ContainsRegex("Drive Index: +\\| 4 "));
  EXPECT_THAT(RunToolLine({"-drive_index", "4"}).output, HasSubstr("/dev/sg1"));
}

TEST_F(SelectionTest, WaitsForNoOtherDrive) {
  const HeldDrive held(fleet_, "sg0");
  for (const char* option : {"-drive_path", "-drive_serial"}) {
    const auto* value = std::string_view(option) == "-drive_path" ? "/dev/sg1" : "SATA1";
    EXPECT_EQ(0, RunToolLine({option, value}).code);
  }
}

// One that another program works on.
TEST(Selection, AHeldDriveKeepsItsRowAndGetsNothing) {
  Simulator::TestFleet fleet;
  auto held = fleet.Add({.model = "MORVU SSDSC2BB480G4", .serial = "SATA1"});
  fleet.Add({.model = "MORVU SSDSC2BB480G4", .serial = "SATA2"});
  const int file = open((fleet.Folder() + "/dev/sda").c_str(), O_RDONLY | O_CLOEXEC);
  ASSERT_EQ(flock(file, LOCK_EX | LOCK_NB), 0);

  const auto list = RunToolLine({"-drive_list"});
  EXPECT_THAT(list.output, testing::ContainsRegex("SATA1(.|\n)*In Use:(.|\n)*SATA2"));
  EXPECT_THAT(RunToolLine({"-drive_index", "1"}).output, HasSubstr("SATA2"));
  EXPECT_THAT(RunToolLine({"-drive_serial", "SATA1"}).output, HasSubstr("works on the drive"));
  const std::vector<std::vector<std::string>> lines = {
      {"-secure_erase", "-force"}, {"-sanitize", "block", "-force"}, {"-format", "-force"},
      {"-standby_immediate"},      {"-self_test", "short"},          {"-smart"}};
  for (const auto& words : lines) {
    auto line = words;
    line.insert(line.begin(), {"-drive_serial", "SATA1"});
    const auto outcome = RunToolLine(line);
    EXPECT_EQ(outcome.code, 180) << words.front();
    EXPECT_THAT(outcome.output, HasSubstr("Only one session")) << words.front();
  }
  EXPECT_TRUE(held.Journal().empty());
  close(file);
}

}  // namespace
}  // namespace Morvu::Testing
