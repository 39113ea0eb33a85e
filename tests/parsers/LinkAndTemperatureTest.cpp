// The counters of the SATA link, and the history of temperatures.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "frame/Bytes.h"
#include "frame/Files.h"
#include "frame/status/Commands.h"
#include "parsers/logs/PhyCountersParser.h"
#include "parsers/sct/HDATemperature.h"
#include "support/SettingScene.h"

namespace Morvu {
namespace {

using Bytes = std::vector<std::uint8_t>;
using EraseTesting::CallMethod;
using EraseTesting::SataSpec;
using ::testing::HasSubstr;
using Testing::SettingScene;

// ---- Counters ----

std::string Tabulate(const Bytes& log) {
  ResultTable table;
  AppendPhyCounters(log, table);
  return table.ToSeparated(";", false);
}

TEST(PhyCounters, HaveValuesOfTheirSize) {
  // clang-format off
  const Bytes log = {0, 0, 0, 0,
                     0x01, 0x10, 0x34, 0x12,                                      // 2 bytes
                     0x09, 0x20, 0x78, 0x56, 0x34, 0x12,                          // 4
                     0x0A, 0x30, 0xBC, 0x9A, 0x78, 0x56, 0x34, 0x12,              // 6
                     0x0B, 0x40, 1, 0, 0, 0, 0, 0, 0, 0x80,                       // 8
                     0x13, 0x50, 7, 0, 0x0C, 0x00, 8, 0,                          // other codes: 2
                     0x01, 0x90, 9, 0,                                            // a vendor's
                     0x01, 0x1C, 1, 0,                                            // a port multiplier's
                     0x00, 0x10, 0x01, 0x10, 1, 0};                               // the end
  // clang-format on
  EXPECT_EQ(Tabulate(log),
            "0x001;Command failed and ICRC error bit set to one in Error register;4660\n"
            "0x009;Transitions from drive PHYRDY to drive PHYRDYn;305419896\n"
            "0x00A;Signature Device-to-Host Register FISes sent due to a COMRESET;20015998343868\n"
            "0x00B;CRC errors within a Host-to-Device FIS;9223372036854775809\n"
            "0x013;R_ERRP response for Host-to-Device non-Data FIS due to non-CRC errors;7\n"
            "0x00C;Unknown;8\n"
            "0x8001;Unknown;9\n"
            "0xC01;(Port Multiplier) Signature Register\xE2\x80\x93 Device-to-Host FISes;1");
  EXPECT_EQ(Tabulate(Bytes(512)), "");
}

// In front of the checksum, and not whole.
TEST(PhyCounters, DropACounterThatDoesNotFit) {
  Bytes log(512, 0xFF);
  for (std::size_t at = 4; at < 504; at += 4) WriteLittle32(0x1001, at, log);
  WriteLittle16(0x3002, 504, log);
  EXPECT_EQ(std::ranges::count(Tabulate(log), '\n'), 124);
  EXPECT_EQ(Tabulate({0, 0, 0, 0, 1, 0x10, 1}), "");
}

TEST(PhyCounters, AreShownAndSaved) {
  SettingScene scene(SataSpec());
  const auto line = scene.Line({"-phy_counters"});
  EXPECT_EQ(line.code, Status::Completed);
  EXPECT_THAT(line.output, HasSubstr("| 0x009"));
  EXPECT_THAT(line.output, HasSubstr("9223372036854775809"));
  XmlMessaging::Message reply;
  EXPECT_EQ(CallMethod(*scene.device(), "PhyCounters", {}, NoReporter(), &reply), 0);
  ASSERT_EQ(reply.lists.size(), 1U);
  EXPECT_EQ(reply.lists[0]->GetAttribute("name"), "PhyCounters");
  EXPECT_EQ(reply.lists[0]->objects.size(), 14U);
  const auto path = scene.fleet.Folder() + "/counters.csv";
  EXPECT_EQ(CallMethod(*scene.device(), "PhyCounters", {{"file", path}}, NoReporter(), &reply), 0);
  EXPECT_THAT(ReadFileText(path), HasSubstr("'Counter ID','Description','Counter Value'\n0x001,"));
  EXPECT_EQ(reply.lists.size(), 1U);
  // Behind the SATA layer only the checksum tells that the block came short.
  scene.drive.Inject(Simulator::Fault::ShortData(20).OnOpcode(0x2F));
  EXPECT_THAT(scene.Line({"-phy_counters"}).output, HasSubstr("WARNING!"));
}

// ---- Temperatures ----

std::string ListDegrees(ByteView table) {
  std::string text;
  for (const auto& sample : ReadTemperatureHistory(table)) {
    text += std::to_string(sample.index) + "@" +
            (sample.minutes ? std::to_string(*sample.minutes) : "?") + "=" +
            (sample.degrees ? std::to_string(*sample.degrees) : "-") + " ";
  }
  return text;
}

Bytes Table(std::uint16_t interval, std::uint16_t index, const Bytes& ring) {
  Bytes table(34);
  WriteLittle16(2, 0, table);
  WriteLittle16(interval, 4, table);
  WriteLittle16(static_cast<std::uint16_t>(ring.size()), 30, table);
  WriteLittle16(index, 32, table);
  table.insert(table.end(), ring.begin(), ring.end());
  return table;
}

TEST(TemperatureHistory, EndsWithTheNewest) {
  const Bytes ring = {30, 0xFF, 0x80, 0x81};
  EXPECT_EQ(ListDegrees(Table(5, 0, ring)), "1@15=-1 2@10=- 3@5=-127 0@0=30 ");
  EXPECT_EQ(ListDegrees(Table(0, 3, ring)), "0@?=30 1@?=-1 2@?=- 3@?=-127 ");
  EXPECT_EQ(ListDegrees(Table(5, 4, ring)), "");
  auto table = Table(5, 0, ring);
  WriteLittle16(5, 30, table);
  EXPECT_EQ(ListDegrees(table), "");
  EXPECT_EQ(ListDegrees(ByteView(table).first(33)), "");
}

TEST(Temperatures, AreSignedAndStandAboveTheirHistory) {
  SettingScene scene(SataSpec());
  const auto line = scene.Line({"-hda_temp"});
  EXPECT_EQ(line.code, Status::Completed);
  EXPECT_THAT(line.output, ::testing::ContainsRegex("Minimum Temperature Limit +\\| -5 "));
  EXPECT_THAT(line.output, ::testing::ContainsRegex("\\| 6 - 477 \\| 477 - 6 +\\| - "));
  EXPECT_THAT(line.output, ::testing::ContainsRegex("\\| 2 - 3 +\\| 3 - 2 +\\| 25 "));
  XmlMessaging::Message reply;
  const auto path = scene.fleet.Folder() + "/temperature.csv";
  EXPECT_EQ(CallMethod(*scene.device(), "HDATemperature", {{"file", path}}, NoReporter(), &reply),
            0);
  EXPECT_THAT(ReadFileText(path), HasSubstr("'Field','Value'\nFormat Version,2\n"));
  ASSERT_EQ(reply.lists.size(), 1U);
  EXPECT_EQ(reply.lists[0]->GetAttribute("name"), "TemperatureHistory");
  EXPECT_EQ(reply.lists[0]->objects.size(), 478U);
}

TEST(Temperatures, OfATableThatIsNoneAreNone) {
  SettingScene scene(SataSpec());
  scene.drive.SetLog(0xE1, Bytes(512));
  const auto line = scene.Line({"-hda_temp"});
  EXPECT_EQ(line.code, Status::SmartReadLogFailed);
  EXPECT_EQ(line.output.find("Circular"), line.output.npos);
  // No block of a table, and more than it has room for.
  scene.drive.SetLog(0xE1, {});
  EXPECT_EQ(scene.Line({"-hda_temp"}).code, Status::SmartReadLogFailed);
  auto table = Table(5, 0, {30, 31});
  table.resize(4 * 512);
  scene.drive.SetLog(0xE1, table);
  scene.drive.ClearJournal();
  EXPECT_EQ(scene.Line({"-hda_temp"}).code, Status::Completed);
  EXPECT_EQ(std::ranges::count_if(scene.Commands(0xB0),
                                  [](const auto& sent) { return (sent.Lba() & 0xFF) == 0xE1; }),
            1);
  scene.drive.State().ata.sct.refusedAction = 5;
  EXPECT_EQ(scene.Line({"-hda_temp"}).code, Status::SmartWriteLogFailed);
}

}  // namespace
}  // namespace Morvu
