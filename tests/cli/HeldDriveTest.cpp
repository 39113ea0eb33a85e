// A drive that another program works on, at the prompt.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <unistd.h>

#include "TestFleet.h"
#include "support/CommandLine.h"

namespace Morvu::Testing {
namespace {

using testing::HasSubstr;

TEST(HeldAtThePrompt, ADriveKeepsItsRowAndGetsNothing) {
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
